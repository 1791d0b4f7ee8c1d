// The order in which the host starts and stops.
#include "nsIServiceManager.h"
#include "nsTestHost.h"

namespace {

using Strings = std::vector<std::string>;
constexpr nsCID kA = "00000000-0000-0000-0000-00000000000a"_iid;
constexpr nsCID kB = "00000000-0000-0000-0000-00000000000b"_iid;

class HostSteps : public nsHostTest {
 protected:
  HostSteps() {
    const auto make = [this](const nsIID& aIID, void** aResult) {
      mEvents.push_back("made");
      return Observer()->QueryInterface(aIID, aResult);
    };
    mModule.Class(kA, "a", make).Class(kB, "b", make);
  }
  ~HostSteps() override { mHost.Stop(); }

  nsCOMPtr<nsTestObserver> Observer() {
    return MakeRefCounted<nsTestObserver>(
        [this](nsISupports* aSubject, std::string aTopic, std::string aData) {
          const bool isManager = do_QueryInterface<nsIServiceManager>(aSubject).get();
          mEvents.push_back(aTopic + " " + aData + (isManager ? " manager" : aSubject ? " ?" : ""));
        });
  }
  void Observe(std::initializer_list<const char*> aTopics) {
    const auto service = do_GetService<nsIObserverService>(NS_OBSERVERSERVICE_CONTRACTID);
    for (const char* topic : aTopics)
      ASSERT_EQ(NS_OK, service->AddObserver(Observer().get(), topic, false));
  }
  void StartWithModule() {
    mOptions.mModules.push_back(&mModule.Record());
    Start();
  }

  Strings mEvents;
  nsTestModule mModule;
};

TEST_F(HostSteps, AppStartupIsToldInAnotherWay) {
  mModule.Category("app-startup", "One", "service,a").Category("app-startup", "Two", "b");
  mModule.Category("app-startup", "Three", "nobody").Category("xpcom-startup", "Zero", "a");
  StartWithModule();
  EXPECT_EQ((Strings{"made", "xpcom-startup ", "app-startup -", "made", "app-startup -"}), mEvents);
  EXPECT_TRUE(do_GetService<nsIObserver>("a"));
  EXPECT_EQ(5u, mEvents.size()) << "the service that was told is the service";
  EXPECT_EQ(Strings{"warning: app-startup: entry Three is not told, since nobody is not to be "
                    "had: NS_ERROR_FACTORY_NOT_REGISTERED"},
            nsTestLog::Take());
}

TEST_F(HostSteps, TopicsComeInAnotherOrder) {
  mModule.Category("profile-after-change", "One", "a");
  StartWithModule();
  Observe({"profile-after-change", "profile-do-change", "load-extension-defaults",
           "profile-initial-state", "final-ui-startup", "vorel-application-start",
           "xul-window-registered", "quit-application-granted", "quit-application",
           "profile-before-change", "profile-change-teardown", "profile-change-net-teardown",
           "xpcom-shutdown-threads", "xpcom-shutdown", "xpcom-will-shutdown",
           "xpcom-shutdown-loaders"});
  ASSERT_EQ(NS_OK, mHost.StartProfile());
  EXPECT_EQ((Strings{"profile-do-change startup", "load-extension-defaults -",
                     "vorel-application-start -", "profile-after-change startup", "made",
                     "profile-after-change ", "profile-initial-state -", "final-ui-startup -",
                     "xul-window-registered - ?"}),
            mEvents);
  EXPECT_EQ(NS_ERROR_ALREADY_INITIALIZED, mHost.StartProfile());
  mEvents.clear();
  mHost.Quit();
  mHost.Quit();
  EXPECT_EQ(NS_OK, mHost.Run());
  EXPECT_EQ((Strings{"quit-application-granted -", "quit-application shutdown"}), mEvents);
  mHost.Stop();
  EXPECT_EQ(
      (Strings{"quit-application-granted -", "quit-application shutdown",
               "profile-change-net-teardown shutdown-persist",
               "profile-change-teardown shutdown-persist", "profile-before-change shutdown-persist",
               "xpcom-will-shutdown -", "xpcom-shutdown - manager", "xpcom-shutdown-threads -",
               "xpcom-shutdown-loaders -"}),
      mEvents);
}

TEST_F(HostSteps, WhoHasEndedAtTheStartIsGivenAWindow) {
  StartWithModule();
  const auto quits = MakeRefCounted<nsTestObserver>([this](auto...) { mHost.LeaveRun(); });
  const auto service = do_GetService<nsIObserverService>(NS_OBSERVERSERVICE_CONTRACTID);
  ASSERT_EQ(NS_OK, service->AddObserver(quits.get(), "profile-after-change", false));
  Observe({"final-ui-startup", "xul-window-registered"});
  EXPECT_EQ(NS_OK, mHost.StartProfile());
  EXPECT_EQ(Strings{"final-ui-startup -"}, mEvents) << "the others hear of the start as ever";
}

TEST_F(HostSteps, HostThatNeverHadAProfileEndsOne) {
  StartWithModule();
  Observe({"profile-before-change", "quit-application"});
  mHost.Stop();
  EXPECT_EQ(Strings{"quit-application shutdown"}, mEvents);
}

TEST_F(HostSteps, ObserverOfTheEndStopsTheHostOnceMore) {
  StartWithModule();
  int ends = 0;
  const auto observer = MakeRefCounted<nsTestObserver>([&](auto...) {
    ++ends;
    mHost.Stop();
    EXPECT_EQ(NS_ERROR_ALREADY_INITIALIZED, nsHost().Start(mOptions));
  });
  const auto service = do_GetService<nsIObserverService>(NS_OBSERVERSERVICE_CONTRACTID);
  ASSERT_EQ(NS_OK, service->AddObserver(observer.get(), "xpcom-shutdown", false));
  mHost.Stop();
  EXPECT_EQ(1, ends);
}

TEST_F(HostSteps, SecondRunSeesTheFirst) {
  StartWithModule();
  const auto first = do_GetService<nsIObserver>("a");
  EXPECT_EQ(GeckoProcessType_Default, XRE_GetProcessType());
  mHost.Stop();
  mOptions.mProcessType = GeckoProcessType_Content;
  Start();
  EXPECT_EQ(GeckoProcessType_Content, XRE_GetProcessType());
  EXPECT_FALSE(first == do_GetService<nsIObserver>("a").get());
  nsHost second;
  EXPECT_EQ(NS_ERROR_ALREADY_INITIALIZED, second.Start(mOptions));
  EXPECT_EQ(&mHost, nsHost::Current());
}

}  // namespace
