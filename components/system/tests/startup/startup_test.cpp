// Start-up: topics, process types, standing directories, and the order of it all.
#include "nsIFile.h"
#include "nsIObserverService.h"
#include "nsISystemAdapterStorage.h"
#include "nsSystemTest.h"
#include "nsTestWindow.h"

namespace {

using Strings = std::vector<std::string>;

class StartupTest : public nsSystemTest {
 protected:
  void TearDown() override {
    if (mManager) (void)mManager->Observe(nullptr, "xpcom-shutdown", nullptr);
    mManager = nullptr;
  }

  // A host with a manager whose bindings are listened to. There is one volume, a stick.
  void Start() {
    StartHost();
    mMachine.mVolumes->Insert('E', {.mRoot = "/stick"});
    mManager = NewManager(mMachine);
    mListener = MakeRefCounted<nsTestListener>();
    (void)mManager->AddProfileBindingListener(mListener.get());
    (void)TakeLog("");
  }
  static void Notify(const char* aTopic) {
    EXPECT_EQ(do_GetService<nsIObserverService>(NS_OBSERVERSERVICE_CONTRACTID)
                  ->NotifyObservers(nullptr, aTopic, nullptr),
              NS_OK);
  }
  // The directories of the storage adapters, in order.
  Strings Directories() {
    nsCOMPtr<nsIArray> adapters;
    EXPECT_EQ(mManager->GetAdaptersByIId(nsISystemAdapterStorage::kIID, adapters.getter_AddRefs()),
              NS_OK);
    Strings paths;
    for (const auto& adapter : NS_Elements<nsISystemAdapterStorage>(adapters.get())) {
      nsCOMPtr<nsIFile> directory;
      EXPECT_EQ(adapter->GetDirectory(directory.getter_AddRefs()), NS_OK);
      paths.push_back(directory ? NS_TextOf(directory, &nsIFile::GetPath) : "none");
    }
    return paths;
  }

  static constexpr const char* kPlayout = "vorel.player.playout.base-uri";
  static constexpr const char* kSoftware = "vorel.appli.software.base-uri";
  static constexpr const char* kAddon = "vorel.appli.addon.base-uri";

