// The module record, and the ways into the library that do not go by name: tables and slots.
#include <algorithm>
#include <array>
#include <barrier>
#include <map>
#include <thread>

#include "nsIDOMCIExtension.h"
#include "nsIDOMScriptObjectFactory.h"
#include "nsISystemAdapterStorage.h"
#include "nsISystemManager.h"
#include "nsIThread.h"
#include "nsIThreadManager.h"
#include "nsIXPCScriptable.h"
#include "nsSystemAdapterStorage.h"
#include "nsSystemTest.h"

extern "C" const vorel::Module* const NSModule;

namespace {

using Strings = std::vector<std::string>;

// ---- The tables, as the host and the application know them

struct Row {
  const char* mCID;
  const char* mContractID;
  bool mService;
};
constexpr Row kRows[] = {
    {"{44be1a59-69ba-401e-aa66-ee1e5142d685}", "@vorel/system/ipv4structure;1", false},
    {"{fb3dbf4f-d33f-49a0-9b48-45d3d3f5d3dd}", "@vorel/system/ipv6structure;1", false},
    {"{2348063c-bd53-4d5d-974e-90e20dc9c54d}", "@vorel/system/macstructure;1", false},
    {"{cd63c84b-a253-4791-9d31-c938398a8954}", "@vorel/isocountry;1", false},
    {"{d5122968-6a6b-4870-b742-0d23253ed992}", "@vorel/digitaltvservice;1", false},
    {"{ce489190-1c2b-11e2-892e-0800200c9a66}", "@vorel/digitaltvaudiochannel;1", false},
    {"{81651f6e-bcc1-49d8-a0bb-a9dabcee6c4f}", "@vorel/system/filesystemwatcherprivate;1", false},
    {"{98125353-15e3-49db-a7ec-84308fe2be39}", "@vorel/system/filesystemwatcher;1", false},
    {"{e20a6b80-7874-11e3-981f-0800200c9a66}", "@vorel/system/apb/displayoutput;1", false},
    {"{0f0aeecb-13ab-4976-a73f-17617d04ef5f}", "@vorel/system/filesystemwatcherservice;1", true},
    {"{a6589da3-837b-46d6-9b01-d3cbce89ac00}", "@vorel/systemdisplayposition;1", true},
    {"{31b9ff0f-7703-4b2f-b7fa-a870c6db4746}", "@vorel/system/systemmanager;1", true},
    {"{90316285-26d8-4232-bd0f-b2b04385d109}", "@vorel/system/clock;1", true},
    {"{792a619b-5a10-4249-a0c6-6778b1e0595e}", "@vorel/system/generalsettings;1", true},
    {"{8155b51f-fa15-4ad9-a1a8-6b9cefd36168}", "@vorel/system/maintenance;1", true},
    {"{33386123-8c43-4153-90d7-e632e801179c}", "@vorel/system/systemfont;1", true},
    {"{08285539-15e2-49b8-b2e2-e425ce4f6f4f}", "@vorel/system/adapter///digitaltvreceiver;1",
     false},
    {"{3b04347b-cbb0-4c52-b565-d5e91159cc82}", "@vorel/bdascanresultdigitaltvservice;1", false},
    {"{4dd67d9e-6c07-4b21-83fd-3069c1bded0e}", "@vorel/system/ciextension;1", false},
    {"{1f4be1f2-93a7-4e0c-8d6c-20b6d7a5c934}", "@vorel/network-configuration;1", true},
};

constexpr const char* kCategories[][3] = {
    {"JavaScript-DOM-class", "SystemManager", "@vorel/system/ciextension;1"},
    {"JavaScript-DOM-class", "SystemMaintenance", "@vorel/system/ciextension;1"},
    {"JavaScript-DOM-class", "SystemGeneralSettings", "@vorel/system/ciextension;1"},
    {"JavaScript-DOM-class", "FileSystemWatcher", "@vorel/system/ciextension;1"},
    {"app-startup", "SystemManager", "service,@vorel/system/systemmanager;1"},
    {"app-startup", "SystemMaintenance", "service,@vorel/system/maintenance;1"},
    {"JavaScript-global-property", "systemManager", "@vorel/system/systemmanager;1"},
    {"JavaScript-global-property", "systemMaintenance", "@vorel/system/maintenance;1"},
    {"JavaScript-global-property", "systemGeneralSettings", "@vorel/system/generalsettings;1"},
    {"JavaScript-DOM-interface", "SystemAdapterIP", "5f2df378-b4b4-44fa-a3cb-64be1f08db02"},
    {"JavaScript-DOM-interface", "SystemAdapterLAN", "a2891121-3f6e-48bd-b190-c29b96252cd6"},
    {"JavaScript-DOM-interface", "SystemAdapterWLAN", "13e15c6f-d54c-4291-824d-2a5cbe7652a2"},
    {"JavaScript-DOM-interface", "SystemAdapterWWAN", "2ad2f539-0131-4f6a-891e-61ff59062bc6"},
    {"JavaScript-DOM-interface", "SystemIPv4Structure", "1275dfdc-7220-49ed-951b-0b3d3bba235a"},
    {"JavaScript-DOM-interface", "SystemIPv6Structure", "007a3be6-b329-4e4b-84b5-df3cbd47ca70"},
    {"JavaScript-DOM-interface", "SystemMACStructure", "40bb24b9-972d-4227-8453-e281fee9b73d"},
    {"JavaScript-DOM-interface", "SystemIPAddress", "c39f0173-86f3-43e4-9be0-8e38594e7576"},
    {"JavaScript-DOM-interface", "SystemManager", "defd4869-f84c-4be4-a5c7-6304a759ecb3"},
    {"JavaScript-DOM-interface", "SystemAdapterStorage", "96152db9-078a-4208-a1e4-f2a4a3a2e53a"},
    {"JavaScript-DOM-interface", "FileSystemWatcher", "18e68dfc-8803-417a-9a2a-159592ea3651"},
};

TEST(ModuleRecord, ClassRowsAreMissingWrongOrOutOfOrder) {
  EXPECT_EQ(NSModule->mVersion, 14u);
  EXPECT_EQ(NSModule->getFactoryProc, nullptr);
  EXPECT_NE(NSModule->loadProc, nullptr);
  EXPECT_NE(NSModule->unloadProc, nullptr);
  const auto* cid = NSModule->mCIDs;
  const auto* contract = NSModule->mContractIDs;
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.mContractID);
    ASSERT_NE(cid->cid, nullptr);
    EXPECT_EQ(cid->cid->ToString(), row.mCID);
    EXPECT_EQ(cid->service, row.mService);
    EXPECT_EQ(cid->getFactoryProc, nullptr);
    EXPECT_NE(cid->constructorProc, nullptr);
    ASSERT_NE(contract->contractid, nullptr);
    EXPECT_STREQ(contract->contractid, row.mContractID);
    EXPECT_EQ(*contract->cid, *cid->cid);
    ++cid;
    ++contract;
  }
  EXPECT_EQ(cid->cid, nullptr) << cid->cid->ToString();
  EXPECT_EQ(contract->contractid, nullptr);
}

