// Checks that leave the function. A failed one writes a warning on the logger "debug" and returns.
#pragma once

#include "nsCore.h"

namespace vorel::detail {
/// Writes "'aText'", or "aOwn : 'aText'" with a text of its own, at warning severity.
void Warn(const char* aText, const char* aOwn, const char* aFile, const char* aFunction,
          uint32_t aLine);
}  // namespace vorel::detail

#define NS_WARN_TEXT(aText, aOwn) \
  vorel::detail::Warn(aText, aOwn, __FILE__, __PRETTY_FUNCTION__, __LINE__)

// The text of the warning is made of the check as it is written in the source, so the names of the
// variables in it are part of the log's vocabulary.
#define NS_ENSURE_SUCCESS(res, ret)                                          \
  do {                                                                       \
    if (NS_FAILED(res)) {                                                    \
      NS_WARN_TEXT("NS_ENSURE_SUCCESS(" #res ", " #ret ") failed", nullptr); \
      return ret;                                                            \
    }                                                                        \
  } while (false)
#define NS_ENSURE_TRUE(x, ret)                                \
  do {                                                        \
    if (!(x)) [[unlikely]] {                                  \
      NS_WARN_TEXT("NS_ENSURE_TRUE(" #x ") failed", nullptr); \
      return ret;                                             \
    }                                                         \
  } while (false)
