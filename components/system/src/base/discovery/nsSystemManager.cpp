#include "nsSystemManager.h"

#include <array>
#include <new>

#include "nsDebug.h"
#include "nsIArray.h"
#include "nsIBaseWindow.h"
#include "nsIFile.h"
#include "nsIFileProtocolHandler.h"
#include "nsIMutableArray.h"
#include "nsIObserverService.h"
#include "nsIPrefBranch.h"
#include "nsISystemAdapterIP.h"
#include "nsISystemApplicationProfile.h"
#include "nsISystemNetworkConfiguration.h"
#include "nsIWidget.h"
#include "nsIXULWindow.h"
#include "nsPlatformDisplays.h"
#include "nsServices.h"
#include "nsSystemAdapterStorage.h"
#include "nsSystemApplicationProfile.h"

namespace {
constexpr uint32_t kDisplayPatience = 1000;  // ms
}  // namespace

// A directory that a preference names, and the profiles that work in it.
struct nsSystemManager::StandingDirectory {
  const char* mPreference;
  const char* mBelow;                        // appended to the preference's URL
  std::array<const char16_t*, 2> mProfiles;  // the second one may be null
  bool mOptional;  // quietly left out without the preference, and published even if its directory
                   // can't be set
};

nsSystemManager::nsSystemManager(nsPlatformRef aPlatform) : mPlatform(std::move(aPlatform)) {
  RecordForWindow();
}

nsresult nsSystemManager::InitSingleton() {
  nsresult rv;
  const auto os = do_GetService<nsIObserverService>(NS_OBSERVERSERVICE_CONTRACTID, &rv);
  NS_ENSURE_SUCCESS(rv, rv);
  for (const char* topic : {"xpcom-shutdown", "vorel-application-start", "vorel-await-displays"}) {
    rv = os->AddObserver(this, topic, false);
    NS_ENSURE_SUCCESS(rv, rv);
  }
  return NS_OK;
}
nsSystemManager::~nsSystemManager() {
  if (mNetworkTimer) (void)mNetworkTimer->Cancel();
}

nsresult nsSystemManager::QueryInterface(const nsIID& aIID, void** aResult) {
  return NS_QueryInterface<nsISystemManager, nsIObserver>(this, aIID, aResult);
}

nsresult nsSystemManager::RefreshAdapters(const nsIID& aIID) {
  return aIID == nsISystemAdapterIP::kIID ? InitNetwork() : NS_OK;
}

nsresult nsSystemManager::Observe(nsISupports* aSubject, const char* aTopic,
                                  const char16_t* aData) {
  const std::string_view topic = aTopic ? aTopic : "";
  if (topic == "xpcom-shutdown") StopScans();
  (void)nsSystemManagerGeneric::Observe(aSubject, aTopic, aData);
  if (topic == "app-startup") return OnAppStartup();
  if (topic == "vorel-application-start") {
    // Before the machine is looked at. A look alone does not bring this topic, and leaves the
    // displays alone.
    (void)mPlatform->mDisplays->RestoreSettings();
  } else if (topic == "profile-after-change") {
    (void)Init();
  } else if (topic == "vorel-await-displays") {
    // Whoever shows displays once and ends does not hear of what comes later.
    (void)mPlatform->mDisplays->AwaitParameters(kDisplayPatience);
    (void)InitDisplay();
  } else if (topic == "network:link-status-changed") {
    (void)RefreshAdapters(nsISystemAdapterIP::kIID);
  } else if (topic == "xul-window-registered" && !mWnd) {
    return OnWindowRegistered(aSubject);
  } else if (topic == "xpcom-shutdown") {
    mEventPumps.clear();
    if (mNetworkTimer) (void)mNetworkTimer->Cancel();
  }
  return NS_OK;
}

nsresult nsSystemManager::OnAppStartup() {
  if (XRE_GetProcessType() == GeckoProcessType_Content) {
    SYSTEM_LOG_DEBUG(mLogger, "XRE_GetProcessType = GeckoProcessType_Content");
    return Init();
  }
  SYSTEM_LOG_DEBUG(mLogger, "XRE_GetProcessType = GeckoProcessType_Default");
  // There are no preferences before there is a profile.
  const auto os = do_GetService<nsIObserverService>(NS_OBSERVERSERVICE_CONTRACTID);
  NS_ENSURE_TRUE(os, NS_ERROR_UNEXPECTED);
  for (const char* topic :
       {"profile-after-change", "xul-window-registered", "network:link-status-changed"}) {
    const nsresult rv = os->AddObserver(this, topic, false);
    NS_ENSURE_SUCCESS(rv, rv);
  }
  // Takes back settings that a process tried and did not live to see confirmed.
  (void)do_GetService<nsISystemNetworkConfiguration>("@vorel/network-configuration;1");
  return NS_OK;
}

nsresult nsSystemManager::OnWindowRegistered(nsISupports* aWindow) {
  const auto xulWindow = do_QueryInterface<nsIXULWindow>(aWindow);
  NS_ENSURE_TRUE(xulWindow, NS_ERROR_UNEXPECTED);
  const auto baseWindow = do_QueryInterface<nsIBaseWindow>(xulWindow);
  NS_ENSURE_TRUE(baseWindow, NS_ERROR_UNEXPECTED);
  nsCOMPtr<nsIWidget> mainWidget;
  (void)baseWindow->GetMainWidget(mainWidget.getter_AddRefs());
  NS_ENSURE_TRUE(mainWidget, NS_ERROR_UNEXPECTED);
  nsIWidget* top = mainWidget.get();
  while (nsIWidget* parent = top->GetParent()) top = parent;
  (void)SubclassWindow(top->GetNativeData(nsIWidget::NS_NATIVE_WIDGET));

  const auto os = do_GetService<nsIObserverService>(NS_OBSERVERSERVICE_CONTRACTID);
  NS_ENSURE_TRUE(os, NS_ERROR_UNEXPECTED);
  const nsresult rv = os->RemoveObserver(this, "xul-window-registered");
  NS_ENSURE_SUCCESS(rv, rv);
  return NS_OK;
}