TEST(ModuleRecord, CategoryRowsAreMissingWrongOrOutOfOrder) {
  const auto* row = NSModule->mCategoryEntries;
  for (const auto& [category, entry, value] : kCategories) {
    ASSERT_NE(row->category, nullptr);
    EXPECT_STREQ(row->category, category);
    EXPECT_STREQ(row->entry, entry);
    EXPECT_STREQ(row->value, value);
    ++row;
  }
  EXPECT_EQ(row->category, nullptr);
}

// ---- Loading

nsresult Create(const char* aContractID, nsISupports* aOuter, nsISupports** aResult) {
  for (const auto* row = NSModule->mContractIDs; row->contractid; ++row)
    if (std::string_view(row->contractid) == aContractID)
      for (const auto* cid = NSModule->mCIDs; cid->cid; ++cid)
        if (*cid->cid == *row->cid)
          return cid->constructorProc(aOuter, nsISupports::kIID, reinterpret_cast<void**>(aResult));
  return NS_ERROR_FACTORY_NOT_REGISTERED;
}
constexpr char kManager[] = "@vorel/system/systemmanager;1";
constexpr char kExtension[] = "@vorel/system/ciextension;1";

class ModuleTest : public nsSystemTest {
 protected:
  void SetUp() override {
    StartHost();
    ASSERT_EQ(NSModule->loadProc(), NS_OK);
  }
  void TearDown() override {
    mHost.Stop();
    NSModule->unloadProc();
  }
};

