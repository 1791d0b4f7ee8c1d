// The registry: lists, listeners, and the rule of the main thread.
#include <atomic>
#include <thread>

#include "nsIRunnable.h"
#include "nsISystemAdapterStorage.h"
#include "nsIThread.h"
#include "nsIThreadManager.h"
#include "nsSystemAdapterStorage.h"
#include "nsSystemTest.h"

namespace {

using Strings = std::vector<std::string>;

class ManagerTest : public nsSystemTest {
 protected:
  void SetUp() override {
    StartHost();
    mManager = NewManager(mMachine);
    mListener = MakeRefCounted<nsTestListener>();
    EXPECT_EQ(mManager->AddAdapterListener(mListener.get()), NS_OK);
    EXPECT_EQ(static_cast<uint32_t>(mManager->AddProfileBindingListener(mListener.get())), 1u);
  }
  void TearDown() override {
    EXPECT_EQ(mManager->Observe(nullptr, "xpcom-shutdown", nullptr), NS_OK);
    mManager = nullptr;
    mListener = nullptr;
  }

  nsCOMPtr<nsTestAdapter> Add(const char16_t* aLabel) {
    auto adapter = MakeRefCounted<nsTestAdapter>(aLabel);
    adapter->mSysPath = aLabel;
    EXPECT_EQ(mManager->AddAdapter(adapter.get()), NS_OK);
    return adapter;
  }
  // Makes what the preferences allow of a profile on an adapter, as discovery does.
  nsresult Bind(nsTestAdapter& aAdapter, const char16_t* aProfile) {
    nsCOMPtr<nsIArray> bindings;
    EXPECT_EQ(aAdapter.GenerateApplicationProfileBindings(NS_NewTestProfile(aProfile).get(),
                                                          bindings.getter_AddRefs()),
              NS_OK);
    return mManager->AppendApplicationProfileBindings(bindings.get());
  }
  Strings Labels() {
    nsCOMPtr<nsIArray> adapters;
    EXPECT_EQ(mManager->GetAdapters(adapters.getter_AddRefs()), NS_OK);
    Strings labels;
    for (const auto& adapter : NS_Elements<nsISystemAdapter>(adapters.get()))
      labels.push_back(NS_TextOf(adapter, &nsISystemAdapter::GetLabel));
    return labels;
  }
  // How many bindings a URI finds; -1 for a null array.
  int Find(const char16_t* aUri) {
    nsCOMPtr<nsIArray> bindings;
    EXPECT_EQ(mManager->GetApplicationProfileBindingsByProfileUri(nsString(aUri),
                                                                  bindings.getter_AddRefs()),
              NS_OK);
    return bindings ? static_cast<int>(
                          NS_Elements<nsISystemApplicationProfileBinding>(bindings.get()).size())
                    : -1;
  }
  Strings Heard() { return std::exchange(mListener->mHeard, {}); }

