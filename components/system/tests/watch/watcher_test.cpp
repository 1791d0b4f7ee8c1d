// The watcher and the service over it, on simulated files and virtual time. The only thread of its
// own is the one that waits for changes; the tests wait until it has handed on what there is.
#include <algorithm>
#include <barrier>
#include <chrono>
#include <thread>

#include "nsHostTime.h"
#include "nsIObserverService.h"
#include "nsSystemFileSystemWatcherService.h"
#include "nsVorelMethodCaller.h"
#include "nsWatchTest.h"

namespace {

using Lines = std::vector<std::string>;

constexpr char kRootURL[] = "file:///data";

class WatcherTest : public nsSystemTest {
 protected:
  WatcherTest() {
    mOptions.mModules.push_back(&vorel::test::kPoolModule);
    mOptions.mModules.push_back(&vorel::test::kWatcherModule);
    vorel::test::gWatchPlatform = mMachine.Platform();
  }
  void SetUp() override {
    StartHost();
    NS_UseVirtualTime(true);
    mMachine.mFiles->MakeDirectory(u"/data");
  }
  void TearDown() override {
    if (mWatcher) (void)mWatcher->StopWatching();
    mWatcher = nullptr;
    mMachine.mDirectoryChanges->AwaitDelivery();
    NS_RunEvents();
    nsManualPool::Instance().Clear();
    NS_UseVirtualTime(false);
    vorel::test::gWatchPlatform = nullptr;
  }

  void Start() {
    mWatcher = MakeRefCounted<nsSystemFileSystemWatcher>(mMachine.Platform());
    ASSERT_EQ(mWatcher->Init(mListener.get(), nsCString(kRootURL), true), NS_OK);
    ASSERT_EQ(mWatcher->StartWatching(), NS_OK);
  }
  /// The first walk, and its report.
  static void Walk() {
    nsManualPool::Instance().Run();
    NS_RunEvents();
  }
  void StartAndWalk() {
    Start();
    Walk();
    EXPECT_EQ(mListener->Take(), Lines{"started"});
  }
  /// What has changed reaches the listener.
  void Settle() {
    mMachine.mDirectoryChanges->AwaitDelivery();
    NS_AdvanceTime(10);
    nsManualPool::Instance().Run();
    NS_RunEvents();
  }
  bool IsWatching() {
    bool isWatching = false;
    EXPECT_EQ(mWatcher->GetIsWatching(&isWatching), NS_OK);
    return isWatching;
  }

  nsSimulatedFiles& Files() { return *mMachine.mFiles; }

