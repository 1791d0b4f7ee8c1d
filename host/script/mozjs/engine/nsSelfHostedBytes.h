// What the build has made of the part of the script engine that is script itself.
#pragma once

#include <cstddef>
#include <cstdint>

extern const uint8_t kSelfHostedBytes[];  ///< The engine reads them in place.
extern const size_t kSelfHostedSize;      ///< 0 when the engine does not tell its build.