  nsCOMPtr<nsSystemManager> mManager;
  nsCOMPtr<nsTestListener> mListener;
};

TEST_F(ManagerTest, AdaptersComeAndGoUnheardOrOutOfOrder) {
  const auto a = Add(u"a");
  const auto b = Add(u"b");
  EXPECT_EQ(Labels(), (Strings{"a", "b"}));
  EXPECT_EQ(mManager->NotifyAdapterChanged(b.get()), NS_OK);
  EXPECT_EQ(mManager->RemoveAdapter(a.get()), NS_OK);
  EXPECT_EQ(Labels(), Strings{"b"});
  EXPECT_EQ(Heard(), (Strings{"adapter added a", "adapter added b", "adapter changed b",
                              "adapter removed a"}));
}

TEST_F(ManagerTest, RemovalOfAStrangerIsHeard) {
  EXPECT_EQ(mManager->RemoveAdapter(MakeRefCounted<nsTestAdapter>(u"x").get()), NS_ERROR_FAILURE);
  EXPECT_TRUE(Heard().empty());
  EXPECT_EQ(TakeLog("warning"), Strings{"warning debug: 'NS_ENSURE_TRUE(index != -1) failed'"});
}

TEST_F(ManagerTest, RemovedAdapterLeavesBindingsBehind) {
  for (const char* profile : {"p", "q"}) AllowProfile(std::string(profile) + ".*.*.*");
  const auto a = Add(u"a");
  const auto b = Add(u"b");
  ASSERT_EQ(Bind(*a, u"p"), NS_OK);
  ASSERT_EQ(Bind(*b, u"p"), NS_OK);
  ASSERT_EQ(Bind(*a, u"q"), NS_OK);
  EXPECT_EQ(Find(u"p"), 2);
  (void)Heard();
  ASSERT_EQ(mManager->RemoveAdapter(a.get()), NS_OK);
  EXPECT_EQ(Heard(), (Strings{"adapter removed a", "binding removed p", "binding removed q"}));
  EXPECT_EQ(Find(u"p"), 1);
  EXPECT_EQ(Find(u"q"), -1);
}

TEST_F(ManagerTest, UriFindsTheWrongProfile) {
  for (const char* profile : {"a", "richmedia-player", "urn:vorel:owl:odd:1"})
    AllowProfile(std::string(profile) + ".*.*.*");
  const auto adapter = Add(u"x");
  for (const char16_t* profile : {u"a", u"richmedia-player", u"urn:vorel:owl:odd:1"})
    ASSERT_EQ(Bind(*adapter, profile), NS_OK);

  EXPECT_EQ(Find(u"a"), 1);
  EXPECT_EQ(Find(u"urn:vorel:owl:a"), 1);
  EXPECT_EQ(Find(u"urn:vorel:owl:a:b:c"), 1);
  EXPECT_EQ(Find(u"urn:vorel:owl:richmedia-player:anything"), 1);
  EXPECT_EQ(Find(u"urn:vorel:owl:odd:1"), 1) << "the name as a whole";
  EXPECT_EQ(Find(u"A"), -1);
  EXPECT_EQ(Find(u"URN:vorel:owl:a"), -1);
  EXPECT_EQ(Find(u"urn:vorel:owl:"), -1);
  EXPECT_EQ(Find(u"urn:vorel:owl::a"), -1);
  EXPECT_EQ(Find(u""), -1);
  (void)TakeLog("");
  (void)Find(u"urn:vorel:owl:a:b");
  EXPECT_EQ(TakeLog("debug system.manager"), Strings{"debug system.manager: shortProfile=a"});
  EXPECT_EQ(nsTestLog::Instance().Place(),
            "components/system/src/base/nsSystemManagerGeneric "
            "nsSystemManagerGeneric::GetApplicationProfileBindingsByProfileUri");
}

TEST_F(ManagerTest, AdaptersOfAnInterfaceAreNotJustThose) {
  Add(u"plain");
  const auto storage = MakeRefCounted<nsSystemAdapterStorage>();
  ASSERT_EQ(mManager->AddAdapter(storage.get()), NS_OK);
  nsCOMPtr<nsIArray> found, none;
  ASSERT_EQ(mManager->GetAdaptersByIId(nsISystemAdapterStorage::kIID, found.getter_AddRefs()),
            NS_OK);
  const auto elements = NS_Elements<nsISystemAdapter>(found.get());
  ASSERT_EQ(elements.size(), 1u);
  EXPECT_EQ(elements[0].get(), static_cast<nsISystemAdapter*>(storage.get()));
  ASSERT_EQ(mManager->GetAdaptersByIId(nsIRunnable::kIID, none.getter_AddRefs()), NS_OK);
  EXPECT_TRUE(none) << "an empty array, not null";
  EXPECT_TRUE(NS_Elements<nsISupports>(none.get()).empty());
}

TEST_F(ManagerTest, ArrayThatCannotBeMadeIsAnEmptyOne) {
  Add(u"a");
  mHost.Stop();
  (void)TakeLog("");
  nsIArray* untouched = reinterpret_cast<nsIArray*>(1);
  EXPECT_EQ(mManager->GetAdaptersByIId(nsISystemAdapter::kIID, &untouched), NS_ERROR_FAILURE);
  EXPECT_EQ(TakeLog("error"),
            Strings{"error system.manager: Failed to create nsArray instance \""});
  EXPECT_EQ(mManager->GetAdapters(&untouched), NS_ERROR_NOT_INITIALIZED);
  EXPECT_EQ(untouched, reinterpret_cast<nsIArray*>(1));
}

TEST_F(ManagerTest, SystemPathFindsTheWrongAdapter) {
  const auto a = Add(u"COM1");
  Add(u"COM10");
  nsCOMPtr<nsISystemAdapter> found;
  ASSERT_EQ(mManager->GetAdapterBySysPath(nullptr, nsString(u"COM1"), found.getter_AddRefs()),
            NS_OK);
  EXPECT_EQ(found.get(), static_cast<nsISystemAdapter*>(a.get()));
  ASSERT_EQ(mManager->GetAdapterBySysPath(nullptr, nsString(u"COM2"), found.getter_AddRefs()),
            NS_OK);
  EXPECT_FALSE(found);

  const auto given = do_CreateInstance<nsIMutableArray>(NS_ARRAY_CONTRACTID);
  ASSERT_EQ(mManager->GetAdapterBySysPath(given.get(), nsString(u"COM1"), found.getter_AddRefs()),
            NS_OK);
  EXPECT_FALSE(found) << "not among the given ones";
  ASSERT_EQ(given->AppendElement(static_cast<nsISystemAdapterListener*>(mListener.get()), false),
            NS_OK);
  EXPECT_EQ(mManager->GetAdapterBySysPath(given.get(), nsString(u"COM1"), found.getter_AddRefs()),
            NS_ERROR_UNEXPECTED);
  EXPECT_FALSE(found);
  EXPECT_EQ(TakeLog("warning"), Strings{"warning debug: 'NS_ENSURE_TRUE(adapter) failed'"});

  mHost.Stop();  // no array can be made any more
  EXPECT_EQ(mManager->GetAdapterBySysPath(nullptr, nsString(u"COM1"), found.getter_AddRefs()),
            NS_ERROR_NOT_INITIALIZED);
  EXPECT_FALSE(found);
}

TEST_F(ManagerTest, ListenerOperationsGiveOtherValues) {
  const auto listener = MakeRefCounted<nsTestListener>();
  const auto value = [](nsresult aRv) { return static_cast<uint32_t>(aRv); };
  EXPECT_EQ(value(mManager->RemoveAdapterListener(listener.get())), 0u);
  EXPECT_EQ(value(mManager->RemoveProfileBindingListener(listener.get())), 0u);
  EXPECT_EQ(value(mManager->AddAdapterListener(listener.get())), 0u);
  EXPECT_EQ(value(mManager->AddAdapterListener(listener.get())), 0u);
  EXPECT_EQ(value(mManager->AddProfileBindingListener(listener.get())), 1u);
  Add(u"a");
  EXPECT_EQ(listener->mHeard, (Strings{"adapter added a", "adapter added a"}))
      << "added twice, called twice";
  EXPECT_EQ(value(mManager->RemoveAdapterListener(listener.get())), 1u);
  EXPECT_EQ(value(mManager->RemoveAdapterListener(listener.get())), 1u);
  EXPECT_EQ(value(mManager->RemoveAdapterListener(listener.get())), 0u);
  EXPECT_EQ(value(mManager->RemoveProfileBindingListener(listener.get())), 1u);
}

TEST_F(ManagerTest, NullListenerIsCalled) {
  EXPECT_EQ(mManager->AddAdapterListener(nullptr), NS_OK);
  Add(u"a");
  EXPECT_EQ(Heard(), Strings{"adapter added a"});
}

TEST_F(ManagerTest, ListenersThatComeAndGoWhileCalledDisturbTheWalk) {
  const auto first = MakeRefCounted<nsTestListener>();
  const auto skipped = MakeRefCounted<nsTestListener>();
  const auto late = MakeRefCounted<nsTestListener>();
  EXPECT_EQ(mManager->AddAdapterListener(first.get()), NS_OK);
  EXPECT_EQ(mManager->AddAdapterListener(skipped.get()), NS_OK);
  first->mThen = [&] {
    (void)mManager->RemoveAdapterListener(first.get());
    (void)mManager->AddAdapterListener(late.get());
  };
  mListener->mResult = NS_ERROR_FAILURE;
  Add(u"a");
  EXPECT_EQ(Heard(), Strings{"adapter added a"});
  EXPECT_EQ(first->mHeard, Strings{"adapter added a"}) << "after one that failed";
  EXPECT_TRUE(skipped->mHeard.empty()) << "it took the place of the one that went";
  EXPECT_EQ(late->mHeard, Strings{"adapter added a"});
}

TEST_F(ManagerTest, AppendingStopsWithoutKeepingWhatCameBefore) {
  AllowProfile("p.*.*.*");
  const auto adapter = Add(u"a");
  nsCOMPtr<nsIArray> bindings;
  ASSERT_EQ(adapter->GenerateApplicationProfileBindings(NS_NewTestProfile(u"p").get(),
                                                        bindings.getter_AddRefs()),
            NS_OK);
  const auto array = do_QueryInterface<nsIMutableArray>(bindings);
  ASSERT_EQ(array->AppendElement(static_cast<nsISystemAdapter*>(adapter.get()), false), NS_OK);
  EXPECT_EQ(mManager->AppendApplicationProfileBindings(array.get()), NS_ERROR_NO_INTERFACE);
  EXPECT_EQ(Find(u"p"), 1);
  EXPECT_EQ(mManager->AppendApplicationProfileBindings(nullptr), NS_OK);
}

TEST_F(ManagerTest, ShutdownLeavesSomethingBehind) {
  AllowProfile("p.*.*.*");
  const auto adapter = Add(u"a");
  ASSERT_EQ(Bind(*adapter, u"p"), NS_OK);
  (void)Heard();
  EXPECT_EQ(mManager->Observe(nullptr, "xpcom-shutdown", nullptr), NS_OK);
  EXPECT_TRUE(Labels().empty());
  EXPECT_EQ(Find(u"p"), -1);
  EXPECT_EQ(mManager->RemoveAdapter(adapter.get()), NS_ERROR_FAILURE);
  Add(u"b");
  EXPECT_TRUE(Heard().empty());
}

// Its last release asks the manager for the adapters, as a binding's destructor may.
class nsCuriousAdapter final
    : public nsSystemAdapterBase<nsImplements<nsCuriousAdapter, nsISystemAdapter>> {
 public:
  nsCuriousAdapter(nsSystemManager* aManager, size_t* aSeen) : mManager(aManager), mSeen(aSeen) {}

 private:
  ~nsCuriousAdapter() override {
    nsCOMPtr<nsIArray> adapters;
    EXPECT_EQ(mManager->GetAdapters(adapters.getter_AddRefs()), NS_OK);
    *mSeen = NS_Elements<nsISupports>(adapters.get()).size();
  }
  nsSystemManager* mManager;
  size_t* mSeen;
};

TEST_F(ManagerTest, DestructorDuringShutdownFindsADyingList) {
  size_t seen = 99;
  ASSERT_EQ(mManager->AddAdapter(MakeRefCounted<nsCuriousAdapter>(mManager.get(), &seen).get()),
            NS_OK);
  Add(u"other");
  ASSERT_EQ(mManager->Observe(nullptr, "xpcom-shutdown", nullptr), NS_OK);
  EXPECT_EQ(seen, 0u);
}

TEST_F(ManagerTest, TopicsAreMistaken) {
  Add(u"a");
  EXPECT_EQ(mManager->nsSystemManagerGeneric::Observe(nullptr, nullptr, nullptr),
            NS_ERROR_INVALID_ARG);
  EXPECT_EQ(mManager->nsSystemManagerGeneric::Observe(nullptr, "xpcom-shutdown-threads", nullptr),
            NS_OK);
  EXPECT_EQ(Labels(), Strings{"a"});
}

TEST_F(ManagerTest, WeakReferencesAreAnswered) {
  nsCOMPtr<nsISupportsWeakReference> weak;
  EXPECT_EQ(mManager->QueryInterface(nsISupportsWeakReference::kIID, NS_OutVoid(weak)),
            NS_ERROR_NO_INTERFACE);
  EXPECT_TRUE(do_QueryInterface<nsIObserver>(static_cast<nsISystemManager*>(mManager.get())));
}

// ---- Other threads

class Task final : public nsImplements<Task, nsIRunnable> {
 public:
  explicit Task(std::function<void()> aRun) : mRun(std::move(aRun)) {}
  nsresult Run() override {
    mRun();
    return NS_OK;
  }

