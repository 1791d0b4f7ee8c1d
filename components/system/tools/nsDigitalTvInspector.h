// Inspection of streams and channels files for the program's tools.
#pragma once

#include <memory>
#include <string>

#include "nsIDigitalTvInspector.h"
#include "nsImplements.h"
#include "nsNamedThread.h"

class nsDigitalTvInspector final
    : public nsImplements<nsDigitalTvInspector, nsIDigitalTvInspector> {
 public:
  static constexpr nsClassInfoRecord kClassInfo =
      NS_ClassInfo<"", nsIDigitalTvInspector>("0d1de8b3-3b54-4a52-9e83-6a7c6b5f1e03"_iid);

  nsresult InspectStream(const nsACString& aPath,
                         nsIDigitalTvInspectorListener* aListener) override;
  nsresult CheckChannels(const nsACString& aPath, nsACString& aReport) override;
  nsresult ListCountries(nsACString& aReport) override;

 private:
  struct Reading;
  class Message;
  ~nsDigitalTvInspector() override;
  void End();
  static void Inspect(const std::string& aPath, const std::shared_ptr<Reading>& aReading);

  nsCOMPtr<nsIDigitalTvInspectorListener> mListener;
  std::shared_ptr<Reading> mReading;  ///< null: nothing is read
  nsNamedThread mThread;
};