  nsCOMPtr<nsWatchListener> mListener = MakeRefCounted<nsWatchListener>();
  nsCOMPtr<nsSystemFileSystemWatcher> mWatcher;
};

TEST_F(WatcherTest, WatchStandsBeforeTheFirstWalkHasEnded) {
  Start();
  EXPECT_FALSE(IsWatching());
  EXPECT_EQ(mListener->Take(), Lines());
  Walk();
  EXPECT_TRUE(IsWatching());
  EXPECT_EQ(mListener->Take(), Lines{"started"});
  EXPECT_EQ(mWatcher->StartWatching(), NS_OK);
  EXPECT_EQ(TakeLog("warning "), Lines{"warning system.fileWatcher: Is already watching"});
}

TEST_F(WatcherTest, ReportsComeTooEarlyOrByAnotherPath) {
  Files().MakeDirectory(u"/data/a");
  StartAndWalk();
  Files().Write(u"/data/a/b.txt");
  mMachine.mDirectoryChanges->AwaitDelivery();
  NS_AdvanceTime(9);
  EXPECT_EQ(nsManualPool::Instance().Run(), 0u);
  NS_AdvanceTime(1);
  EXPECT_EQ(nsManualPool::Instance().Run(), 1u);
  EXPECT_EQ(mListener->Take(), Lines{"added a/b.txt"});
  Files().MakeDirectory(u"/data/c");
  Settle();
  Files().Rename(u"/data/a/b.txt", u"/data/c/d.txt");
  Settle();
  Files().Remove(u"/data/c");
  Settle();
  EXPECT_EQ(mListener->Take(), (Lines{"changed a/", "added c/", "moved a/b.txt > c/d.txt",
                                      "changed a/", "removed c/d.txt", "removed c/"}));
}

TEST_F(WatcherTest, EachChangeOfABurstCostsALook) {
  StartAndWalk();
  for (int i = 0; i < 1000; ++i) {
    Files().Write(u"/data/" + NS_ToUtf16(std::to_string(i)));
    if (i % 100 == 0) {
      mMachine.mDirectoryChanges->AwaitDelivery();
      NS_AdvanceTime(9);
    }
  }
  const uint64_t before = mMachine.mCalls->Count("Files");
  Settle();
  EXPECT_EQ(mMachine.mCalls->Count("Files") - before, 1u + 1000u) << "one listing, and its entries";
  EXPECT_EQ(mListener->Take().size(), 1000u);
}

TEST_F(WatcherTest, NamesThatComeDuringAnUpdateAreLost) {
  StartAndWalk();
  Files().Write(u"/data/a");
  mMachine.mDirectoryChanges->AwaitDelivery();
  NS_AdvanceTime(10);  // the update waits in the pool
  Files().Write(u"/data/b");
  mMachine.mDirectoryChanges->AwaitDelivery();
  // One that comes after the disk was read has no timer, and nothing else changes.
  mListener->mThen = [this](const std::string& aLine) {
    if (aLine != "added b") return;
    Files().Write(u"/data/c");
    mMachine.mDirectoryChanges->AwaitDelivery();
  };
  nsManualPool::Instance().Run();
  EXPECT_EQ(mListener->Take(), (Lines{"added a", "added b"}));
  Settle();
  EXPECT_EQ(mListener->Take(), Lines{"added c"});
}

TEST_F(WatcherTest, HardLinksWaitForAnotherChange) {
  constexpr int kLinks = 300;
  StartAndWalk();
  Files().Write(u"/data/0");
  for (int i = 1; i < kLinks; ++i)
    Files().Link(u"/data/0", u"/data/" + NS_ToUtf16(std::to_string(i)));
  Settle();
  Settle();
  EXPECT_EQ(mListener->Take().size(), size_t{kLinks});
  EXPECT_EQ(TakeLog("error ").size(), 1u);
  for (int i = 0; i < kLinks; ++i) Files().Remove(u"/data/" + NS_ToUtf16(std::to_string(i)));
  Settle();
  Settle();
  EXPECT_EQ(mListener->Take().size(), size_t{kLinks});
}

TEST_F(WatcherTest, LinkInANewDirectoryWaitsForAnotherChange) {
  StartAndWalk();
  Files().MakeDirectory(u"/data/new/below");
  Files().MakeOther(u"/data/new/below/link", nsPlatformFiles::kSymlink);
  Settle();
  Settle();
  EXPECT_EQ(mListener->Take(), (Lines{"added new/below/", "added new/", "added new/below/link"}));
}

TEST_F(WatcherTest, TreeThatTakesAnothersPlaceIsSeenInItsUpperLevelOnly) {
  for (const char16_t* name : {u"/data/a/below", u"/elsewhere/below"}) Files().MakeDirectory(name);
  Files().Write(u"/elsewhere/below/file");
  for (const char16_t* name : {u"/data/a", u"/data/a/below", u"/elsewhere", u"/elsewhere/below"})
    Files().SetLastModify(name, 7);
  StartAndWalk();
  // As where a volume is mounted.
  mMachine.mDirectoryChanges->AwaitDelivery();
  Files().Rename(u"/data/a", u"/a");
  Files().Rename(u"/elsewhere", u"/data/a");
  Settle();
  Settle();
  EXPECT_EQ(mListener->Take(), Lines{"added a/below/file"});
}

TEST_F(WatcherTest, RemovedTreeWarns) {
  Files().MakeDirectory(u"/data/a/b/c");
  StartAndWalk();
  for (const char16_t* name : {u"/data/a/b/c", u"/data/a/b", u"/data/a"}) Files().Remove(name);
  Settle();
  EXPECT_EQ(mListener->Take(), (Lines{"removed a/b/c/", "removed a/b/", "removed a/"}));
  EXPECT_EQ(TakeLog("warning "), Lines());
}

TEST_F(WatcherTest, MissingRootIsNotTold) {
  Files().Remove(u"/data");
  Start();
  Walk();
  EXPECT_EQ(mListener->Take(), Lines{"error 0 /data"});
  EXPECT_FALSE(IsWatching());
}

TEST_F(WatcherTest, RootThatHasGoneIsNotTold) {
  StartAndWalk();
  mMachine.mDirectoryChanges->CompleteEmpty(NS_ERROR_FILE_NOT_FOUND);
  mMachine.mDirectoryChanges->AwaitDelivery();
  NS_RunEvents();
  EXPECT_EQ(mListener->Take(), Lines{"error 3 /data"});
  EXPECT_EQ(mWatcher->StopWatching(), NS_OK);
  EXPECT_EQ(mListener->Take(), Lines{"stopped"});
}

TEST_F(WatcherTest, HostIsTakenForAPartOfThePath) {
  const auto watcher = MakeRefCounted<nsSystemFileSystemWatcher>(mMachine.Platform());
  for (const char* url : {"file://server/data", "FILE://server", "file://server?"})
    EXPECT_EQ(watcher->Init(mListener.get(), nsCString(url), true), NS_ERROR_MALFORMED_URI) << url;
  for (const char* url : {"file:///data", "file://LocalHost/data", "file:/data"})
    EXPECT_EQ(watcher->Init(mListener.get(), nsCString(url), true), NS_OK) << url;
}

TEST_F(WatcherTest, RootThatCantBeWatchedCountsAsWatched) {
  mMachine.mCalls->Fail({.mPort = "DirectoryChanges", .mMethod = "Open"});
  Start();
  Walk();
  EXPECT_EQ(mListener->Take(), Lines());
  EXPECT_FALSE(IsWatching());
  EXPECT_EQ(
      TakeLog("warning "),
      Lines{"warning debug: 'NS_ENSURE_TRUE(mRootDirHandle != INVALID_HANDLE_VALUE) failed'"});
}

TEST_F(WatcherTest, BrokenChainOfReadsCrashesOrIsPickedUp) {
  StartAndWalk();
  mMachine.mDirectoryChanges->CompleteEmpty(NS_OK);
  mMachine.mDirectoryChanges->AwaitDelivery();
  EXPECT_TRUE(IsWatching());
  EXPECT_EQ(mWatcher->StopWatching(), NS_OK);
  EXPECT_EQ(mListener->Take(), Lines{"stopped"});
}

TEST_F(WatcherTest, ReadThatCantBeIssuedIsNotLogged) {
  mMachine.mCalls->Fail({.mPort = "DirectoryChanges", .mMethod = "Read"});
  StartAndWalk();
  mMachine.mDirectoryChanges->AwaitDelivery();
  EXPECT_EQ(TakeLog("error "),
            Lines{"error system.fileWatcher: ERROR: Could not ReadDirectoryChangesW()"});
  EXPECT_TRUE(IsWatching());
}

TEST_F(WatcherTest, StoppedWatcherReportsOrLives) {
  StartAndWalk();
  nsCOMPtr<nsIWeakReference> weak;
  ASSERT_EQ(mWatcher->GetWeakReference(weak.getter_AddRefs()), NS_OK);
  Files().Write(u"/data/file");
  mMachine.mDirectoryChanges->AwaitDelivery();
  EXPECT_EQ(mWatcher->StopWatching(), NS_OK);
  EXPECT_EQ(mWatcher->StopWatching(), NS_OK);
  Settle();
  EXPECT_EQ(mListener->Take(), Lines{"stopped"});
  mWatcher = nullptr;
  const auto isAlive = [&] {
    nsCOMPtr<nsISupports> alive;
    return NS_SUCCEEDED(weak->QueryReferent(nsISupports::kIID, NS_OutVoid(alive)));
  };
  // The thread takes leave through the main thread.
  EXPECT_TRUE(NS_RunEventsUntil([&] { return !isAlive(); })) << "a reference is left";
}

TEST_F(WatcherTest, EndOfAnEarlierWatchWaitsForTheNewOne) {
  StartAndWalk();
  EXPECT_EQ(mWatcher->StopWatching(), NS_OK);
  EXPECT_EQ(mWatcher->StartWatching(), NS_OK);
  Walk();
  EXPECT_TRUE(IsWatching());
  EXPECT_EQ(mListener->Take(), (Lines{"stopped", "started"}));
}

TEST_F(WatcherTest, WatcherOutlivesTheApplication) {
  StartAndWalk();
  ASSERT_EQ(do_GetService<nsIObserverService>(NS_OBSERVERSERVICE_CONTRACTID)
                ->NotifyObservers(nullptr, "quit-application", nullptr),
            NS_OK);
  EXPECT_EQ(mListener->Take(), Lines{"stopped"});
}

TEST_F(WatcherTest, WalkThatOutlivesTheApplicationStartsAWatch) {
  Files().MakeDirectory(u"/data/a/b");
  Start();
  nsHost::Current()->Quit();
  const uint64_t before = mMachine.mCalls->Count();
  Walk();
  EXPECT_EQ(mListener->Take(), Lines());
  EXPECT_FALSE(IsWatching());
  EXPECT_EQ(mMachine.mCalls->Count(), before) << "it walks on";
  const auto late = MakeRefCounted<nsSystemFileSystemWatcher>(mMachine.Platform());
  (void)late->Init(mListener.get(), nsCString(kRootURL), true);
  EXPECT_EQ(late->StartWatching(), NS_ERROR_ILLEGAL_DURING_SHUTDOWN);
  EXPECT_EQ(nsManualPool::Instance().Run(), 0u);
}

TEST_F(WatcherTest, PlainListenerHearsOfAMoveHere) {
  const auto plain = MakeRefCounted<nsPlainWatchListener>();
  Files().Write(u"/data/a");
  mWatcher = MakeRefCounted<nsSystemFileSystemWatcher>(mMachine.Platform());
  ASSERT_EQ(mWatcher->Init(plain.get(), nsCString(kRootURL), true), NS_OK);
  ASSERT_EQ(mWatcher->StartWatching(), NS_OK);
  Walk();
  Files().Rename(u"/data/a", u"/data/b");
  Settle();
  EXPECT_EQ(plain->Take(), Lines{"started"});
}

TEST_F(WatcherTest, WrongUseIsAccepted) {
  const auto watcher = MakeRefCounted<nsSystemFileSystemWatcher>(mMachine.Platform());
  EXPECT_EQ(watcher->Init(nullptr, nsCString(kRootURL), true), NS_ERROR_NULL_POINTER);
  EXPECT_EQ(watcher->GetIsWatching(nullptr), NS_ERROR_NULL_POINTER);
  EXPECT_EQ(watcher->GetIsSupported(nullptr), NS_ERROR_NULL_POINTER);
  EXPECT_EQ(watcher->OnTreeError(), NS_OK) << "without a listener";
  EXPECT_EQ(TakeLog("warning "), (Lines{"warning debug: 'NS_ENSURE_TRUE(aListener) failed'",
                                        "warning debug: 'NS_ENSURE_TRUE(aIsWatching) failed'",
                                        "warning debug: 'NS_ENSURE_TRUE(aIsSupported) failed'"}));
}

// ---- The service

class WatcherServiceTest : public WatcherTest {
 protected:
  const nsCString mURL{kRootURL};
  nsCOMPtr<nsSystemFileSystemWatcherService> mService =
      MakeRefCounted<nsSystemFileSystemWatcherService>();
};

TEST_F(WatcherServiceTest, SecondClientGetsAWatcherOfItsOwn) {
  const auto late = MakeRefCounted<nsWatchListener>();
  const auto early = MakeRefCounted<nsWatchListener>();
  ASSERT_EQ(mService->StartWatching(mURL, mListener.get()), NS_OK);
  ASSERT_EQ(mService->StartWatching(nsCString("file:///data/"), early.get()), NS_OK);
  EXPECT_EQ(early->Take(), Lines());
  Walk();
  EXPECT_EQ(mListener->Take(), Lines{"started"});
  EXPECT_EQ(early->Take(), Lines{"started"});
  const uint64_t calls = mMachine.mCalls->Count();
  ASSERT_EQ(mService->StartWatching(mURL, late.get()), NS_OK);
  EXPECT_EQ(late->Take(), Lines{"started"}) << "before StartWatching returns";
  EXPECT_EQ(nsManualPool::Instance().Run(), 0u);
  EXPECT_EQ(mMachine.mCalls->Count(), calls) << "another walk";

  Lines order;
  mListener->mThen = [&](const std::string& aLine) { order.push_back("first " + aLine); };
  late->mThen = [&](const std::string& aLine) { order.push_back("last " + aLine); };
  Files().Write(u"/data/file");
  Settle();
  EXPECT_EQ(order, (Lines{"last added file", "first added file"}));

  EXPECT_EQ(mService->StopWatching(mURL, mListener.get()), NS_OK);
  EXPECT_EQ(mService->StopWatching(mURL, early.get()), NS_OK);
  Files().Remove(u"/data/file");
  Settle();
  EXPECT_EQ(late->Take(), (Lines{"added file", "removed file"}));
  EXPECT_EQ(mListener->Take(), (Lines{"added file", "stopped"}));
  EXPECT_EQ(mService->StopWatching(mURL, late.get()), NS_OK);
  EXPECT_EQ(late->Take(), Lines{"stopped"});
}

TEST_F(WatcherServiceTest, ClientThatComesAfterTheRootHasGoneHearsNothing) {
  const auto late = MakeRefCounted<nsWatchListener>();
  Files().Remove(u"/data");
  ASSERT_EQ(mService->StartWatching(mURL, mListener.get()), NS_OK);
  Walk();
  EXPECT_EQ(mListener->Take(), Lines{"error 0 /data"});
  Files().MakeDirectory(u"/data");
  ASSERT_EQ(mService->StartWatching(mURL, late.get()), NS_OK);
  Walk();
  EXPECT_EQ(late->Take(), Lines{"started"});
  mMachine.mDirectoryChanges->CompleteEmpty(NS_ERROR_FILE_NOT_FOUND);
  mMachine.mDirectoryChanges->AwaitDelivery();
  NS_RunEvents();
  EXPECT_EQ(late->Take(), Lines{"error 3 /data"});
  const auto third = MakeRefCounted<nsWatchListener>();
  ASSERT_EQ(mService->StartWatching(mURL, third.get()), NS_OK);
  Walk();
  EXPECT_EQ(mService->StopWatching(mURL, mListener.get()), NS_OK);
  EXPECT_EQ(mService->StopWatching(mURL, late.get()), NS_OK);
  EXPECT_EQ(late->Take(), Lines{"stopped"});
  Files().Write(u"/data/file");
  Settle();
  EXPECT_EQ(third->Take(), (Lines{"started", "added file"})) << "it is counted with the others";
  EXPECT_EQ(mService->StopWatching(mURL, third.get()), NS_OK);
  EXPECT_EQ(mListener->Take(), Lines());
}

TEST_F(WatcherServiceTest, PlainClientMissesAMove) {
  const auto plain = MakeRefCounted<nsPlainWatchListener>();
  Files().Write(u"/data/a");
  ASSERT_EQ(mService->StartWatching(mURL, plain.get()), NS_OK);
  ASSERT_EQ(mService->StartWatching(mURL, mListener.get()), NS_OK);
  Walk();
  Files().Rename(u"/data/a", u"/data/b");
  Settle();
  EXPECT_EQ(plain->Take(), (Lines{"started", "removed a", "added b"}));
  EXPECT_EQ(mListener->Take(), (Lines{"started", "moved a > b"}));
  EXPECT_EQ(mService->StopWatching(mURL, plain.get()), NS_OK);
  EXPECT_EQ(mService->StopWatching(mURL, mListener.get()), NS_OK);
}

TEST_F(WatcherServiceTest, UnknownClientOrPathIsAnError) {
  EXPECT_EQ(mService->StopWatching(mURL, mListener.get()), NS_OK);
  EXPECT_NE(mService->StartWatching(nsCString("http://data/"), mListener.get()), NS_OK);
  const auto stranger = MakeRefCounted<nsWatchListener>();
  ASSERT_EQ(mService->StartWatching(mURL, mListener.get()), NS_OK);
  Walk();
  EXPECT_EQ(mService->StopWatching(mURL, stranger.get()), NS_OK);
  EXPECT_EQ(stranger->Take(), Lines());
  // The count has fallen: the watch is over, and its client is told.
  EXPECT_EQ(mListener->Take(), (Lines{"started", "stopped"}));
}

TEST_F(WatcherServiceTest, ClientThatStopsFromWithinAReportLocksUp) {
  ASSERT_EQ(mService->StartWatching(mURL, mListener.get()), NS_OK);
  Walk();
  mListener->mThen = [this](const std::string& aLine) {
    if (aLine == "added a") (void)mService->StopWatching(mURL, mListener.get());
  };
  Files().Write(u"/data/a");
  Files().Write(u"/data/b");
  Settle();
  const auto heard = mListener->Take();
  ASSERT_FALSE(heard.empty());
  EXPECT_EQ(heard.front(), "started");
  EXPECT_EQ(heard.back(), "stopped") << "called after its end";
}

TEST_F(WatcherServiceTest, ThreadsThatStartWatchesFromNoticesWaitForEachOther) {
  nsCOMPtr<nsIThread> thread;
  ASSERT_EQ(do_GetService<nsIThreadManager>(NS_THREADMANAGER_CONTRACTID)
                ->NewThread(0, 0, thread.getter_AddRefs()),
            NS_OK);
  Files().MakeDirectory(u"/other");
  const nsCString otherURL("file:///other");
  const auto other = MakeRefCounted<nsWatchListener>(), third = MakeRefCounted<nsWatchListener>();
  const auto onThread = [&](const nsCString& aURL, nsWatchListener* aListener, uint32_t aFlags) {
    ASSERT_EQ(thread->Dispatch(NS_NewRunnableMethodCaller<vorel::threads::eStrong>(
                                   mService.get(), &nsSystemFileSystemWatcherService::StartWatching,
                                   aURL, aListener)
                                   .get(),
                               aFlags),
              NS_OK);
  };
  // Both are being told while both ask for the other one's root.
  std::barrier<> both(2);
  const auto ask = [&](const nsCString& aURL) {
    both.arrive_and_wait();
    EXPECT_EQ(mService->StartWatching(aURL, third.get()), NS_ERROR_IN_PROGRESS);
    both.arrive_and_wait();
  };
  mListener->mThen = [&](const std::string&) { ask(otherURL); };
  other->mThen = [&](const std::string&) { ask(mURL); };
  ASSERT_EQ(mService->StartWatching(mURL, mListener.get()), NS_OK);
  onThread(otherURL, other.get(), NS_DISPATCH_SYNC);
  Walk();
  mListener->mThen = other->mThen = [](const std::string&) {};

  // One waits for a root that is being told; who is told of it asks for another one.
  Files().MakeDirectory(u"/last");
  const nsCString lastURL("file:///last");
  const auto last = MakeRefCounted<nsWatchListener>(), late = MakeRefCounted<nsWatchListener>();
  last->mThen = [&](const std::string&) {
    onThread(lastURL, late.get(), NS_DISPATCH_NORMAL);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));  // it will be waiting by then
    EXPECT_EQ(mService->StartWatching(mURL, third.get()), NS_OK);
  };
  ASSERT_EQ(mService->StartWatching(lastURL, last.get()), NS_OK);
  Walk();
  last->mThen = [](const std::string&) {};
  EXPECT_EQ(third->Take(), Lines{"started"});
  EXPECT_TRUE(NS_RunEventsUntil([&] { return late->HasHeard("started"); }));
  EXPECT_EQ(mService->StopWatching(otherURL, other.get()), NS_OK);
  for (const auto& client : {last, late})
    EXPECT_EQ(mService->StopWatching(lastURL, client.get()), NS_OK);
  for (const auto& client : {mListener, third})
    EXPECT_EQ(mService->StopWatching(mURL, client.get()), NS_OK);
  EXPECT_EQ(thread->Shutdown(), NS_OK);
}

