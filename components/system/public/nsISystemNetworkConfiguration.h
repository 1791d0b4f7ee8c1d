// Stored network settings come into force: "@vorel/network-configuration;1".
#pragma once

#include "nsXPCOMTypes.h"

/// Puts the settings that the configuration store has of the machine's interfaces into force, on
/// trial: what is not confirmed in time is taken back; so is what was on trial when the process
/// ended or the machine lost its power, by the next start. The store is written through the
/// registered view of an adapter (nsISystemAdapterIP.registered) and is not changed here.
/// Interfaces that nobody has stored settings of are left alone, and so are those that have
/// theirs in force already.
///
/// Apply, Confirm, Rollback and ApplyConfirmed only begin: how it ends is told by the state.
/// Observers of "network-configuration-changed" hear of each change of it, with this service as
/// subject and, as data, "applying", "waiting", "confirmed", "rolling-back", "rolled-back",
/// "failed", "refused", or "idle" when what another process has left turned out to be in good
/// hands; the reason can be asked for then. Main thread, which never waits here.
///
/// Settings are told as lines: "dhcp", or "address 192.0.2.10/24" and "gateway 192.0.2.1" for each,
/// "metric 100", and "server 192.0.2.53" for each DNS server. The empty name stands for the whole
/// machine, which has "igmp 2": the version of IGMP that it speaks (1 to 3), stored by
/// nsISystemAdapterIP.igmpVersion of any view.
class nsISystemNetworkConfiguration : public nsISupports {
 public:
  using Self = nsISystemNetworkConfiguration;
  using Base = nsISupports;
  static constexpr std::string_view kName = "nsISystemNetworkConfiguration";
  static constexpr nsIID kIID = "6b0c0f3e-7d1a-4c59-9e0b-51f0a7c2d86e"_iid;

  /// Nothing has been tried yet.
  static constexpr uint32_t STATE_IDLE = 0u;
  static constexpr uint32_t STATE_APPLYING = 1;
  /// In force, and taken back when Confirm does not come in time. It comes a second time when what
  /// was to be confirmed could not be.
  static constexpr uint32_t STATE_WAITING = 2;
  static constexpr uint32_t STATE_CONFIRMED = 3;
  /// The settings from before are in force.
  static constexpr uint32_t STATE_ROLLED_BACK = 4;
  /// Not all from before could be put back, which is tried again every five seconds; or not all
  /// that was confirmed could be put into force.
  static constexpr uint32_t STATE_FAILED = 5;
  static constexpr uint32_t STATE_ROLLING_BACK = 6;
  /// The last call changed nothing: the reason says why.
  static constexpr uint32_t STATE_REFUSED = 7;

  /// One of STATE_...
  virtual nsresult GetState(uint32_t* aState) = 0;
  /// Why the state is what it is, or why the last call was refused; for people, in English. A line
  /// for each thing that is wrong; empty when there is nothing to say.
  virtual nsresult GetReason(nsACString& aReason) = 0;
  /// What is wrong with the stored settings: a line each, beginning with the interface; empty when
  /// there is nothing. Fails as the store or the machine does.
  virtual nsresult Check(nsACString& aProblems) = 0;
  /// What would be wrong with the settings if these were stored of an interface: an address with
  /// the length of its prefix or its mask ("192.0.2.10/24"), the gateway, and DNS servers with
  /// commas between. Empty texts are none; with aDhcp address and gateway are not looked at.
  virtual nsresult CheckSettings(const nsAString& aInterface, bool aDhcp,
                                 const nsACString& aAddress, const nsACString& aGateway,
                                 const nsACString& aServers, nsACString& aProblems) = 0;
  /// What is stored of an interface; empty when nobody has stored anything.
  virtual nsresult GetStoredSettings(const nsAString& aInterface, nsACString& aSettings) = 0;
  /// What is in force on it. Metrics are not told. NS_ERROR_FILE_NOT_FOUND when it is not there.
  virtual nsresult GetLiveSettings(const nsAString& aInterface, nsACString& aSettings) = 0;
  /// What was confirmed last of it; empty when nothing was.
  virtual nsresult GetConfirmedSettings(const nsAString& aInterface, nsACString& aSettings) = 0;

  /// Puts everything stored into force, and takes it back aSeconds (1 to 86400) after it was
  /// (STATE_WAITING). When all of it is in force already, the state is STATE_CONFIRMED at once.
  /// When a step fails, all before it is put back, and the state is STATE_ROLLED_BACK.
  ///
  /// While the network service that has the interfaces is not there, what can be is put back
  /// without it, the state is STATE_FAILED, and the rest follows once it is there.
  ///
  /// NS_ERROR_INVALID_ARG for aSeconds out of range or for settings that Check finds fault with,
  /// NS_ERROR_IN_PROGRESS while something is under way, waits, or could not be taken back. What
  /// only the system can tell is refused with STATE_REFUSED, before anything is touched: DHCP where
  /// nobody gets leases, a trial of another process, a missing right.
  virtual nsresult Apply(uint32_t aSeconds) = 0;
  /// What is on trial stays. When nothing is on trial here, another process that has a trial is
  /// asked, and STATE_REFUSED says that none has. NS_ERROR_IN_PROGRESS while something is under
  /// way.
  virtual nsresult Confirm() = 0;
  /// Takes back what is on trial, or what could not be taken back before; asks another process as
  /// Confirm does. NS_ERROR_IN_PROGRESS while something is under way.
  virtual nsresult Rollback() = 0;
  /// Takes back what a process that died has left, and puts what was confirmed last into force,
  /// where that does not outlive a restart of the machine. It is for the machine's start: there is
  /// no trial, and up to half a minute after the service was made it waits for the network services
  /// that had the interfaces. After STATE_FAILED it may be called again, and Apply may be. Else
  /// NS_ERROR_IN_PROGRESS as for Apply.
  virtual nsresult ApplyConfirmed() = 0;

 protected:
  ~nsISystemNetworkConfiguration() = default;
};
