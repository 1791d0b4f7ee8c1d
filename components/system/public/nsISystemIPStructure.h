// An address as a value: the bytes of it, in network order, and their text form.
#pragma once

#include "nsCore.h"
#include "nsXPCOMStrings.h"

/// What IPv4, IPv6 and link-layer (MAC) addresses have in common. A new value is all zero.
///
/// Values may be passed between threads, but one value is not to be changed by two threads at once.
/// Whoever hands out a value of its own hands out a clone, so a caller may change what it was
/// given.
class nsISystemIPStructure : public nsISupports {
 public:
  using Self = nsISystemIPStructure;
  using Base = nsISupports;
  static constexpr std::string_view kName = "nsISystemIPStructure";
  static constexpr nsIID kIID = "39496ba4-cc77-4008-b162-5dd9875111a4"_iid;

  /// The text form: 192.168.1.20 for IPv4, 2001:db8::1 for IPv6, 00-1A-2B-3C-4D-5E for a MAC
  /// address.
  virtual nsresult GetString(nsACString& aString) = 0;
  /// Reads the text form.
  ///
  /// IPv4: four decimal numbers with points between, and text behind them is ignored. Fewer are
  /// NS_ERROR_FAILURE and change nothing. A number that is not in 0 to 255 is
  /// NS_ERROR_NOT_IMPLEMENTED; the bytes before it are stored. IPv6: the longest text from the
  /// start that is an address (so that a zone, a prefix length or a port behind it does no harm);
  /// NS_ERROR_FAILURE, and nothing is changed, when there is none. MAC: hexadecimal numbers up to
  /// FF with "-" or ":" between, as many as the text has: the value takes that length.
  /// NS_ERROR_FAILURE, and nothing is changed, for other text.
  virtual nsresult SetString(const nsACString& aString) = 0;
  /// A copy of the bytes, to be freed with NS_Free. NS_ERROR_FAILURE for a value without bytes.
  virtual nsresult GetBytes(uint32_t* aCount, uint8_t** aBytes) = 0;
  /// Takes aCount bytes. NS_ERROR_INVALID_ARG for a null pointer (whatever the count),
  /// NS_ERROR_FAILURE when aCount is not the length that the value has.
  virtual nsresult SetBytes(uint32_t aCount, const uint8_t* aBytes) = 0;
  /// A new value of the same class with the same bytes.
  virtual nsresult Clone(nsISystemIPStructure** aClone) = 0;
  /// True when aOther has the same length and bytes, whatever its class. False for null. Always
  /// succeeds.
  virtual nsresult Equals(nsISystemIPStructure* aOther, bool* aEqual) = 0;

 protected:
  ~nsISystemIPStructure() = default;
};
