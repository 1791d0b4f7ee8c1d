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
void PrintTo(nsresult aRv, std::ostream* aOut);

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
  static nsTestLog& Instance();
  void Add(std::string aLine, std::string aPlace);
  /// "FILE FUNCTION": where the last line was written.
  std::string Place();
  /// The lines since the last time that begin with aPrefix; the others are forgotten.
  std::vector<std::string> Take(std::string_view aPrefix = {});

 private:
  std::mutex mLock;
  std::vector<std::string> mLines;
  std::string mPlace;
};

// ---- Adapters

/// An adapter of no kind, whose fields the test fills.
class nsTestAdapter final
    : public nsSystemAdapterBase<nsImplements<nsTestAdapter, nsISystemAdapter>> {
 public:
  explicit nsTestAdapter(const char16_t* aLabel = u"") { mLabel = aLabel; }

  void SetDevice(const char16_t* aName);
  void AddConnector(const char16_t* aName, const char16_t* aMask);

 private:
  ~nsTestAdapter() override = default;
};

nsCOMPtr<nsISystemApplicationProfile> NS_NewTestProfile(const char16_t* aName);

// ---- Bindings

/// "@vorel/test/binding;1": keeps what it was given, and does as its preferences say: with
/// "init-fails" its Init fails, with "disabled" it is not enabled.
class nsTestBinding final : public nsImplements<nsTestBinding, nsISystemApplicationProfileBinding> {
 public:
  static constexpr char kContractID[] = "@vorel/test/binding;1";

  nsresult Init(nsISystemAdapter* aAdapter, nsISystemApplicationProfile* aProfile,
                nsIPrefBranch* aBranch) override;
  nsresult IsEnabled(bool* aEnabled) override;
  nsresult GetApplicationProfile(nsISystemApplicationProfile** aProfile) override;
  nsresult GetAdapter(nsISystemAdapter** aAdapter) override;

  /// The name of the preference subtree that it was given.
  static std::string Root(nsISystemApplicationProfileBinding* aBinding);

 private:
  ~nsTestBinding() override = default;
  bool Is(const char* aName);

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
  nsresult Hear(const char* aWhat, nsISystemAdapter* aAdapter);
  nsresult Hear(const char* aWhat, nsISystemApplicationProfileBinding* aBinding);
  nsresult Keep(std::string aLine);
};

// ---- The fixture

namespace vorel::test {
template <class T>
nsresult Construct(nsISupports*, const nsIID& aIID, void** aResult) {
  return MakeRefCounted<T>()->QueryInterface(aIID, aResult);
}
/// The log and the binding class.
extern const Module kModule;
}  // namespace vorel::test

class nsSystemTest : public testing::Test {
 protected:
  nsSystemTest() { mOptions.mModules = {&vorel::test::kModule}; }
  ~nsSystemTest() override;

  void StartHost();
  static std::vector<std::string> TakeLog(std::string_view aPrefix) {
    return nsTestLog::Instance().Take(aPrefix);
  }

  static void SetPref(const std::string& aName, bool aValue);
  static void SetPref(const std::string& aName, const std::string& aValue);
  static void SetPref(const std::string& aName, const char* aValue) {
    SetPref(aName, std::string(aValue));
  }
  static void AddCategoryEntry(const std::string& aCategory, const std::string& aEntry,
                               const std::string& aValue);
  /// Registers the test's binding class for "PROFILE.T.M.I", and allows it there.
  static void AllowProfile(const std::string& aKey);

  /// A manager outside of the module, on a machine of the test's own; nothing of it has run yet.
  static nsCOMPtr<nsSystemManager> NewManager(const nsSimulatedMachine& aMachine) {
    return MakeRefCounted<nsSystemManager>(aMachine.Platform());
  }

  /// A directory that goes with the test.
  const std::filesystem::path& Directory();
  std::string WriteFile(const std::string& aName, std::string_view aText);

  nsHostOptions mOptions;
  nsHost mHost;
  nsSimulatedMachine mMachine;

 private:
  std::filesystem::path mDirectory;
};
