// Classes, services and modules.
#include <future>
#include <latch>
#include <thread>

#include "nsIComponentManager.h"
#include "nsIComponentRegistrar.h"
#include "nsIFactory.h"
#include "nsIServiceManager.h"
#include "nsISimpleEnumerator.h"
#include "nsISupportsPRUint32.h"
#include "nsTestHost.h"

namespace {

constexpr nsCID kA = "00000000-0000-0000-0000-00000000000a"_iid;
constexpr nsCID kB = "00000000-0000-0000-0000-00000000000b"_iid;

class Thing final : public nsImplements<Thing, nsISupports> {
 public:
  explicit Thing(std::function<void()> aAtEnd = {}) : mAtEnd(std::move(aAtEnd)) {}

 private:
  ~Thing() override {
    if (mAtEnd) mAtEnd();
  }
  std::function<void()> mAtEnd;
};

nsresult MakeThing(const nsIID& aIID, void** aResult) {
  return MakeRefCounted<Thing>()->QueryInterface(aIID, aResult);
}

using Strings = std::vector<std::string>;

class Components : public nsHostTest {
 protected:
  nsCOMPtr<nsISupports> Service(const char* aContractID, nsresult* aRv = nullptr) {
    return do_GetService<nsISupports>(aContractID, aRv);
  }
  void StartWith(nsTestModule& aModule) {
    mOptions.mModules.push_back(&aModule.Record());
    Start();
  }
};

TEST_F(Components, ServiceIsMadeTwiceOrTooEarly) {
  int made = 0;
  nsTestModule module;
  module.Class(kA, "a", [&](const nsIID& aIID, void** aResult) {
    ++made;
    return MakeThing(aIID, aResult);
  });
  StartWith(module);
  EXPECT_EQ(0, made);
  const auto first = Service("a");
  ASSERT_TRUE(first);
  EXPECT_EQ(first, Service("a"));
  EXPECT_EQ(first, do_GetService<nsISupports>(kA));
  EXPECT_EQ(1, made);
  EXPECT_FALSE(first == do_CreateInstance<nsISupports>("a"));
}

TEST_F(Components, FailedServiceIsKeptAsFailed) {
  nsresult answer = NS_ERROR_OUT_OF_MEMORY;
  nsTestModule module;
  module.Class(kA, "a", [&](const nsIID& aIID, void** aResult) {
    return NS_FAILED(answer) ? answer : MakeThing(aIID, aResult);
  });
  StartWith(module);
  nsresult rv;
  EXPECT_FALSE(Service("a", &rv));
  EXPECT_EQ(NS_ERROR_OUT_OF_MEMORY, rv);
  answer = NS_OK;
  EXPECT_TRUE(Service("a"));
}

TEST_F(Components, ThreadsGetDifferentObjectsOfOneService) {
  std::atomic<int> made = 0;
  nsTestModule module;
  module.Class(kA, "a", [&](const nsIID& aIID, void** aResult) {
    ++made;
    return MakeThing(aIID, aResult);
  });
  StartWith(module);
  std::latch go(4);
  std::vector<std::future<nsCOMPtr<nsISupports>>> results;
  for (int i = 0; i < 4; ++i) {
    results.push_back(std::async(std::launch::async, [&] {
      go.arrive_and_wait();
      return Service("a");
    }));
  }
  const auto first = results[0].get();
  ASSERT_TRUE(first);
  for (size_t i = 1; i < results.size(); ++i) EXPECT_EQ(first, results[i].get());
  EXPECT_EQ(1, made);
}

TEST_F(Components, ServiceThatWantsItselfHangs) {
  nsresult inner = NS_OK;
  nsTestModule module;
  module.Class(kA, "a", [&](const nsIID& aIID, void** aResult) {
    (void)do_GetService<nsISupports>("b");
    return MakeThing(aIID, aResult);
  });
  module.Class(kB, "b", [&](const nsIID& aIID, void** aResult) {
    (void)do_GetService<nsISupports>("a", &inner);
    return MakeThing(aIID, aResult);
  });
  StartWith(module);
  EXPECT_TRUE(Service("a"));
  EXPECT_EQ(NS_ERROR_NOT_AVAILABLE, inner);
  EXPECT_EQ(Strings{"error: The making of service a asks for the service itself."},
            nsTestLog::Take());
}

TEST_F(Components, TwoThreadsWhoseServicesWantEachOtherHang) {
  std::latch both(2);
  std::atomic<int> refused = 0;
  const auto maker = [&](const char* aOther) {
    return [&both, &refused, aOther](const nsIID& aIID, void** aResult) {
      both.arrive_and_wait();
      nsresult rv;
      (void)do_GetService<nsISupports>(aOther, &rv);
      if (rv == NS_ERROR_NOT_AVAILABLE) ++refused;
      return MakeThing(aIID, aResult);
    };
  };
  nsTestModule module;
  module.Class(kA, "a", maker("b")).Class(kB, "b", maker("a"));
  StartWith(module);
  auto b = std::async(std::launch::async, [&] { return Service("b"); });
  EXPECT_TRUE(Service("a"));
  EXPECT_TRUE(b.get());
  EXPECT_EQ(1, refused);
}

std::vector<std::string>* gEvents;

TEST_F(Components, ModuleStepsRunAtWrongTimes) {
  Strings events;
  gEvents = &events;
  nsTestModule module;
  module.Class(kA, "a", [&](const nsIID& aIID, void** aResult) {
    events.push_back("construct");
    return MakeRefCounted<Thing>([&] { events.push_back("destroy"); })
        ->QueryInterface(aIID, aResult);
  });
  module.Record().loadProc = [] {
    gEvents->push_back("load");
    return NS_OK;
  };
  module.Record().unloadProc = [] { gEvents->push_back("unload"); };
  StartWith(module);
  const auto observer = MakeRefCounted<nsTestObserver>(
      [&](nsISupports*, std::string aTopic, std::string) { events.push_back(aTopic); });
  const auto service = do_GetService<nsIObserverService>(NS_OBSERVERSERVICE_CONTRACTID);
  ASSERT_EQ(NS_OK, service->AddObserver(observer.get(), "xpcom-shutdown-loaders", false));
  EXPECT_TRUE(events.empty());
  (void)Service("a");
  (void)do_CreateInstance<nsISupports>("a");
  mHost.Stop();
  EXPECT_EQ((Strings{"load", "construct", "construct", "destroy", "destroy",
                     "xpcom-shutdown-loaders", "unload"}),
            events);
}

TEST_F(Components, LoadStepRunsOffTheMainThread) {
  static std::thread::id sThread;
  nsTestModule module;
  module.Class(kA, "a", MakeThing);
  module.Record().loadProc = [] {
    sThread = std::this_thread::get_id();
    return NS_OK;
  };
  StartWith(module);
  auto service = std::async(std::launch::async, [&] { return Service("a"); });
  while (service.wait_for(std::chrono::milliseconds(1)) != std::future_status::ready) RunEvents();
  EXPECT_TRUE(service.get());
  EXPECT_EQ(std::this_thread::get_id(), sThread);
}

TEST_F(Components, MainThreadWaitsForAServiceThatWaitsForTheMainThread) {
  std::latch making(1);
  nsTestModule loaded, waiting;
  loaded.Class(kA, "a", MakeThing);
  loaded.Record().loadProc = [] { return NS_OK; };
  waiting.Class(kB, "b", [&](const nsIID& aIID, void** aResult) {
    making.count_down();
    (void)do_GetService<nsISupports>("a");  // its load step needs the main thread
    return MakeThing(aIID, aResult);
  });
  mOptions.mModules.push_back(&loaded.Record());
  StartWith(waiting);
  auto b = std::async(std::launch::async, [&] { return Service("b"); });
  making.wait();
  const auto mine = Service("b");  // before the other is waited for
  EXPECT_EQ(mine, b.get());
}

TEST_F(Components, FailedLoadStepIsTriedAgain) {
  static int sLoads;
  sLoads = 0;
  nsTestModule module;
  module.Class(kA, "a", MakeThing);
  module.Record().loadProc = [] {
    ++sLoads;
    return NS_ERROR_UNEXPECTED;
  };
  static bool sUnloaded;
  sUnloaded = false;
  module.Record().unloadProc = [] { sUnloaded = true; };
  StartWith(module);
  nsresult rv;
  for (int i = 0; i < 2; ++i) {
    EXPECT_FALSE(Service("a", &rv));
    EXPECT_EQ(NS_ERROR_FACTORY_NOT_LOADED, rv);
  }
  EXPECT_EQ(1, sLoads);
  EXPECT_EQ(Strings{"error: The load step of module in memory failed: NS_ERROR_UNEXPECTED"},
            nsTestLog::Take());
  mHost.Stop();
  EXPECT_FALSE(sUnloaded);
}

TEST_F(Components, ModuleOfAnotherVersionIsUsed) {
  nsTestModule module;
  module.Class(kA, "a", MakeThing);
  module.Record().mVersion = 15;
  StartWith(module);
  nsresult rv;
  EXPECT_FALSE(Service("a", &rv));
  EXPECT_EQ(NS_ERROR_FACTORY_NOT_REGISTERED, rv);
  EXPECT_EQ(Strings{"error: module in memory has a module record of version 15, not 14"},
            nsTestLog::Take());
}

TEST_F(Components, SecondClassOfOneIdTakesTheFirstsPlace) {
  nsTestModule first, second;
  first.Class(kA, "a", MakeThing);
  second.Class(kA, "b", [](const nsIID&, void**) { return NS_ERROR_FAILURE; });
  mOptions.mModules.push_back(&first.Record());
  StartWith(second);
  EXPECT_TRUE(Service("a"));
  EXPECT_EQ(1u, nsTestLog::Take().size());
}

TEST_F(Components, ManagersAnswerAfterTheEnd) {
  Start();
  nsCOMPtr<nsIServiceManager> manager;
  ASSERT_EQ(NS_OK, NS_GetServiceManager(manager.getter_AddRefs()));
  EXPECT_TRUE(do_QueryInterface<nsIComponentManager>(manager));
  EXPECT_TRUE(do_QueryInterface<nsIComponentRegistrar>(manager));
  mHost.Stop();
  nsCOMPtr<nsISupports> service;
  EXPECT_EQ(NS_ERROR_FACTORY_NOT_REGISTERED,
            manager->GetServiceByContractID(NS_OBSERVERSERVICE_CONTRACTID, nsISupports::kIID,
                                            NS_OutVoid(service)));
  EXPECT_EQ(NS_ERROR_NOT_INITIALIZED, NS_GetServiceManager(manager.getter_AddRefs()));
}

TEST_F(Components, ServiceReleasedAtTheEndBringsServicesBack) {
  nsresult late = NS_OK;
  nsTestModule module;
  module.Class(kA, "a", [&](const nsIID& aIID, void** aResult) {
    return MakeRefCounted<Thing>([&] { (void)do_GetService<nsISupports>("b", &late); })
        ->QueryInterface(aIID, aResult);
  });
  module.Class(kB, "b", MakeThing);
  StartWith(module);
  EXPECT_TRUE(Service("a"));
  mHost.Stop();
  EXPECT_EQ(NS_ERROR_UNEXPECTED, late);
}

TEST_F(Components, FactoriesRegisteredByHandAreNotFound) {
  class Factory final : public nsImplements<Factory, nsIFactory> {
   public:
    nsresult CreateInstance(nsISupports*, const nsIID& aIID, void** aResult) override {
      return MakeThing(aIID, aResult);
    }
    nsresult LockFactory(bool) override { return NS_OK; }
    ~Factory() override = default;
  };
  Start();
  nsCOMPtr<nsIComponentRegistrar> registrar;
  ASSERT_EQ(NS_OK, NS_GetComponentRegistrar(registrar.getter_AddRefs()));
  const auto factory = MakeRefCounted<Factory>();
  ASSERT_EQ(NS_OK, registrar->RegisterFactory(kA, "A", "a", factory.get()));
  EXPECT_EQ(NS_ERROR_FACTORY_EXISTS, registrar->RegisterFactory(kA, "A", "a", factory.get()));
  EXPECT_TRUE(do_CreateInstance<nsISupports>("a"));
  char* contract = nullptr;
  ASSERT_EQ(NS_OK, registrar->CIDToContractID(kA, &contract));
  EXPECT_STREQ("a", contract);
  NS_Free(contract);
  EXPECT_EQ(NS_OK, registrar->UnregisterFactory(kA, factory.get()));
  nsresult rv;
  EXPECT_FALSE(do_CreateInstance<nsISupports>("a", &rv));
  EXPECT_EQ(NS_ERROR_FACTORY_NOT_REGISTERED, rv);
}

}  // namespace
