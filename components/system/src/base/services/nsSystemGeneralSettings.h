#pragma once

#include "nsImplements.h"
#include "nsPlatform.h"
#include "nsSystemGeneralSettingsGeneric.h"

class nsSystemGeneralSettings final : public nsSystemGeneralSettingsGeneric {
 public:
  static const nsClassInfoRecord kClassInfo;

  explicit nsSystemGeneralSettings(nsPlatformRef aPlatform);

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
