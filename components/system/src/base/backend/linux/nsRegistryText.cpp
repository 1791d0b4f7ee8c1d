#include "nsRegistryText.h"

#include <charconv>
#include <cstdio>
#include <unordered_map>
#include <vector>

namespace {

constexpr std::string_view kHeading =
    "# Configuration of this machine. Kept by Vorel System, which sets a file aside that was "
    "changed by hand.\n";
constexpr std::string_view kChecksum = "checksum ";
constexpr std::pair<uint32_t, std::string_view> kTypes[] = {
    {nsPlatformRegistry::kString, "sz"},
    {nsPlatformRegistry::kBinary, "binary"},
    {nsPlatformRegistry::kDword, "dword"},
    {nsPlatformRegistry::kMultiString, "multi_sz"}};

// FNV-1a: finds damage, and is no protection against anyone.
std::string Checksum(std::string_view aText) {
  uint64_t hash = 0xcbf29ce484222325;
  for (const char c : aText) hash = (hash ^ static_cast<uint8_t>(c)) * 0x100000001b3;
  char digits[17];
  std::snprintf(digits, sizeof digits, "%016llx", static_cast<unsigned long long>(hash));
  return digits;
}

template <class Bytes>
std::string Quoted(const Bytes& aBytes) {
  std::string text = "\"";
  for (const auto byte : aBytes) {
    const auto c = static_cast<unsigned char>(byte);
    if (c == '"' || c == '\\') {
      text += '\\';
      text += static_cast<char>(c);
    } else if (c == 0) {
      text += "\\0";
    } else if (c < 0x20 || c > 0x7e) {
      char escape[5];
      std::snprintf(escape, sizeof escape, "\\x%02x", c);
      text += escape;
    } else {
      text += static_cast<char>(c);
    }
  }
  return text + '"';
}

/// Reads from the front of a line.
class Reader {
 public:
  explicit Reader(std::string_view aLine) : mRest(aLine) {}

  bool Skip(std::string_view aText) {
    if (!mRest.starts_with(aText)) return false;
    mRest.remove_prefix(aText.size());
    return true;
  }
  std::string_view Word() {
    const std::string_view word = mRest.substr(0, mRest.find(' '));
    mRest.remove_prefix(word.size());
    return word;
  }
  bool Number(uint32_t* aNumber) {
    const auto [end, error] = std::from_chars(mRest.data(), mRest.data() + mRest.size(), *aNumber);
    if (error != std::errc()) return false;
    mRest.remove_prefix(static_cast<size_t>(end - mRest.data()));
    return true;
  }
  bool QuotedBytes(std::vector<uint8_t>* aBytes) {
    if (!Skip("\"")) return false;
    while (!mRest.empty()) {
      const char c = Next();
      if (c == '"') return true;
      if (c != '\\') {
        aBytes->push_back(static_cast<uint8_t>(c));
        continue;
      }
      if (mRest.empty()) return false;
      const char kind = Next();
      unsigned byte = 0;
      if (kind == 'x') {
        if (mRest.size() < 2) return false;
        const auto [end, error] = std::from_chars(mRest.data(), mRest.data() + 2, byte, 16);
        if (error != std::errc() || end != mRest.data() + 2) return false;
        mRest.remove_prefix(2);
      } else if (kind == '"' || kind == '\\') {
        byte = static_cast<unsigned char>(kind);
      } else if (kind != '0') {
        return false;
      }
      aBytes->push_back(static_cast<uint8_t>(byte));
    }
    return false;
  }
  bool QuotedText(std::string* aText) {
    std::vector<uint8_t> bytes;
    if (!QuotedBytes(&bytes)) return false;
    aText->assign(bytes.begin(), bytes.end());
    return true;
  }
  bool AtEnd() const { return mRest.empty(); }

