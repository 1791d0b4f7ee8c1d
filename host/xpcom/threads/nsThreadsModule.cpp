#include "nsConstructors.h"
#include "nsServices.h"
#include "nsThreadManager.h"

namespace {

constexpr nsCID kThreadManagerCID = "7a4204c6-e45a-4c37-8ebb-6709a22c917c"_iid;

const vorel::Module::CIDEntry kCIDs[] = {
    {&kThreadManagerCID, true, nullptr, NS_ConstructTheOne<nsThreadManager>},
    {nullptr, false, nullptr, nullptr},
};

const vorel::Module::ContractIDEntry kContracts[] = {
    {NS_THREADMANAGER_CONTRACTID, &kThreadManagerCID},
    {nullptr, nullptr},
};

}  // namespace

const vorel::Module kThreadsModule = {
    vorel::Module::kVersion, kCIDs, kContracts, nullptr, nullptr, nullptr, nullptr};
