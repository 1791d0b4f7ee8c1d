#include "nsMachineValue.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <nlohmann/json.hpp>
#include <unordered_map>

namespace {

// Values of a machine are not nested deeply. A limit keeps the recursive walks over them off the
// end of the stack.
constexpr size_t kMaximumDepth = 64;

// Where the parser has got to. The line is that of the last character which is no white space: the
// parser looks one character beyond a number, which may be the line's end, but never further.
struct Position {
  unsigned mLine = 1;
  unsigned mTokenLine = 1;

  void Pass(char aChar) {
    if (aChar == '\n')
      ++mLine;
    else if (aChar != ' ' && aChar != '\t' && aChar != '\r')
      mTokenLine = mLine;
  }
};

class CountingIterator {
 public:
  using iterator_category = std::input_iterator_tag;
  using value_type = char;
  using difference_type = std::ptrdiff_t;
  using pointer = const char*;
  using reference = const char&;

  CountingIterator(const char* aAt, Position* aPosition) : mAt(aAt), mPosition(aPosition) {}
  reference operator*() const { return *mAt; }
  CountingIterator& operator++() {
    mPosition->Pass(*mAt++);
    return *this;
  }
  CountingIterator operator++(int) {
    const CountingIterator old = *this;
    ++*this;
    return old;
  }
  bool operator==(const CountingIterator& aOther) const { return mAt == aOther.mAt; }

 private:
  const char* mAt;
  Position* mPosition;
};

// The parser's own words are wrapped in its names and positions: "[…] parse error at line 1, column
// 2: syntax error …".
std::string Reason(std::string_view aWhat) {
  for (const std::string_view wrapping : {"] ", "parse error at "})
    if (const size_t at = aWhat.find(wrapping); at != aWhat.npos)
      aWhat.remove_prefix(at + wrapping.size());
  if (aWhat.starts_with("line ")) aWhat.remove_prefix(aWhat.find(": ") + 2);
  std::string reason;
  for (const char c : aWhat) reason += c >= ' ' && c <= '~' ? c : '?';
  return reason;
}

}  // namespace

// Receives the parser's events and builds the tree.
class MachineValueBuilder {
 public:
  MachineValueBuilder(const Position& aPosition, const std::string& aDirectory)
      : mPosition(aPosition), mDirectory(aDirectory) {}

  nsMachineValue Take() { return std::move(mRoot); }

  bool null() { return Add(nullptr) != nullptr; }
  bool boolean(bool aValue) { return Add(aValue) != nullptr; }
  bool number_integer(int64_t aValue) { return Add(aValue) != nullptr; }
  bool number_unsigned(uint64_t aValue) {
    // Beyond the signed range nothing in a machine is exact: such a number is one that is too
    // large, everywhere.
    if (aValue > static_cast<uint64_t>(std::numeric_limits<int64_t>::max()))
      return Add(static_cast<double>(aValue)) != nullptr;
    return Add(static_cast<int64_t>(aValue)) != nullptr;
  }
  bool number_float(double aValue, const std::string&) { return Add(aValue) != nullptr; }
  bool string(std::string& aValue) { return Add(std::move(aValue)) != nullptr; }
  bool binary(std::vector<uint8_t>&) { return false; }
  bool start_array(size_t) { return Open(nsMachineValue::Array{}); }
  bool end_array() { return Close(); }
  bool start_object(size_t) { return Open(nsMachineValue::Object{}); }
  bool end_object() { return Close(); }
  bool key(std::string& aKey) {
    auto& members = std::get<nsMachineValue::Object>(mOpen.back()->mValue).mMembers;
    const auto [first, isNew] = mKeys.back().emplace(aKey, mPosition.mTokenLine);
    if (!isNew)
      throw nsMachineFileError(mPosition.mTokenLine,
                               "the key \"" + aKey +
                                   "\" stands here a second time, first in line " +
                                   std::to_string(first->second));
    members.emplace_back().mKey = std::move(aKey);
    members.back().mKeyLine = mPosition.mTokenLine;
    return true;
  }
  bool parse_error(size_t, const std::string&, const nlohmann::detail::exception& aError) {
    throw nsMachineFileError(mPosition.mTokenLine, Reason(aError.what()));
  }