 private:
  char Next() {
    const char c = mRest.front();
    mRest.remove_prefix(1);
    return c;
  }
  std::string_view mRest;
};

bool ReadType(Reader& aLine, uint32_t* aType) {
  if (aLine.Skip("type")) return aLine.Number(aType);
  const std::string_view word = aLine.Word();
  for (const auto& [type, name] : kTypes)
    if (name == word) {
      *aType = type;
      return true;
    }
  return false;
}

std::string FormatValue(const nsRegistryValue& aValue) {
  std::string line = Quoted(aValue.mName) + " = ";
  const auto type =
      std::ranges::find(kTypes, aValue.mType, &std::pair<uint32_t, std::string_view>::first);
  line +=
      type == std::end(kTypes) ? "type" + std::to_string(aValue.mType) : std::string(type->second);
  line += ' ';
  const auto& data = aValue.mData;
  if (aValue.mType == nsPlatformRegistry::kDword && data.size() == 4)
    return line + std::to_string(data[0] | uint32_t{data[1]} << 8 | uint32_t{data[2]} << 16 |
                                 uint32_t{data[3]} << 24);
  return line + Quoted(data);
}

bool ParseValue(Reader& aLine, nsRegistryValue* aValue) {
  if (!aLine.QuotedText(&aValue->mName) || !aLine.Skip(" = ") || !ReadType(aLine, &aValue->mType) ||
      !aLine.Skip(" "))
    return false;
  uint32_t number = 0;
  if (aValue->mType == nsPlatformRegistry::kDword && aLine.Number(&number))
    aValue->mData = NS_RegistryDword(number);
  else if (!aLine.QuotedBytes(&aValue->mData))
    return false;
  return aLine.AtEnd();
}

}  // namespace

std::string NS_FormatRegistry(const nsRegistryData& aData) {
  std::string text(kHeading);
  for (const nsRegistryData::Key& key : aData.mKeys) {
    text += "\n[" + Quoted(key.mPath) + "]\n";
    for (const nsRegistryValue& value : key.mValues) text += FormatValue(value) + "\n";
  }
  text += "\n";
  return text + std::string(kChecksum) + Checksum(text) + "\n";
}

std::optional<nsRegistryData> NS_ParseRegistry(std::string_view aText) {
  const size_t last = aText.rfind(kChecksum);
  if (last == aText.npos || last == 0 || aText[last - 1] != '\n') return std::nullopt;
  std::string_view body = aText.substr(0, last);
  if (aText.substr(last) != std::string(kChecksum) + Checksum(body) + "\n") return std::nullopt;

  nsRegistryData data;
  // Not by Make and Set, which look through all there is.
  std::unordered_map<std::string, size_t> keys;
  std::vector<std::unordered_map<std::string, size_t>> values;  // of each key
  size_t key = 0;
  while (!body.empty()) {
    const size_t end = body.find('\n');
    if (end == body.npos) return std::nullopt;
    const std::string_view line = body.substr(0, end);
    body.remove_prefix(end + 1);
    if (line.empty() || line[0] == '#') continue;
    Reader reader(line);
    if (reader.Skip("[")) {
      std::string path;
      if (!reader.QuotedText(&path) || !reader.Skip("]") || !reader.AtEnd()) return std::nullopt;
      const auto [known, isNew] = keys.emplace(nsRegistryData::Spelling(path), data.mKeys.size());
      key = known->second;
      if (isNew) {
        data.mKeys.push_back({path, {}});
        values.emplace_back();
      }
      continue;
    }
    nsRegistryValue value;
    if (keys.empty() || !ParseValue(reader, &value)) return std::nullopt;
    auto& list = data.mKeys[key].mValues;
    const auto [known, isNew] = values[key].emplace(NS_ToLowerAscii(value.mName), list.size());
    if (isNew) {
      list.push_back(std::move(value));
    } else {
      list[known->second].mType = value.mType;
      list[known->second].mData = std::move(value.mData);
    }
  }
  return data;
}
