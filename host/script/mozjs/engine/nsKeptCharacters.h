// Characters of script strings that compiled code is looking at.
#pragma once

#include <jsapi.h>

#include <cstddef>

/// The engine may hold a string in one byte a character, and moves it as it likes; compiled code
/// wants two, that stay. So copies are kept until the outermost call of script into compiled code
/// returns. Main thread.
namespace nsKeptCharacters {

/// Closed by a zero; null when memory is out.
const char16_t* Keep(JSContext* cx, JSString* aString, size_t* aLength);

/// Stands around each call from script into compiled code.
class CallScope {
 public:
  CallScope() { ++sDepth; }
  ~CallScope() {
    if (--sDepth == 0 && sKept) Drop();
  }
  CallScope(const CallScope&) = delete;
  CallScope& operator=(const CallScope&) = delete;
  static bool IsOpen() { return sDepth > 0; }

 private:
  friend const char16_t* Keep(JSContext* cx, JSString* aString, size_t* aLength);
  static void Drop();
  static inline unsigned sDepth = 0;
  static inline bool sKept = false;
};

}  // namespace nsKeptCharacters