nsresult nsSystemManager::Init() {
  static constexpr StandingDirectory kStandingDirectories[] = {
      {"vorel.player.playout.base-uri", "", {u"richmedia-player", u"manifest-downloader"}, false},
      {"vorel.player.playout.base-uri", ".medias-reader/", {u"medias-reader"}, true},
      {"vorel.appli.software.base-uri", "", {u"software-manager"}, false},
      {"vorel.appli.addon.base-uri", "", {u"addon-manager"}, false},
  };

  // The order of discovery is fixed: serial ports, network interfaces, display outputs, standing
  // directories, volumes, digital TV receivers. What is found in the machine may fail; what the
  // preferences ask for may not.
  InitSerial();
  (void)InitNetwork();
  (void)InitDisplay();

  nsresult rv;
  const auto prefs = do_GetService<nsIPrefBranch>(NS_PREFSERVICE_CONTRACTID, &rv);
  NS_ENSURE_SUCCESS(rv, rv);
  for (const StandingDirectory& standing : kStandingDirectories) {
    rv = AddStandingDirectory(standing, prefs.get());
    if (NS_FAILED(rv)) return rv;
  }

  (void)ExploreVolumes();
  (void)InitDVB();
  return NS_OK;
}

nsresult nsSystemManager::AddStandingDirectory(const StandingDirectory& aStanding,
                                               nsIPrefBranch* aPrefs) {
  nsAdoptedCString value;
  if (NS_FAILED(aPrefs->GetCharPref(aStanding.mPreference, value.getter_Copies()))) {
    if (!aStanding.mOptional)
      SYSTEM_LOG_WARNING(mLogger, "Can't add \"" + NS_ToUtf8(aStanding.mProfiles[0]) +
                                      "\" profile : the preference \"" + aStanding.mPreference +
                                      "\" is not defined");
    return NS_OK;
  }
  const nsCString url(std::string(value.view()) + aStanding.mBelow);

  const nsCOMPtr<nsSystemAdapterStorage> adapter(new (std::nothrow) nsSystemAdapterStorage);
  NS_ENSURE_TRUE(adapter, NS_ERROR_UNEXPECTED);
  nsresult rv;
  const auto handler =
      do_GetService<nsIFileProtocolHandler>(NS_FILEPROTOCOLHANDLER_CONTRACTID, &rv);
  NS_ENSURE_SUCCESS(rv, rv);
  nsCOMPtr<nsIFile> directory;
  rv = handler->GetFileFromURLSpec(url, directory.getter_AddRefs());
  NS_ENSURE_SUCCESS(rv, rv);
  rv = adapter->SetDirectory(directory.get());
  if (!aStanding.mOptional) NS_ENSURE_SUCCESS(rv, rv);
  rv = AddAdapter(adapter.get());
  NS_ENSURE_SUCCESS(rv, rv);
  for (const char16_t* profile : aStanding.mProfiles) {
    if (!profile) break;
    rv = AddProfile(*adapter, profile);
    if (NS_FAILED(rv)) return rv;
  }
  return NS_OK;
}

void nsSystemManager::StrikeOut(nsIMutableArray& aLeftovers, nsISystemAdapter* aAdapter) {
  uint32_t index = 0;
  if (NS_SUCCEEDED(aLeftovers.IndexOf(0, aAdapter, &index)))
    (void)aLeftovers.RemoveElementAt(index);
}

nsresult nsSystemManager::RemoveLeftovers(nsIMutableArray& aLeftovers, uint64_t* aLooks) {
  const uint64_t looks = *aLooks;
  uint32_t gone = 0;
  (void)aLeftovers.GetLength(&gone);
  for (uint32_t i = 0; i < gone; ++i) {
    if (looks != *aLooks) return NS_OK;
    nsCOMPtr<nsISystemAdapter> adapter;
    const nsresult rv = aLeftovers.QueryElementAt(i, nsISystemAdapter::kIID, NS_OutVoid(adapter));
    NS_ENSURE_SUCCESS(rv, rv);
    (void)RemoveAdapter(adapter.get());
  }
  if (looks == *aLooks) ++*aLooks;
  return NS_OK;
}

nsresult nsSystemManager::AddProfile(nsSystemAdapterGeneric& aAdapter, const char16_t* aName) {
  const nsString name(aName);
  nsCOMPtr<nsISystemApplicationProfile> profile;
  nsresult rv = NewSystemApplicationProfile(profile.getter_AddRefs(), name, name, nsString());
  NS_ENSURE_SUCCESS(rv, rv);
  nsCOMPtr<nsIArray> bindings;
  rv = aAdapter.GenerateApplicationProfileBindings(profile.get(), bindings.getter_AddRefs());
  NS_ENSURE_SUCCESS(rv, rv);
  rv = AppendApplicationProfileBindings(bindings.get());
  NS_ENSURE_SUCCESS(rv, rv);
  return NS_OK;
}
