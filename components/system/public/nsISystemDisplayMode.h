// A mode of a display.
#pragma once

#include "nsXPCOMTypes.h"

/// Does not change. Modes belong to the display that lists them; width and height are those of the
/// picture that is not turned. Any thread.
class nsISystemDisplayMode : public nsISupports {
 public:
  using Self = nsISystemDisplayMode;
  using Base = nsISupports;
  static constexpr std::string_view kName = "nsISystemDisplayMode";
  static constexpr nsIID kIID = "658c18db-9528-4c01-8557-4b6609379315"_iid;

  /// "1920x1080 60Hz".
  virtual nsresult GetName(nsAString& aName) = 0;
  /// In pixels; the larger of the two.
  virtual nsresult GetWidth(uint32_t* aWidth) = 0;
  virtual nsresult GetHeight(uint32_t* aHeight) = 0;
  /// In Hz, rounded as people do: 60 for 59.94.
  virtual nsresult GetFrequency(uint32_t* aFrequency) = 0;
  virtual nsresult GetInterlaced(bool* aInterlaced) = 0;
  /// Whether all of the above are the same; false for null.
  virtual nsresult Equals(nsISystemDisplayMode* aOther, bool* aEqual) = 0;

 protected:
  ~nsISystemDisplayMode() = default;
};
