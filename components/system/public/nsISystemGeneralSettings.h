// The machine as a whole: "@vorel/system/generalsettings;1", in script the global
// systemGeneralSettings.
#pragma once

#include "nsXPCOMTypes.h"

class nsISystemMACStructure;

/// Main thread, but for what is said otherwise.
class nsISystemGeneralSettings : public nsISupports {
 public:
  using Self = nsISystemGeneralSettings;
  using Base = nsISupports;
  static constexpr std::string_view kName = "nsISystemGeneralSettings";
  static constexpr nsIID kIID = "da603655-0a3f-4a58-b104-06a513243fd5"_iid;

  /// The machine's name on the network, at most 63 bytes. Success, and the string as it was, when
  /// it can't be had.
  virtual nsresult GetHostName(nsACString& aHostName) = 0;
  /// NS_ERROR_NOT_IMPLEMENTED, always.
  virtual nsresult SetHostName(const nsACString& aHostName) = 0;
  /// Whether the mouse cursor shows, as it was last set here; true to begin with. Any thread.
  virtual nsresult GetShowCursor(bool* aShowCursor) = 0;
  /// Shows or hides it, whatever others in the process have done to it. Any thread.
  virtual nsresult SetShowCursor(bool aShowCursor) = 0;
  /// The machine's serial number, on platforms where it has one; NS_ERROR_NOT_IMPLEMENTED on all
  /// others.
  virtual nsresult GetDeviceId(nsACString& aDeviceId) = 0;
  /// The address of the first LAN adapter, as it was when this was first asked for.
  /// NS_ERROR_FAILURE when that adapter has none; without such an adapter, the failure of the list.
  virtual nsresult GetMac(nsISystemMACStructure** aMac) = 0;
  /// A text that names this machine, made of its address: "00000000-0000-0000-0001-001122334455".
  /// Kept from the first success on. The failures of GetMac.
  virtual nsresult GetUuid(nsACString& aUuid) = 0;
  /// What the player runs on, system and processor: "nt-ia32", "linux-x86_64".
  virtual nsresult GetPlatform(nsACString& aPlatform) = 0;
  /// The product's version, from the preference "extensions.lastAppVersion"; its failure when there
  /// is none.
  virtual nsresult GetVersion(nsACString& aVersion) = 0;
  /// Five texts about the device, for the application's use, in the preferences
  /// "vorel.player.device-info.field1" to "field5". One that was never set is empty.
  virtual nsresult GetField1(nsAString& aField) = 0;
  virtual nsresult SetField1(const nsAString& aField) = 0;
  virtual nsresult GetField2(nsAString& aField) = 0;
  virtual nsresult SetField2(const nsAString& aField) = 0;
  virtual nsresult GetField3(nsAString& aField) = 0;
  virtual nsresult SetField3(const nsAString& aField) = 0;
  virtual nsresult GetField4(nsAString& aField) = 0;
  virtual nsresult SetField4(const nsAString& aField) = 0;
  virtual nsresult GetField5(nsAString& aField) = 0;
  virtual nsresult SetField5(const nsAString& aField) = 0;

 protected:
  ~nsISystemGeneralSettings() = default;
};
