// An address together with the length of its on-link prefix.
#pragma once

#include "nsISystemIPStructure.h"

/// What a network interface has: an address and the prefix that says who is reached without a
/// gateway. Made by IP adapters only. The operations on origins, lifetimes and the state of
/// duplicate detection keep their places; where told so they are not implemented, in any object.
// script: global SystemIPAddress, row 7
class nsISystemIPAddress : public nsISupports {
 public:
  using Self = nsISystemIPAddress;
  using Base = nsISupports;
  static constexpr std::string_view kName = "nsISystemIPAddress";
  static constexpr nsIID kIID = "c39f0173-86f3-43e4-9be0-8e38594e7576"_iid;

  /// The address itself, not a copy; null when none was set.
  virtual nsresult GetAddress(nsISystemIPStructure** aAddress) = 0;
  /// Keeps aAddress itself; null is allowed.
  virtual nsresult SetAddress(nsISystemIPStructure* aAddress) = 0;
  /// In bits. 0 in a new object.
  virtual nsresult GetPrefixLength(uint8_t* aPrefixLength) = 0;
  /// Any value is taken, also one that is longer than the address.
  virtual nsresult SetPrefixLength(uint8_t aPrefixLength) = 0;
  /// The prefix length as an IPv4 mask, whatever the class of the address: of 32 bits and more it
  /// is 255.255.255.255.
  virtual nsresult GetMask(nsISystemIPStructure** aMask) = 0;
  /// Sets the prefix length to the number of leading one bits of aMask, which is not kept:
  /// 255.0.255.0 gives 8. NS_ERROR_NULL_POINTER for null; a failure of its GetBytes is returned.
  virtual nsresult SetMask(nsISystemIPStructure* aMask) = 0;
  /// 1 in any object.
  virtual nsresult GetPrefixOrigin(uint16_t* aPrefixOrigin) = 0;
  /// NS_ERROR_NOT_IMPLEMENTED, as all that follow.
  virtual nsresult SetPrefixOrigin(uint16_t aPrefixOrigin) = 0;
  virtual nsresult GetSuffixOrigin(uint32_t* aSuffixOrigin) = 0;
  virtual nsresult SetSuffixOrigin(uint32_t aSuffixOrigin) = 0;
  virtual nsresult GetValidLifetime(uint64_t* aValidLifetime) = 0;
  virtual nsresult SetValidLifetime(uint64_t aValidLifetime) = 0;
  virtual nsresult GetPreferredLifetime(uint64_t* aPreferredLifetime) = 0;
  virtual nsresult SetPreferredLifetime(uint64_t aPreferredLifetime) = 0;
  virtual nsresult GetLeaseLifetime(uint64_t* aLeaseLifetime) = 0;
  virtual nsresult SetLeaseLifetime(uint64_t aLeaseLifetime) = 0;
  virtual nsresult GetDadState(uint32_t* aDadState) = 0;
  virtual nsresult SetDadState(uint32_t aDadState) = 0;

 protected:
  ~nsISystemIPAddress() = default;
};
