#include "nsBinaryStreams.h"
#include "nsCharsetConverterManager.h"
#include "nsConstructors.h"
#include "nsDirectoryService.h"
#include "nsFileProtocolHandler.h"
#include "nsFileStreams.h"
#include "nsIOService.h"
#include "nsLoadGroup.h"
#include "nsLocalFile.h"
#include "nsPipe.h"
#include "nsServices.h"
#include "nsStandardURL.h"
#include "nsStringInputStream.h"

namespace {

constexpr nsCID kLocalFileCID = "2e23e220-60be-11d3-8c4a-000064657374"_iid;
constexpr nsCID kDirectoryServiceCID = "f00152d0-b40b-11d3-8c9c-000064657374"_iid;
constexpr nsCID kIOServiceCID = "9ac9e770-18bc-11d3-9337-00104ba0fd40"_iid;
constexpr nsCID kFileProtocolHandlerCID = "fbc81170-1f69-11d3-9344-00104ba0fd40"_iid;
constexpr nsCID kStandardURLCID = "de9472d0-8034-11d3-9399-00104ba0fd40"_iid;
constexpr nsCID kFileInputStreamCID = "be9a53ae-c7e9-11d3-8cda-0060b0fc14a3"_iid;
constexpr nsCID kFileOutputStreamCID = "c272fee0-c7e9-11d3-8cda-0060b0fc14a3"_iid;
constexpr nsCID kSafeFileOutputStreamCID = "a181af0d-68b8-4308-94db-d4f859058215"_iid;
constexpr nsCID kStringInputStreamCID = "0abb0835-5000-4790-af28-61b3ba17c295"_iid;
constexpr nsCID kPipeCID = "e4a0ee4e-0775-457b-9118-b3ae97a7c758"_iid;
constexpr nsCID kBinaryInputStreamCID = "c521a612-2aad-46db-b6ab-3b821fb150b1"_iid;
constexpr nsCID kBinaryOutputStreamCID = "86c37b9a-74e7-4672-844e-6e7dd83ba484"_iid;
constexpr nsCID kCharsetConverterManagerCID = "3c1c0163-9bd0-11d3-9d09-0050040007b2"_iid;
constexpr nsCID kLoadGroupCID = "e1c61582-2a84-11d3-8cce-0060b0fc14a3"_iid;

const vorel::Module::CIDEntry kCIDs[] = {
    {&kLocalFileCID, false, nullptr, NS_ConstructNew<nsLocalFile>},
    {&kDirectoryServiceCID, true, nullptr, NS_ConstructNew<nsDirectoryService>},
    {&kIOServiceCID, true, nullptr, NS_ConstructNew<nsIOService>},
    {&kFileProtocolHandlerCID, true, nullptr, NS_ConstructNew<nsFileProtocolHandler>},
    {&kStandardURLCID, false, nullptr, NS_ConstructNew<nsStandardURL>},
    {&kFileInputStreamCID, false, nullptr, NS_ConstructNew<nsFileInputStream>},
    {&kFileOutputStreamCID, false, nullptr, NS_ConstructNew<nsFileOutputStream>},
    {&kSafeFileOutputStreamCID, false, nullptr, NS_ConstructNew<nsSafeFileOutputStream>},
    {&kStringInputStreamCID, false, nullptr, NS_ConstructNew<nsStringInputStream>},
    {&kPipeCID, false, nullptr, NS_ConstructNew<nsPipe>},
    {&kBinaryInputStreamCID, false, nullptr, NS_ConstructNew<nsBinaryInputStream>},
    {&kBinaryOutputStreamCID, false, nullptr, NS_ConstructNew<nsBinaryOutputStream>},
    {&kCharsetConverterManagerCID, true, nullptr, NS_ConstructNew<nsCharsetConverterManager>},
    {&kLoadGroupCID, false, nullptr, NS_ConstructNew<nsLoadGroup>},
    {nullptr, false, nullptr, nullptr},
};

const vorel::Module::ContractIDEntry kContracts[] = {
    {NS_LOCALFILE_CONTRACTID, &kLocalFileCID},
    {NS_DIRECTORYSERVICE_CONTRACTID, &kDirectoryServiceCID},
    {NS_IOSERVICE_CONTRACTID, &kIOServiceCID},
    {"@mozilla.org/network/util;1", &kIOServiceCID},
    {NS_FILEPROTOCOLHANDLER_CONTRACTID, &kFileProtocolHandlerCID},
    {"@mozilla.org/network/standard-url;1", &kStandardURLCID},
    {"@mozilla.org/network/file-input-stream;1", &kFileInputStreamCID},
    {"@mozilla.org/network/file-output-stream;1", &kFileOutputStreamCID},
    {"@mozilla.org/network/safe-file-output-stream;1", &kSafeFileOutputStreamCID},
    {"@mozilla.org/io/string-input-stream;1", &kStringInputStreamCID},
    {"@mozilla.org/pipe;1", &kPipeCID},
    {"@mozilla.org/binaryinputstream;1", &kBinaryInputStreamCID},
    {"@mozilla.org/binaryoutputstream;1", &kBinaryOutputStreamCID},
    {"@mozilla.org/charset-converter-manager;1", &kCharsetConverterManagerCID},
    {"@mozilla.org/network/load-group;1", &kLoadGroupCID},
    {nullptr, nullptr},
};

}  // namespace

const vorel::Module kIOModule = {
    vorel::Module::kVersion, kCIDs, kContracts, nullptr, nullptr, nullptr, nullptr};
