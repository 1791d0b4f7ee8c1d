// A wired network interface as an adapter.
#pragma once

#include "nsISystemAdapterIP.h"

/// Has no operations of its own: it marks the adapter.
// script: global SystemAdapterLAN, row 1
class nsISystemAdapterLAN : public nsISystemAdapterIP {
 public:
  using Self = nsISystemAdapterLAN;
  using Base = nsISystemAdapterIP;
  static constexpr std::string_view kName = "nsISystemAdapterLAN";
  static constexpr nsIID kIID = "a2891121-3f6e-48bd-b190-c29b96252cd6"_iid;

 protected:
  ~nsISystemAdapterLAN() = default;
};
