#include "nsConstructors.h"
#include "nsServices.h"
#include "nsThreadManager.h"
#include "nsThreadPool.h"
#include "nsTimer.h"

namespace {

constexpr nsCID kThreadManagerCID = "7a4204c6-e45a-4c37-8ebb-6709a22c917c"_iid;
constexpr nsCID kTimerCID = "5ff24248-1dd2-11b2-8427-fbab44f29bc8"_iid;
constexpr nsCID kThreadPoolCID = "5c0f6d9a-77f3-4f0b-8f0e-6c2f9b1d3e57"_iid;

const vorel::Module::CIDEntry kCIDs[] = {
    {&kThreadManagerCID, true, nullptr, NS_ConstructTheOne<nsThreadManager>},
    {&kTimerCID, false, nullptr, NS_ConstructNew<nsTimer>},
    {&kThreadPoolCID, true, nullptr, nsVorelThreadPool::Construct},
    {nullptr, false, nullptr, nullptr},
};

const vorel::Module::ContractIDEntry kContracts[] = {
    {NS_THREADMANAGER_CONTRACTID, &kThreadManagerCID},
    {NS_TIMER_CONTRACTID, &kTimerCID},
    {VOREL_THREADPOOL_CONTRACTID, &kThreadPoolCID},
    {nullptr, nullptr},
};

}  // namespace

const vorel::Module kThreadsModule = {
    vorel::Module::kVersion, kCIDs, kContracts, nullptr, nullptr, nullptr, nullptr};
