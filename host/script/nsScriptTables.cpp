#include "nsScriptTables.h"

#include <map>
#include <unordered_map>

#include "nsIHostDocument.h"
#include "nsILoadGroup.h"
#include "nsIURI.h"
#include "nsScriptHost.h"

namespace {

// The root has no definition of its own; what script does with it, QueryInterface, is the bridge's
// business.
constexpr nsScriptInterface kRoot{
    nsISupports::kName, &nsISupports::kIID, nullptr, {}, {}, false, nullptr, nullptr};

// So is the document, the one interface of the host's own that script sees.
const nsScriptInterface* const kDocument =
    nsBind<nsIHostDocument, nsAttribute<"baseURIObject", &nsIHostDocument::GetBaseURI>,
           nsAttribute<"loadGroup", &nsIHostDocument::GetLoadGroup>>();

struct Tables {
  std::vector<const nsScriptInterface*> mAll;
  std::unordered_map<nsIID, const nsScriptInterface*> mByIID;
  std::unordered_map<std::string_view, const nsScriptInterface*> mByName;
  std::map<std::pair<std::string_view, std::string_view>, std::string_view> mComments;
  std::string mDeclarations;

  Tables() {
    Add(&kRoot);
    Add(kDocument);
    for (const nsScriptInterface* table : NS_PlatformScriptInterfaces()) Add(table);
  }
  void Add(const nsScriptInterface* aTable) {
    if (!mByIID.emplace(*aTable->mIID, aTable).second) return;
    mByName.emplace(aTable->mName, aTable);
    mAll.push_back(aTable);
  }
};

Tables& TheTables() {
  static Tables sTables;
  return sTables;
}

}  // namespace

const nsScriptInterface* NS_FindScriptInterface(const nsIID& aIID) {
  return nsScriptTables::Find(aIID);
}

void nsScriptTables::Add(std::span<const nsScriptInterface* const> aInterfaces) {
  for (const nsScriptInterface* table : aInterfaces) TheTables().Add(table);
}

void nsScriptTables::AddComments(std::span<const nsScriptComment> aComments) {
  for (const nsScriptComment& comment : aComments)
    TheTables().mComments[{comment.mInterface, comment.mOperation}] = comment.mText;
}

const nsScriptInterface* nsScriptTables::Find(const nsIID& aIID) {
  const auto& all = TheTables().mByIID;
  const auto found = all.find(aIID);
  return found == all.end() ? nullptr : found->second;
}

const nsScriptInterface* nsScriptTables::Find(std::string_view aName) {
  const auto& all = TheTables().mByName;
  const auto found = all.find(aName);
  return found == all.end() ? nullptr : found->second;
}

const nsScriptInterface* nsScriptTables::Parent(const nsScriptInterface& aInterface) {
  if (!aInterface.mParent) return nullptr;
  const nsScriptInterface* const parent = Find(*aInterface.mParent);
  return parent ? parent : &kRoot;
}

bool nsScriptTables::Derives(const nsScriptInterface* aInterface, const nsScriptInterface* aOther) {
  for (; aInterface; aInterface = Parent(*aInterface))
    if (aInterface == aOther) return true;
  return false;
}

const std::vector<const nsScriptInterface*>& nsScriptTables::All() { return TheTables().mAll; }

std::vector<const nsScriptInterface*> nsScriptTables::ImplementableBelow(
    const nsScriptInterface& aInterface) {
  std::vector<const nsScriptInterface*> below;
  for (const nsScriptInterface* table : All())
    if (table != &aInterface && table->mImplement && Derives(table, &aInterface))
      below.push_back(table);
  return below;
}

void nsScriptTables::AddDeclarations(std::string_view aText) { TheTables().mDeclarations += aText; }

std::string_view nsScriptTables::Declarations() { return TheTables().mDeclarations; }

std::string_view nsScriptTables::Comment(std::string_view aInterface, std::string_view aOperation) {
  const auto found = TheTables().mComments.find({aInterface, aOperation});
  return found == TheTables().mComments.end() ? std::string_view() : found->second;
}

void nsScriptHost::AddInterfaces(std::span<const nsScriptInterface* const> aInterfaces,
                                 std::span<const nsScriptComment> aComments,
                                 std::string_view aDeclarations) {
  nsScriptTables::Add(aInterfaces);
  nsScriptTables::AddDeclarations(aDeclarations);
  nsScriptTables::AddComments(aComments);
}
