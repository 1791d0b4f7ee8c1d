#include "nsCharsetConverterManager.h"

#include <iconv.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <string>

#include "nsIUnicharEncoder.h"
#include "nsIUnicodeDecoder.h"
#include "nsIUnicodeEncoder.h"
#include "nsString.h"

namespace {

constexpr const char* kUnicode =
    std::endian::native == std::endian::little ? "UTF-16LE" : "UTF-16BE";
constexpr int32_t kMaxBytesPerUnit = 8;  // with the escapes of the sets that switch

/// The system's name. Sets that it has under another name, as broadcasts and documents name them.
std::string SystemName(std::string_view aCharset) {
  std::string name(aCharset);
  for (char& c : name)
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  struct Alias {
    std::string_view mName, mSystemName;
  };
  static constexpr Alias kAliases[] = {{"ISO-10646", "UTF-16BE"}, {"KSX1001", "EUC-KR"}};
  for (const Alias& each : kAliases)
    if (each.mName == name) return std::string(each.mSystemName);
  return name;
}

/// The bytes of which a set makes its characters.
size_t UnitSize(const std::string& aSystemName) {
  for (const char* name : {"UTF-16", "UCS-2"})
    if (aSystemName.starts_with(name)) return 2;
  for (const char* name : {"UTF-32", "UCS-4"})
    if (aSystemName.starts_with(name)) return 4;
  return 1;
}

/// A converter of the system's.
class Converter {
 public:
  Converter(const std::string& aTo, const std::string& aFrom) {
    // A "/" would be an option, not a part of a name; the empty name is the locale's set.
    const auto isName = [](const std::string& aName) {
      return !aName.empty() && aName.find('/') == aName.npos;
    };
    if (isName(aTo) && isName(aFrom)) mHandle = iconv_open(aTo.c_str(), aFrom.c_str());
  }
  Converter(const Converter&) = delete;
  Converter& operator=(const Converter&) = delete;
  ~Converter() {
    if (IsOpen()) iconv_close(mHandle);
  }
  bool IsOpen() const { return mHandle != kNone; }
  /// Converts as far as it goes; 0, or the system's error that stopped it.
  int Run(const char** aIn, size_t* aInLeft, char** aOut, size_t* aOutLeft) {
    return iconv(mHandle, const_cast<char**>(aIn), aInLeft, aOut, aOutLeft) == size_t(-1) ? errno
                                                                                          : 0;
  }
  void Reset() { (void)iconv(mHandle, nullptr, nullptr, nullptr, nullptr); }

 private:
  static inline const iconv_t kNone = reinterpret_cast<iconv_t>(-1);
  iconv_t mHandle = kNone;
};

class Decoder final : public nsImplements<Decoder, nsIUnicodeDecoder> {
 public:
  explicit Decoder(const std::string& aCharset)
      : mConverter(kUnicode, aCharset), mUnitSize(UnitSize(aCharset)) {}
  bool IsOpen() const { return mConverter.IsOpen(); }

  nsresult Convert(const char* aSrc, int32_t* aSrcLength, char16_t* aDest,
                   int32_t* aDestLength) override {
    if (!aSrc || !aSrcLength || !aDest || !aDestLength) return NS_ERROR_NULL_POINTER;
    if (*aSrcLength < 0 || *aDestLength < 0) return NS_ERROR_INVALID_ARG;
    const char* in = aSrc;
    auto* out = reinterpret_cast<char*>(aDest);
    size_t inLeft = static_cast<size_t>(*aSrcLength),
           outLeft = static_cast<size_t>(*aDestLength) * 2;
    nsresult rv = NS_OK;
    while (inLeft > 0 && rv == NS_OK) {
      const int error = mConverter.Run(&in, &inLeft, &out, &outLeft);
      if (error == EINVAL) {
        rv = NS_OK_UDEC_MOREINPUT;
      } else if (error == E2BIG || (error && outLeft < 2)) {
        rv = NS_OK_UDEC_MOREOUTPUT;
      } else if (error && mBehavior == int32_t{kOnError_Signal}) {
        rv = NS_ERROR_ILLEGAL_INPUT;
      } else if (error) {
        *reinterpret_cast<char16_t*>(out) = GetCharacterForUnMapped();
        out += 2;
        outLeft -= 2;
        const size_t skipped = std::min(mUnitSize, inLeft);
        in += skipped;
        inLeft -= skipped;
      }
    }
    *aSrcLength = static_cast<int32_t>(in - aSrc);
    *aDestLength = static_cast<int32_t>(reinterpret_cast<char16_t*>(out) - aDest);
    return rv;
  }
  nsresult GetMaxLength(const char* /*aSrc*/, int32_t aSrcLength, int32_t* aDestLength) override {
    if (!aDestLength) return NS_ERROR_NULL_POINTER;
    // No set has a byte that gives more than two units, base and mark of one character.
    if (aSrcLength < 0 || aSrcLength > INT32_MAX / 2) return NS_ERROR_INVALID_ARG;
    *aDestLength = aSrcLength * 2;
    return NS_OK;
  }
  nsresult Reset() override {
    mConverter.Reset();
    return NS_OK;
  }
  void SetInputErrorBehavior(int32_t aBehavior) override { mBehavior = aBehavior; }
  char16_t GetCharacterForUnMapped() override { return 0xFFFD; }

