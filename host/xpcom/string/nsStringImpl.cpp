// The string functions. Data that a string owns is shared between copies and counted; a string that
// is about to change first makes sure that it is the only owner.
#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <new>
#include <string>

#include "nsUtf.h"
#include "nsXPCOM.h"

namespace {

constexpr uint32_t eTerminated = 1, eVoided = 2, eShared = 4, eOwned = 8;

struct Buffer {
  std::atomic<uint32_t> mRefs;
  uint32_t mCapacity;  // code units, without the closing zero
};

constexpr char16_t kEmpty[1] = {};  // a zero of either width

template <class Char>
Char* EmptyData() {
  return const_cast<Char*>(reinterpret_cast<const Char*>(kEmpty));
}

constexpr uint32_t kMaxLength = 0x3FFFFFFF;

template <class Char>
uint32_t Measure(const Char* aData) {
  return static_cast<uint32_t>(std::char_traits<Char>::length(aData));
}

}  // namespace

class nsStringImpl {
 public:
  template <class Char>
  static void Init(nsTAString<Char>& aString) {
    aString.mData = EmptyData<Char>();
    aString.mLength = 0;
    aString.mFlags = eTerminated;
  }

  template <class Char>
  static nsresult Init2(nsTAString<Char>& aString, const Char* aData, uint32_t aLength,
                        uint32_t aFlags) {
    if (!aData) {
      Init(aString);
      return NS_OK;
    }
    if (aLength == NS_STRING_MAX) {
      if (aFlags & NS_STRING_CONTAINER_INIT_SUBSTRING) return NS_ERROR_INVALID_ARG;
      aLength = Measure(aData);
    }
    if (aFlags & (NS_STRING_CONTAINER_INIT_DEPEND | NS_STRING_CONTAINER_INIT_ADOPT)) {
      aString.mData = const_cast<Char*>(aData);
      aString.mLength = aLength;
      aString.mFlags = (aFlags & NS_STRING_CONTAINER_INIT_SUBSTRING ? 0u : eTerminated) |
                       (aFlags & NS_STRING_CONTAINER_INIT_ADOPT ? eOwned : 0u);
      return NS_OK;
    }
    Init(aString);
    return Replace(aString, 0, 0, aData, aLength);
  }

  template <class Char>
  static void Finish(nsTAString<Char>& aString) {
    if (aString.mFlags & eShared) {
      if (Buffer* buffer = BufferOf(aString.mData);
          buffer->mRefs.fetch_sub(1, std::memory_order_acq_rel) == 1)
        std::free(buffer);
    } else if (aString.mFlags & eOwned) {
      std::free(aString.mData);
    }
    Init(aString);
  }

  template <class Char>
  static uint32_t GetData(const nsTAString<Char>& aString, const Char** aData, bool* aTerminated) {
    *aData = aString.mData;
    if (aTerminated) *aTerminated = aString.mFlags & eTerminated;
    return aString.mLength;
  }

  template <class Char>
  static uint32_t GetMutableData(nsTAString<Char>& aString, uint32_t aLength, Char** aData) {
    if (aLength == NS_STRING_MAX) aLength = aString.mLength;
    if (!MakeWritable(aString, aLength)) {
      *aData = nullptr;
      return 0;
    }
    if (aLength > aString.mLength)
      std::memset(aString.mData + aString.mLength, 0, (aLength - aString.mLength) * sizeof(Char));
    SetLength(aString, aLength);
    *aData = aString.mData;
    return aLength;
  }

  template <class Char>
  static Char* Clone(const nsTAString<Char>& aString) {
    auto* copy = static_cast<Char*>(NS_Alloc((size_t{aString.mLength} + 1) * sizeof(Char)));
    std::memcpy(copy, aString.mData, aString.mLength * sizeof(Char));
    copy[aString.mLength] = 0;
    return copy;
  }

