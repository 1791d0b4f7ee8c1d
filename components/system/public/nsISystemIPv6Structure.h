// An IPv6 address.
#pragma once

#include "nsISystemIPStructure.h"

/// Sixteen bytes; byte 0 is the high byte of the first group of the text form. Made by
/// "@vorel/system/ipv6structure;1", or by script with `new SystemIPv6Structure()`. The accessors
/// below do no checks and always succeed.
// script: global SystemIPv6Structure, row 5
// script: new ()
class nsISystemIPv6Structure : public nsISystemIPStructure {
 public:
  using Self = nsISystemIPv6Structure;
  using Base = nsISystemIPStructure;
  static constexpr std::string_view kName = "nsISystemIPv6Structure";
  static constexpr nsIID kIID = "007a3be6-b329-4e4b-84b5-df3cbd47ca70"_iid;

  virtual nsresult GetByte0(uint8_t* aByte) = 0;
  virtual nsresult SetByte0(uint8_t aByte) = 0;
  virtual nsresult GetByte1(uint8_t* aByte) = 0;
  virtual nsresult SetByte1(uint8_t aByte) = 0;
  virtual nsresult GetByte2(uint8_t* aByte) = 0;
  virtual nsresult SetByte2(uint8_t aByte) = 0;
  virtual nsresult GetByte3(uint8_t* aByte) = 0;
  virtual nsresult SetByte3(uint8_t aByte) = 0;
  virtual nsresult GetByte4(uint8_t* aByte) = 0;
  virtual nsresult SetByte4(uint8_t aByte) = 0;
  virtual nsresult GetByte5(uint8_t* aByte) = 0;
  virtual nsresult SetByte5(uint8_t aByte) = 0;
  virtual nsresult GetByte6(uint8_t* aByte) = 0;
  virtual nsresult SetByte6(uint8_t aByte) = 0;
  virtual nsresult GetByte7(uint8_t* aByte) = 0;
  virtual nsresult SetByte7(uint8_t aByte) = 0;
  virtual nsresult GetByte8(uint8_t* aByte) = 0;
  virtual nsresult SetByte8(uint8_t aByte) = 0;
  virtual nsresult GetByte9(uint8_t* aByte) = 0;
  virtual nsresult SetByte9(uint8_t aByte) = 0;
  virtual nsresult GetByte10(uint8_t* aByte) = 0;
  virtual nsresult SetByte10(uint8_t aByte) = 0;
  virtual nsresult GetByte11(uint8_t* aByte) = 0;
  virtual nsresult SetByte11(uint8_t aByte) = 0;
  virtual nsresult GetByte12(uint8_t* aByte) = 0;
  virtual nsresult SetByte12(uint8_t aByte) = 0;
  virtual nsresult GetByte13(uint8_t* aByte) = 0;
  virtual nsresult SetByte13(uint8_t aByte) = 0;
  virtual nsresult GetByte14(uint8_t* aByte) = 0;
  virtual nsresult SetByte14(uint8_t aByte) = 0;
  virtual nsresult GetByte15(uint8_t* aByte) = 0;
  virtual nsresult SetByte15(uint8_t aByte) = 0;

 protected:
  ~nsISystemIPv6Structure() = default;
};
