// What an object of the graph answers beside the media interfaces when its waiting calls can be
// ended.
#pragma once

#include "nsXPCOMTypes.h"

/// The graph's own, for its section filter: the platform's objects do not have it, and a call to
/// those ends by its time-out.
class nsIMediaCancel : public nsISupports {
 public:
  using Self = nsIMediaCancel;
  using Base = nsISupports;
  static constexpr std::string_view kName = "nsIMediaCancel";
  static constexpr nsIID kIID = "6f0a3e52-9d0b-4c1e-8a57-2f64d1b5c0e9"_iid;

  /// Calls that wait in this object return with NS_ERROR_ABORT at once; later ones wait as ever.
  /// Any thread. NS_OK.
  virtual nsresult Cancel() = 0;

 protected:
  ~nsIMediaCancel() = default;
};