 private:
  ~Decoder() override = default;
  Converter mConverter;
  const size_t mUnitSize;
  int32_t mBehavior = kOnError_Recover;
};

class Encoder final : public nsImplements<Encoder, nsIUnicodeEncoder> {
 public:
  explicit Encoder(const std::string& aCharset) : mConverter(aCharset, kUnicode) {}
  bool IsOpen() const { return mConverter.IsOpen(); }

  nsresult Convert(const char16_t* aSrc, int32_t* aSrcLength, char* aDest,
                   int32_t* aDestLength) override {
    if (!aSrc || !aSrcLength || !aDest || !aDestLength) return NS_ERROR_NULL_POINTER;
    if (*aSrcLength < 0 || *aDestLength < 0) return NS_ERROR_INVALID_ARG;
    const auto* in = reinterpret_cast<const char*>(aSrc);
    char* out = aDest;
    size_t inLeft = static_cast<size_t>(*aSrcLength) * 2,
           outLeft = static_cast<size_t>(*aDestLength);
    nsresult rv = NS_OK;
    while (inLeft > 0 && rv == NS_OK) {
      const int error = mConverter.Run(&in, &inLeft, &out, &outLeft);
      if (error == EINVAL) {
        rv = NS_OK_UENC_MOREINPUT;
      } else if (error == E2BIG) {
        rv = NS_OK_UENC_MOREOUTPUT;
      } else if (error) {
        const auto unit = *reinterpret_cast<const char16_t*>(in);
        const bool isPair = unit >= 0xD800 && unit < 0xDC00 && inLeft >= 4;
        if (mBehavior == int32_t{kOnError_Signal})
          rv = NS_ERROR_UCONV_NOMAPPING;
        else
          rv = Replace(unit, &out, &outLeft);
        if (rv == NS_OK_UENC_MOREOUTPUT) break;
        in += isPair ? 4 : 2;
        inLeft -= isPair ? 4 : 2;
      }
    }
    *aSrcLength = static_cast<int32_t>(reinterpret_cast<const char16_t*>(in) - aSrc);
    *aDestLength = static_cast<int32_t>(out - aDest);
    return rv;
  }
  nsresult Finish(char* aDest, int32_t* aDestLength) override {
    if (!aDest || !aDestLength) return NS_ERROR_NULL_POINTER;
    char* out = aDest;
    size_t outLeft = static_cast<size_t>(std::max(*aDestLength, 0));
    const int error = mConverter.Run(nullptr, nullptr, &out, &outLeft);
    *aDestLength = static_cast<int32_t>(out - aDest);
    return error ? NS_OK_UENC_MOREOUTPUT : NS_OK;
  }
  nsresult GetMaxLength(const char16_t* /*aSrc*/, int32_t aSrcLength,
                        int32_t* aDestLength) override {
    if (!aDestLength) return NS_ERROR_NULL_POINTER;
    if (aSrcLength < 0 || aSrcLength > INT32_MAX / kMaxBytesPerUnit) return NS_ERROR_INVALID_ARG;
    *aDestLength = aSrcLength * kMaxBytesPerUnit;
    return NS_OK;
  }
  nsresult Reset() override {
    mConverter.Reset();
    return NS_OK;
  }
  nsresult SetOutputErrorBehavior(int32_t aBehavior, nsIUnicharEncoder* aEncoder,
                                  char16_t aReplacement) override {
    if (aBehavior < 0 || aBehavior > int32_t{kOnError_Replace}) return NS_ERROR_INVALID_ARG;
    if (aBehavior == int32_t{kOnError_CallBack} && !aEncoder) return NS_ERROR_NULL_POINTER;
    mBehavior = aBehavior;
    mCallback = aEncoder;
    mReplacement = aReplacement;
    return NS_OK;
  }