TEST_F(ModuleTest, OuterObjectIsAccepted) {
  const auto outer = MakeRefCounted<nsTestListener>();
  for (const auto* row = NSModule->mCIDs; row->cid; ++row) {
    nsISupports* result = reinterpret_cast<nsISupports*>(1);
    EXPECT_EQ(row->constructorProc(static_cast<nsISystemAdapterListener*>(outer.get()),
                                   nsISupports::kIID, reinterpret_cast<void**>(&result)),
              NS_ERROR_NO_AGGREGATION);
    EXPECT_EQ(result, nullptr);
  }
}

TEST_F(ModuleTest, ServicesAreMadeTwiceAndInstancesOnce) {
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.mContractID);
    nsCOMPtr<nsISupports> a, b;
    ASSERT_EQ(Create(row.mContractID, nullptr, a.getter_AddRefs()), NS_OK);
    ASSERT_EQ(Create(row.mContractID, nullptr, b.getter_AddRefs()), NS_OK);
    EXPECT_EQ(a == b, row.mService);
  }
}

TEST_F(ModuleTest, ThreadsThatAskAtOnceGetDifferentSingletons) {
  constexpr size_t kThreads = 4;
  for (const Row& row : kRows) {
    if (!row.mService) continue;
    SCOPED_TRACE(row.mContractID);
    std::barrier start(kThreads);
    std::array<nsCOMPtr<nsISupports>, kThreads> instances;
    std::vector<std::thread> threads;
    for (auto& instance : instances)
      threads.emplace_back([&] {
        start.arrive_and_wait();
        EXPECT_EQ(Create(row.mContractID, nullptr, instance.getter_AddRefs()), NS_OK);
      });
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(std::ranges::count(instances, instances[0]), kThreads);
  }
}

TEST_F(ModuleTest, ReferencesOfASingletonAreLost) {
  nsCOMPtr<nsISupports> manager;
  ASSERT_EQ(Create(kManager, nullptr, manager.getter_AddRefs()), NS_OK);
  // The module's, the observer service's for "xpcom-shutdown", "vorel-application-start" and
  // "vorel-await-displays", and this one.
  const auto count = [&] {
    const nsrefcnt references = manager->AddRef() - 1;
    manager->Release();
    return references;
  };
  EXPECT_EQ(count(), 5u);
  nsCOMPtr<nsISupports> again;
  ASSERT_EQ(Create(kManager, nullptr, again.getter_AddRefs()), NS_OK);
  EXPECT_EQ(count(), 6u);
}

TEST_F(ModuleTest, SecondLoadDisturbsTheFirst) {
  nsCOMPtr<nsISupports> before, after;
  ASSERT_EQ(Create(kManager, nullptr, before.getter_AddRefs()), NS_OK);
  EXPECT_EQ(NSModule->loadProc(), NS_ERROR_FAILURE);
  ASSERT_EQ(Create(kManager, nullptr, after.getter_AddRefs()), NS_OK);
  EXPECT_EQ(before, after);
}

TEST_F(ModuleTest, SingletonsOutliveTheModule) {
  mHost.Stop();
  NSModule->unloadProc();
  NSModule->unloadProc();  // says that it isn't loaded, and does nothing
  nsCOMPtr<nsISupports> manager;
  EXPECT_EQ(Create(kManager, nullptr, manager.getter_AddRefs()), NS_ERROR_OUT_OF_MEMORY);
  EXPECT_FALSE(manager);
  StartHost();
  ASSERT_EQ(NSModule->loadProc(), NS_OK);
  EXPECT_EQ(Create(kManager, nullptr, manager.getter_AddRefs()), NS_OK);
}

