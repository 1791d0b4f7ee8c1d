// What an application profile may do with a display.
#pragma once

#include "nsISystemApplicationProfileBinding.h"

/// "@vorel/system/apb/displayoutput;1". Before Init everything is NS_ERROR_NOT_AVAILABLE. On an
/// adapter that is no display the operations below are NS_ERROR_UNEXPECTED; other failures are the
/// adapter's. Main thread.
class nsISystemDisplayOutputBinding : public nsISystemApplicationProfileBinding {
 public:
  using Self = nsISystemDisplayOutputBinding;
  using Base = nsISystemApplicationProfileBinding;
  static constexpr std::string_view kName = "nsISystemDisplayOutputBinding";
  static constexpr nsIID kIID = "e20a6b80-7874-11e3-981f-0800200c9a66"_iid;

  /// False while the display is on, which it always is: setting standby succeeds, and does nothing.
  /// The output is true on failure.
  virtual nsresult GetStandby(bool* aStandby) = 0;
  virtual nsresult SetStandby(bool aStandby) = 0;
  /// Percent.
  virtual nsresult GetBrightness(uint16_t* aBrightness) = 0;
  virtual nsresult SetBrightness(uint16_t aBrightness) = 0;

 protected:
  ~nsISystemDisplayOutputBinding() = default;
};
