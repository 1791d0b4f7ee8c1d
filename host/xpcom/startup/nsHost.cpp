#include "nsHost.h"

#include <atomic>
#include <filesystem>

#include "nsComponentManager.h"
#include "nsCrashReporter.h"
#include "nsHostMessage.h"
#include "nsHostModules.h"
#include "nsHostWindow.h"
#include "nsICrashReporter.h"
#include "nsILocalFile.h"
#include "nsILog4.h"
#include "nsIObserver.h"
#include "nsIProperties.h"
#include "nsIRunnable.h"
#include "nsImplements.h"
#include "nsManifest.h"
#include "nsObserverService.h"
#include "nsPrefService.h"
#include "nsProfileLock.h"
#include "nsServices.h"
#include "nsString.h"
#include "nsThreadManager.h"
#include "nsVorelMethodCaller.h"
#include "nsXPCOM.h"

namespace {

constexpr char kCrashReporterContractID[] = "@mozilla.org/toolkit/crash-reporter;1";

std::atomic<GeckoProcessType> gProcessType{GeckoProcessType_Default};
nsHost* gHost = nullptr;

nsCOMPtr<nsIThread> MainThread() {
  nsCOMPtr<nsIThread> thread;
  (void)nsThreadManager::get().GetMainThread(thread.getter_AddRefs());
  return thread;
}

void ProcessPendingEvents() {
  const auto thread = MainThread();
  bool ran;
  while (NS_SUCCEEDED(thread->ProcessNextEvent(false, &ran)) && ran) continue;
}

void Complain(const std::string& aWhat, nsresult aRv) {
  if (NS_FAILED(aRv)) NS_HostMessage(eHostError, aWhat + ": " + std::string(NS_ResultName(aRv)));
}

}  // namespace

extern "C" GeckoProcessType XRE_GetProcessType() { return gProcessType; }

class nsHost::Impl {
 public:
  bool IsRunning() const { return mManager.get(); }
  bool IsQuitting() const { return mQuitting; }
  bool IsStopping() const { return mStopping; }
  void LeaveRun() { mLeavesRun = true; }
  nsresult Start(const nsHostOptions& aOptions);
  nsresult StartProfile();
  void TellCrashReports();
  nsresult Run();
  void Quit();
  void Stop();

  nsHostOptions mOptions;
  std::string mError;

 private:
  void SetDirectories();
  void RegisterManifests();
  void Notify(const char* aTopic, const char16_t* aData = nullptr, nsISupports* aSubject = nullptr);
  void TellCategory(const char* aCategory, const char16_t* aData, bool aMayCreate);

  nsCOMPtr<nsComponentManager> mManager;
  nsCOMPtr<nsObserverService> mObservers;
  nsCOMPtr<nsPrefService> mPrefs;
  nsCOMPtr<nsHostWindow> mWindow;
  nsProfileLock mProfileLock;
  bool mProfileStarted = false;
  bool mLeavesRun = false;
  bool mQuitting = false;
  bool mStopping = false;
};

void nsHost::Impl::Notify(const char* aTopic, const char16_t* aData, nsISupports* aSubject) {
  (void)mObservers->NotifyObservers(aSubject, aTopic, aData);
}

// Each value of a category is a contract ID whose service is told. Where the category allows it,
// only those with the prefix are services, and the others are made for the occasion.
void nsHost::Impl::TellCategory(const char* aCategory, const char16_t* aData, bool aMayCreate) {
  constexpr std::string_view kService = "service,";
  for (const auto& [name, value] : mManager->Categories().Entries(aCategory)) {
    if (mManager->RefusesStart()) return;
    const bool isService = !aMayCreate || value.starts_with(kService);
    nsCOMPtr<nsIObserver> observer;
    nsresult rv;
    if (!isService)
      observer = do_CreateInstance<nsIObserver>(value.c_str(), &rv);
    else
      observer =
          do_GetService<nsIObserver>(value.c_str() + (aMayCreate ? kService.size() : 0), &rv);
    if (observer)
      (void)observer->Observe(nullptr, aCategory, aData);
    else if (!mManager->RefusesStart())
      NS_HostMessage(eHostWarning, std::string(aCategory) + ": entry " + name +
                                       " is not told, since " + value +
                                       " is not to be had: " + std::string(NS_ResultName(rv)));
  }
}