// ---- DOM classes

struct Registration {
  std::vector<nsIID> mInterfaces;
  nsIID mProto;
  uint32_t mFlags;
  bool mHasClassInterface;
  nsCID mCID;
};

class Registry final : public nsImplements<Registry, nsIDOMScriptObjectFactory> {
 public:
  std::map<std::string, Registration> mRegistered;

  nsISupports* GetClassInfoInstance(int32_t) override { return nullptr; }
  nsISupports* GetExternalClassInfoInstance(const nsAString&) override { return nullptr; }
  nsresult RegisterDOMClassInfo(const char* aName, nsDOMConstructorFunc aConstructor,
                                const nsIID* aProto, const nsIID** aInterfaces, uint32_t aFlags,
                                bool aHasClassInterface, const nsCID* aCID) override {
    EXPECT_EQ(aConstructor, nullptr);
    Registration registration{{}, *aProto, aFlags, aHasClassInterface, *aCID};
    for (; *aInterfaces; ++aInterfaces) registration.mInterfaces.push_back(**aInterfaces);
    mRegistered[aName] = registration;
    return NS_SUCCESS_LOSS_OF_INSIGNIFICANT_DATA;
  }

 private:
  ~Registry() override = default;
};

TEST_F(ModuleTest, DOMClassesAreRegisteredWithOtherInterfaces) {
  nsCOMPtr<nsISupports> instance;
  ASSERT_EQ(Create(kExtension, nullptr, instance.getter_AddRefs()), NS_OK);
  const auto extension = do_QueryInterface<nsIDOMCIExtension>(instance);
  ASSERT_TRUE(extension);
  const auto registry = MakeRefCounted<Registry>();
  EXPECT_EQ(extension->RegisterDOMCI("systemManager", registry.get()), NS_ERROR_FAILURE);
  EXPECT_EQ(extension->RegisterDOMCI("", registry.get()), NS_ERROR_FAILURE);
  EXPECT_EQ(extension->RegisterDOMCI(nullptr, registry.get()), NS_ERROR_FAILURE);
  EXPECT_TRUE(registry->mRegistered.empty());

  const struct {
    const char* mName;
    std::vector<nsIID> mInterfaces;
    nsCID mCID;
  } classes[] = {
      {"SystemManager",
       {"defd4869-f84c-4be4-a5c7-6304a759ecb3"_iid},
       "31b9ff0f-7703-4b2f-b7fa-a870c6db4746"_iid},
      {"SystemMaintenance",
       {"658de7c7-a584-4bbb-b1ca-bf042d8f3e58"_iid, "a796816d-7d47-4348-9ab8-c7aeb3216a7d"_iid,
        "db242e01-e4d9-11d2-9dde-000064657374"_iid},
       "8155b51f-fa15-4ad9-a1a8-6b9cefd36168"_iid},
      {"SystemGeneralSettings",
       {"da603655-0a3f-4a58-b104-06a513243fd5"_iid},
       "792a619b-5a10-4249-a0c6-6778b1e0595e"_iid},
      {"FileSystemWatcher",
       {"8caca6ae-20f1-4a0a-bdc6-109160a991cb"_iid},
       "98125353-15e3-49db-a7ec-84308fe2be39"_iid},
  };
  for (const auto& [name, interfaces, cid] : classes) {
    SCOPED_TRACE(name);
    EXPECT_EQ(extension->RegisterDOMCI(name, registry.get()),
              NS_SUCCESS_LOSS_OF_INSIGNIFICANT_DATA);
    const Registration& registered = registry->mRegistered[name];
    EXPECT_EQ(registered.mInterfaces, interfaces);
    EXPECT_EQ(registered.mProto, interfaces[0]);
    EXPECT_EQ(registered.mFlags, 8u);
    EXPECT_TRUE(registered.mHasClassInterface);
    EXPECT_EQ(registered.mCID, cid);
  }
}

