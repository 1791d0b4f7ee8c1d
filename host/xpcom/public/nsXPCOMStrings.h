// Strings as they cross interfaces, and the frozen functions that read and change them.
//
// A string is 16 bytes: data, length in code units, flags. What the flags mean is the host's own
// business; everybody else goes through these functions, or through nsString and nsCString, which
// wrap them. A string object is used by one thread at a time. Its data may be shared between
// strings of different threads; that is safe.
#pragma once

#include "nsCore.h"

template <class Char>
class nsTAString {
 public:
  using char_type = Char;
  nsTAString(const nsTAString&) = delete;
  nsTAString& operator=(const nsTAString&) = delete;

 protected:
  // Set up by NS_StringContainerInit and its kin.
  nsTAString() {}  // NOLINT: the container functions initialise it
  ~nsTAString() = default;

 private:
  friend class nsStringImpl;
  Char* mData;
  uint32_t mLength;
  uint32_t mFlags;
};
using nsAString = nsTAString<char16_t>;
using nsACString = nsTAString<char>;
static_assert(sizeof(nsAString) == 16 && sizeof(nsACString) == 16);

/// Room for a string. Useless until a ContainerInit function has seen it, leaks without
/// ContainerFinish.
class nsStringContainer : public nsAString {};
class nsCStringContainer : public nsACString {};

enum nsCStringEncoding : uint32_t {
  NS_CSTRING_ENCODING_ASCII = 0,
  NS_CSTRING_ENCODING_UTF8 = 1,
  NS_CSTRING_ENCODING_NATIVE_FILESYSTEM = 2,
};

/// Flags of ContainerInit2. DEPEND: the string is a view of the caller's data, which must outlive
/// it, and is closed by a zero unless SUBSTRING is given too. ADOPT: the data, from NS_Alloc, now
/// belongs to the string.
enum : uint32_t {
  NS_STRING_CONTAINER_INIT_DEPEND = 2,
  NS_STRING_CONTAINER_INIT_ADOPT = 4,
  NS_STRING_CONTAINER_INIT_SUBSTRING = 8,
};

/// As a length: measure to the zero. As a cut offset: append. As a cut length: cut to the end. As a
/// new length: keep it.
inline constexpr uint32_t NS_STRING_MAX = 0xFFFFFFFFu;

#pragma GCC visibility push(default)
extern "C" {

nsresult NS_StringContainerInit(nsStringContainer& aContainer);
/// Null data gives an empty string. NS_ERROR_INVALID_ARG for SUBSTRING without a length.
nsresult NS_StringContainerInit2(nsStringContainer& aContainer, const char16_t* aData,
                                 uint32_t aLength, uint32_t aFlags);
void NS_StringContainerFinish(nsStringContainer& aContainer);
/// Gives the length; *aData stays valid until the string is next changed. aTerminated may be null.
uint32_t NS_StringGetData(const nsAString& aString, const char16_t** aData, bool* aTerminated);
/// Sets the length, keeping what fits, and gives data that may be written, closed by a zero. Null
/// and 0 when the string can't grow.
uint32_t NS_StringGetMutableData(nsAString& aString, uint32_t aLength, char16_t** aData);
/// A copy closed by a zero, to be freed with NS_Free.
char16_t* NS_StringCloneData(const nsAString& aString);
nsresult NS_StringSetData(nsAString& aString, const char16_t* aData, uint32_t aLength);
/// Replaces a range; the data may be a piece of the string itself. Null data only cuts.
nsresult NS_StringSetDataRange(nsAString& aString, uint32_t aCutOffset, uint32_t aCutLength,
                               const char16_t* aData, uint32_t aLength);
nsresult NS_StringCopy(nsAString& aDest, const nsAString& aSource);
void NS_StringSetIsVoid(nsAString& aString, bool aIsVoid);
bool NS_StringGetIsVoid(const nsAString& aString);

nsresult NS_CStringContainerInit(nsCStringContainer& aContainer);
nsresult NS_CStringContainerInit2(nsCStringContainer& aContainer, const char* aData,
                                  uint32_t aLength, uint32_t aFlags);
void NS_CStringContainerFinish(nsCStringContainer& aContainer);
uint32_t NS_CStringGetData(const nsACString& aString, const char** aData, bool* aTerminated);
uint32_t NS_CStringGetMutableData(nsACString& aString, uint32_t aLength, char** aData);
char* NS_CStringCloneData(const nsACString& aString);
nsresult NS_CStringSetData(nsACString& aString, const char* aData, uint32_t aLength);
nsresult NS_CStringSetDataRange(nsACString& aString, uint32_t aCutOffset, uint32_t aCutLength,
                                const char* aData, uint32_t aLength);
nsresult NS_CStringCopy(nsACString& aDest, const nsACString& aSource);
void NS_CStringSetIsVoid(nsACString& aString, bool aIsVoid);
bool NS_CStringGetIsVoid(const nsACString& aString);

/// Bytes that are no character of the encoding become U+FFFD. The two strings must be different
/// objects.
nsresult NS_CStringToUTF16(const nsACString& aSource, nsCStringEncoding aEncoding,
                           nsAString& aDest);
/// Surrogates without a partner become U+FFFD; with ASCII, what has no ASCII form becomes "?".
nsresult NS_UTF16ToCString(const nsAString& aSource, nsCStringEncoding aEncoding,
                           nsACString& aDest);

}  // extern "C"
#pragma GCC visibility pop
