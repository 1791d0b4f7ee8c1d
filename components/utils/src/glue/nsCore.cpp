#include "nsCore.h"

#include <cstdio>

std::string nsID::ToString() const {
  char text[39];
  std::snprintf(text, sizeof text, "{%08x-%04x-%04x-%02x%02x-%02x%02x%02x%02x%02x%02x}", m0, m1, m2,
                m3[0], m3[1], m3[2], m3[3], m3[4], m3[5], m3[6], m3[7]);
  return text;
}

bool nsID::Parse(std::string_view aText, nsID* aOut) {
  nsID id;
  if (!vorel::detail::ParseID(aText, &id)) return false;
  *aOut = id;
  return true;
}
