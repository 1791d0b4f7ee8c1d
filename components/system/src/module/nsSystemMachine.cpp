#include "nsSystemMachine.h"

#include <atomic>
#include <utility>

#include "nsDebug.h"
#include "nsEventPump.h"
#include "nsIFile.h"
#include "nsINetworkLinkService.h"
#include "nsIObserver.h"
#include "nsIObserverService.h"
#include "nsIProperties.h"
#include "nsIThread.h"
#include "nsImplements.h"
#include "nsLogger.h"
#include "nsMediaGraph.h"
#include "nsServices.h"
#include "nsSimulatedMachineFile.h"
#include "nsSimulatedScript.h"
#include "nsString.h"
#include "nsVorelMethodCaller.h"

namespace {

// Runs the script of a machine on the main thread, until the end of the host, and tells of changes
// of its network.
class MachineScript final : public nsImplements<MachineScript, nsIObserver> {
 public:
  explicit MachineScript(std::shared_ptr<nsSimulatedMachine> aMachine)
      : mMachine(std::move(aMachine)) {
    // The script changes it on the main thread, and settings that come into force on another one.
    mMachine->mNetwork->SetListener([this] {
      mNetworkChanged = true;
      if (NS_IsMainThread()) return;
      const auto told =
          NS_NewRunnableMethodCaller<vorel::threads::eStrong>(this, &MachineScript::OnChange);
      (void)NS_DispatchToMainThread(told.get(), NS_DISPATCH_NORMAL);
    });
  }

  nsresult Start() {
    nsresult rv;
    const auto os = do_GetService<nsIObserverService>(NS_OBSERVERSERVICE_CONTRACTID, &rv);
    NS_ENSURE_SUCCESS(rv, rv);
    rv = os->AddObserver(this, "xpcom-shutdown", false);
    NS_ENSURE_SUCCESS(rv, rv);
    if (!mMachine->UntilNextChange()) return NS_OK;
    nsCOMPtr<nsIThread> mainThread;
    rv = NS_GetMainThread(mainThread.getter_AddRefs());
    NS_ENSURE_SUCCESS(rv, rv);
    return nsEventPump::Start(
        "MachineScript", std::make_shared<nsSimulatedScript>(mMachine), mainThread.get(),
        [this] { OnChange(); }, &mPump);
  }

  nsresult Observe(nsISupports*, const char*, const char16_t*) override {
    mPump = nullptr;
    return NS_OK;
  }

 private:
  ~MachineScript() override { mMachine->mNetwork->SetListener({}); }

  // The host tells of changes of the real network only.
  void OnChange() {
    if (!mNetworkChanged.exchange(false)) return;
    const auto os = do_GetService<nsIObserverService>(NS_OBSERVERSERVICE_CONTRACTID);
    const auto links =
        do_GetService<nsINetworkLinkService>("@mozilla.org/network/network-link-service;1");
    if (os) (void)os->NotifyObservers(links.get(), "network:link-status-changed", u"unknown");
  }

  const std::shared_ptr<nsSimulatedMachine> mMachine;
  std::unique_ptr<nsEventPump> mPump;  // null after the end
  std::atomic<bool> mNetworkChanged = false;
};

// Null when none is asked for.
nsCOMPtr<nsIFile> MachineFile() {
  nsCOMPtr<nsIFile> file;
  if (const auto directories = do_GetService<nsIProperties>(NS_DIRECTORYSERVICE_CONTRACTID))
    (void)directories->Get("VorelMachine", nsIFile::kIID, NS_OutVoid(file));
  return file;
}

}  // namespace

nsresult NS_OpenMachine(nsPlatformRef* aPlatform) {
  const nsCOMPtr<nsIFile> file = MachineFile();
  if (!file) {
    *aPlatform = NS_WithMediaGraph(NS_NewNativePlatform());
    return NS_OK;
  }
  nsCString path;
  nsresult rv = file->GetNativePath(path);
  NS_ENSURE_SUCCESS(rv, rv);
  std::unique_ptr<nsSimulatedMachine> machine;
  std::string message;
  rv = NS_ReadMachineFile(std::string(path.view()), &machine, &message);
  if (NS_FAILED(rv)) {
    SYSTEM_LOG_ERROR(NS_GetLogger("system.machine"), message);
    return rv;
  }
  const auto platform = std::make_shared<nsPlatform>(*machine->Platform());
  // A machine file has no files: those of the process are watched, as the host's own files are.
  const nsPlatformRef native = NS_NewNativePlatform();
  platform->mFiles = native->mFiles;
  platform->mDirectoryChanges = native->mDirectoryChanges;
  rv = MakeRefCounted<MachineScript>(std::move(machine))->Start();
  NS_ENSURE_SUCCESS(rv, rv);
  *aPlatform = NS_WithMediaGraph(platform);
  return NS_OK;
}
