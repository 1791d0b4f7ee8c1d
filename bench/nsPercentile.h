// What part of the times stays below.
#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

/// The time that aPart of them, 0.5 for the half, do not exceed; reorders them. There is at least
/// one.
inline double NS_Percentile(std::vector<double>& aTimes, double aPart) {
  const auto at =
      aTimes.begin() + static_cast<ptrdiff_t>(aPart * static_cast<double>(aTimes.size() - 1));
  std::nth_element(aTimes.begin(), at, aTimes.end());
  return *at;
}