// ---- The machine

class MachineFileTest : public nsSystemTest {
 protected:
  MachineFileTest() { mOptions.mModules.push_back(NSModule); }
  void SetMachine(const char* aText) {
    mFile = WriteFile("machine.json", aText);
    mOptions.mFiles = {{"VorelMachine", mFile}};
  }
  std::string mFile;
};

TEST_F(MachineFileTest, MachineIsNotTheOneOfTheFile) {
  SetMachine(R"({"volumes": [{"letter": "E", "kind": "removable", "bus": "usb", "root": "/e"}]})");
  StartHost();
  ASSERT_EQ(mHost.StartProfile(), NS_OK);
  const auto manager = do_GetService<nsISystemManager>(kManager);
  ASSERT_TRUE(manager);
  nsCOMPtr<nsIArray> adapters;
  ASSERT_EQ(manager->GetAdaptersByIId(nsISystemAdapterStorage::kIID, adapters.getter_AddRefs()),
            NS_OK);
  EXPECT_EQ(NS_Elements<nsISystemAdapterStorage>(adapters.get()).size(), 1u);
}

TEST_F(MachineFileTest, ChangesOfTheFileDoNotHappen) {
  SetMachine(R"({"changes": [{"after": 0, "volumes":
      {"insert": [{"letter": "E", "kind": "removable", "bus": "usb", "root": "/e"}]}}]})");
  StartHost();
  const auto storage = [] {
    nsCOMPtr<nsIArray> adapters;
    EXPECT_EQ(do_GetService<nsISystemManager>(kManager)->GetAdaptersByIId(
                  nsISystemAdapterStorage::kIID, adapters.getter_AddRefs()),
              NS_OK);
    return NS_Elements<nsISystemAdapterStorage>(adapters.get()).size();
  };
  const auto manager = do_GetService<nsIObserver>(kManager);
  nsCOMPtr<nsIThread> main;
  ASSERT_EQ(do_GetService<nsIThreadManager>(NS_THREADMANAGER_CONTRACTID)
                ->GetMainThread(main.getter_AddRefs()),
            NS_OK);
  // Discovery finds the volume only after the timer of the script has had its turn.
  for (bool ran; storage() == 0;) {
    ASSERT_EQ(main->ProcessNextEvent(true, &ran), NS_OK);
    ASSERT_EQ(manager->Observe(nullptr, "profile-after-change", nullptr), NS_OK);
  }
  EXPECT_EQ(storage(), 1u);
}

TEST_F(MachineFileTest, UnreadableMachineIsReplacedByAnother) {
  SetMachine("{\n\"volumes\": 5}");
  (void)nsTestLog::Instance().Take();
  (void)mHost.Start(mOptions);
  const Strings errors = TakeLog("error system.machine: ");
  ASSERT_EQ(errors.size(), 1u);
  EXPECT_NE(errors[0].find(mFile + ":2: "), std::string::npos) << errors[0];
  EXPECT_FALSE(do_GetService<nsISystemManager>(kManager));
}

// ---- Slots

// Calls a slot as another compiler's code does: by its place in the table.
template <class... A>
nsresult CallSlot(nsISupports* aObject, size_t aSlot, A... aArguments) {
  using Operation = nsresult (*)(nsISupports*, A...);
  return reinterpret_cast<Operation>((*reinterpret_cast<void***>(aObject))[aSlot])(aObject,
                                                                                   aArguments...);
}

template <class I>
std::string TextOfSlot(const nsCOMPtr<I>& aObject, size_t aSlot) {
  nsString text;
  EXPECT_EQ(CallSlot<nsAString*>(aObject.get(), aSlot, &text), NS_OK);
  return NS_ToUtf8(text);
}

class SlotTest : public nsSystemTest {
 protected:
  void SetUp() override { StartHost(); }
};

