// A place on the desktop.
#pragma once

#include "nsXPCOMTypes.h"

/// The place of a display's upper left corner on the desktop that all displays share, in pixels;
/// negative to the left of the first display and above it. One thread at a time.
///
/// "@vorel/systemdisplayposition;1" is one object for all who ask for it: whoever wants a place of
/// their own clones one.
class nsISystemDisplayPosition : public nsISupports {
 public:
  using Self = nsISystemDisplayPosition;
  using Base = nsISupports;
  static constexpr std::string_view kName = "nsISystemDisplayPosition";
  static constexpr nsIID kIID = "2b4072dc-a0ac-484c-99d3-d789697834ea"_iid;

  virtual nsresult Clone(nsISystemDisplayPosition** aClone) = 0;
  /// Whether both coordinates are the same; false for null.
  virtual nsresult Equals(nsISystemDisplayPosition* aOther, bool* aEqual) = 0;
  virtual nsresult GetX(int32_t* aX) = 0;
  virtual nsresult SetX(int32_t aX) = 0;
  virtual nsresult GetY(int32_t* aY) = 0;
  virtual nsresult SetY(int32_t aY) = 0;

 protected:
  ~nsISystemDisplayPosition() = default;
};
