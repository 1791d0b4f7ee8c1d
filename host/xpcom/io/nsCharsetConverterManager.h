// Character sets, "@mozilla.org/charset-converter-manager;1", over the system's converters.
#pragma once

#include "nsICharsetConverterManager.h"
#include "nsImplements.h"

inline constexpr nsresult NS_ERROR_UCONV_NOCONV{0x80500001};
inline constexpr nsresult NS_OK_UDEC_MOREINPUT{0x0050000C};   ///< the text ends within a character
inline constexpr nsresult NS_OK_UDEC_MOREOUTPUT{0x0050000D};  ///< there is no more room
inline constexpr nsresult NS_OK_UENC_MOREOUTPUT{0x00500022};
inline constexpr nsresult NS_OK_UENC_MOREINPUT{0x00500024};

/// Makes decoders and encoders by the name of a character set, in any case. NS_ERROR_UCONV_NOCONV
/// for one that is not known. Any thread; a converter is used by one thread at a time and keeps its
/// state between calls until Reset.
///
/// Convert takes the lengths that are there and gives those that were used, for a failure too. A
/// decoder puts U+FFFD for what it can't read, or, set to signal, stops before it with
/// NS_ERROR_ILLEGAL_INPUT. An encoder set to signal (as it is at first) stops behind a character
/// that the set lacks with NS_ERROR_UCONV_NOMAPPING, which counts as success; else it puts the
/// replacement or asks the callback.
class nsCharsetConverterManager final
    : public nsImplements<nsCharsetConverterManager, nsICharsetConverterManager> {
 public:
  static const nsClassInfoRecord kClassInfo;
  nsresult GetUnicodeDecoder(const char* aCharset, nsIUnicodeDecoder** aResult) override;
  nsresult GetUnicodeDecoderRaw(const char* aCharset, nsIUnicodeDecoder** aResult) override;
  nsresult GetUnicodeDecoderInternal(const char* aCharset, nsIUnicodeDecoder** aResult) override;
  nsresult GetUnicodeDecoderRawInternal(const char* aCharset, nsIUnicodeDecoder** aResult) override;
  nsresult GetUnicodeEncoder(const char* aCharset, nsIUnicodeEncoder** aResult) override;
  nsresult GetUnicodeEncoderRaw(const char* aCharset, nsIUnicodeEncoder** aResult) override;
  /// The name by which the system knows the set.
  nsresult GetCharsetAlias(const char* aCharset, nsACString& aResult) override;
  // NS_ERROR_NOT_IMPLEMENTED, all: the system has no list of its converters, and nothing to say
  // about them.
  nsresult GetDecoderList(nsIUTF8StringEnumerator**) override { return NS_ERROR_NOT_IMPLEMENTED; }
  nsresult GetEncoderList(nsIUTF8StringEnumerator**) override { return NS_ERROR_NOT_IMPLEMENTED; }
  nsresult GetCharsetDetectorList(nsIUTF8StringEnumerator**) override {
    return NS_ERROR_NOT_IMPLEMENTED;
  }
  nsresult GetCharsetTitle(const char*, nsAString&) override { return NS_ERROR_NOT_IMPLEMENTED; }
  nsresult GetCharsetData(const char*, const char16_t*, nsAString&) override {
    return NS_ERROR_NOT_IMPLEMENTED;
  }
  nsresult GetCharsetLangGroup(const char*, nsIAtom**) override { return NS_ERROR_NOT_IMPLEMENTED; }
  nsresult GetCharsetLangGroupRaw(const char*, nsIAtom**) override {
    return NS_ERROR_NOT_IMPLEMENTED;
  }

 private:
  ~nsCharsetConverterManager() override = default;
};