nsresult nsHost::Impl::Start(const nsHostOptions& aOptions) {
  mOptions = aOptions;
  mError.clear();
  if (!mOptions.mProfileDirectory.empty() && !mOptions.mProfileReadOnly) {
    const nsresult rv = mProfileLock.Lock(mOptions.mProfileDirectory, &mError);
    if (NS_FAILED(rv)) return rv;
  }
  if (const nsresult rv = nsThreadManager::get().Init(); NS_FAILED(rv)) {
    mProfileLock.Unlock();
    mError = "Somebody else runs the threads of this process already.";
    return rv;
  }
  gProcessType = mOptions.mProcessType;
  mManager = MakeRefCounted<nsComponentManager>(nsAppInfo::Read(mOptions.mApplicationDirectory));
  nsComponentManager::SetCurrent(mManager.get());
  for (const nsHostModule* module = kHostModules; module->mName; ++module)
    (void)mManager->RegisterModule(*module->mRecord, module->mName);
  mManager->SetMainThread(MainThread().get());
  for (const vorel::Module* module : mOptions.mModules)
    (void)mManager->RegisterModule(*module, "module in memory");
  if (const auto log = do_GetService<nsILog4Service>(VOREL_LOG4SERVICE_CONTRACTID)) {
    for (const auto& [name, severity] : mOptions.mLogLevels)
      Complain("the level of logger \"" + name + "\"",
               log->SetLevel(nsDependentCString(name), severity));
  }
  SetDirectories();
  RegisterManifests();
  // By class ID, which nobody else can have: the host needs its own.
  mPrefs = static_cast<nsPrefService*>(do_GetService<nsIPrefService>(NS_PREFSERVICE_CID).get());
  if (!mOptions.mApplicationDirectory.empty())
    mPrefs->ReadDefaults(mOptions.mApplicationDirectory + "/defaults/preferences");
  (void)do_GetService<nsICrashReporter>(kCrashReporterContractID);  // its making turns it on
  mObservers = static_cast<nsObserverService*>(
      do_GetService<nsIObserverService>(NS_OBSERVERSERVICE_CID).get());
  mManager->Categories().SetAnnouncing(true);
  TellCategory("xpcom-startup", u"", false);
  TellCategory("app-startup", nullptr, true);
  if (!mManager->RefusesStart()) return NS_OK;
  Stop();
  return NS_ERROR_ABORT;
}

// What the application and the library ask the directory service for.
void nsHost::Impl::SetDirectories() {
  const std::string &application = mOptions.mApplicationDirectory,
                    &profile = mOptions.mProfileDirectory;
  std::vector<std::pair<std::string, std::string>> directories;
  if (!application.empty()) {
    directories = {{"XCurProcD", application},
                   {"DefRt", application + "/defaults"},
                   {"PrfDef", application + "/defaults/preferences"}};
  }
  if (!profile.empty()) {
    for (const char* key : {"ProfD", "ProfLD", "ProfDS", "ProfLDS"})
      directories.emplace_back(key, profile);
  }
  directories.insert(directories.end(), mOptions.mFiles.begin(), mOptions.mFiles.end());
  const auto service = do_GetService<nsIProperties>(NS_DIRECTORYSERVICE_CONTRACTID);
  for (const auto& [key, path] : directories) {
    // Files have whole paths; without a working directory there are none.
    std::error_code error;
    const std::string whole = std::filesystem::absolute(path, error).lexically_normal().native();
    nsCOMPtr<nsILocalFile> file;
    nsresult rv =
        error ? NS_ERROR_FILE_UNRECOGNIZED_PATH
              : NS_NewNativeLocalFile(nsDependentCString(whole), true, file.getter_AddRefs());
    if (NS_SUCCEEDED(rv))
      rv = service ? service->Set(key.c_str(), file.get()) : NS_ERROR_NOT_AVAILABLE;
    Complain(key + (": " + path), rv);
  }
}

void nsHost::Impl::RegisterManifests() {
  const std::string& application = mOptions.mApplicationDirectory;
  std::vector<std::string> optional;
  if (!application.empty())
    optional = {application + "/chrome.manifest", application + "/application.manifest"};
  for (const std::string& path : optional) {
    if (const nsresult rv = NS_RegisterManifest(*mManager, path); rv != NS_ERROR_FILE_NOT_FOUND)
      Complain(path, rv);
  }
  for (const std::string& path : mOptions.mManifests)
    Complain(path, NS_RegisterManifest(*mManager, path));
}

