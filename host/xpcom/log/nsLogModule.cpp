#include "nsConstructors.h"
#include "nsLog.h"
#include "nsServices.h"

namespace {

constexpr nsCID kLog4ServiceCID = "0e2b9f6c-43a5-4d0b-9c86-17f7a0c55d21"_iid;
constexpr nsCID kLog4LocationInfoCID = "77c1e1d4-5be2-4b53-8f8e-3e0d92a1b6f0"_iid;

const vorel::Module::CIDEntry kCIDs[] = {
    {&kLog4ServiceCID, true, nullptr, NS_ConstructNew<nsLog4Service>},
    {&kLog4LocationInfoCID, false, nullptr, NS_ConstructNew<nsLog4LocationInfo>},
    {nullptr, false, nullptr, nullptr},
};

const vorel::Module::ContractIDEntry kContracts[] = {
    {VOREL_LOG4SERVICE_CONTRACTID, &kLog4ServiceCID},
    {VOREL_LOG4LOCATIONINFO_CONTRACTID, &kLog4LocationInfoCID},
    {nullptr, nullptr},
};

}  // namespace

const vorel::Module kLogModule = {
    vorel::Module::kVersion, kCIDs, kContracts, nullptr, nullptr, nullptr, nullptr};
