#include "nsSystemFileSystemSnapshot.h"

#include <vector>

#include "nsSystemFileSystemNode.h"

namespace {

// The number is that of the version. After it come the checksum, the root's path and volume, and
// the entries: of each directory their count, and behind each directory among them its own.
constexpr std::string_view kMagic = "vorel watch snapshot 1\n";

// Of an entry's first byte. The lowest two bits are its kind.
constexpr uint8_t kKinds = 3, kHasINode = 4, kIsOnRootVolume = 8;

constexpr size_t kLongestName = 4096;

class Writer {
 public:
  template <class Number>
  void Put(Number aNumber) {
    for (size_t i = 0; i < sizeof aNumber; ++i)
      mBytes += static_cast<char>(static_cast<uint64_t>(aNumber) >> (8 * i));
  }
  void Put(std::u16string_view aText) {
    Put(static_cast<uint32_t>(aText.size()));
    for (const char16_t unit : aText) Put(static_cast<uint16_t>(unit));
  }
  std::string mBytes;
};

/// Everything fails once something has.
class Reader {
 public:
  explicit Reader(std::string_view aBytes) : mBytes(aBytes) {}

  template <class Number>
  Number Get() {
    uint64_t number = 0;
    if (mBytes.size() < sizeof(Number)) return Fail(), Number{};
    for (size_t i = 0; i < sizeof(Number); ++i)
      number |= uint64_t{static_cast<uint8_t>(mBytes[i])} << (8 * i);
    mBytes.remove_prefix(sizeof(Number));
    return static_cast<Number>(number);
  }
  std::u16string GetText() {
    const auto length = Get<uint32_t>();
    if (mBytes.size() / 2 < length) return Fail(), std::u16string();
    std::u16string text(length, u'\0');
    for (char16_t& unit : text) unit = static_cast<char16_t>(Get<uint16_t>());
    return text;
  }
  bool IsGood() const { return mIsGood; }
  std::string_view Rest() const { return mBytes; }

 private:
  void Fail() {
    mIsGood = false;
    mBytes = {};
  }
  std::string_view mBytes;
  bool mIsGood = true;
};

bool IsName(std::u16string_view aName) {
  return !aName.empty() && aName.size() <= kLongestName && aName != u"." && aName != u".." &&
         aName.find_first_of(std::u16string_view(u"/\0", 2)) == aName.npos;
}

}  // namespace

uint64_t NS_Checksum(std::string_view aBytes) {
  uint64_t sum = 0xcbf29ce484222325;
  for (const char byte : aBytes) sum = (sum ^ static_cast<uint8_t>(byte)) * 0x100000001b3;
  return sum;
}

std::string NS_FormatSnapshot(const nsSystemFileSystemOrigin& aOrigin,
                              const nsSystemFileSystemNode& aRoot) {
  Writer out;
  out.Put(aOrigin.mRootPath);
  out.Put(aOrigin.mVolume);
  // No call within itself for each level: trees can be deeper than the stack.
  struct Level {
    nsFileSystemNodeMap::const_iterator mNext, mEnd;
  };
  std::vector<Level> levels;
  const auto enter = [&](const nsSystemFileSystemNode& aDirectory) {
    const nsFileSystemNodeMap& children = aDirectory.Children();
    out.Put(static_cast<uint32_t>(children.size()));
    levels.push_back({children.begin(), children.end()});
  };
  enter(aRoot);
  while (!levels.empty()) {
    if (levels.back().mNext == levels.back().mEnd) {
      levels.pop_back();
      continue;
    }
    const auto& [leafName, child] = *levels.back().mNext++;
    uint64_t inode = 0;
    int64_t lastModify = 0;
    const bool hasINode = NS_SUCCEEDED(child->GetINode(&inode));
    (void)child->GetLastModify(&lastModify);
    out.Put(static_cast<uint8_t>(child->Kind() | (hasINode ? kHasINode : 0) |
                                 (child->Volume() == aOrigin.mNumber ? kIsOnRootVolume : 0)));
    out.Put(inode);
    out.Put(lastModify);
    out.Put(leafName.view());
    if (child->Kind() == nsPlatformFiles::kDirectory) enter(*child);
  }
  Writer head;
  head.mBytes = kMagic;
  head.Put(NS_Checksum(out.mBytes));
  return head.mBytes + out.mBytes;
}

bool NS_ParseSnapshot(std::string_view aBytes, const nsSystemFileSystemOrigin& aOrigin,
                      nsSystemFileSystemNode* aRoot) {
  if (!aBytes.starts_with(kMagic)) return false;
  Reader in(aBytes.substr(kMagic.size()));
  const auto checksum = in.Get<uint64_t>();
  if (!in.IsGood() || NS_Checksum(in.Rest()) != checksum || in.GetText() != aOrigin.mRootPath)
    return false;
  const auto volume = in.Get<uint64_t>();
  const bool isSameVolume = volume != 0 && volume == aOrigin.mVolume;

  struct Level {
    nsSystemFileSystemNode* mDirectory;
    uint32_t mLeft;  // entries that are still to come
  };
  std::vector<Level> levels{{aRoot, in.Get<uint32_t>()}};
  while (!levels.empty() && in.IsGood()) {
    if (levels.back().mLeft == 0) {
      levels.pop_back();
      continue;
    }
    --levels.back().mLeft;
    const auto flags = in.Get<uint8_t>();
    const auto inode = in.Get<uint64_t>();
    const auto lastModify = in.Get<int64_t>();
    const nsString leafName(in.GetText());
    if (!in.IsGood() || !IsName(leafName.view())) return false;
    const auto kind = static_cast<nsPlatformFiles::Kind>(flags & kKinds);
    nsSystemFileSystemNode* const parent = levels.back().mDirectory;
    const auto node = MakeRefCounted<nsSystemFileSystemNode>();
    (void)node->Init(parent, leafName, kind == nsPlatformFiles::kDirectory, lastModify, inode,
                     (flags & kHasINode) != 0);
    node->SetOrigin(
        kind, isSameVolume && (flags & kIsOnRootVolume) ? aOrigin.mNumber : aOrigin.mOtherNumbers);
    (void)parent->AddChild(node.get());
    // Of two with one name the first stays, and nobody holds the other.
    if (parent->Children().find(leafName.view())->second != node) return false;
    if (kind == nsPlatformFiles::kDirectory) levels.push_back({node.get(), in.Get<uint32_t>()});
  }
  return in.IsGood() && in.Rest().empty();
}
