// What tests of the library share: a running host with a log that can be read, preferences and
// categories, a binding class, and listeners that keep what they hear.
//
//   class StorageTest : public nsSystemTest {};
//   TEST_F(StorageTest, ...) {
//     StartHost();
//     const auto manager = NewManager(mMachine);
//     ...
//   }
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <mutex>

#include "Module.h"
#include "nsHost.h"
#include "nsICategoryManager.h"
#include "nsIMutableArray.h"
#include "nsIPrefBranch.h"
#include "nsISystemAdapter.h"
#include "nsISystemAdapterListener.h"
#include "nsISystemApplicationProfile.h"
#include "nsISystemApplicationProfileBinding.h"
#include "nsISystemProfileBindingListener.h"
#include "nsImplements.h"
#include "nsLogger.h"
#include "nsServices.h"
#include "nsSimulatedMachine.h"
#include "nsString.h"
#include "nsSystemAdapterGeneric.h"
#include "nsSystemApplicationProfile.h"
#include "nsSystemConnector.h"
#include "nsSystemDevice.h"
#include "nsSystemManager.h"

/// EXPECT_EQ on results shows their names.
inline void PrintTo(nsresult aRv, std::ostream* aOut) {
  const auto name = NS_ResultName(aRv);
  *aOut << (name.empty() ? "?" : name) << " 0x" << std::hex << static_cast<uint32_t>(aRv);
}

/// The elements of an array, as T; fails the test when one is no T. A null array is an empty list.
template <nsInterface T>
std::vector<nsCOMPtr<T>> NS_Elements(nsIArray* aArray) {
  std::vector<nsCOMPtr<T>> elements;
  uint32_t length = 0;
  if (!aArray) return elements;
  EXPECT_EQ(aArray->GetLength(&length), NS_OK);
  for (uint32_t i = 0; i < length; ++i) {
    nsCOMPtr<T> element;
    EXPECT_EQ(aArray->QueryElementAt(i, T::kIID, NS_OutVoid(element)), NS_OK);
    elements.push_back(element);
  }
  return elements;
}

/// What a getter of one text gives, in UTF-8; fails the test when it fails.
template <class I, class Base>
std::string NS_TextOf(const nsCOMPtr<I>& aObject, nsresult (Base::*aGetter)(nsAString&)) {
  nsString text;
  EXPECT_EQ((aObject.get()->*aGetter)(text), NS_OK);
  return NS_ToUtf8(text);
}

// ---- The log

/// Everything that was logged, at all severities: "warning system.manager: text".
class nsTestLog {
 public:
  static nsTestLog& Instance() {
    static nsTestLog sLog;
    return sLog;
  }
  void Add(std::string aLine, std::string aPlace) {
    std::lock_guard lock(mLock);
    mLines.push_back(std::move(aLine));
    mPlace = std::move(aPlace);
  }
  /// "FILE FUNCTION": where the last line was written.
  std::string Place() {
    std::lock_guard lock(mLock);
    return mPlace;
  }
  /// The lines since the last time that begin with aPrefix; the others are forgotten.
  std::vector<std::string> Take(std::string_view aPrefix = {}) {
    std::lock_guard lock(mLock);
    std::vector<std::string> lines = std::exchange(mLines, {});
    std::erase_if(lines, [&](const std::string& aLine) { return !aLine.starts_with(aPrefix); });
    return lines;
  }

 private:
  std::mutex mLock;
  std::vector<std::string> mLines;
  std::string mPlace;
};