 private:
  ~Encoder() override = default;
  /// Puts something else for a unit that the set lacks. A replacement that it lacks too is a
  /// failure.
  nsresult Replace(char16_t aUnit, char** aOut, size_t* aOutLeft) {
    if (mBehavior == int32_t{kOnError_CallBack}) {
      auto length = static_cast<int32_t>(std::min<size_t>(*aOutLeft, INT32_MAX));
      const nsresult rv = mCallback->Convert(aUnit, *aOut, &length);
      if (NS_FAILED(rv)) return rv;
      *aOut += length;
      *aOutLeft -= static_cast<size_t>(length);
      return NS_OK;
    }
    const auto* in = reinterpret_cast<const char*>(&mReplacement);
    size_t inLeft = sizeof mReplacement;
    const int error = mConverter.Run(&in, &inLeft, aOut, aOutLeft);
    if (error == E2BIG) return NS_OK_UENC_MOREOUTPUT;
    return error ? NS_ERROR_ILLEGAL_INPUT : NS_OK;
  }

  Converter mConverter;
  int32_t mBehavior = kOnError_Signal;
  nsCOMPtr<nsIUnicharEncoder> mCallback;
  char16_t mReplacement = 0;
};

template <class Class, class I>
nsresult Make(const char* aCharset, I** aResult) {
  if (!aCharset || !aResult) return NS_ERROR_NULL_POINTER;
  auto converter = MakeRefCounted<Class>(SystemName(aCharset));
  if (!converter->IsOpen()) return NS_ERROR_UCONV_NOCONV;
  converter.forget(aResult);
  return NS_OK;
}

}  // namespace

const nsClassInfoRecord nsCharsetConverterManager::kClassInfo = {
    NS_ClassInterfaces<nsICharsetConverterManager>, nullptr,
    nsIClassInfo::SINGLETON | nsIClassInfo::THREADSAFE, "3c1c0163-9bd0-11d3-9d09-0050040007b2"_iid};

nsresult nsCharsetConverterManager::GetUnicodeDecoder(const char* aCharset,
                                                      nsIUnicodeDecoder** aResult) {
  return Make<Decoder>(aCharset, aResult);
}
nsresult nsCharsetConverterManager::GetUnicodeDecoderRaw(const char* aCharset,
                                                         nsIUnicodeDecoder** aResult) {
  return Make<Decoder>(aCharset, aResult);
}
nsresult nsCharsetConverterManager::GetUnicodeDecoderInternal(const char* aCharset,
                                                              nsIUnicodeDecoder** aResult) {
  return Make<Decoder>(aCharset, aResult);
}
nsresult nsCharsetConverterManager::GetUnicodeDecoderRawInternal(const char* aCharset,
                                                                 nsIUnicodeDecoder** aResult) {
  return Make<Decoder>(aCharset, aResult);
}
nsresult nsCharsetConverterManager::GetUnicodeEncoder(const char* aCharset,
                                                      nsIUnicodeEncoder** aResult) {
  return Make<Encoder>(aCharset, aResult);
}
nsresult nsCharsetConverterManager::GetUnicodeEncoderRaw(const char* aCharset,
                                                         nsIUnicodeEncoder** aResult) {
  return Make<Encoder>(aCharset, aResult);
}

nsresult nsCharsetConverterManager::GetCharsetAlias(const char* aCharset, nsACString& aResult) {
  if (!aCharset) return NS_ERROR_NULL_POINTER;
  const std::string name = SystemName(aCharset);
  if (!Converter(kUnicode, name).IsOpen()) return NS_ERROR_UCONV_NOCONV;
  return NS_Give(name, aResult);
}
