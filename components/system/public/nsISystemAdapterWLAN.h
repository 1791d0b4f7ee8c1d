// A wireless network interface as an adapter.
#pragma once

#include "nsISystemAdapterIP.h"

/// Marks the adapter. Its own places are reserved: NS_ERROR_NOT_IMPLEMENTED.
// script: global SystemAdapterWLAN, row 2
class nsISystemAdapterWLAN : public nsISystemAdapterIP {
 public:
  using Self = nsISystemAdapterWLAN;
  using Base = nsISystemAdapterIP;
  static constexpr std::string_view kName = "nsISystemAdapterWLAN";
  static constexpr nsIID kIID = "13e15c6f-d54c-4291-824d-2a5cbe7652a2"_iid;

  virtual nsresult Reserved64(void* aFirst) = 0;
  virtual nsresult Reserved65(void* aFirst) = 0;
  virtual nsresult Reserved66(void* aFirst) = 0;
  virtual nsresult Reserved67(void* aFirst) = 0;
  virtual nsresult Reserved68(void* aFirst) = 0;
  virtual nsresult Reserved69(void* aFirst, void* aSecond, void* aThird, void* aFourth,
                              void* aFifth) = 0;

 protected:
  ~nsISystemAdapterWLAN() = default;
};