TEST_F(WatcherServiceTest, ClientIsCalledOnAnothersThread) {
  nsCOMPtr<nsIThread> thread;
  ASSERT_EQ(do_GetService<nsIThreadManager>(NS_THREADMANAGER_CONTRACTID)
                ->NewThread(0, 0, thread.getter_AddRefs()),
            NS_OK);
  ASSERT_EQ(mService->StartWatching(mURL, mListener.get()), NS_OK);
  const auto other = MakeRefCounted<nsWatchListener>();
  std::set<bool> onItsOwn;
  other->mThen = [&](const std::string&) {
    bool isCurrent = false;
    EXPECT_EQ(thread->IsOnCurrentThread(&isCurrent), NS_OK);
    onItsOwn.insert(isCurrent);
  };
  const auto onThread = [&](auto aMethod) {
    ASSERT_EQ(thread->Dispatch(NS_NewRunnableMethodCaller<vorel::threads::eStrong>(
                                   mService.get(), aMethod, mURL, other.get())
                                   .get(),
                               NS_DISPATCH_SYNC),
              NS_OK);
  };
  onThread(&nsSystemFileSystemWatcherService::StartWatching);
  Walk();
  Files().Write(u"/data/file");
  Settle();
  EXPECT_EQ(mService->StopWatching(mURL, other.get()), NS_OK);  // from here, and heard there
  EXPECT_EQ(other->Take(), (Lines{"started", "added file", "stopped"}));
  EXPECT_EQ(onItsOwn, std::set<bool>{true});
  EXPECT_EQ(mService->StopWatching(mURL, mListener.get()), NS_OK);
  EXPECT_EQ(thread->Shutdown(), NS_OK);
}

}  // namespace
