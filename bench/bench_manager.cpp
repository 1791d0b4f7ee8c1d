// How long does start-up take on a machine with every drive letter in use and 10,000 profile
// preferences? Wanted: 30 ms or less. How long to find the adapters of an interface among 1,000:
// 100 us or less. And the bindings of one profile on one adapter, with 10,000 preferences in the
// tree: 1 ms or less.
#include <benchmark/benchmark.h>

#include <cstdlib>

#include "nsHost.h"
#include "nsIArray.h"
#include "nsICategoryManager.h"
#include "nsIPrefBranch.h"
#include "nsImplements.h"
#include "nsServices.h"
#include "nsSimulatedMachine.h"
#include "nsSystemAdapterStorage.h"
#include "nsSystemApplicationProfile.h"
#include "nsSystemConnector.h"
#include "nsSystemDevice.h"
#include "nsSystemManager.h"

namespace {

void Check(nsresult aRv) {
  if (NS_FAILED(aRv)) std::abort();
}

// A binding class that does nothing, for whatever profile.
class Binding final : public nsImplements<Binding, nsISystemApplicationProfileBinding> {
 public:
  nsresult Init(nsISystemAdapter* aAdapter, nsISystemApplicationProfile* aProfile,
                nsIPrefBranch*) override {
    mAdapter = aAdapter;
    mProfile = aProfile;
    return NS_OK;
  }
  nsresult IsEnabled(bool* aEnabled) override {
    *aEnabled = true;
    return NS_OK;
  }
  nsresult GetApplicationProfile(nsISystemApplicationProfile** aProfile) override {
    nsCOMPtr<nsISystemApplicationProfile>(mProfile).forget(aProfile);
    return NS_OK;
  }
  nsresult GetAdapter(nsISystemAdapter** aAdapter) override {
    nsCOMPtr<nsISystemAdapter>(mAdapter).forget(aAdapter);
    return NS_OK;
  }

 private:
  ~Binding() override = default;
  nsCOMPtr<nsISystemAdapter> mAdapter;
  nsCOMPtr<nsISystemApplicationProfile> mProfile;
};

constexpr char kContractID[] = "@vorel/bench/binding;1";
constexpr nsCID kCID = "0f6d4e2c-6a52-4c7b-9a0e-1f5f0c7d2b11"_iid;
constexpr vorel::Module::CIDEntry kCIDs[] = {{&kCID, false, nullptr,
                                              [](nsISupports*, const nsIID& aIID, void** aResult) {
                                                return MakeRefCounted<Binding>()->QueryInterface(
                                                    aIID, aResult);
                                              }},
                                             {nullptr, false, nullptr, nullptr}};
constexpr vorel::Module::ContractIDEntry kContractIDs[] = {{kContractID, &kCID},
                                                           {nullptr, nullptr}};
constexpr vorel::Module kModule = {
    vorel::Module::kVersion, kCIDs, kContractIDs, nullptr, nullptr, nullptr, nullptr};

constexpr const char* kExternalProfiles[] = {
    "storage-external-release-firmware-injector",
    "storage-external-addon-injector",
    "storage-external-richmedia-player-injector",
    "storage-external-medias-reader-injector",
    "storage-external-medias-reader",
};

// A host of which the five profiles for sticks are known, allowed, and a small part of all the
// preferences.
class Host {
 public:
  Host() {
    nsHostOptions options;
    options.mModules = {&kModule};
    options.mLogLevels = {
        {"", nsILog4Logger::SEVERITY_ERROR}};  // no standing directories: no word of it
    Check(mHost.Start(options));
    const auto prefs = do_GetService<nsIPrefBranch>(NS_PREFSERVICE_CONTRACTID);
    const auto categories = do_GetService<nsICategoryManager>(NS_CATEGORYMANAGER_CONTRACTID);
    for (const char* profile : kExternalProfiles) {
      const std::string key = profile + std::string(".mass-storage.usb.*");
      char* old = nullptr;
      Check(categories->AddCategoryEntry("vorel-application-profile-binding", key.c_str(),
                                         kContractID, false, true, &old));
      Check(prefs->SetBoolPref(("vorel.app-profile." + key + ".authorized").c_str(), true));
    }
    for (int profile = 0; profile < 1000; ++profile)
      for (int key = 0; key < 10; ++key)
        Check(prefs->SetCharPref(("vorel.app-profile.profile-" + std::to_string(profile) +
                                  ".mass-storage.usb.*.key-" + std::to_string(key))
                                     .c_str(),
                                 "value"));
  }
  ~Host() { mHost.Stop(); }

 private:
  nsHost mHost;
};

uint32_t Length(nsIArray* aArray) {
  uint32_t length = 0;
  if (aArray) Check(aArray->GetLength(&length));
  return length;
}

void Startup(benchmark::State& aState) {
  const Host host;
  nsSimulatedMachine machine;
  for (char letter = 'A'; letter <= 'Z'; ++letter) machine.mVolumes->Insert(letter);
  for (auto _ : aState) {
    const auto manager = MakeRefCounted<nsSystemManager>(machine.Platform());
    Check(manager->Init());
    aState.PauseTiming();
    nsCOMPtr<nsIArray> adapters, bindings;
    Check(manager->GetAdapters(adapters.getter_AddRefs()));
    Check(manager->GetApplicationProfileBindingsByProfileUri(
        nsString(u"storage-external-medias-reader"), bindings.getter_AddRefs()));
    if (Length(adapters.get()) != 26 || Length(bindings.get()) != 26) std::abort();
    Check(manager->Observe(nullptr, "xpcom-shutdown", nullptr));
    aState.ResumeTiming();
  }
}
BENCHMARK(Startup)->Unit(benchmark::kMillisecond);

void AdaptersByInterface(benchmark::State& aState) {
  const Host host;
  const auto manager = MakeRefCounted<nsSystemManager>(nsSimulatedMachine().Platform());
  for (int i = 0; i < 1000; ++i)
    Check(manager->AddAdapter(MakeRefCounted<nsSystemAdapterStorage>().get()));
  for (auto _ : aState) {
    nsCOMPtr<nsIArray> adapters;
    Check(manager->GetAdaptersByIId(nsISystemAdapterStorage::kIID, adapters.getter_AddRefs()));
    if (Length(adapters.get()) != 1000) std::abort();
  }
  Check(manager->Observe(nullptr, "xpcom-shutdown", nullptr));
}
BENCHMARK(AdaptersByInterface)->Unit(benchmark::kMicrosecond);

void BindingsOfAProfile(benchmark::State& aState) {
  const Host host;
  const auto adapter = MakeRefCounted<nsSystemAdapterStorage>();
  Check(NewSystemDevice(adapter->mDevice.getter_AddRefs(), nsString(u"mass-storage"), nsString()));
  nsCOMPtr<nsISystemConnector> connector;
  Check(NewSystemConnector(connector.getter_AddRefs(), nsString(u"usb"), nsString(u"*"), nsString(),
                           nsString(), nullptr, nullptr, nullptr));
  adapter->mConnectors.push_back(connector);
  nsCOMPtr<nsISystemApplicationProfile> profile;
  const nsString name(u"storage-external-medias-reader");
  Check(NewSystemApplicationProfile(profile.getter_AddRefs(), name, name, nsString()));
  for (auto _ : aState) {
    nsCOMPtr<nsIArray> bindings;
    Check(adapter->GenerateApplicationProfileBindings(profile.get(), bindings.getter_AddRefs()));
    if (Length(bindings.get()) != 1) std::abort();
  }
}
BENCHMARK(BindingsOfAProfile)->Unit(benchmark::kMicrosecond);

}  // namespace
