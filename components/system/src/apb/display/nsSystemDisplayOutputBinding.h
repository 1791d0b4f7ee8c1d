// The binding of display outputs: what an application profile may do with a screen.
#pragma once

#include "nsClassInfoOfAll.h"
#include "nsISystemAdapter.h"
#include "nsISystemApplicationProfile.h"
#include "nsISystemDisplayOutputBinding.h"
#include "nsLogger.h"
#include "nsModuleClass.h"

class nsISystemAdapterDisplayOutput;

/// "@vorel/system/apb/displayoutput;1"; made by the profiles' own means.
class nsSystemDisplayOutputBinding final
    : public nsImplements<nsSystemDisplayOutputBinding, nsISystemDisplayOutputBinding> {
 public:
  static constexpr nsModuleClass kModuleClass{.mRow = 8,
                                              .mCID = "e20a6b80-7874-11e3-981f-0800200c9a66"_iid,
                                              .mContractID = "@vorel/system/apb/displayoutput;1"};
  static constexpr nsClassInfoRecord kClassInfo =
      NS_ClassInfoOfAll<"SystemDisplayOutputBinding", nsImplementsWith>(kModuleClass.mCID);

  nsSystemDisplayOutputBinding();

  nsresult Init(nsISystemAdapter* aAdapter, nsISystemApplicationProfile* aApplicationProfile,
                nsIPrefBranch* aBranch) override;
  nsresult IsEnabled(bool* aEnabled) override;
  nsresult GetApplicationProfile(nsISystemApplicationProfile** aApplicationProfile) override;
  nsresult GetAdapter(nsISystemAdapter** aAdapter) override;
  nsresult GetStandby(bool* aStandby) override;
  nsresult SetStandby(bool aStandby) override;
  nsresult GetBrightness(uint16_t* aBrightness) override;
  nsresult SetBrightness(uint16_t aBrightness) override;

 private:
  ~nsSystemDisplayOutputBinding() override;

  bool IsInited() const;
  nsCOMPtr<nsISystemAdapterDisplayOutput> DisplayOutput() const;

  const nsCOMPtr<nsILog4Logger> mLogger;
  nsCOMPtr<nsISystemAdapter> mAdapter;
  nsCOMPtr<nsISystemApplicationProfile> mProfile;
  bool mInited = false;
};
