// A link-layer address.
#pragma once

#include "nsISystemIPStructure.h"

/// Six bytes, or as many as the last text had that SetString took; byte 0 is the first of the text
/// form. Made by
/// "@vorel/system/macstructure;1", or by script with `new SystemMACStructure()`. The accessors
/// below do no checks and always succeed: bytes 0 to 5 are there even when the value is shorter.
// script: global SystemMACStructure, row 6
// script: new ()
class nsISystemMACStructure : public nsISystemIPStructure {
 public:
  using Self = nsISystemMACStructure;
  using Base = nsISystemIPStructure;
  static constexpr std::string_view kName = "nsISystemMACStructure";
  static constexpr nsIID kIID = "40bb24b9-972d-4227-8453-e281fee9b73d"_iid;

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

 protected:
  ~nsISystemMACStructure() = default;
};
