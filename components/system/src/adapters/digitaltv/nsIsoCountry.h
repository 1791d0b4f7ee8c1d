// A country as a value.
#pragma once

#include "nsClassInfoOfAll.h"
#include "nsIIsoCountry.h"
#include "nsModuleClass.h"
#include "nsString.h"

class nsIsoCountry final : public nsImplements<nsIsoCountry, nsIIsoCountry> {
 public:
  static constexpr nsModuleClass kModuleClass{.mRow = 3,
                                              .mCID = "cd63c84b-a253-4791-9d31-c938398a8954"_iid,
                                              .mContractID = "@vorel/isocountry;1"};
  static constexpr nsClassInfoRecord kClassInfo =
      NS_ClassInfoOfAll<"", nsImplementsWith>(kModuleClass.mCID);

  nsresult GetCode(nsACString& aCode) override;
  nsresult SetCode(const nsACString& aCode) override;
  nsresult GetName(nsACString& aName) override;
  nsresult SetName(const nsACString& aName) override;

 private:
  ~nsIsoCountry() override = default;

  nsCString mCode;
  nsCString mName;
};
