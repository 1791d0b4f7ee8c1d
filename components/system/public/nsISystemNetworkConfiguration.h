// Stored network settings come into force: "@vorel/network-configuration;1".
#pragma once

#include "nsXPCOMTypes.h"

/// Puts the IPv4 settings that the configuration store has of the machine's interfaces into force,
/// on trial: what is not confirmed in time is taken back. The store is written through the
/// registered view of an adapter (nsISystemAdapterIP.registered) and is not changed here.
///
/// Of an interface the store has a fixed configuration or DHCP. Where it has none of either, or
/// what is in force already, the interface is left alone. Switching between DHCP and a fixed
/// configuration is refused: a DHCP client of the system can't be started or stopped here yet.
/// Neither is there a way by a network service yet; on a machine that runs one, all is refused.
///
/// Observers of "network-configuration-changed" hear of each change of the state, with this service
/// as subject and, as data, "applying", "waiting", "confirmed", "rolled-back" or "failed"; the
/// reason can be asked for then.
///
/// Main thread. Changes take as long as the system needs for them, some milliseconds.
class nsISystemNetworkConfiguration : public nsISupports {
 public:
  using Self = nsISystemNetworkConfiguration;
  using Base = nsISupports;
  static constexpr std::string_view kName = "nsISystemNetworkConfiguration";
  static constexpr nsIID kIID = "6b0c0f3e-7d1a-4c59-9e0b-51f0a7c2d86e"_iid;

  /// Nothing has been tried yet, or it was refused before anything was touched.
  static constexpr uint32_t STATE_IDLE = 0u;
  static constexpr uint32_t STATE_APPLYING = 1;
  /// In force, and taken back when Confirm does not come in time.
  static constexpr uint32_t STATE_WAITING = 2;
  static constexpr uint32_t STATE_CONFIRMED = 3;
  /// The settings from before are in force.
  static constexpr uint32_t STATE_ROLLED_BACK = 4;
  /// Not all from before could be put back; that is tried again every five seconds.
  static constexpr uint32_t STATE_FAILED = 5;

  /// One of STATE_...
  virtual nsresult GetState(uint32_t* aState) = 0;
  /// Why the state is what it is, or why the last call was refused; for people, in English. A line
  /// for each thing that is wrong; empty when there is nothing to say.
  virtual nsresult GetReason(nsACString& aReason) = 0;
  /// What is wrong with the stored settings, and what keeps them from coming into force: a line
  /// each, beginning with the interface; empty when there is nothing. Changes nothing. Fails as the
  /// store or the machine does.
  virtual nsresult Check(nsACString& aProblems) = 0;
  /// Puts everything stored into force, and takes it back aSeconds (1 to 86400) later. When all of
  /// it is in force already, the state is STATE_CONFIRMED at once.
  ///
  /// Refused before anything is touched: NS_ERROR_INVALID_ARG for aSeconds out of range or for
  /// settings that Check finds fault with, NS_ERROR_IN_PROGRESS while a trial waits or could not be
  /// taken back, NS_ERROR_NOT_AVAILABLE on a machine with a network service,
  /// NS_ERROR_FILE_IS_LOCKED while another process has a trial, NS_ERROR_FILE_ACCESS_DENIED without
  /// the right. When a later step fails, all is put back, and the result is that of the step.
  virtual nsresult Apply(uint32_t aSeconds) = 0;
  /// What is on trial stays. NS_ERROR_NOT_AVAILABLE when nothing is; another failure leaves the
  /// trial as it is.
  virtual nsresult Confirm() = 0;
  /// Takes back what is on trial, or what could not be taken back before. NS_ERROR_NOT_AVAILABLE
  /// when there is nothing; another failure leaves STATE_FAILED.
  virtual nsresult Rollback() = 0;

 protected:
  ~nsISystemNetworkConfiguration() = default;
};
