#include "nsConstructors.h"
#include "nsCrashReporter.h"

namespace {

constexpr nsCID kCrashReporterCID = "95d89e3e-a169-41a3-8e56-719978e15b13"_iid;

const vorel::Module::CIDEntry kCIDs[] = {
    {&kCrashReporterCID, true, nullptr, NS_ConstructNew<nsCrashReporter>},
    {nullptr, false, nullptr, nullptr},
};

const vorel::Module::ContractIDEntry kContracts[] = {
    {"@mozilla.org/toolkit/crash-reporter;1", &kCrashReporterCID},
    {nullptr, nullptr},
};

}  // namespace

const vorel::Module kCrashModule = {
    vorel::Module::kVersion, kCIDs, kContracts, nullptr, nullptr, nullptr, nullptr};
