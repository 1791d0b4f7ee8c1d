// What an application needs to know of the machine: the part that no platform changes.
#pragma once

#include <string>

#include "nsCOMPtr.h"
#include "nsIPrefBranch.h"
#include "nsISystemGeneralSettings.h"
#include "nsISystemMACStructure.h"
#include "nsLock.h"
#include "nsLogger.h"

class nsISystemAdapter;

class nsSystemGeneralSettingsGeneric : public nsISystemGeneralSettings {
 public:
  nsresult SetHostName(const nsACString& aHostName) override;
  nsresult GetMac(nsISystemMACStructure** aMac) override;
  nsresult GetUuid(nsACString& aUuid) override;
  nsresult GetVersion(nsACString& aVersion) override;
  nsresult GetField1(nsAString& aField) override;
  nsresult SetField1(const nsAString& aField) override;
  nsresult GetField2(nsAString& aField) override;
  nsresult SetField2(const nsAString& aField) override;
  nsresult GetField3(nsAString& aField) override;
  nsresult SetField3(const nsAString& aField) override;
  nsresult GetField4(nsAString& aField) override;
  nsresult SetField4(const nsAString& aField) override;
  nsresult GetField5(nsAString& aField) override;
  nsresult SetField5(const nsAString& aField) override;

  /// Gets the preferences; the object is of no use without them. To be called once, first.
  nsresult InitGeneric();

 protected:
  nsSystemGeneralSettingsGeneric();
  virtual ~nsSystemGeneralSettingsGeneric() = default;

  const nsCOMPtr<nsILog4Logger> mLogger;
  nsCOMPtr<nsIPrefBranch> mPrefs;
  nsMutex mLock;  // guards the two below, and the cursor's field

 private:
  nsresult GetAdapter(nsISystemAdapter** aAdapter);
  nsresult GetField(char aDigit, nsAString& aField);
  nsresult SetField(char aDigit, const nsAString& aField);

  nsCOMPtr<nsISystemMACStructure> mMac NS_GUARDED_BY(mLock);  // null until first asked for
  std::string mUuid NS_GUARDED_BY(mLock);                     // empty until first asked for
};
