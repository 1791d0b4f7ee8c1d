// A mobile network interface as an adapter.
#pragma once

#include "nsISystemAdapterIP.h"

/// Marks the adapter. Its own places are reserved: NS_ERROR_NOT_IMPLEMENTED.
// script: global SystemAdapterWWAN, row 3
class nsISystemAdapterWWAN : public nsISystemAdapterIP {
 public:
  using Self = nsISystemAdapterWWAN;
  using Base = nsISystemAdapterIP;
  static constexpr std::string_view kName = "nsISystemAdapterWWAN";
  static constexpr nsIID kIID = "2ad2f539-0131-4f6a-891e-61ff59062bc6"_iid;

  virtual nsresult Reserved64(void* aFirst) = 0;
  virtual nsresult Reserved65(void* aFirst) = 0;
  virtual nsresult Reserved66(void* aFirst) = 0;
  virtual nsresult Reserved67(void* aFirst) = 0;

 protected:
  ~nsISystemAdapterWWAN() = default;
};
