#include "nsConstructors.h"
#include "nsFontEnumerator.h"

namespace {

constexpr nsCID kFontEnumeratorCID = "a6cf9115-15b3-11d2-932e-00805f8add32"_iid;

const vorel::Module::CIDEntry kCIDs[] = {
    {&kFontEnumeratorCID, true, nullptr, NS_ConstructNew<nsFontEnumerator>},
    {nullptr, false, nullptr, nullptr},
};

const vorel::Module::ContractIDEntry kContracts[] = {
    {"@mozilla.org/gfx/fontenumerator;1", &kFontEnumeratorCID},
    {nullptr, nullptr},
};

}  // namespace

const vorel::Module kGfxModule = {
    vorel::Module::kVersion, kCIDs, kContracts, nullptr, nullptr, nullptr, nullptr};
