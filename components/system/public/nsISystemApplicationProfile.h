// A named use of the machine: "richmedia-player", "software-manager".
#pragma once

#include "nsXPCOMTypes.h"

/// An application profile. It lives through the bindings that say on which adapters it is in force.
/// Immutable; any thread.
class nsISystemApplicationProfile : public nsISupports {
 public:
  using Self = nsISystemApplicationProfile;
  using Base = nsISupports;
  static constexpr std::string_view kName = "nsISystemApplicationProfile";
  static constexpr nsIID kIID = "b43221d8-8131-444e-bd32-c1d2f777c707"_iid;

  /// The key of the preferences below "vorel.app-profile." and of the manager's look-up of
  /// bindings.
  virtual nsresult GetName(nsAString& aName) = 0;
  /// A longer text for people; empty for the profiles that the system makes.
  virtual nsresult GetDescription(nsAString& aDescription) = 0;
  /// The text for people; equal to the name for the profiles that the system makes.
  virtual nsresult GetLabel(nsAString& aLabel) = 0;

 protected:
  ~nsISystemApplicationProfile() = default;
};