 private:
  template <class T>
  nsMachineValue* Add(T aValue) {
    nsMachineValue* value = &mRoot;
    if (!mOpen.empty()) {
      if (auto* array = std::get_if<nsMachineValue::Array>(&mOpen.back()->mValue))
        value = &array->emplace_back();
      else
        value = &std::get<nsMachineValue::Object>(mOpen.back()->mValue).mMembers.back();
    }
    value->mLine = mPosition.mTokenLine;
    value->mDirectory = mDirectory;
    value->mValue = std::move(aValue);
    return value;
  }
  template <class T>
  bool Open(T aEmpty) {
    if (mOpen.size() == kMaximumDepth)
      throw nsMachineFileError(mPosition.mTokenLine, "nested too deeply");
    // An open value stays where it is: its siblings are added only after it has been closed.
    mOpen.push_back(Add(std::move(aEmpty)));
    mKeys.emplace_back();
    return true;
  }
  bool Close() {
    mOpen.pop_back();
    mKeys.pop_back();
    return true;
  }

  const Position& mPosition;
  const std::string& mDirectory;
  nsMachineValue mRoot;
  std::vector<nsMachineValue*> mOpen;
  std::vector<std::unordered_map<std::string, unsigned>> mKeys;  // of each, with their lines
};

nsMachineValue nsMachineValue::Parse(std::string_view aText, const std::string& aDirectory) {
  Position position;
  MachineValueBuilder builder(position, aDirectory);
  const char* end = aText.data() + aText.size();
  if (!nlohmann::json::sax_parse(CountingIterator(aText.data(), &position),
                                 CountingIterator(end, &position), &builder))
    throw nsMachineFileError(position.mTokenLine, "not a JSON text");
  return builder.Take();
}

template <class T>
const T& nsMachineValue::As(const char* aWanted) const {
  const T* value = std::get_if<T>(&mValue);
  if (!value) Fail(std::string("must be ") + aWanted);
  return *value;
}

bool nsMachineValue::AsBoolean() const { return As<bool>("true or false"); }
const std::string& nsMachineValue::AsString() const { return As<std::string>("a text"); }
const std::vector<nsMachineValue>& nsMachineValue::AsArray() const { return As<Array>("an array"); }

double nsMachineValue::AsNumber(double aMinimum, double aMaximum) const {
  const int64_t* integer = std::get_if<int64_t>(&mValue);
  const double number = integer ? static_cast<double>(*integer) : As<double>("a number");
  if (!(number >= aMinimum && number <= aMaximum)) {
    char range[96];
    snprintf(range, sizeof range, "must be a number from %g to %g", aMinimum, aMaximum);
    Fail(range);
  }
  return number;
}

int64_t nsMachineValue::IntegerBetween(int64_t aMinimum, int64_t aMaximum) const {
  const int64_t* value = std::get_if<int64_t>(&mValue);
  if (!value || *value < aMinimum || *value > aMaximum)
    Fail("must be an integer from " + std::to_string(aMinimum) + " to " + std::to_string(aMaximum));
  return *value;
}

std::string nsMachineValue::AsPath() const {
  std::string path = AsString();
  if (path.empty() || path.find('\0') != path.npos) Fail("must be a path");
  if (path[0] != '/') path = mDirectory + "/" + path;
  while (path.size() > 1 && path.ends_with('/')) path.pop_back();
  return path;
}

void nsMachineValue::AsObject(const std::function<void(nsMachineObject&)>& aRead) const {
  nsMachineObject object(*this);
  aRead(object);
  object.FailOnUnknownKeys();
}

nsMachineObject::nsMachineObject(const nsMachineValue& aValue)
    : mValue(aValue), mMembers(aValue.As<nsMachineValue::Object>("an object").mMembers) {}

const nsMachineValue* nsMachineObject::Optional(std::string_view aKey) {
  mAsked.emplace_back(aKey);
  for (const auto& member : mMembers)
    if (member.mKey == aKey) return &member;
  return nullptr;
}

const nsMachineValue& nsMachineObject::Required(std::string_view aKey) {
  const nsMachineValue* value = Optional(aKey);
  if (!value) Fail("the key \"" + std::string(aKey) + "\" is missing");
  return *value;
}

void nsMachineObject::FailOnUnknownKeys() const {
  for (const auto& member : mMembers)
    if (std::find(mAsked.begin(), mAsked.end(), member.mKey) == mAsked.end())
      throw nsMachineFileError(member.mKeyLine, "unknown key \"" + member.mKey + "\"");
}
