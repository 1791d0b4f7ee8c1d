#include "nsTestHost.h"

#include "nsIFactory.h"
#include "nsIThread.h"
#include "nsIThreadManager.h"

namespace {

std::mutex gLogMutex;
std::vector<std::string> gLog;

class Logger final : public nsImplements<Logger, nsILog4Logger> {
 public:
  nsresult GetName(nsACString&) override { return NS_ERROR_NOT_IMPLEMENTED; }
  nsresult IsEnabledFor(uint32_t, bool* aEnabled) override {
    *aEnabled = true;
    return NS_OK;
  }
  nsresult Log(uint32_t aSeverity, const nsACString& aText, nsILog4LocationInfo*) override {
    static constexpr const char* kNames[] = {"debug: ", "warning: ", "error: "};
    nsTestLog::Add(kNames[aSeverity] + std::string(NS_View(aText)));
    return NS_OK;
  }

 private:
  ~Logger() override = default;
};

class LogService final : public nsImplements<LogService, nsILog4Service> {
 public:
  nsresult GetLogger(const nsACString&, nsILog4Logger** aLogger) override {
    MakeRefCounted<Logger>().forget(aLogger);
    return NS_OK;
  }
  nsresult SetLevel(const nsACString&, uint32_t) override { return NS_OK; }

 private:
  ~LogService() override = default;
};

class Factory final : public nsImplements<Factory, nsIFactory> {
 public:
  explicit Factory(const nsTestModule::Constructor& aConstructor) : mConstructor(aConstructor) {}
  nsresult CreateInstance(nsISupports* aOuter, const nsIID& aIID, void** aResult) override {
    return aOuter ? NS_ERROR_NO_AGGREGATION : mConstructor(aIID, aResult);
  }
  nsresult LockFactory(bool) override { return NS_OK; }

 private:
  ~Factory() override = default;
  const nsTestModule::Constructor& mConstructor;
};

}  // namespace

const vorel::Module* nsTestLog::Module() {
  static nsTestModule sModule;
  static const vorel::Module& sRecord = [&]() -> vorel::Module& {
    sModule.Class("7f0e6a53-9a0f-4f27-8a0c-6a52b5d9e311"_iid, VOREL_LOG4SERVICE_CONTRACTID,
                  [](const nsIID& aIID, void** aResult) {
                    return MakeRefCounted<LogService>()->QueryInterface(aIID, aResult);
                  });
    return sModule.Record();
  }();
  return &sRecord;
}

std::vector<std::string> nsTestLog::Take() {
  std::lock_guard lock(gLogMutex);
  return std::exchange(gLog, {});
}

void nsTestLog::Add(std::string aLine) {
  std::lock_guard lock(gLogMutex);
  gLog.push_back(std::move(aLine));
}

nsTestModule::~nsTestModule() {
  if (nsHost* const host = nsHost::Current()) host->Stop();
}

nsTestModule& nsTestModule::Class(const nsCID& aCID, const char* aContractID,
                                  Constructor aConstructor) {
  mRows.push_back({aCID, std::move(aConstructor)});
  const nsCID* const cid = &mRows.back().mCID;
  mCIDs.push_back({cid, true, GetFactory, nullptr});
  if (aContractID) mContracts.push_back({aContractID, cid});
  return *this;
}

nsTestModule& nsTestModule::Category(const char* aCategory, const char* aEntry,
                                     const char* aValue) {
  mCategories.push_back({aCategory, aEntry, aValue});
  return *this;
}

vorel::Module& nsTestModule::Record() {
  mCIDs.push_back({});
  mContracts.push_back({});
  mCategories.push_back({});
  mRecord.mCIDs = mCIDs.data();
  mRecord.mContractIDs = mContracts.data();
  mRecord.mCategoryEntries = mCategories.data();
  return mRecord;
}

// The row's class ID stands at the head of its Row.
nsIFactory* nsTestModule::GetFactory(const vorel::Module&, const vorel::Module::CIDEntry& aRow) {
  nsIFactory* factory;
  MakeRefCounted<Factory>(reinterpret_cast<const Row*>(aRow.cid)->mConstructor).forget(&factory);
  return factory;
}

nsHostTest::nsHostTest() {
  std::string path = (std::filesystem::temp_directory_path() / "vorel-test-XXXXXX").native();
  if (!mkdtemp(path.data())) throw std::runtime_error("no directory for the test's files");
  mDirectory = path;
  mOptions.mModules.push_back(nsTestLog::Module());
  (void)nsTestLog::Take();
}

nsHostTest::~nsHostTest() {
  mHost.Stop();
  std::filesystem::remove_all(mDirectory);
}

std::string nsHostTest::Write(const std::string& aName, std::string_view aContents) {
  const std::filesystem::path path = mDirectory / aName;
  std::filesystem::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << aContents;
  return path.native();
}

std::string nsHostTest::Read(const std::string& aName) {
  std::ifstream file(mDirectory / aName, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void nsHostTest::Start() { ASSERT_EQ(NS_OK, mHost.Start(mOptions)) << mHost.Error(); }

void nsHostTest::RunEvents() {
  nsCOMPtr<nsIThread> thread;
  const auto manager = do_GetService<nsIThreadManager>(NS_THREADMANAGER_CONTRACTID);
  ASSERT_EQ(NS_OK, manager->GetMainThread(thread.getter_AddRefs()));
  bool ran = true;
  while (ran) ASSERT_EQ(NS_OK, thread->ProcessNextEvent(false, &ran));
}
