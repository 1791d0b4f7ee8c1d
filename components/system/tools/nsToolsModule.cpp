// The module record of the tools library: classes for the program's own scripts, beside those of
// the system.
#include "Module.h"
#include "nsDigitalTvInspector.h"
#include "nsStreamOutput.h"

using vorel::Module;

namespace {

template <class Class>
nsresult Construct(nsISupports* aOuter, const nsIID& aIID, void** aResult) {
  *aResult = nullptr;
  if (aOuter) return NS_ERROR_NO_AGGREGATION;
  return MakeRefCounted<Class>()->QueryInterface(aIID, aResult);
}

constexpr Module::CIDEntry kCIDs[] = {
    {&nsDigitalTvInspector::kClassInfo.classID, false, nullptr, Construct<nsDigitalTvInspector>},
    {&nsStreamOutput::kClassInfo.classID, false, nullptr, Construct<nsStreamOutput>},
    {nullptr, false, nullptr, nullptr}};
constexpr Module::ContractIDEntry kContractIDs[] = {
    {"@vorel/tools/digitaltv-inspector;1", &nsDigitalTvInspector::kClassInfo.classID},
    {"@vorel/tools/stream-output;1", &nsStreamOutput::kClassInfo.classID},
    {nullptr, nullptr}};
constexpr Module kModule = {Module::kVersion, kCIDs,   kContractIDs, nullptr,
                            nullptr,          nullptr, nullptr};

}  // namespace

extern "C" __attribute__((visibility("default"))) const Module* const NSModule;
const Module* const NSModule = &kModule;