class nsTestLogger final : public nsImplements<nsTestLogger, nsILog4Logger> {
 public:
  explicit nsTestLogger(const nsACString& aName) : mName(aName) {}
  nsresult GetName(nsACString& aName) override {
    NS_Assign(aName, mName);
    return NS_OK;
  }
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

// ---- Adapters

/// An adapter of no kind, whose fields the test fills.
class nsTestAdapter final
    : public nsSystemAdapterBase<nsImplements<nsTestAdapter, nsISystemAdapter>> {
 public:
  explicit nsTestAdapter(const char16_t* aLabel = u"") { mLabel = aLabel; }

  void SetDevice(const char16_t* aName) {
    ASSERT_EQ(NewSystemDevice(mDevice.getter_AddRefs(), nsString(aName), nsString()), NS_OK);
  }
  void AddConnector(const char16_t* aName, const char16_t* aMask) {
    nsCOMPtr<nsISystemConnector> connector;
    ASSERT_EQ(NewSystemConnector(connector.getter_AddRefs(), nsString(aName), nsString(aMask),
                                 nsString(), nsString(), nullptr, nullptr, nullptr),
              NS_OK);
    mConnectors.push_back(connector);
  }

 private:
  ~nsTestAdapter() override = default;
};

inline nsCOMPtr<nsISystemApplicationProfile> NS_NewTestProfile(const char16_t* aName) {
  nsCOMPtr<nsISystemApplicationProfile> profile;
  EXPECT_EQ(NewSystemApplicationProfile(profile.getter_AddRefs(), nsString(aName), nsString(aName),
                                        nsString()),
            NS_OK);
  return profile;
}

// ---- Bindings

/// "@vorel/test/binding;1": keeps what it was given, and does as its preferences say: with
/// "init-fails" its Init fails, with "disabled" it is not enabled.
class nsTestBinding final : public nsImplements<nsTestBinding, nsISystemApplicationProfileBinding> {
 public:
  static constexpr char kContractID[] = "@vorel/test/binding;1";

  nsresult Init(nsISystemAdapter* aAdapter, nsISystemApplicationProfile* aProfile,
                nsIPrefBranch* aBranch) override {
    mAdapter = aAdapter;
    mProfile = aProfile;
    mBranch = aBranch;
    return Is("init-fails") ? NS_ERROR_NOT_AVAILABLE : NS_OK;
  }
  nsresult IsEnabled(bool* aEnabled) override {
    *aEnabled = !Is("disabled");
    return NS_OK;
  }
  nsresult GetApplicationProfile(nsISystemApplicationProfile** aProfile) override {
    nsCOMPtr<nsISystemApplicationProfile>(mProfile).forget(aProfile);
    return NS_OK;
  }
  nsresult GetAdapter(nsISystemAdapter** aAdapter) override {
    nsCOMPtr<nsISystemAdapter>(mAdapter).forget(aAdapter);
    return NS_OK;
  }

  /// The name of the preference subtree that it was given.
  static std::string Root(nsISystemApplicationProfileBinding* aBinding) {
    char* root = nullptr;
    EXPECT_EQ(static_cast<nsTestBinding*>(aBinding)->mBranch->GetRoot(&root), NS_OK);
    std::string text = root;
    NS_Free(root);
    return text;
  }

 private:
  ~nsTestBinding() override = default;
  bool Is(const char* aName) {
    bool value = false;
    return NS_SUCCEEDED(mBranch->GetBoolPref(aName, &value)) && value;
  }

  nsCOMPtr<nsISystemAdapter> mAdapter;
  nsCOMPtr<nsISystemApplicationProfile> mProfile;
  nsCOMPtr<nsIPrefBranch> mBranch;
};

// ---- Listeners

/// Keeps what it hears as lines: "adapter added LABEL", "binding removed PROFILE". mThen is called
/// after each.
class nsTestListener final : public nsImplements<nsTestListener, nsISystemAdapterListener,
                                                 nsISystemProfileBindingListener> {
 public:
  std::vector<std::string> mHeard;
  std::function<void()> mThen = [] {};
  nsresult mResult = NS_OK;  ///< what it answers

  nsresult OnAdapterAdded(nsISystemAdapter* aAdapter) override {
    return Hear("adapter added ", aAdapter);
  }
  nsresult OnAdapterRemoved(nsISystemAdapter* aAdapter) override {
    return Hear("adapter removed ", aAdapter);
  }
  nsresult OnAdapterChanged(nsISystemAdapter* aAdapter) override {
    return Hear("adapter changed ", aAdapter);
  }
  nsresult OnProfileBindingAdded(nsISystemApplicationProfileBinding* aBinding) override {
    return Hear("binding added ", aBinding);
  }
  nsresult OnProfileBindingRemoved(nsISystemApplicationProfileBinding* aBinding) override {
    return Hear("binding removed ", aBinding);
  }

 private:
  ~nsTestListener() override = default;
  nsresult Hear(const char* aWhat, nsISystemAdapter* aAdapter) {
    nsString label;
    EXPECT_EQ(aAdapter->GetLabel(label), NS_OK);
    return Keep(aWhat + NS_ToUtf8(label));
  }
  nsresult Hear(const char* aWhat, nsISystemApplicationProfileBinding* aBinding) {
    nsCOMPtr<nsISystemApplicationProfile> profile;
    EXPECT_EQ(aBinding->GetApplicationProfile(profile.getter_AddRefs()), NS_OK);
    return Keep(aWhat + NS_TextOf(profile, &nsISystemApplicationProfile::GetName));
  }
  nsresult Keep(std::string aLine) {
    mHeard.push_back(std::move(aLine));
    mThen();
    return mResult;
  }
};

// ---- The fixture

namespace vorel::test {
template <class T>
nsresult Construct(nsISupports*, const nsIID& aIID, void** aResult) {
  return MakeRefCounted<T>()->QueryInterface(aIID, aResult);
}
inline constexpr nsCID kLogCID = "f3b0c3c1-2a9e-45ae-8a3d-3f1f2f0f6c01"_iid;
inline constexpr nsCID kBindingCID = "f3b0c3c1-2a9e-45ae-8a3d-3f1f2f0f6c02"_iid;
inline constexpr Module::CIDEntry kCIDs[] = {
    {&kLogCID, true, nullptr, Construct<nsTestLogService>},
    {&kBindingCID, false, nullptr, Construct<nsTestBinding>},
    {nullptr, false, nullptr, nullptr}};
inline constexpr Module::ContractIDEntry kContractIDs[] = {
    {VOREL_LOG4SERVICE_CONTRACTID, &kLogCID},
    {nsTestBinding::kContractID, &kBindingCID},
    {nullptr, nullptr}};
/// The log and the binding class.
inline constexpr Module kModule = {Module::kVersion, kCIDs,   kContractIDs, nullptr,
                                   nullptr,          nullptr, nullptr};
}  // namespace vorel::test

class nsSystemTest : public testing::Test {
 protected:
  nsSystemTest() { mOptions.mModules = {&vorel::test::kModule}; }
  ~nsSystemTest() override {
    mHost.Stop();
    if (!mDirectory.empty()) std::filesystem::remove_all(mDirectory);
  }

