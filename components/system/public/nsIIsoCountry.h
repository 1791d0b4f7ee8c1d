// A country, as a receiver offers it for a scan.
#pragma once

#include "nsXPCOMTypes.h"

/// "@vorel/isocountry;1". A plain value: nothing is checked, both are empty in a new object. Any
/// thread, one at a time.
class nsIIsoCountry : public nsISupports {
 public:
  using Self = nsIIsoCountry;
  using Base = nsISupports;
  static constexpr std::string_view kName = "nsIIsoCountry";
  static constexpr nsIID kIID = "cd63c84b-a253-4791-9d31-c938398a8954"_iid;

  /// ISO 3166 in capitals: "FR". Four regions of satellites have codes of their own, of up to five
  /// letters.
  virtual nsresult GetCode(nsACString& aCode) = 0;
  virtual nsresult SetCode(const nsACString& aCode) = 0;
  /// In English, with one capital: "United kingdom".
  virtual nsresult GetName(nsACString& aName) = 0;
  virtual nsresult SetName(const nsACString& aName) = 0;

 protected:
  ~nsIIsoCountry() = default;
};
