#include "nsManifest.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <functional>
#include <optional>
#include <string_view>
#include <vector>

#include "nsAppInfo.h"
#include "nsAscii.h"
#include "nsComponentManager.h"
#include "nsHostMessage.h"
#include "nsNativeFile.h"
#include "nsVersion.h"

namespace {

// Of a file that is none at all; the others are counted.
constexpr size_t kMostErrorsTold = 20;
// Each is read within the one that names it.
constexpr size_t kMaximumDepth = 32;

using Words = std::vector<std::string_view>;

// "x", and what follows the operator, of "x<=1": for flags that compare versions.
struct VersionTest {
  std::string_view mName, mOperator, mValue;
};

VersionTest SplitTest(std::string_view aWord) {
  const size_t start = std::min(aWord.find_first_of("<>="), aWord.size());
  size_t end = start + (start < aWord.size());
  if (end < aWord.size() && aWord[start] != '=' && aWord[end] == '=') ++end;
  return {aWord.substr(0, start), aWord.substr(start, end - start), aWord.substr(end)};
}

bool Holds(std::string_view aVersion, const VersionTest& aTest) {
  const auto order = NS_CompareVersions(aVersion, aTest.mValue);
  if (aTest.mOperator == "<") return order < 0;
  if (aTest.mOperator == "<=") return order <= 0;
  if (aTest.mOperator == ">") return order > 0;
  if (aTest.mOperator == ">=") return order >= 0;
  return order == 0;
}

class Manifest {
 public:
  Manifest(nsComponentManager& aManager, const std::string& aPath, size_t aDepth)
      : mManager(aManager),
        mPath(aPath),
        mDirectory(std::filesystem::path(aPath).parent_path()),
        mDepth(aDepth) {}

  /// Reads a file that one at a depth below aDepth names, once.
  static nsresult Register(nsComponentManager& aManager, const std::string& aPath, size_t aDepth);

  void Parse(std::string_view aContents);

 private:
  struct Directive {
    std::string_view mName;
    size_t mArguments;
    void (Manifest::*mApply)(const Words& aWords);  // null: known, and without effect here
  };
  static const Directive kDirectives[];
  struct Contract {
    std::string mID;
    nsCID mCID;
    std::string mWhere;
  };

  void ParseLine(std::string_view aLine);
  bool Applies(const Words& aFlags);
  void Message(std::string_view aText) {
    if (++mMessages <= kMostErrorsTold)
      NS_HostMessage(eHostError, Where() + ": " + std::string(aText));
  }
  std::string Where() const { return mPath + ":" + std::to_string(mLine); }
  std::string Resolve(std::string_view aFile) const { return (mDirectory / aFile).native(); }
  std::optional<nsCID> ParseCID(std::string_view aText);

  void ApplyBinaryComponent(const Words& aWords);
  void ApplyComponent(const Words& aWords);
  void ApplyContract(const Words& aWords);
  void ApplyCategory(const Words& aWords);
  void ApplyManifest(const Words& aWords);

