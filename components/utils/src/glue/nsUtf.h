// Conversion between UTF-8 and UTF-16. Total: every input has an output, and what is malformed
// becomes U+FFFD.
#pragma once

#include <string>
#include <string_view>

namespace vorel {

/// A malformed sequence gives one U+FFFD for its longest valid beginning, so that no text after it
/// is lost.
std::u16string Utf8ToUtf16(std::string_view aText);
/// A surrogate without a partner gives U+FFFD.
std::string Utf16ToUtf8(std::u16string_view aText);
/// Bytes above 127 give U+FFFD.
std::u16string AsciiToUtf16(std::string_view aText);
/// Units above 127 give "?".
std::string Utf16ToAscii(std::u16string_view aText);
/// True for text that Utf8ToUtf16 takes over without a replacement character of its own.
bool IsUtf8(std::string_view aText);
/// A text from elsewhere for a line that people read: what could steer their terminal, end the line
/// or change the order of what stands in it is written as "\\x1b", "\\n" or "\\u{202e}". So are the
/// controls of both kinds, the separators of lines and paragraphs, and the marks of direction; a
/// tab stays, and ends of lines do too where they are wanted. Malformed sequences give U+FFFD.
std::string Printable(std::string_view aText, bool aKeepsLines = false);

// Names of the system's: of files, of links, on its command line. They are bytes, and mostly UTF-8.

/// UTF-8 where the bytes are that. Every other byte becomes a unit of its own, a surrogate without
/// a partner (0xDC00 and the byte), so that Utf16ToName gives the same bytes again: an odd name can
/// still be told from others, and what it names can be opened.
std::u16string NameToUtf16(std::string_view aName);
std::string Utf16ToName(std::u16string_view aText);

}  // namespace vorel
