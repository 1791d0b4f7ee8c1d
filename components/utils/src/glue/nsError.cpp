#include "nsError.h"

#include <array>
#include <utility>

std::string_view NS_ResultName(nsresult aRv) {
  static constexpr auto kNames = std::to_array<std::pair<nsresult, std::string_view>>({
#define NS_RESULT_ENTRY(aName, aValue) {nsresult{aValue}, #aName},
      NS_RESULT_CODES(NS_RESULT_ENTRY)
#undef NS_RESULT_ENTRY
  });
  for (const auto& [code, name] : kNames)
    if (code == aRv) return name;
  return {};
}