  nsComponentManager& mManager;
  const std::string mPath;
  const std::filesystem::path mDirectory;
  const size_t mDepth;
  size_t mLine = 0;
  size_t mMessages = 0;
  std::vector<Contract> mContracts;
};

// The lines of chrome registration belong to the platform's manifests too. There is no chrome
// registry here.
const Manifest::Directive Manifest::kDirectives[] = {
    {"binary-component", 1, &Manifest::ApplyBinaryComponent},
    {"component", 2, &Manifest::ApplyComponent},
    {"contract", 2, &Manifest::ApplyContract},
    {"category", 3, &Manifest::ApplyCategory},
    {"manifest", 1, &Manifest::ApplyManifest},
    {"interfaces", 1, nullptr},
    {"content", 2, nullptr},
    {"locale", 3, nullptr},
    {"skin", 3, nullptr},
    {"overlay", 2, nullptr},
    {"style", 2, nullptr},
    {"override", 2, nullptr},
    {"resource", 2, nullptr},
};

Words Split(std::string_view aLine) {
  Words words;
  while (true) {
    const size_t start = aLine.find_first_not_of(" \t");
    if (start == aLine.npos || aLine[start] == '#') return words;
    aLine.remove_prefix(start);
    const size_t end = std::min(aLine.find_first_of(" \t"), aLine.size());
    words.push_back(aLine.substr(0, end));
    aLine.remove_prefix(end);
  }
}

void Manifest::Parse(std::string_view aContents) {
  if (aContents.starts_with("\xEF\xBB\xBF")) aContents.remove_prefix(3);
  while (!aContents.empty()) {
    ++mLine;
    const size_t end = std::min(aContents.find_first_of("\r\n"), aContents.size());
    ParseLine(aContents.substr(0, end));
    aContents.remove_prefix(end);
    if (!aContents.empty()) aContents.remove_prefix(aContents.starts_with("\r\n") ? 2 : 1);
  }
  if (mMessages > kMostErrorsTold)
    NS_HostMessage(eHostError, mPath + ": " + std::to_string(mMessages - kMostErrorsTold) +
                                   " more lines are wrong");
  // Contract lines may name classes of lines further down.
  for (const Contract& contract : mContracts)
    (void)mManager.RegisterContract(contract.mID, contract.mCID, contract.mWhere);
}

void Manifest::ParseLine(std::string_view aLine) {
  Words words = Split(aLine);
  if (words.empty()) return;
  const auto directive =
      std::find_if(std::begin(kDirectives), std::end(kDirectives),
                   [&](const Directive& aDirective) { return aDirective.mName == words.front(); });
  if (directive == std::end(kDirectives)) {
    Message("unknown line \"" + std::string(words.front()) + "\"");
    return;
  }
  if (!directive->mApply) return;
  if (words.size() <= directive->mArguments) {
    Message("\"" + std::string(directive->mName) + "\" takes " +
            std::to_string(directive->mArguments) + " arguments");
    return;
  }
  const auto flags = words.begin() + static_cast<ptrdiff_t>(directive->mArguments) + 1;
  if (!Applies(Words(flags, words.end()))) return;
  words.erase(flags, words.end());
  (this->*directive->mApply)(words);
}

// A flag may stand several times: then one that holds is enough. Of different flags all must hold.
bool Manifest::Applies(const Words& aFlags) {
  struct Fact {
    std::string_view mName;
    bool mIsVersion;
    std::string mValue;
    bool mNamed = false, mHolds = false;
  };
  const nsAppInfo& app = mManager.AppInfo();
  Fact facts[] = {
      {"application", false, app.mID},
      {"appversion", true, app.mVersion},
      {"platformversion", true, kPlatformVersion},
      {"os", false, kOS},
      {"osversion", true, NS_OSVersion()},
      {"abi", false, std::string(kOS) + "_" + kABI},
  };
  bool known = true;
  for (const std::string_view flag : aFlags) {
    VersionTest test = SplitTest(flag);
    const std::string name = NS_ToLowerAscii(test.mName);
    const auto fact = std::find_if(std::begin(facts), std::end(facts),
                                   [&](const Fact& aFact) { return aFact.mName == name; });
    const bool fits = fact != std::end(facts) &&
                      (fact->mIsVersion ? !test.mOperator.empty() : test.mOperator == "=");
    if (!fits) {
      Message("unknown flag \"" + std::string(flag) + "\"");
      known = false;
      continue;
    }
    fact->mNamed = true;
    fact->mHolds |= fact->mIsVersion
                        ? Holds(fact->mValue, test)
                        : NS_ToLowerAscii(fact->mValue) == NS_ToLowerAscii(test.mValue);
  }
  return known && std::none_of(std::begin(facts), std::end(facts),
                               [](const Fact& aFact) { return aFact.mNamed && !aFact.mHolds; });
}

std::optional<nsCID> Manifest::ParseCID(std::string_view aText) {
  nsCID cid;
  if (nsID::Parse(aText, &cid)) return cid;
  Message("\"" + std::string(aText) + "\" is no class ID");
  return {};
}

void Manifest::ApplyBinaryComponent(const Words& aWords) {
  (void)mManager.RegisterLibrary(Resolve(aWords[1]), Where());
}

void Manifest::ApplyComponent(const Words& aWords) {
  if (const auto cid = ParseCID(aWords[1]))
    (void)mManager.RegisterScript(*cid, Resolve(aWords[2]), Where());
}

void Manifest::ApplyContract(const Words& aWords) {
  if (const auto cid = ParseCID(aWords[2]))
    mContracts.push_back({std::string(aWords[1]), *cid, Where()});
}

void Manifest::ApplyCategory(const Words& aWords) {
  (void)mManager.Categories().AddCategoryEntry(
      std::string(aWords[1]).c_str(), std::string(aWords[2]).c_str(),
      std::string(aWords[3]).c_str(), false, true, nullptr);
}

void Manifest::ApplyManifest(const Words& aWords) {
  if (mDepth == kMaximumDepth) {
    Message(std::string(aWords[1]) + ": manifests lead to one another too deeply");
    return;
  }
  if (const nsresult rv = Register(mManager, Resolve(aWords[1]), mDepth + 1); NS_FAILED(rv))
    Message(std::string(aWords[1]) + ": " + std::string(NS_ResultName(rv)));
}

nsresult Manifest::Register(nsComponentManager& aManager, const std::string& aPath, size_t aDepth) {
  std::string contents;
  const nsresult rv = NS_ReadFile(aPath, &contents, kConfigurationLimit, nsFileKind::eRegular);
  if (NS_FAILED(rv)) return rv;
  if (aManager.NoteManifest(aPath)) Manifest(aManager, aPath, aDepth).Parse(contents);
  return NS_OK;
}

}  // namespace

nsresult NS_RegisterManifest(nsComponentManager& aManager, const std::string& aPath) {
  return Manifest::Register(aManager, aPath, 0);
}
