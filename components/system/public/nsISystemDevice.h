// What kind of thing an adapter is: mass storage, an ExpressCard receiver.
#pragma once

#include "nsXPCOMTypes.h"

/// The device of an adapter. Its name is the first of the keys by which application profiles are
/// looked up. Immutable; any thread.
class nsISystemDevice : public nsISupports {
 public:
  using Self = nsISystemDevice;
  using Base = nsISupports;
  static constexpr std::string_view kName = "nsISystemDevice";
  static constexpr nsIID kIID = "73828cbd-ab7a-49db-8e4d-638c1d33d0eb"_iid;

  /// The device type's name, "mass-storage" for one: a word of the preference names, so without
  /// points.
  virtual nsresult GetName(nsAString& aName) = 0;
  /// The text for people, "mass storage".
  virtual nsresult GetLabel(nsAString& aLabel) = 0;
  /// Two kept places. NS_ERROR_NOT_IMPLEMENTED, always; their arguments are not looked at.
  virtual nsresult Reserved5(void* aArgument) = 0;
  virtual nsresult Reserved6(void* aFirst, void* aSecond) = 0;

 protected:
  ~nsISystemDevice() = default;
};
