// The port that puts an interface's settings into force, and takes down what was in force before.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "nsError.h"
#include "nsEventSource.h"
#include "nsPlatformNetwork.h"

/// An address with the net that it lies in.
struct nsIPNet {
  nsSocketAddress mAddress;
  uint8_t mPrefixLength = 0;  ///< In bits.

  friend bool operator==(const nsIPNet&, const nsIPNet&) = default;
};

/// What is to be in force on an interface. Of a family that it says nothing of, nothing changes.
struct nsInterfaceSettings {
  bool mIsDhcp = false;  ///< IPv4 comes from a DHCP server; there are no IPv4 addresses here then.
  std::vector<nsIPNet> mAddresses;
  std::vector<nsSocketAddress> mGateways;  ///< Of default routes.
  std::optional<uint32_t> mMetric;         ///< That of the first gateway; each more has one more.
  std::vector<nsSocketAddress> mServers;   ///< Of DNS; empty: they stay, or are those of DHCP.

  friend bool operator==(const nsInterfaceSettings&, const nsInterfaceSettings&) = default;
};

/// Who puts the settings of an interface into force.
struct nsInterfaceWay {
  std::string mService;         ///< The active service that manages it; empty: none, the system.
  std::string mDhcpClient;      ///< Who gets it leases; empty when nobody does or could.
  bool mTakesServers = false;   ///< Whether DNS servers are set by interface.
  bool mOutlivesStart = false;  ///< Whether what is kept is in force again at the machine's start.
};

/// A word of another process to the one that has the state.
struct nsNetworkRequest {
  std::string mWord;
  std::function<void(const std::string&)> mAnswer;  ///< Any thread; does not wait.
};

/// Interfaces are known by the adapter name of nsPlatformNetwork. A record is what a system needs
/// to put back what it described: any bytes, for this port alone to read, good in other processes
/// and after a restart of the machine.
///
/// All methods but Cancel may wait, for the system and its services: not for a main thread. They
/// may be called from any thread; changes are for one thread at a time. Errors beside those named
/// are NS_ERROR_FILE_ACCESS_DENIED, the process lacks the right, NS_ERROR_OFFLINE, the service that
/// manages the interface, or did when the record was taken, is not there, NS_ERROR_ABORT after
/// Cancel, and NS_ERROR_FAILURE. What changes something may have done part of it when it fails.
class nsPlatformNetworkSettings {
 public:
  virtual ~nsPlatformNetworkSettings() = default;

  /// NS_ERROR_FILE_NOT_FOUND when there is no such interface.
  /// Windows: none: the system itself manages them.
  virtual nsresult FindWay(const std::string& aName, nsInterfaceWay* aWay) = 0;
  /// Waits until a service that FindWay has named is there, and at most that long: NS_ERROR_OFFLINE
  /// then. One that it never names counts as there.
  /// Windows: none: the system itself is there.
  virtual nsresult AwaitService(const std::string& aService, uint32_t aMilliseconds) = 0;

  /// Takes down what is in force, and prepares a change that follows soon. A system that guards
  /// changes itself takes this one back aGuard seconds later by itself, whatever happens to the
  /// process. NS_ERROR_FILE_NOT_FOUND when there is no such interface. A right that the change
  /// needs and that lacks is told here.
  /// Windows: GetUnicastIpAddressTable and GetIpForwardTable2.
  virtual nsresult ReadInterface(const std::string& aName, uint32_t aGuard,
                                 std::string* aRecord) = 0;
  /// Sets the interface up, with these settings. Other routes of it stay as far as its new nets
  /// lead to their gateways. The change is gone after a restart of the machine. aRecord is that of
  /// ReadInterface. NS_ERROR_FILE_NOT_FOUND as above, NS_ERROR_NET_TIMEOUT when the service does
  /// not get done.
  /// Windows: CreateUnicastIpAddressEntry and CreateIpForwardEntry2.
  virtual nsresult WriteInterface(const std::string& aName, const std::string& aRecord,
                                  const nsInterfaceSettings& aSettings) = 0;
  /// Makes the change outlive restarts, as far as mOutlivesStart says; RestoreInterface still takes
  /// it back.
  /// Windows: SetUnicastIpAddressEntry.
  virtual nsresult KeepInterface(const std::string& aName, const std::string& aRecord) = 0;
  /// Removes what was only there to take the change back. Calling it again is free.
  /// Windows: none: nothing is left over.
  virtual nsresult ForgetInterface(const std::string& aName, const std::string& aRecord) = 0;
  /// Puts back what the record describes, whatever is in force now. NS_ERROR_FILE_NOT_FOUND as
  /// above, NS_ERROR_FILE_CORRUPTED for bytes that are no record, which change nothing;
  /// NS_ERROR_NOT_AVAILABLE, nothing is left to put back: the machine has started anew since. With
  /// NS_ERROR_OFFLINE what can be put back without the service is, and the rest once it is there.
  /// Windows: CreateUnicastIpAddressEntry and CreateIpForwardEntry2.
  virtual nsresult RestoreInterface(const std::string& aName, const std::string& aRecord) = 0;