nsresult nsHost::Impl::StartProfile() {
  if (!IsRunning()) return NS_ERROR_NOT_INITIALIZED;
  if (mProfileStarted) return NS_ERROR_ALREADY_INITIALIZED;
  mProfileStarted = true;
  if (!mOptions.mProfileDirectory.empty() && !mOptions.mProfileReadOnly)
    mPrefs->Prefs().SetGuard([this](std::string* aReason) { return mProfileLock.Keep(aReason); });
  if (!mOptions.mProfileDirectory.empty())
    mPrefs->Prefs().ReadUserFile(mOptions.mProfileDirectory + "/prefs.js",
                                 mOptions.mProfileReadOnly);
  Notify("profile-do-change", u"startup");
  Notify("load-extension-defaults");
  // Not for a mere look at the machine, which leaves everything as it is.
  if (!mOptions.mProfileReadOnly) Notify("vorel-application-start");
  Notify("profile-after-change", u"startup");
  TellCategory("profile-after-change", u"", false);
  Notify("profile-initial-state");
  Notify("final-ui-startup");
  if (!mOptions.mProfileReadOnly) TellCrashReports();
  // Who has ended already would start to listen for nothing.
  if (mLeavesRun || mQuitting) return NS_OK;
  mWindow = MakeRefCounted<nsHostWindow>();
  Notify("xul-window-registered", nullptr, static_cast<nsIXULWindow*>(mWindow.get()));
  return NS_OK;
}

// On the loop: an application registers its observers when it is started, which comes next.
void nsHost::Impl::TellCrashReports() {
  class Teller final : public nsImplements<Teller, nsIRunnable> {
   public:
    nsresult Run() override {
      const auto reporter = do_GetService<nsICrashReporter>(kCrashReporterContractID);
      if (auto* const own = dynamic_cast<nsCrashReporter*>(reporter.get())) own->TellReports();
      return NS_OK;
    }

   private:
    ~Teller() override = default;
  };
  (void)NS_DispatchToMainThread(MakeRefCounted<Teller>().get(), NS_DISPATCH_NORMAL);
}

nsresult nsHost::Impl::Run() {
  if (!IsRunning()) return NS_ERROR_NOT_INITIALIZED;
  const auto thread = MainThread();
  nsresult rv = NS_OK;
  while (NS_SUCCEEDED(rv) && !mQuitting && !mLeavesRun) {
    bool ran;
    rv = thread->ProcessNextEvent(true, &ran);
  }
  return rv;
}

void nsHost::Impl::Quit() {
  if (!IsRunning() || mQuitting) return;
  mQuitting = true;
  Notify("quit-application-granted");
  Notify("quit-application", u"shutdown");
}

void nsHost::Impl::Stop() {
  // An observer of the end may think that it has to bring it about.
  if (!IsRunning() || mStopping) return;
  mStopping = true;
  Quit();
  if (mProfileStarted) {
    for (const char* topic :
         {"profile-change-net-teardown", "profile-change-teardown", "profile-before-change"})
      Notify(topic, u"shutdown-persist");
    (void)mPrefs->Prefs().Save();
  }
  Notify("xpcom-will-shutdown");
  Notify("xpcom-shutdown", nullptr, static_cast<nsIServiceManager*>(mManager.get()));
  ProcessPendingEvents();
  Notify("xpcom-shutdown-threads");
  nsThreadManager::get().Shutdown();
  mWindow = nullptr;
  mPrefs->Prefs().Shutdown();
  mPrefs = nullptr;

  mManager->Categories().SetAnnouncing(false);
  const auto loaders = mObservers->Observers("xpcom-shutdown-loaders");
  mObservers->Shutdown();
  mObservers = nullptr;
  mManager->ReleaseServices();
  for (auto observer = loaders.rbegin(); observer != loaders.rend(); ++observer)
    (void)(*observer)->Observe(nullptr, "xpcom-shutdown-loaders", nullptr);
  mManager->UnloadModules();
  nsComponentManager::SetCurrent(nullptr);
  mManager = nullptr;
  mProfileLock.Unlock();
  gProcessType = GeckoProcessType_Default;
  mProfileStarted = mLeavesRun = mQuitting = mStopping = false;
}

nsHost::nsHost() : mImpl(std::make_unique<Impl>()) {}
nsHost::~nsHost() { Stop(); }

nsHost* nsHost::Current() { return gHost; }

nsresult nsHost::Start(const nsHostOptions& aOptions) {
  if (gHost) {
    mImpl->mError = "A host runs in this process already.";
    return NS_ERROR_ALREADY_INITIALIZED;
  }
  gHost = this;
  const nsresult rv = mImpl->Start(aOptions);
  if (NS_FAILED(rv)) gHost = nullptr;
  return rv;
}

nsresult nsHost::StartProfile() { return mImpl->StartProfile(); }
nsresult nsHost::Run() { return mImpl->Run(); }
void nsHost::Quit() { mImpl->Quit(); }
void nsHost::LeaveRun() { mImpl->LeaveRun(); }
bool nsHost::IsQuitting() const { return mImpl->IsQuitting(); }
bool nsHost::IsStopping() const { return mImpl->IsStopping(); }

void nsHost::Stop() {
  mImpl->Stop();
  if (gHost == this && !mImpl->IsRunning()) gHost = nullptr;
}

const std::string& nsHost::Error() const { return mImpl->mError; }
const nsHostOptions& nsHost::Options() const { return mImpl->mOptions; }
