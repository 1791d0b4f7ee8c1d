#include "nsConstructors.h"
#include "nsDirectoryService.h"
#include "nsFileProtocolHandler.h"
#include "nsIOService.h"
#include "nsLocalFile.h"
#include "nsServices.h"
#include "nsStandardURL.h"

namespace {

constexpr nsCID kLocalFileCID = "2e23e220-60be-11d3-8c4a-000064657374"_iid;
constexpr nsCID kDirectoryServiceCID = "f00152d0-b40b-11d3-8c9c-000064657374"_iid;
constexpr nsCID kIOServiceCID = "9ac9e770-18bc-11d3-9337-00104ba0fd40"_iid;
constexpr nsCID kFileProtocolHandlerCID = "fbc81170-1f69-11d3-9344-00104ba0fd40"_iid;
constexpr nsCID kStandardURLCID = "de9472d0-8034-11d3-9399-00104ba0fd40"_iid;

const vorel::Module::CIDEntry kCIDs[] = {
    {&kLocalFileCID, false, nullptr, NS_ConstructNew<nsLocalFile>},
    {&kDirectoryServiceCID, true, nullptr, NS_ConstructNew<nsDirectoryService>},
    {&kIOServiceCID, true, nullptr, NS_ConstructNew<nsIOService>},
    {&kFileProtocolHandlerCID, true, nullptr, NS_ConstructNew<nsFileProtocolHandler>},
    {&kStandardURLCID, false, nullptr, NS_ConstructNew<nsStandardURL>},
    {nullptr, false, nullptr, nullptr},
};

const vorel::Module::ContractIDEntry kContracts[] = {
    {NS_LOCALFILE_CONTRACTID, &kLocalFileCID},
    {NS_DIRECTORYSERVICE_CONTRACTID, &kDirectoryServiceCID},
    {NS_IOSERVICE_CONTRACTID, &kIOServiceCID},
    {"@mozilla.org/network/util;1", &kIOServiceCID},
    {NS_FILEPROTOCOLHANDLER_CONTRACTID, &kFileProtocolHandlerCID},
    {"@mozilla.org/network/standard-url;1", &kStandardURLCID},
    {nullptr, nullptr},
};

}  // namespace

const vorel::Module kIOModule = {
    vorel::Module::kVersion, kCIDs, kContracts, nullptr, nullptr, nullptr, nullptr};
