#include "nsPrefFile.h"

#include <charconv>

#include "nsUtf.h"

namespace {

// Thrown by what can't go on, caught by the loop over statements.
struct Wrong {
  std::string mWhat;
};

class Parser {
 public:
  Parser(std::string_view aText, const nsPrefFileSink& aSink) : mRest(aText), mSink(aSink) {}

  void Run() {
    if (mRest.starts_with("\xEF\xBB\xBF")) mRest.remove_prefix(3);
    while (true) {
      try {
        SkipSpace();
        if (mRest.empty()) return;
        ParseStatement();
      } catch (const Wrong& wrong) {
        if (!mSink.mError(mLine, wrong.mWhat)) return;
        SkipLine();
      }
    }
  }

 private:
  void SkipLine() { mRest.remove_prefix(std::min(mRest.find_first_of("\r\n"), mRest.size())); }

  void SkipSpace() {
    while (!mRest.empty()) {
      const char c = mRest.front();
      if (c == '#' || mRest.starts_with("//")) {
        SkipLine();
      } else if (mRest.starts_with("/*")) {
        const size_t end = mNoMoreEnds ? mRest.npos : mRest.find("*/", 2);
        mNoMoreEnds = end == mRest.npos;
        if (mNoMoreEnds) throw Wrong{"a comment that does not end"};
        for (const char inside : mRest.substr(0, end)) mLine += inside == '\n';
        mRest.remove_prefix(end + 2);
      } else if (c == '\r' || c == '\n') {
        // A lone carriage return ends a line too.
        if (c == '\n' || !mRest.starts_with("\r\n")) ++mLine;
        mRest.remove_prefix(1);
      } else if (c == ' ' || c == '\t') {
        mRest.remove_prefix(1);
      } else {
        return;
      }
    }
  }

  std::string_view TakeWord() {
    SkipSpace();
    size_t length = 0;
    const auto isWord = [](char aChar) {
      return (aChar >= 'a' && aChar <= 'z') || (aChar >= 'A' && aChar <= 'Z') ||
             (aChar >= '0' && aChar <= '9') || aChar == '_' || aChar == '-' || aChar == '+';
    };
    while (length < mRest.size() && isWord(mRest[length])) ++length;
    const std::string_view word = mRest.substr(0, length);
    mRest.remove_prefix(length);
    return word;
  }

  void Expect(char aChar) {
    SkipSpace();
    if (!mRest.starts_with(aChar)) throw Wrong{std::string("'") + aChar + "' is missing"};
    mRest.remove_prefix(1);
  }

  void ParseStatement() {
    const std::string_view word = TakeWord();
    const bool isUser = word == "user_pref";
    if (!isUser && word != "pref")
      throw Wrong{"neither pref nor user_pref: \"" + std::string(word) + "\""};
    Expect('(');
    std::string name = TakeString();
    if (name.empty()) throw Wrong{"a preference without a name"};
    Expect(',');
    nsPrefValue value = TakeValue();
    Expect(')');
    Expect(';');
    std::string wrong = mSink.mPref(isUser, std::move(name), std::move(value));
    if (!wrong.empty()) throw Wrong{std::move(wrong)};
  }

  nsPrefValue TakeValue() {
    SkipSpace();
    if (mRest.starts_with('"') || mRest.starts_with('\'')) return TakeString();
    const std::string_view word = TakeWord();
    if (word == "true") return true;
    if (word == "false") return false;
    int32_t number;
    const std::string_view digits = word.substr(word.starts_with('+') ? 1 : 0);
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    if (error != std::errc() || end != digits.data() + digits.size())
      throw Wrong{"neither a text, nor a 32-bit integer, nor true or false: \"" +
                  std::string(word) + "\""};
    return number;
  }

  std::string TakeString() {
    SkipSpace();
    if (mRest.empty() || (mRest.front() != '"' && mRest.front() != '\''))
      throw Wrong{"a text in quotes is missing"};
    const char quote = mRest.front();
    mRest.remove_prefix(1);
    std::string text;
    while (true) {
      size_t stop = 0;
      while (stop < mRest.size() && mRest[stop] != quote && mRest[stop] != '\\' &&
             mRest[stop] != '\r' && mRest[stop] != '\n')
        ++stop;
      if (stop == mRest.size() || mRest[stop] == '\r' || mRest[stop] == '\n') {
        mRest.remove_prefix(stop);
        throw Wrong{"a text that does not end on its line"};
      }
      text += mRest.substr(0, stop);
      const bool isEnd = mRest[stop] != '\\';
      mRest.remove_prefix(stop + 1);
      if (isEnd) return text;
      TakeEscape(&text);
    }
  }

  // After a backslash. What is no escape stands for itself, as paths of other systems have it.
  void TakeEscape(std::string* aText) {
    const char kind = mRest.empty() ? 0 : mRest.front();
    const size_t digits = kind == 'x' ? 2 : kind == 'u' ? 4 : 0;
    if (digits) {
      mRest.remove_prefix(1);
      std::u16string units{TakeUnit(digits)};
      if ((units[0] & 0xFC00) == 0xD800 && mRest.starts_with("\\u")) {
        mRest.remove_prefix(2);
        units += TakeUnit(4);
      }
      *aText += vorel::Utf16ToUtf8(units);
      return;
    }
    constexpr std::string_view kEscapes = "\"'\\nr", kMeanings = "\"'\\\n\r";
    const size_t known = kind ? kEscapes.find(kind) : kEscapes.npos;
    if (known == kEscapes.npos) {
      *aText += '\\';
      return;
    }
    mRest.remove_prefix(1);
    *aText += kMeanings[known];
  }

  char16_t TakeUnit(size_t aDigits) {
    uint16_t unit = 0;
    const std::string_view digits = mRest.substr(0, aDigits);
    const auto [end, error] =
        std::from_chars(digits.data(), digits.data() + digits.size(), unit, 16);
    // A zero would cut the text short for everybody who reads it.
    if (error != std::errc() || digits.size() != aDigits || end != digits.data() + aDigits || !unit)
      throw Wrong{"a character number that is none"};
    mRest.remove_prefix(aDigits);
    return unit;
  }

  std::string_view mRest;
  size_t mLine = 1;
  bool mNoMoreEnds = false;  // of comments: looked for once, not from each beginning
  const nsPrefFileSink& mSink;
};

std::string Quote(std::string_view aText) {
  std::string quoted = "\"";
  for (const char c : aText) {
    switch (c) {
      case '"':
      case '\\':
        (quoted += '\\') += c;
        break;
      case '\n':
        quoted += "\\n";
        break;
      case '\r':
        quoted += "\\r";
        break;
      default:
        quoted += c;
    }
  }
  return quoted += '"';
}

}  // namespace

void NS_ParsePrefs(std::string_view aText, const nsPrefFileSink& aSink) {
  Parser(aText, aSink).Run();
}

std::string NS_FormatUserPref(std::string_view aName, const nsPrefValue& aValue) {
  std::string value;
  if (const auto* text = std::get_if<std::string>(&aValue))
    value = Quote(*text);
  else if (const auto* number = std::get_if<int32_t>(&aValue))
    value = std::to_string(*number);
  else
    value = std::get<bool>(aValue) ? "true" : "false";
  return "user_pref(" + Quote(aName) + ", " + value + ");\n";
}
