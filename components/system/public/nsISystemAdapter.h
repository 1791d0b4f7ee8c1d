// An adapter: one thing of the machine that the application can use.
#pragma once

#include "nsXPCOMTypes.h"

class nsIArray;
class nsISystemDevice;

/// What all adapters have in common. Each kind has an interface that derives from this one.
///
/// What is told here is set before the manager publishes the adapter and does not change after
/// that. The count is atomic, and these operations may be called on any thread.
class nsISystemAdapter : public nsISupports {
 public:
  using Self = nsISystemAdapter;
  using Base = nsISupports;
  static constexpr std::string_view kName = "nsISystemAdapter";
  static constexpr nsIID kIID = "65b98351-d1be-46be-9c97-be049f2756cf"_iid;

  /// What identifies the adapter to the system, in a form of its kind: "COM3" for a serial port.
  /// Empty for directories and volumes.
  virtual nsresult GetSysPath(nsAString& aSysPath) = 0;
  /// The text for people, "Port serie COM3". May be empty.
  virtual nsresult GetLabel(nsAString& aLabel) = 0;
  /// A new array of its nsISystemConnector, in the order in which they were found; empty when there
  /// is none. Fails as making an array fails.
  virtual nsresult GetConnectors(nsIArray** aConnectors) = 0;
  /// A new array, always empty.
  virtual nsresult GetAttachedObjects(nsIArray** aAttachedObjects) = 0;
  /// Null, and success, for an adapter that belongs to no device.
  virtual nsresult GetDevice(nsISystemDevice** aDevice) = 0;

 protected:
  ~nsISystemAdapter() = default;
};