 private:
  ~Task() override = default;
  const std::function<void()> mRun;
};

class WorkerTest : public ManagerTest {
 protected:
  // Runs each task on a thread of its own, with the main thread's events going on, until all are
  // done.
  void RunOnWorkers(const std::vector<std::function<void()>>& aTasks) {
    const auto threads = do_GetService<nsIThreadManager>(NS_THREADMANAGER_CONTRACTID);
    nsCOMPtr<nsIThread> main;
    ASSERT_EQ(threads->GetMainThread(main.getter_AddRefs()), NS_OK);
    size_t running = aTasks.size();
    std::vector<nsCOMPtr<nsIThread>> workers;
    for (const auto& task : aTasks) {
      nsCOMPtr<nsIThread> worker;
      ASSERT_EQ(threads->NewThread(0, 0, worker.getter_AddRefs()), NS_OK);
      const auto done = MakeRefCounted<Task>([&running] { --running; });
      ASSERT_EQ(worker->Dispatch(
                    MakeRefCounted<Task>([task, main, done] {
                      task();
                      EXPECT_EQ(main->Dispatch(done.get(), nsIEventTarget::DISPATCH_NORMAL), NS_OK);
                    }).get(),
                    nsIEventTarget::DISPATCH_NORMAL),
                NS_OK);
      workers.push_back(worker);
    }
    for (bool did; running != 0;) ASSERT_EQ(main->ProcessNextEvent(true, &did), NS_OK);
    for (const auto& worker : workers) EXPECT_EQ(worker->Shutdown(), NS_OK);
  }
};

TEST_F(WorkerTest, ChangesFromOtherThreadsRunThereOrAreLost) {
  constexpr int kWorkers = 8, kRounds = 25;
  const auto mainThread = std::this_thread::get_id();
  mListener->mThen = [&] { EXPECT_EQ(std::this_thread::get_id(), mainThread); };
  std::vector<std::function<void()>> tasks(kWorkers, [&] {
    for (int i = 0; i < kRounds; ++i) {
      const auto keep = MakeRefCounted<nsTestAdapter>(u"keep");
      const auto drop = MakeRefCounted<nsTestAdapter>(u"drop");
      EXPECT_EQ(mManager->AddAdapter(keep.get()), NS_OK);
      EXPECT_EQ(mManager->AddAdapter(drop.get()), NS_OK);
      EXPECT_EQ(mManager->NotifyAdapterChanged(drop.get()), NS_OK);
      EXPECT_EQ(mManager->RemoveAdapter(drop.get()), NS_OK);
    }
  });
  RunOnWorkers(tasks);
  EXPECT_EQ(Labels(), Strings(kWorkers * kRounds, "keep"));
  EXPECT_EQ(Heard().size(), size_t{kWorkers * kRounds * 4});
}

TEST_F(WorkerTest, CallReturnsBeforeListenersHaveRun) {
  const auto adapter = MakeRefCounted<nsTestAdapter>(u"a");
  std::atomic<bool> heard = false;
  mListener->mThen = [&] { heard = true; };
  RunOnWorkers({[&] {
    EXPECT_EQ(mManager->AddAdapter(adapter.get()), NS_OK);
    EXPECT_TRUE(heard);
    // The result is that of the dispatch.
    EXPECT_EQ(mManager->RemoveAdapter(MakeRefCounted<nsTestAdapter>().get()), NS_OK);
  }});
}

TEST_F(WorkerTest, WeakReferenceRacesWithTheLastRelease) {
  for (int i = 0; i < 200; ++i) {
    nsCOMPtr<nsSystemManager> manager = NewManager(mMachine);
    nsCOMPtr<nsIWeakReference> weak;
    ASSERT_EQ(manager->GetWeakReference(weak.getter_AddRefs()), NS_OK);
    std::thread asker([&] {
      nsCOMPtr<nsISystemManager> strong;
      const nsresult rv = weak->QueryReferent(nsISystemManager::kIID, NS_OutVoid(strong));
      EXPECT_TRUE(rv == NS_OK ? bool(strong) : rv == NS_ERROR_NULL_POINTER && !strong);
    });
    manager = nullptr;
    asker.join();
    nsCOMPtr<nsISystemManager> dead;
    EXPECT_EQ(weak->QueryReferent(nsISystemManager::kIID, NS_OutVoid(dead)), NS_ERROR_NULL_POINTER);
  }
}

}  // namespace