TEST_F(SlotTest, OperationsHaveMoved) {
  nsCOMPtr<nsISystemDevice> device;
  ASSERT_EQ(NewSystemDevice(device.getter_AddRefs(), nsString(u"n"), nsString(u"l")), NS_OK);
  EXPECT_EQ(TextOfSlot(device, 3) + TextOfSlot(device, 4), "nl");
  EXPECT_EQ(CallSlot<void*>(device.get(), 5, nullptr), NS_ERROR_NOT_IMPLEMENTED);
  EXPECT_EQ((CallSlot<void*, void*>(device.get(), 6, nullptr, nullptr)), NS_ERROR_NOT_IMPLEMENTED);

  nsCOMPtr<nsISystemConnector> connector;
  ASSERT_EQ(NewSystemConnector(connector.getter_AddRefs(), nsString(u"n"), nsString(u"m"),
                               nsString(u"l"), nsString(u"t"), nullptr, nullptr, nullptr),
            NS_OK);
  EXPECT_EQ(TextOfSlot(connector, 3) + TextOfSlot(connector, 4) + TextOfSlot(connector, 5), "nml");
  nsString label(u"new");
  EXPECT_EQ(CallSlot<nsAString*>(connector.get(), 6, &label), NS_OK);
  EXPECT_EQ(TextOfSlot(connector, 5), "new");
  EXPECT_EQ(TextOfSlot(connector, 7), "");
  for (size_t slot : {8u, 9u, 10u})
    EXPECT_EQ(CallSlot<void*>(connector.get(), slot, nullptr), NS_ERROR_NOT_IMPLEMENTED);

  nsCOMPtr<nsISystemApplicationProfile> profile;
  ASSERT_EQ(NewSystemApplicationProfile(profile.getter_AddRefs(), nsString(u"n"), nsString(u"l"),
                                        nsString(u"d")),
            NS_OK);
  EXPECT_EQ(TextOfSlot(profile, 3) + TextOfSlot(profile, 4) + TextOfSlot(profile, 5), "ndl");

  const auto storage = MakeRefCounted<nsSystemAdapterStorage>();
  storage->mSysPath = u"s";
  storage->mLabel = u"l";
  storage->mDevice = device;
  const nsCOMPtr<nsISystemAdapterStorage> adapter = storage;
  EXPECT_EQ(TextOfSlot(adapter, 3) + TextOfSlot(adapter, 4), "sl");
  for (size_t slot : {5u, 6u}) {
    nsCOMPtr<nsIArray> array;
    EXPECT_EQ(CallSlot(adapter.get(), slot, array.getter_AddRefs()), NS_OK);
    EXPECT_TRUE(array);
  }
  nsCOMPtr<nsISystemDevice> got;
  EXPECT_EQ(CallSlot(adapter.get(), 7, got.getter_AddRefs()), NS_OK);
  EXPECT_EQ(got, device);
  nsISupports* directory = device.get();
  EXPECT_EQ(CallSlot(adapter.get(), 8, &directory), NS_OK);
  EXPECT_EQ(directory, nullptr);
}