  template <class Char>
  static nsresult Replace(nsTAString<Char>& aString, uint32_t aOffset, uint32_t aCut,
                          const Char* aData, uint32_t aLength) {
    const uint32_t old = aString.mLength;
    if (aOffset == NS_STRING_MAX) aOffset = old;
    if (aOffset > old) return NS_ERROR_INVALID_ARG;
    if (aCut > old - aOffset) aCut = old - aOffset;
    if (!aData)
      aLength = 0;
    else if (aLength == NS_STRING_MAX)
      aLength = Measure(aData);
    const uint64_t length = uint64_t{old} - aCut + aLength;
    if (length > kMaxLength) return NS_ERROR_OUT_OF_MEMORY;

    // The new text may be a piece of this string, which is about to move.
    std::basic_string<Char> copy;
    if (aLength && std::less_equal<>()(aString.mData, aData) &&
        std::less<>()(aData, aString.mData + old + 1)) {
      copy.assign(aData, aLength);
      aData = copy.data();
    }
    if (!MakeWritable(aString, static_cast<uint32_t>(std::max<uint64_t>(length, old))))
      return NS_ERROR_OUT_OF_MEMORY;
    std::memmove(aString.mData + aOffset + aLength, aString.mData + aOffset + aCut,
                 (old - aOffset - aCut) * sizeof(Char));
    if (aLength) std::memcpy(aString.mData + aOffset, aData, aLength * sizeof(Char));
    SetLength(aString, static_cast<uint32_t>(length));
    return NS_OK;
  }

  template <class Char>
  static nsresult SetData(nsTAString<Char>& aString, const Char* aData, uint32_t aLength) {
    if (aData) return Replace(aString, 0, NS_STRING_MAX, aData, aLength);
    Finish(aString);
    return NS_OK;
  }

  template <class Char>
  static nsresult Copy(nsTAString<Char>& aDest, const nsTAString<Char>& aSource) {
    if (&aDest == &aSource) return NS_OK;
    if (aSource.mFlags & eShared) {
      BufferOf(aSource.mData)->mRefs.fetch_add(1, std::memory_order_relaxed);
      Finish(aDest);
      aDest.mData = aSource.mData;
      aDest.mLength = aSource.mLength;
      aDest.mFlags = aSource.mFlags;
      return NS_OK;
    }
    const nsresult rv =
        Replace(aDest, 0, NS_STRING_MAX, static_cast<const Char*>(aSource.mData), aSource.mLength);
    if (NS_SUCCEEDED(rv) && aSource.mFlags & eVoided) SetIsVoid(aDest, true);
    return rv;
  }

  template <class Char>
  static void SetIsVoid(nsTAString<Char>& aString, bool aIsVoid) {
    if (aIsVoid) {
      Finish(aString);
      aString.mFlags |= eVoided;
    } else {
      aString.mFlags &= ~eVoided;
    }
  }

  template <class Char>
  static bool IsVoid(const nsTAString<Char>& aString) {
    return aString.mFlags & eVoided;
  }

 private:
  static Buffer* BufferOf(void* aData) { return static_cast<Buffer*>(aData) - 1; }

  template <class Char>
  static void SetLength(nsTAString<Char>& aString, uint32_t aLength) {
    aString.mLength = aLength;
    aString.mFlags &= ~eVoided;
    if (aString.mFlags & eShared) aString.mData[aLength] = 0;
  }

  // After success the string is the only owner of room for aLength units and a zero, and holds what
  // it held.
  template <class Char>
  static bool MakeWritable(nsTAString<Char>& aString, uint32_t aLength) {
    if (aLength > kMaxLength) return false;
    if (aString.mFlags & eShared) {
      Buffer* buffer = BufferOf(aString.mData);
      if (buffer->mRefs.load(std::memory_order_acquire) == 1 && buffer->mCapacity >= aLength)
        return true;
    } else if (aLength == 0 && aString.mLength == 0) {
      return true;
    }
    // Grow by half again, so that appending in a loop is linear.
    uint32_t capacity = aLength;
    if (aString.mFlags & eShared && aLength > aString.mLength)
      capacity = std::min(kMaxLength, std::max(aLength, aString.mLength + aString.mLength / 2));
    auto* buffer =
        static_cast<Buffer*>(std::malloc(sizeof(Buffer) + (size_t{capacity} + 1) * sizeof(Char)));
    if (!buffer) return false;
    new (buffer) Buffer{{1}, capacity};
    auto* data = reinterpret_cast<Char*>(buffer + 1);
    const uint32_t keep = std::min(aString.mLength, aLength);
    std::memcpy(data, aString.mData, keep * sizeof(Char));
    data[keep] = 0;
    Finish(aString);
    aString.mData = data;
    aString.mLength = keep;
    aString.mFlags = eTerminated | eShared;
    return true;
  }
};

