#include "nsConstructors.h"
#include "nsNetworkLinkService.h"

namespace {

constexpr char kLinkServiceContract[] = "@mozilla.org/network/network-link-service;1";
constexpr char kLinkServiceAtStartup[] = "service,@mozilla.org/network/network-link-service;1";
constexpr nsCID kLinkServiceCID = "75a500a2-0030-40f7-86f8-63f225b940ae"_iid;

const vorel::Module::CIDEntry kCIDs[] = {
    {&kLinkServiceCID, true, nullptr, NS_ConstructNew<nsNetworkLinkService>},
    {nullptr, false, nullptr, nullptr},
};

const vorel::Module::ContractIDEntry kContracts[] = {
    {kLinkServiceContract, &kLinkServiceCID},
    {nullptr, nullptr},
};

const vorel::Module::CategoryEntry kCategories[] = {
    {"app-startup", "NetworkLinkService", kLinkServiceAtStartup},
    {"profile-after-change", "NetworkLinkService", kLinkServiceContract},
    {nullptr, nullptr, nullptr},
};

}  // namespace

const vorel::Module kNetworkModule = {
    vorel::Module::kVersion, kCIDs, kContracts, kCategories, nullptr, nullptr, nullptr};
