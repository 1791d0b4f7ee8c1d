// An IPv4 address.
#pragma once

#include "nsISystemIPStructure.h"

/// Four bytes; byte 0 is the first number of the text form. Made by
/// "@vorel/system/ipv4structure;1", or by script with `new SystemIPv4Structure()`. The accessors
/// below do no checks and always succeed.
// script: global SystemIPv4Structure, row 4
// script: new ()
class nsISystemIPv4Structure : public nsISystemIPStructure {
 public:
  using Self = nsISystemIPv4Structure;
  using Base = nsISystemIPStructure;
  static constexpr std::string_view kName = "nsISystemIPv4Structure";
  static constexpr nsIID kIID = "1275dfdc-7220-49ed-951b-0b3d3bba235a"_iid;

  virtual nsresult GetByte0(uint8_t* aByte) = 0;
  virtual nsresult SetByte0(uint8_t aByte) = 0;
  virtual nsresult GetByte1(uint8_t* aByte) = 0;
  virtual nsresult SetByte1(uint8_t aByte) = 0;
  virtual nsresult GetByte2(uint8_t* aByte) = 0;
  virtual nsresult SetByte2(uint8_t aByte) = 0;
  virtual nsresult GetByte3(uint8_t* aByte) = 0;
  virtual nsresult SetByte3(uint8_t aByte) = 0;

 protected:
  ~nsISystemIPv4Structure() = default;
};
