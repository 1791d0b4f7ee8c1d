// A stream that goes to the standard output, for the program's tools.
#pragma once

#include <memory>

#include "nsIStreamOutput.h"
#include "nsImplements.h"
#include "nsNamedThread.h"

class nsStreamOutput final : public nsImplements<nsStreamOutput, nsIStreamOutput> {
 public:
  static constexpr nsClassInfoRecord kClassInfo =
      NS_ClassInfo<"", nsIStreamOutput>("4c1f1f52-6c0e-4a77-9a7b-0d3a5c64a103"_iid);

  nsresult Start(nsIInputStream* aStream, nsIStreamOutputListener* aListener) override;
  nsresult GetWritten(uint64_t* aWritten) override;

 private:
  struct Copy;
  class Ended;
  ~nsStreamOutput() override;
  static nsresult Run(Copy& aCopy);

  nsCOMPtr<nsIStreamOutputListener> mListener;
  std::shared_ptr<Copy> mCopy;
  nsNamedThread mThread;
};
