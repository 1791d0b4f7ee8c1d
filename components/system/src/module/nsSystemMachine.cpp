#include "nsSystemMachine.h"

#include <algorithm>
#include <utility>

#include "nsDebug.h"
#include "nsIFile.h"
#include "nsINetworkLinkService.h"
#include "nsIObserver.h"
#include "nsIObserverService.h"
#include "nsIProperties.h"
#include "nsITimer.h"
#include "nsITimerCallback.h"
#include "nsImplements.h"
#include "nsLogger.h"
#include "nsServices.h"
#include "nsSimulatedMachineFile.h"
#include "nsString.h"

namespace {

// Applies the changes of a machine's script when their time has come.
class MachineScript final : public nsImplements<MachineScript, nsITimerCallback, nsIObserver> {
 public:
  explicit MachineScript(std::unique_ptr<nsSimulatedMachine> aMachine)
      : mMachine(std::move(aMachine)) {
    mMachine->mNetwork->SetListener([this] { mNetworkChanged = true; });
  }

  nsresult Start() {
    if (!mMachine->UntilNextChange()) return NS_OK;
    nsresult rv;
    mTimer = do_CreateInstance<nsITimer>(NS_TIMER_CONTRACTID, &rv);
    NS_ENSURE_SUCCESS(rv, rv);
    const auto os = do_GetService<nsIObserverService>(NS_OBSERVERSERVICE_CONTRACTID, &rv);
    NS_ENSURE_SUCCESS(rv, rv);
    rv = os->AddObserver(this, "xpcom-shutdown", false);
    NS_ENSURE_SUCCESS(rv, rv);
    return WaitForNext();
  }

  nsresult Notify(nsITimer*) override {
    mMachine->ApplyNextChange();
    if (std::exchange(mNetworkChanged, false)) TellOfNetwork();
    return WaitForNext();
  }

  nsresult Observe(nsISupports*, const char*, const char16_t*) override {
    // The end may be told more than once: a script may send any topic.
    const nsCOMPtr<nsITimer> timer = std::exchange(mTimer, nullptr);
    return timer ? timer->Cancel() : NS_OK;
  }

 private:
  ~MachineScript() override { mMachine->mNetwork->SetListener({}); }

  // The host tells of changes of the real network only.
  void TellOfNetwork() {
    const auto os = do_GetService<nsIObserverService>(NS_OBSERVERSERVICE_CONTRACTID);
    const auto links =
        do_GetService<nsINetworkLinkService>("@mozilla.org/network/network-link-service;1");
    if (os) (void)os->NotifyObservers(links.get(), "network:link-status-changed", u"unknown");
  }

  nsresult WaitForNext() {
    const auto wait = mMachine->UntilNextChange();
    if (!wait || !mTimer) return NS_OK;
    const auto delay = static_cast<uint32_t>(std::clamp<int64_t>(wait->count(), 0, UINT32_MAX));
    return mTimer->InitWithCallback(this, delay, nsITimer::TYPE_ONE_SHOT);
  }

  const std::unique_ptr<nsSimulatedMachine> mMachine;
  nsCOMPtr<nsITimer> mTimer;  // null after the end
  bool mNetworkChanged = false;
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
    *aPlatform = NS_NewNativePlatform();
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
  *aPlatform = platform;
  return NS_OK;
}
