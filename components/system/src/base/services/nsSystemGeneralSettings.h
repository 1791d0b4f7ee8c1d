// The service of what the machine is as a whole: what the platform has of it.
#pragma once

#include "nsImplements.h"
#include "nsModuleClass.h"
#include "nsPlatform.h"
#include "nsSystemGeneralSettingsGeneric.h"

class nsSystemGeneralSettings final : public nsSystemGeneralSettingsGeneric {
 public:
  static constexpr nsModuleClass kModuleClass{.mRow = 13,
                                              .mCID = "792a619b-5a10-4249-a0c6-6778b1e0595e"_iid,
                                              .mContractID = "@vorel/system/generalsettings;1",
                                              .mIsService = true,
                                              .mDOMRow = 2,
                                              .mGlobal = "systemGeneralSettings"};
  static constexpr nsClassInfoRecord kClassInfo =
      NS_ClassInfo<"SystemGeneralSettings", nsISystemGeneralSettings>(kModuleClass.mCID);

  explicit nsSystemGeneralSettings(nsPlatformRef aPlatform);
  nsresult InitSingleton() { return InitGeneric(); }

  nsresult QueryInterface(const nsIID& aIID, void** aResult) override;
  nsrefcnt AddRef() override { return mRefCnt.Increment(); }
  nsrefcnt Release() override;

  nsresult GetHostName(nsACString& aHostName) override;
  nsresult GetShowCursor(bool* aShowCursor) override;
  nsresult SetShowCursor(bool aShowCursor) override;
  nsresult GetDeviceId(nsACString& aDeviceId) override;
  nsresult GetPlatform(nsACString& aPlatform) override;

 private:
  ~nsSystemGeneralSettings() override = default;

  nsAtomicCount mRefCnt;
  bool mShowCursor = true;
  const nsPlatformRef mPlatform;
};
