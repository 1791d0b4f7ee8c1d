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
  nsresult SetHostName(const nsACString&) override { return NS_ERROR_NOT_IMPLEMENTED; }
  nsresult GetMac(nsISystemMACStructure** aMac) override;
  nsresult GetUuid(nsACString& aUuid) override;
  nsresult GetVersion(nsACString& aVersion) override;
  nsresult GetField1(nsAString& aField) override { return GetField('1', aField); }
  nsresult SetField1(const nsAString& aField) override { return SetField('1', aField); }
  nsresult GetField2(nsAString& aField) override { return GetField('2', aField); }
  nsresult SetField2(const nsAString& aField) override { return SetField('2', aField); }
  nsresult GetField3(nsAString& aField) override { return GetField('3', aField); }
  nsresult SetField3(const nsAString& aField) override { return SetField('3', aField); }
  nsresult GetField4(nsAString& aField) override { return GetField('4', aField); }
  nsresult SetField4(const nsAString& aField) override { return SetField('4', aField); }
  nsresult GetField5(nsAString& aField) override { return GetField('5', aField); }
  nsresult SetField5(const nsAString& aField) override { return SetField('5', aField); }

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