  nsCOMPtr<nsSystemManager> mManager;
  nsCOMPtr<nsTestListener> mListener;
};

TEST_F(StartupTest, DirectoriesOrTheirProfilesAreMissingOrOutOfOrder) {
  Start();
  SetPref(kPlayout, "file:///srv/playout/");
  SetPref(kSoftware, "file:///srv/software/");
  SetPref(kAddon, "file:///srv/add%20on/");
  for (const char* profile :
       {"richmedia-player", "manifest-downloader", "medias-reader", "software-manager",
        "addon-manager", "storage-external-medias-reader"})
    AllowProfile(std::string(profile) + ".*.*.*");
  EXPECT_EQ(mManager->Init(), NS_OK);
  EXPECT_EQ(Directories(), (Strings{"/srv/playout", "/srv/playout/.medias-reader", "/srv/software",
                                    "/srv/add on", "/stick"}));
  EXPECT_EQ(
      mListener->mHeard,
      (Strings{"binding added richmedia-player", "binding added manifest-downloader",
               "binding added medias-reader", "binding added software-manager",
               "binding added addon-manager", "binding added storage-external-medias-reader"}));
}

TEST_F(StartupTest, MissingPreferenceStopsStartup) {
  Start();
  EXPECT_EQ(mManager->Init(), NS_OK);
  EXPECT_EQ(Directories(), Strings{"/stick"});
  EXPECT_EQ(
      TakeLog("warning"),
      (Strings{"warning system.manager: Can't add \"richmedia-player\" profile : the preference "
               "\"vorel.player.playout.base-uri\" is not defined",
               "warning system.manager: Can't add \"software-manager\" profile : the preference "
               "\"vorel.appli.software.base-uri\" is not defined",
               "warning system.manager: Can't add \"addon-manager\" profile : the preference "
               "\"vorel.appli.addon.base-uri\" is not defined"}));
}

TEST_F(StartupTest, BadUriIsPassedOver) {
  Start();
  SetPref(kPlayout, "file:///srv/playout/");
  SetPref(kSoftware, "http://example.org/");
  SetPref(kAddon, "file:///srv/addon/");
  EXPECT_TRUE(NS_FAILED(mManager->Init()));
  EXPECT_EQ(Directories(), (Strings{"/srv/playout", "/srv/playout/.medias-reader"}))
      << "what was done stays done";
  EXPECT_EQ(TakeLog("warning debug"), Strings{"warning debug: 'NS_ENSURE_SUCCESS(rv, rv) failed'"});
}

TEST_F(StartupTest, DiscoveryDoesNotWaitForTheProfile) {
  Start();
  EXPECT_EQ(mManager->Observe(nullptr, "app-startup", nullptr), NS_OK);
  EXPECT_EQ(TakeLog("debug system.manager"),
            Strings{"debug system.manager: XRE_GetProcessType = GeckoProcessType_Default"});
  EXPECT_TRUE(Directories().empty());
  Notify("profile-after-change");
  EXPECT_EQ(Directories(), Strings{"/stick"});
}

TEST_F(StartupTest, ContentProcessWaitsForTheProfile) {
  mOptions.mProcessType = GeckoProcessType_Content;
  Start();
  SetPref(kPlayout, "nonsense");
  EXPECT_TRUE(NS_FAILED(mManager->Observe(nullptr, "app-startup", nullptr)))
      << "the result is that of Init";
  EXPECT_EQ(TakeLog("debug system.manager")[0],
            "debug system.manager: XRE_GetProcessType = GeckoProcessType_Content");
  SetPref(kPlayout, "file:///srv/playout/");
  Notify("profile-after-change");
  EXPECT_TRUE(Directories().empty()) << "it listens to nothing there";
}

TEST_F(StartupTest, RefreshOfStorageDoesSomething) {
  Start();
  EXPECT_EQ(mManager->RefreshAdapters(nsISystemAdapterStorage::kIID), NS_OK);
  EXPECT_TRUE(Directories().empty());
}

TEST_F(StartupTest, AnythingPassesForAWindow) {
  Start();
  const auto bare = MakeRefCounted<nsTestBareWindow>();
  const auto empty = MakeRefCounted<nsTestWindow>(nullptr);
  const std::pair<nsIXULWindow*, std::string> cases[] = {
      {nullptr, "xulWindow"}, {bare.get(), "baseWindow"}, {empty.get(), "mainWidget"}};
  for (const auto& [window, missing] : cases) {
    EXPECT_EQ(mManager->Observe(window, "xul-window-registered", nullptr), NS_ERROR_UNEXPECTED);
    EXPECT_EQ(TakeLog("warning"),
              Strings{"warning debug: 'NS_ENSURE_TRUE(" + missing + ") failed'"});
  }
  EXPECT_EQ(mManager->Observe(nullptr, "something else", nullptr), NS_OK);
  EXPECT_EQ(mManager->Observe(nullptr, nullptr, nullptr), NS_OK);
}

// Only the outermost widget has a handle: whoever stops below it has found no window.
TEST_F(StartupTest, SecondWindowIsLookedAt) {
  Start();
  ASSERT_EQ(mManager->Observe(nullptr, "app-startup", nullptr), NS_OK);
  int handle;
  const auto top = MakeRefCounted<nsTestWidget>(&handle);
  const auto middle = MakeRefCounted<nsTestWidget>(nullptr, top.get());
  const auto window =
      MakeRefCounted<nsTestWindow>(MakeRefCounted<nsTestWidget>(nullptr, middle.get()).get());
  const auto os = do_GetService<nsIObserverService>(NS_OBSERVERSERVICE_CONTRACTID);
  nsIXULWindow* const subject = window.get();
  ASSERT_EQ(os->NotifyObservers(subject, "xul-window-registered", nullptr), NS_OK);
  EXPECT_EQ(window->mAsked, 1);
  ASSERT_EQ(os->NotifyObservers(subject, "xul-window-registered", nullptr), NS_OK);
  EXPECT_EQ(mManager->Observe(subject, "xul-window-registered", nullptr), NS_OK);
  EXPECT_EQ(window->mAsked, 1);
  EXPECT_EQ(os->RemoveObserver(mManager.get(), "xul-window-registered"), NS_ERROR_FAILURE)
      << "it still listens";
}

}  // namespace
