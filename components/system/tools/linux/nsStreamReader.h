// A file, or the standard input, read from its beginning to its end.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "nsError.h"
#include "nsUniqueFd.h"

/// One thread.
class nsStreamReader {
 public:
  /// "-" is the standard input. *aSize is 0 when it can't be known.
  nsresult Open(const std::string& aPath, uint64_t* aSize);
  /// Waits for a short time. *aRead is 0 at the end, and with *aIsOver false when nothing has come
  /// yet.
  nsresult Read(std::span<uint8_t> aBuffer, size_t* aRead, bool* aIsOver);

 private:
  nsUniqueFd mFile;
  bool mCanWait = false;  ///< not a plain file
};