TEST_F(SlotTest, ManagersOperationsHaveMoved) {
  const auto real = NewManager(mMachine);
  const nsCOMPtr<nsISystemManager> manager = real;
  ASSERT_EQ(real->AddAdapter(MakeRefCounted<nsTestAdapter>(u"a").get()), NS_OK);
  nsCOMPtr<nsIArray> all, storage, bindings;
  EXPECT_EQ(CallSlot(manager.get(), 3, all.getter_AddRefs()), NS_OK);
  EXPECT_EQ(NS_Elements<nsISystemAdapter>(all.get()).size(), 1u);
  const nsIID iid = nsISystemAdapterStorage::kIID;
  EXPECT_EQ(CallSlot(manager.get(), 4, &iid), NS_OK);
  EXPECT_EQ(CallSlot(manager.get(), 5, &iid, storage.getter_AddRefs()), NS_OK);
  EXPECT_TRUE(storage);
  const nsString uri(u"p");
  EXPECT_EQ(CallSlot<const nsAString*>(manager.get(), 6, &uri, bindings.getter_AddRefs()), NS_OK);
  EXPECT_FALSE(bindings);
  EXPECT_EQ((CallSlot<void*, void*>(manager.get(), 7, nullptr, nullptr)), NS_ERROR_NOT_IMPLEMENTED);

  const auto listener = MakeRefCounted<nsTestListener>();
  nsISystemAdapterListener* adapters = listener.get();
  nsISystemProfileBindingListener* profiles = listener.get();
  const auto value = [](nsresult aRv) { return static_cast<uint32_t>(aRv); };
  EXPECT_EQ(value(CallSlot(manager.get(), 8, adapters)), 0u);
  EXPECT_EQ(value(CallSlot(manager.get(), 9, adapters)), 1u);
  EXPECT_EQ(value(CallSlot(manager.get(), 10, profiles)), 1u);
  EXPECT_EQ(value(CallSlot(manager.get(), 11, profiles)), 1u);

  const nsCOMPtr<nsISystemAdapter> adapter = NS_Elements<nsISystemAdapter>(all.get())[0];
  for (size_t slot : {3u, 4u, 5u}) EXPECT_EQ(CallSlot(adapters, slot, adapter.get()), NS_OK);
  EXPECT_EQ(listener->mHeard,
            (Strings{"adapter added a", "adapter removed a", "adapter changed a"}));
}

// ---- Class information

TEST_F(SlotTest, ClassInformationNamesOtherInterfaces) {
  const auto listed = [](nsISupports* aObject, nsCID* aCID) {
    const auto info = do_QueryInterface<nsIClassInfo>(aObject);
    std::vector<nsIID> iids;
    uint32_t count = 0, flags = 0;
    nsIID** array = nullptr;
    EXPECT_EQ(info->GetInterfaces(&count, &array), NS_OK);
    for (uint32_t i = 0; i < count; ++i) {
      iids.push_back(*array[i]);
      NS_Free(array[i]);
    }
    NS_Free(array);
    EXPECT_EQ(info->GetFlags(&flags), NS_OK);
    EXPECT_EQ(flags, 8u);
    EXPECT_EQ(info->GetClassIDNoAlloc(aCID), NS_OK);
    return iids;
  };
  const auto storage = MakeRefCounted<nsSystemAdapterStorage>();
  nsCID cid;
  EXPECT_EQ(listed(static_cast<nsISystemAdapter*>(storage.get()), &cid),
            (std::vector{nsISystemAdapter::kIID, nsISystemAdapterStorage::kIID}));
  EXPECT_EQ(cid, "94b94625-ff11-444e-b647-a315a4144409"_iid);
  nsCOMPtr<nsISystemDevice> device;
  ASSERT_EQ(NewSystemDevice(device.getter_AddRefs(), nsString(), nsString()), NS_OK);
  EXPECT_EQ(listed(device.get(), &cid), std::vector{nsISystemDevice::kIID});
  EXPECT_EQ(cid, "dddc59c1-9fc3-49af-8c91-9c2c8d8a219b"_iid);

  const auto manager = NewManager(mMachine);
  EXPECT_EQ(listed(static_cast<nsISystemManager*>(manager.get()), &cid),
            std::vector{nsISystemManager::kIID});
  const auto info = do_QueryInterface<nsIClassInfo>(static_cast<nsISystemManager*>(manager.get()));
  nsCOMPtr<nsISupports> helper;
  EXPECT_EQ(info->GetHelperForLanguage(nsIProgrammingLanguage::PYTHON, helper.getter_AddRefs()),
            NS_OK);
  EXPECT_FALSE(helper);
  EXPECT_EQ(info->GetHelperForLanguage(nsIProgrammingLanguage::JAVASCRIPT, helper.getter_AddRefs()),
            NS_OK);
  char* name = nullptr;
  ASSERT_EQ(do_QueryInterface<nsIXPCScriptable>(helper)->GetClassName(&name), NS_OK);
  EXPECT_STREQ(name, "SystemManager");
  NS_Free(name);
}

}  // namespace
