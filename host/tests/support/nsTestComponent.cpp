// A library with a module record, for the tests of loading. It writes its steps into the
// environment, since nothing of it is left in memory when it is gone.
#include <cstdlib>
#include <string>

#include "Module.h"
#include "nsImplements.h"

namespace {

void Note(const char* aStep) {
  constexpr char kName[] = "VOREL_TEST_COMPONENT_STEPS";
  const char* const steps = getenv(kName);
  setenv(kName, ((steps ? steps : "") + std::string(aStep) + " ").c_str(), 1);
}

class Thing final : public nsImplements<Thing, nsISupports> {
 public:
  Thing() { Note("made"); }

 private:
  ~Thing() override { Note("gone"); }
};

constexpr nsCID kCID = "a3e9b0d4-64c8-4a43-8f32-0b8f5f0a8e21"_iid;

const vorel::Module::CIDEntry kCIDs[] = {
    {&kCID, false, nullptr,
     [](nsISupports*, const nsIID& aIID, void** aResult) {
       return MakeRefCounted<Thing>()->QueryInterface(aIID, aResult);
     }},
    {},
};
const vorel::Module::ContractIDEntry kContracts[] = {{"@vorel/test/component;1", &kCID}, {}};

const vorel::Module kModule = {
    vorel::Module::kVersion,
    kCIDs,
    kContracts,
    nullptr,
    nullptr,
    [] {
      Note("load");
      return NS_OK;
    },
    [] { Note("unload"); },
};

}  // namespace

extern "C" {
__attribute__((visibility("default"))) extern const vorel::Module* const NSModule;
const vorel::Module* const NSModule = &kModule;
}
