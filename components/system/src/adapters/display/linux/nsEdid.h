// What a monitor says of itself.
#pragma once

#include <cstdint>
#include <span>
#include <string>

struct nsEdid {
  std::string mName;      ///< For people, in ASCII; empty when it does not tell.
  std::string mIdentity;  ///< Maker, product and serial number: "ACR-1234-5678ABCD".
};

/// Reads the first block of an EDID. Any bytes are safe: what is none leaves both empty.
nsEdid NS_ParseEdid(std::span<const uint8_t> aBytes);
