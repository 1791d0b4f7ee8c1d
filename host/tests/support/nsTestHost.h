// A host for tests: what it logs is kept, its files stand in a directory that goes with it, and
// modules are written down next to the assertion.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <deque>
#include <filesystem>
#include <fstream>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "nsHost.h"
#include "nsILog4.h"
#include "nsIObserver.h"
#include "nsIObserverService.h"
#include "nsImplements.h"
#include "nsServices.h"
#include "nsString.h"
#include "nsThreadSafeWeakReference.h"

/// An observer that calls a function with topic and data ("-" for null).
class nsTestObserver final : public nsImplements<nsTestObserver, nsIObserver> {
 public:
  using Function = std::function<void(nsISupports*, std::string, std::string)>;
  explicit nsTestObserver(Function aFunction) : mFunction(std::move(aFunction)) {}
  nsresult Observe(nsISupports* aSubject, const char* aTopic, const char16_t* aData) override {
    mFunction(aSubject, aTopic, aData ? NS_ToUtf8(std::u16string_view(aData)) : "-");
    return NS_OK;
  }

 private:
  ~nsTestObserver() override = default;
  Function mFunction;
};

/// An observer that can be weakly referenced, and counts its calls.
class nsTestWeakObserver final : public nsThreadSafeSupportsWeakReference, public nsIObserver {
 public:
  explicit nsTestWeakObserver(std::atomic<int>* aCalls) : mCalls(aCalls) {}
  nsresult QueryInterface(const nsIID& aIID, void** aResult) override {
    return NS_QueryInterface<nsIObserver, nsISupportsWeakReference>(this, aIID, aResult);
  }
  nsrefcnt AddRef() override { return nsThreadSafeSupportsWeakReference::AddRef(); }
  nsrefcnt Release() override { return nsThreadSafeSupportsWeakReference::Release(); }
  nsresult Observe(nsISupports*, const char*, const char16_t*) override {
    ++*mCalls;
    return NS_ERROR_FAILURE;  // which nobody minds
  }

 private:
  ~nsTestWeakObserver() override = default;
  std::atomic<int>* const mCalls;
};

/// Keeps what is logged, whatever the logger: "warning: text".
class nsTestLog {
 public:
  static const vorel::Module* Module();
  static std::vector<std::string> Take();
  static void Add(std::string aLine);
};

/// A module record that grows row by row. A row's constructor is a function object.
class nsTestModule {
 public:
  using Constructor = std::function<nsresult(const nsIID& aIID, void** aResult)>;

  nsTestModule() = default;
  nsTestModule(const nsTestModule&) = delete;
  nsTestModule& operator=(const nsTestModule&) = delete;
  /// Stops the host first: it may still use the record, and what the constructors refer to.
  ~nsTestModule();

  nsTestModule& Class(const nsCID& aCID, const char* aContractID, Constructor aConstructor);
  nsTestModule& Category(const char* aCategory, const char* aEntry, const char* aValue);
  /// The record as it is now; it, and the object, must outlive the host.
  vorel::Module& Record();

 private:
  struct Row {
    nsCID mCID;
    Constructor mConstructor;
  };
  static nsIFactory* GetFactory(const vorel::Module& aModule, const vorel::Module::CIDEntry& aRow);

  std::deque<Row> mRows;
  std::vector<vorel::Module::CIDEntry> mCIDs;
  std::vector<vorel::Module::ContractIDEntry> mContracts;
  std::vector<vorel::Module::CategoryEntry> mCategories;
  vorel::Module mRecord{
      vorel::Module::kVersion, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr};
};

/// Fixture: a directory for files, and a host that is started when the test says so.
class nsHostTest : public testing::Test {
 protected:
  nsHostTest();
  ~nsHostTest() override;

  /// Writes a file below the directory, with the folders that it needs; gives its path.
  std::string Write(const std::string& aName, std::string_view aContents);
  std::string Read(const std::string& aName);
  std::string Path(const std::string& aName) const { return (mDirectory / aName).native(); }
  void Start();
  /// Runs the main thread's events until there are none.
  static void RunEvents();

  nsHostOptions mOptions;
  nsHost mHost;

 private:
  std::filesystem::path mDirectory;
};
