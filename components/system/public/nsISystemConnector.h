// How an adapter is attached to the outside world: a USB socket, an ExpressCard slot.
#pragma once

#include "nsXPCOMTypes.h"

/// A connector of an adapter. Its name and mask are the second and third key by which application
/// profiles are looked up. Main thread; immutable but for the label.
class nsISystemConnector : public nsISupports {
 public:
  using Self = nsISystemConnector;
  using Base = nsISupports;
  static constexpr std::string_view kName = "nsISystemConnector";
  static constexpr nsIID kIID = "6e91f4e3-fbda-4c4b-8cbb-b800342bb0c8"_iid;

  /// The connector type, "usb" for one: a word of the preference names, so without points.
  virtual nsresult GetName(nsAString& aName) = 0;
  /// "*", or decimal digits: a bit mask that tells equal connectors of one machine apart. The masks
  /// of an adapter's connectors are joined bit by bit.
  virtual nsresult GetMask(nsAString& aMask) = 0;
  /// The text for people: the one of the maker until SetLabel.
  virtual nsresult GetLabel(nsAString& aLabel) = 0;
  /// Changes the label and stores it as the preference "vorel.connectors.NAME.MASK", for the
  /// application: the system itself does not read it back. The label is changed even when it could
  /// not be stored: NS_ERROR_FAILURE without the preferences, else the error that they gave.
  virtual nsresult SetLabel(const nsAString& aLabel) = 0;
  /// Success, and the caller's string stays as it is.
  virtual nsresult GetType(nsAString& aType) = 0;
  /// Three kept places. NS_ERROR_NOT_IMPLEMENTED, always; their argument is not looked at.
  virtual nsresult Reserved8(void* aArgument) = 0;
  virtual nsresult Reserved9(void* aArgument) = 0;
  virtual nsresult Reserved10(void* aArgument) = 0;

 protected:
  ~nsISystemConnector() = default;
};