  /// The machine's DNS servers, in the order in which they are asked.
  /// Windows: GetInterfaceDnsSettings.
  virtual nsresult ReadServers(std::vector<nsSocketAddress>* aServers) = 0;
  /// What the machine's resolver is set to.
  /// Windows: GetInterfaceDnsSettings.
  virtual nsresult ReadResolver(std::string* aRecord) = 0;
  /// These servers, in the place of all that have addresses of their families; nothing else of it
  /// changes. Durably.
  /// Windows: SetInterfaceDnsSettings.
  virtual nsresult WriteResolver(const std::vector<nsSocketAddress>& aServers) = 0;
  /// Durably. NS_ERROR_FILE_CORRUPTED as in RestoreInterface.
  /// Windows: SetInterfaceDnsSettings.
  virtual nsresult RestoreResolver(const std::string& aRecord) = 0;

  /// The version of IGMP that all interfaces are held to, 1 to 3; 0 when they speak the newest one
  /// that their routers do. NS_ERROR_FILE_NOT_FOUND where it can't be set.
  /// Windows: RegQueryValueExA.
  virtual nsresult ReadIgmpVersion(uint32_t* aVersion) = 0;
  /// What comes from now on speaks it, until a restart of the machine. NS_ERROR_INVALID_ARG for
  /// others than those above.
  /// Windows: RegSetValueExA.
  virtual nsresult WriteIgmpVersion(uint32_t aVersion) = 0;

  /// Reserves the machine's one state, which outlives processes, until UnlockState, the end of the
  /// port or that of the process. NS_ERROR_FILE_IS_LOCKED while another one has it.
  /// Windows: LockFileEx.
  virtual nsresult LockState() = 0;
  /// Success when it is not locked.
  /// Windows: UnlockFileEx.
  virtual nsresult UnlockState() = 0;
  /// Also while another process has it. NS_ERROR_FILE_NOT_FOUND when there is none.
  /// Windows: ReadFile.
  virtual nsresult LoadState(std::string* aText) = 0;
  /// Of a state that is locked. On success it is durable: the whole of it, or what was there
  /// before.
  /// Windows: ReplaceFileW.
  virtual nsresult SaveState(const std::string& aText) = 0;

  /// A source of words from other processes, for who has the state locked. Its Consume calls
  /// aHandler, and may wait for a slow asker. One at a time.
  /// Windows: CreateNamedPipeW.
  virtual nsresult Listen(std::function<void(nsNetworkRequest)> aHandler,
                          std::shared_ptr<nsEventSource>* aSource) = 0;
  /// Hands a word to the process that listens, and waits for its answer: not from the thread that
  /// listens. NS_ERROR_NOT_AVAILABLE when none does.
  /// Windows: CallNamedPipeW.
  virtual nsresult Ask(const std::string& aWord, std::string* aAnswer) = 0;

  /// Why the last method that failed did, for people: one line, or empty. Any thread.
  /// Windows: FormatMessageA.
  virtual std::string Reason() = 0;
  /// Makes the method that waits, or the next one that would, fail soon. Any thread.
  /// Windows: CancelSynchronousIo.
  virtual void Cancel() = 0;
};