extern "C" {

#define STRING_FUNCTIONS(P, String, Container, Char)                                         \
  nsresult P##ContainerInit(Container& aContainer) {                                         \
    nsStringImpl::Init<Char>(aContainer);                                                    \
    return NS_OK;                                                                            \
  }                                                                                          \
  nsresult P##ContainerInit2(Container& aContainer, const Char* aData, uint32_t aLength,     \
                             uint32_t aFlags) {                                              \
    return nsStringImpl::Init2<Char>(aContainer, aData, aLength, aFlags);                    \
  }                                                                                          \
  void P##ContainerFinish(Container& aContainer) { nsStringImpl::Finish<Char>(aContainer); } \
  uint32_t P##GetData(const String& aString, const Char** aData, bool* aTerminated) {        \
    return nsStringImpl::GetData<Char>(aString, aData, aTerminated);                         \
  }                                                                                          \
  uint32_t P##GetMutableData(String& aString, uint32_t aLength, Char** aData) {              \
    return nsStringImpl::GetMutableData<Char>(aString, aLength, aData);                      \
  }                                                                                          \
  Char* P##CloneData(const String& aString) { return nsStringImpl::Clone<Char>(aString); }   \
  nsresult P##SetData(String& aString, const Char* aData, uint32_t aLength) {                \
    return nsStringImpl::SetData<Char>(aString, aData, aLength);                             \
  }                                                                                          \
  nsresult P##SetDataRange(String& aString, uint32_t aCutOffset, uint32_t aCutLength,        \
                           const Char* aData, uint32_t aLength) {                            \
    return nsStringImpl::Replace<Char>(aString, aCutOffset, aCutLength, aData, aLength);     \
  }                                                                                          \
  nsresult P##Copy(String& aDest, const String& aSource) {                                   \
    return nsStringImpl::Copy<Char>(aDest, aSource);                                         \
  }                                                                                          \
  void P##SetIsVoid(String& aString, bool aIsVoid) {                                         \
    nsStringImpl::SetIsVoid<Char>(aString, aIsVoid);                                         \
  }                                                                                          \
  bool P##GetIsVoid(const String& aString) { return nsStringImpl::IsVoid<Char>(aString); }

STRING_FUNCTIONS(NS_String, nsAString, nsStringContainer, char16_t)
STRING_FUNCTIONS(NS_CString, nsACString, nsCStringContainer, char)
#undef STRING_FUNCTIONS

// File names of this platform are UTF-8, so NATIVE_FILESYSTEM is UTF-8 too.
nsresult NS_CStringToUTF16(const nsACString& aSource, nsCStringEncoding aEncoding,
                           nsAString& aDest) {
  const char* data;
  const uint32_t length = NS_CStringGetData(aSource, &data, nullptr);
  const std::u16string text = aEncoding == NS_CSTRING_ENCODING_ASCII
                                  ? vorel::AsciiToUtf16({data, length})
                                  : vorel::Utf8ToUtf16({data, length});
  return NS_StringSetData(aDest, text.data(), static_cast<uint32_t>(text.size()));
}

nsresult NS_UTF16ToCString(const nsAString& aSource, nsCStringEncoding aEncoding,
                           nsACString& aDest) {
  const char16_t* data;
  const uint32_t length = NS_StringGetData(aSource, &data, nullptr);
  const std::string text = aEncoding == NS_CSTRING_ENCODING_ASCII
                               ? vorel::Utf16ToAscii({data, length})
                               : vorel::Utf16ToUtf8({data, length});
  return NS_CStringSetData(aDest, text.data(), static_cast<uint32_t>(text.size()));
}

}  // extern "C"