  void StartHost() {
    ASSERT_EQ(mHost.Start(mOptions), NS_OK) << mHost.Error();
    (void)nsTestLog::Instance().Take();
  }
  static std::vector<std::string> TakeLog(std::string_view aPrefix) {
    return nsTestLog::Instance().Take(aPrefix);
  }

  static void SetPref(const std::string& aName, bool aValue) {
    ASSERT_EQ(
        do_GetService<nsIPrefBranch>(NS_PREFSERVICE_CONTRACTID)->SetBoolPref(aName.c_str(), aValue),
        NS_OK);
  }
  static void SetPref(const std::string& aName, const std::string& aValue) {
    ASSERT_EQ(do_GetService<nsIPrefBranch>(NS_PREFSERVICE_CONTRACTID)
                  ->SetCharPref(aName.c_str(), aValue.c_str()),
              NS_OK);
  }
  static void SetPref(const std::string& aName, const char* aValue) {
    SetPref(aName, std::string(aValue));
  }
  static void AddCategoryEntry(const std::string& aCategory, const std::string& aEntry,
                               const std::string& aValue) {
    char* old = nullptr;
    ASSERT_EQ(do_GetService<nsICategoryManager>(NS_CATEGORYMANAGER_CONTRACTID)
                  ->AddCategoryEntry(aCategory.c_str(), aEntry.c_str(), aValue.c_str(), false, true,
                                     &old),
              NS_OK);
    NS_Free(old);
  }
  /// Registers the test's binding class for "PROFILE.T.M.I", and allows it there.
  static void AllowProfile(const std::string& aKey) {
    AddCategoryEntry("vorel-application-profile-binding", aKey, nsTestBinding::kContractID);
    SetPref("vorel.app-profile." + aKey + ".authorized", true);
  }

  /// A manager outside of the module, on a machine of the test's own; nothing of it has run yet.
  static nsCOMPtr<nsSystemManager> NewManager(const nsSimulatedMachine& aMachine) {
    return MakeRefCounted<nsSystemManager>(aMachine.Platform());
  }

  /// A directory that goes with the test.
  const std::filesystem::path& Directory() {
    if (mDirectory.empty()) {
      std::string name = (std::filesystem::temp_directory_path() / "vorel-test-XXXXXX").string();
      mDirectory = mkdtemp(name.data());
    }
    return mDirectory;
  }
  std::string WriteFile(const std::string& aName, std::string_view aText) {
    const auto path = Directory() / aName;
    std::ofstream(path, std::ios::binary) << aText;
    return path.string();
  }

  nsHostOptions mOptions;
  nsHost mHost;
  nsSimulatedMachine mMachine;

 private:
  std::filesystem::path mDirectory;
};
