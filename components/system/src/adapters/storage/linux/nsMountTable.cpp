#include "nsMountTable.h"

#include <algorithm>
#include <charconv>
#include <set>
#include <unordered_map>

namespace {

// Space, tab, newline, '#' and backslash stand as three octal digits.
std::string Unescape(std::string_view aText) {
  const auto octal = [&](size_t aAt) { return aText[aAt] >= '0' && aText[aAt] <= '7'; };
  std::string text;
  for (size_t i = 0; i < aText.size(); ++i) {
    if (aText[i] == '\\' && i + 3 < aText.size() && octal(i + 1) && octal(i + 2) && octal(i + 3)) {
      text += static_cast<char>((aText[i + 1] - '0') * 64 + (aText[i + 2] - '0') * 8 +
                                (aText[i + 3] - '0'));
      i += 3;
    } else {
      text += aText[i];
    }
  }
  return text;
}

// Each single space separates: a source may be empty.
std::vector<std::string_view> Split(std::string_view aText, char aSeparator) {
  std::vector<std::string_view> parts;
  for (size_t end; (end = aText.find(aSeparator)) != aText.npos; aText.remove_prefix(end + 1))
    parts.push_back(aText.substr(0, end));
  parts.push_back(aText);
  return parts;
}

bool ParseNumber(std::string_view aText, unsigned& aNumber) {
  const auto [end, error] = std::from_chars(aText.data(), aText.data() + aText.size(), aNumber);
  return error == std::errc() && end == aText.data() + aText.size();
}

// 36 35 98:0 /mnt1 /mnt2 rw,noatime master:1 - ext3 /dev/root rw,errors=continue
bool ParseLine(std::string_view aLine, nsMount& aMount) {
  constexpr size_t kFirstOptional = 6;
  const auto fields = Split(aLine, ' ');
  if (fields.size() <= kFirstOptional) return false;
  const auto hyphen = std::find(fields.begin() + kFirstOptional, fields.end(), "-");
  if (fields.end() - hyphen < 3) return false;
  const auto device = Split(fields[2], ':');
  if (!ParseNumber(fields[0], aMount.mId) || !ParseNumber(fields[1], aMount.mParent) ||
      device.size() != 2 || !ParseNumber(device[0], aMount.mMajor) ||
      !ParseNumber(device[1], aMount.mMinor))
    return false;
  aMount.mRoot = Unescape(fields[3]);
  aMount.mPoint = Unescape(fields[4]);
  aMount.mType = Unescape(hyphen[1]);
  aMount.mSource = Unescape(hyphen[2]);
  return aMount.mPoint.starts_with('/');
}

}  // namespace

std::vector<nsMount> NS_ParseMountTable(std::string_view aText) {
  std::vector<nsMount> mounts;
  for (const std::string_view line : Split(aText, '\n')) {
    nsMount mount;
    if (ParseLine(line, mount)) mounts.push_back(std::move(mount));
  }
  return mounts;
}

std::vector<nsMount> NS_ReachableMounts(const std::vector<nsMount>& aMounts) {
  std::unordered_map<unsigned, const nsMount*> byId;
  std::set<std::pair<unsigned, std::string>> places;  // the mount that is mounted upon, and where
  for (const nsMount& mount : aMounts) {
    byId.emplace(mount.mId, &mount);
    // The first root of a machine is its own parent.
    if (mount.mParent != mount.mId) places.emplace(mount.mParent, mount.mPoint);
  }

  const auto covered = [&](const nsMount& aMount) {
    return places.count({aMount.mId, aMount.mPoint}) != 0;
  };
  // A mount upon a directory above, and upon the same mount: had it been there before, it would be
  // the parent.
  const auto buried = [&](const nsMount& aMount) {
    if (aMount.mPoint == "/") return false;
    if (places.count({aMount.mParent, "/"})) return true;
    for (size_t slash = 0; (slash = aMount.mPoint.find('/', slash + 1)) != std::string::npos;)
      if (places.count({aMount.mParent, aMount.mPoint.substr(0, slash)})) return true;
    return false;
  };

  // Whether a mount is buried, or one that it stands on. Each is looked at once: whoever mounts a
  // thousand file systems one inside of the other must not hold everybody up.
  std::unordered_map<unsigned, bool> known;
  const auto standsOnBuried = [&](const nsMount& aMount) {
    std::vector<unsigned> way;
    bool result = false;
    for (const nsMount* at = &aMount; !result;) {
      const auto [found, isNew] = known.emplace(at->mId, false);  // also ends a loop of parents
      result = isNew ? buried(*at) : found->second;
      if (!isNew) break;
      way.push_back(at->mId);
      const auto parent = byId.find(at->mParent);
      if (parent == byId.end()) break;
      at = parent->second;
    }
    for (const unsigned id : way) known[id] = result;
    return result;
  };

  std::vector<nsMount> reachable;
  for (const nsMount& mount : aMounts)
    if (!covered(mount) && !standsOnBuried(mount)) reachable.push_back(mount);
  return reachable;
}
