#include "nsSystemTest.h"

#include <stdlib.h>

#include <fstream>
#include <utility>

void PrintTo(nsresult aRv, std::ostream* aOut) {
  const auto name = NS_ResultName(aRv);
  *aOut << (name.empty() ? "?" : name) << " 0x" << std::hex << static_cast<uint32_t>(aRv);
}

// ---- The log

nsTestLog& nsTestLog::Instance() {
  static nsTestLog sLog;
  return sLog;
}

void nsTestLog::Add(std::string aLine, std::string aPlace) {
  std::lock_guard lock(mLock);
  mLines.push_back(std::move(aLine));
  mPlace = std::move(aPlace);
}

std::string nsTestLog::Place() {
  std::lock_guard lock(mLock);
  return mPlace;
}

std::vector<std::string> nsTestLog::Take(std::string_view aPrefix) {
  std::lock_guard lock(mLock);
  std::vector<std::string> lines = std::exchange(mLines, {});
  std::erase_if(lines, [&](const std::string& aLine) { return !aLine.starts_with(aPrefix); });
  return lines;
}

namespace {

class nsTestLogger final : public nsImplements<nsTestLogger, nsILog4Logger> {
 public:
  explicit nsTestLogger(const nsACString& aName) : mName(aName) {}
  nsresult GetName(nsACString& aName) override { return NS_Give(mName, aName); }
  nsresult IsEnabledFor(uint32_t, bool* aEnabled) override {
    *aEnabled = true;
    return NS_OK;
  }
  nsresult Log(uint32_t aSeverity, const nsACString& aText, nsILog4LocationInfo* aPlace) override {
    static constexpr const char* kNames[] = {"debug ", "warning ", "error "};
    nsCString file, function;
    if (aPlace) {
      (void)aPlace->GetFile(file);
      (void)aPlace->GetFunction(function);
    }
    nsTestLog::Instance().Add(
        kNames[aSeverity] + std::string(mName.view()) + ": " + std::string(NS_View(aText)),
        std::string(file.view()) + " " + std::string(function.view()));
    return NS_OK;
  }

 private:
  ~nsTestLogger() override = default;
  const nsCString mName;
};

class nsTestLogService final : public nsImplements<nsTestLogService, nsILog4Service> {
 public:
  nsresult GetLogger(const nsACString& aName, nsILog4Logger** aLogger) override {
    MakeRefCounted<nsTestLogger>(aName).forget(aLogger);
    return NS_OK;
  }
  nsresult SetLevel(const nsACString&, uint32_t) override { return NS_OK; }

 private:
  ~nsTestLogService() override = default;
};

}  // namespace

// ---- Adapters

void nsTestAdapter::SetDevice(const char16_t* aName) {
  ASSERT_EQ(NewSystemDevice(mDevice.getter_AddRefs(), nsString(aName), nsString()), NS_OK);
}

void nsTestAdapter::AddConnector(const char16_t* aName, const char16_t* aMask) {
  nsCOMPtr<nsISystemConnector> connector;
  ASSERT_EQ(NewSystemConnector(connector.getter_AddRefs(), nsString(aName), nsString(aMask),
                               nsString(), nsString(), nullptr, nullptr, nullptr),
            NS_OK);
  mConnectors.push_back(connector);
}

nsCOMPtr<nsISystemApplicationProfile> NS_NewTestProfile(const char16_t* aName) {
  nsCOMPtr<nsISystemApplicationProfile> profile;
  EXPECT_EQ(NewSystemApplicationProfile(profile.getter_AddRefs(), nsString(aName), nsString(aName),
                                        nsString()),
            NS_OK);
  return profile;
}

// ---- Bindings

nsresult nsTestBinding::Init(nsISystemAdapter* aAdapter, nsISystemApplicationProfile* aProfile,
                             nsIPrefBranch* aBranch) {
  mAdapter = aAdapter;
  mProfile = aProfile;
  mBranch = aBranch;
  return Is("init-fails") ? NS_ERROR_NOT_AVAILABLE : NS_OK;
}

nsresult nsTestBinding::IsEnabled(bool* aEnabled) {
  *aEnabled = !Is("disabled");
  return NS_OK;
}

nsresult nsTestBinding::GetApplicationProfile(nsISystemApplicationProfile** aProfile) {
  nsCOMPtr<nsISystemApplicationProfile>(mProfile).forget(aProfile);
  return NS_OK;
}

nsresult nsTestBinding::GetAdapter(nsISystemAdapter** aAdapter) {
  nsCOMPtr<nsISystemAdapter>(mAdapter).forget(aAdapter);
  return NS_OK;
}

