// The manager: start-up, and the discovery that fills the registry.
#pragma once

#include <vector>

#include "nsEventPump.h"
#include "nsITimer.h"
#include "nsModuleClass.h"
#include "nsPlatform.h"
#include "nsPlatformWindowEvents.h"
#include "nsSystemManagerGeneric.h"

class nsIMutableArray;
class nsIPrefBranch;
class nsISystemAdapterStorage;
class nsSystemAdapterGeneric;
struct nsDisplayDevice;

/// "@vorel/system/systemmanager;1". Main thread, but for what the base says of other threads.
class nsSystemManager final : public nsSystemManagerGeneric {
 public:
  static constexpr nsModuleClass kModuleClass{.mRow = 11,
                                              .mCID = "31b9ff0f-7703-4b2f-b7fa-a870c6db4746"_iid,
                                              .mContractID = "@vorel/system/systemmanager;1",
                                              .mIsService = true,
                                              .mDOMRow = 0,
                                              .mGlobal = "systemManager",
                                              .mAtStartup = true};
  static constexpr nsClassInfoRecord kClassInfo =
      NS_ClassInfo<"SystemManager", nsISystemManager>(kModuleClass.mCID);

  explicit nsSystemManager(nsPlatformRef aPlatform);
  /// Hears of the end from here on.
  nsresult InitSingleton();

  /// nsISystemManager, nsIObserver, nsIClassInfo. Not nsISupportsWeakReference, although the base
  /// could.
  nsresult QueryInterface(const nsIID& aIID, void** aResult) override;
  /// The network for nsISystemAdapterIP.
  nsresult RefreshAdapters(const nsIID& aIID) override;
  /// "app-startup", "vorel-application-start", "profile-after-change", "xul-window-registered",
  /// "network:link-status-changed", "vorel-await-displays" (waits for displays that take their time
  /// to tell their brightness, a second at most), and what the base does. "app-startup" and
  /// "xul-window-registered" answer with the result of their step, all others with NS_OK, whatever
  /// came of it.
  nsresult Observe(nsISupports* aSubject, const char* aTopic, const char16_t* aData) override;

  /// Goes through the whole machine, in a fixed order. Called once a process; nothing guards
  /// against a second call. The first failing step of those that may not fail ends it, keeping
  /// everything done so far.
  nsresult Init();

  /// Calls AddAdapterForDriveLetter for each letter that the machine has, from A on. NS_OK, always.
  nsresult ExploreVolumes();
  /// Makes an adapter of a removable volume, or of a fixed one behind USB, publishes it, and makes
  /// the bindings of the five profiles for external storage. NS_OK, and nothing done, for volumes
  /// of other kinds and for a letter without a volume; NS_ERROR_FAILURE for a fixed volume behind
  /// another bus, or one that cannot be opened. A failure after publishing leaves the adapter
  /// published, with the bindings made so far.
  nsresult AddAdapterForDriveLetter(char aLetter);
  /// The adapter whose directory is the root of that drive; null, and success, when there is none.
  nsresult GetAdapterForDriveLetter(char aLetter, nsISystemAdapterStorage** aAdapter);

  /// Makes the list of display adapters agree with the machine. The first adapter that can't be
  /// made or read ends it: those before it are in the list, and none is removed.
  nsresult InitDisplay();

  /// An adapter for each tuner of digital television. The first one that can't be published, get
  /// its bindings or be set up ends it with that failure; it stays published if it was, and no
  /// further tuner is looked at.
  nsresult InitDVB();

  /// Hears of volumes, displays and devices by the window from now on, until "xpcom-shutdown".
  /// NS_OK, always: a machine that tells nothing is a machine where nothing changes.
  nsresult SubclassWindow(nsWindowHandle aWindow);
  /// A message of that window. The answer is the former procedure's, but to a change of the
  /// display, which that never sees; 0 for a window that is gone.
  intptr_t WndProc(const nsWindowMessage& aMessage);

 private:
  ~nsSystemManager() override;

  struct StandingDirectory;
  struct DisplayPlaces;

  nsresult OnAppStartup();
  nsresult OnWindowRegistered(nsISupports* aWindow);
  /// An adapter for each serial port that the machine has, by rising number.
  void InitSerial();
  /// Makes the list of IP adapters agree with the machine. A listener that has it look once more is
  /// served at once, and the look that it heard of ends there: it knows less.
  nsresult InitNetwork();
  /// The interfaces can't be read; nobody tells when they can. Main thread.
  void LookAtNetworkLater();
  nsresult LookAtDisplay(const nsDisplayDevice& aCard, const nsDisplayDevice& aMonitor,
                         nsIMutableArray& aLeftovers, DisplayPlaces* aPlaces);
  /// Discovery copies the known adapters of a kind, strikes out each that it finds again, and
  /// removes the rest, which is the end of the look: it is counted, unless a listener had it look
  /// once more meanwhile.
  static void StrikeOut(nsIMutableArray& aLeftovers, nsISystemAdapter* aAdapter);
  nsresult RemoveLeftovers(nsIMutableArray& aLeftovers, uint64_t* aLooks);
  /// The pool waits at the end for what runs on it, and nobody is left who would read the result.
  void StopScans();
  void RecordForWindow();
  void OnDeviceArrival(const nsDeviceBroadcast& aBroadcast);
  void OnDeviceRemoval(const nsDeviceBroadcast& aBroadcast);
  nsresult AddStandingDirectory(const StandingDirectory& aStanding, nsIPrefBranch* aPrefs);
  /// Makes a profile of that name, lets the adapter make its bindings, and takes them over.
  nsresult AddProfile(nsSystemAdapterGeneric& aAdapter, const char16_t* aName);

  const nsPlatformRef mPlatform;
  uint64_t mNetworkLooks = 0;  // that came to their end
  nsCOMPtr<nsITimer> mNetworkTimer;
  uint32_t mNetworkDelay = 0;  // ms; of the last look that failed
  uint64_t mDisplayLooks = 0;
  nsPlatformWindowEvents::FormerProcedure mOldWndProc = 0;
  /// The native handle of the application's first window; null until there is one.
  nsWindowHandle mWnd = nullptr;
  [[maybe_unused]] const uint32_t mReserved = 0;
  std::vector<std::unique_ptr<nsEventPump>> mEventPumps;
};