std::string nsTestBinding::Root(nsISystemApplicationProfileBinding* aBinding) {
  char* root = nullptr;
  EXPECT_EQ(static_cast<nsTestBinding*>(aBinding)->mBranch->GetRoot(&root), NS_OK);
  std::string text = root;
  NS_Free(root);
  return text;
}

bool nsTestBinding::Is(const char* aName) {
  bool value = false;
  return NS_SUCCEEDED(mBranch->GetBoolPref(aName, &value)) && value;
}

// ---- Listeners

nsresult nsTestListener::Hear(const char* aWhat, nsISystemAdapter* aAdapter) {
  nsString label;
  EXPECT_EQ(aAdapter->GetLabel(label), NS_OK);
  return Keep(aWhat + NS_ToUtf8(label));
}

nsresult nsTestListener::Hear(const char* aWhat, nsISystemApplicationProfileBinding* aBinding) {
  nsCOMPtr<nsISystemApplicationProfile> profile;
  EXPECT_EQ(aBinding->GetApplicationProfile(profile.getter_AddRefs()), NS_OK);
  return Keep(aWhat + NS_TextOf(profile, &nsISystemApplicationProfile::GetName));
}

nsresult nsTestListener::Keep(std::string aLine) {
  mHeard.push_back(std::move(aLine));
  mThen();
  return mResult;
}

// ---- The fixture

namespace vorel::test {
namespace {
constexpr nsCID kLogCID = "f3b0c3c1-2a9e-45ae-8a3d-3f1f2f0f6c01"_iid;
constexpr nsCID kBindingCID = "f3b0c3c1-2a9e-45ae-8a3d-3f1f2f0f6c02"_iid;
constexpr Module::CIDEntry kCIDs[] = {{&kLogCID, true, nullptr, Construct<nsTestLogService>},
                                      {&kBindingCID, false, nullptr, Construct<nsTestBinding>},
                                      {nullptr, false, nullptr, nullptr}};
constexpr Module::ContractIDEntry kContractIDs[] = {{VOREL_LOG4SERVICE_CONTRACTID, &kLogCID},
                                                    {nsTestBinding::kContractID, &kBindingCID},
                                                    {nullptr, nullptr}};
}  // namespace

const Module kModule = {Module::kVersion, kCIDs, kContractIDs, nullptr, nullptr, nullptr, nullptr};
}  // namespace vorel::test

nsSystemTest::~nsSystemTest() {
  mHost.Stop();
  if (!mDirectory.empty()) std::filesystem::remove_all(mDirectory);
}

void nsSystemTest::StartHost() {
  ASSERT_EQ(mHost.Start(mOptions), NS_OK) << mHost.Error();
  (void)nsTestLog::Instance().Take();
}

void nsSystemTest::SetPref(const std::string& aName, bool aValue) {
  ASSERT_EQ(
      do_GetService<nsIPrefBranch>(NS_PREFSERVICE_CONTRACTID)->SetBoolPref(aName.c_str(), aValue),
      NS_OK);
}

void nsSystemTest::SetPref(const std::string& aName, const std::string& aValue) {
  ASSERT_EQ(do_GetService<nsIPrefBranch>(NS_PREFSERVICE_CONTRACTID)
                ->SetCharPref(aName.c_str(), aValue.c_str()),
            NS_OK);
}

void nsSystemTest::AddCategoryEntry(const std::string& aCategory, const std::string& aEntry,
                                    const std::string& aValue) {
  char* old = nullptr;
  ASSERT_EQ(
      do_GetService<nsICategoryManager>(NS_CATEGORYMANAGER_CONTRACTID)
          ->AddCategoryEntry(aCategory.c_str(), aEntry.c_str(), aValue.c_str(), false, true, &old),
      NS_OK);
  NS_Free(old);
}

void nsSystemTest::AllowProfile(const std::string& aKey) {
  AddCategoryEntry("vorel-application-profile-binding", aKey, nsTestBinding::kContractID);
  SetPref("vorel.app-profile." + aKey + ".authorized", true);
}

const std::filesystem::path& nsSystemTest::Directory() {
  if (mDirectory.empty()) {
    std::string name = (std::filesystem::temp_directory_path() / "vorel-test-XXXXXX").string();
    mDirectory = mkdtemp(name.data());
  }
  return mDirectory;
}

std::string nsSystemTest::WriteFile(const std::string& aName, std::string_view aText) {
  const auto path = Directory() / aName;
  std::ofstream(path, std::ios::binary) << aText;
  return path.string();
}
