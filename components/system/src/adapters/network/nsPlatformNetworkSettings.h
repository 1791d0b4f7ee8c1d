// The port that puts IPv4 settings into force, and takes down what was in force before.
#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <string>
#include <vector>

#include "nsError.h"

/// The bytes of an IPv4 address, in network order.
using nsIPv4Bytes = std::array<uint8_t, 4>;

/// An address with the net that it lies in.
struct nsIPv4Net {
  nsIPv4Bytes mAddress{};
  uint8_t mPrefixLength = 0;  ///< In bits.

  friend auto operator<=>(const nsIPv4Net&, const nsIPv4Net&) = default;
};

/// What is to be in force on an interface.
struct nsInterfaceSettings {
  std::vector<nsIPv4Net> mAddresses;
  std::vector<nsIPv4Bytes> mGateways;  ///< Of default routes.
  uint32_t mMetric = 0;                ///< That of the first gateway; each one more has one more.

  friend bool operator==(const nsInterfaceSettings&, const nsInterfaceSettings&) = default;
};

/// Interfaces are known by the adapter name of nsPlatformNetwork. A record is what a system needs
/// to put back what it described: any bytes, for this port alone to read, good after a restart too.
///
/// All methods may be called from any thread; a change is for one thread at a time. Errors beside
/// those named are NS_ERROR_FILE_ACCESS_DENIED, the process lacks the right, and NS_ERROR_FAILURE.
/// What changes something may have done part of it when it fails.
class nsPlatformNetworkSettings {
 public:
  virtual ~nsPlatformNetworkSettings() = default;

  /// The name of the active service that manages interfaces, and would undo what others change;
  /// empty when there is none.
  /// Windows: none: the system itself manages them.
  virtual nsresult FindService(std::string* aName) = 0;

  /// NS_ERROR_FILE_NOT_FOUND when there is no such interface.
  /// Windows: GetUnicastIpAddressTable and GetIpForwardTable2.
  virtual nsresult ReadInterface(const std::string& aName, std::string* aRecord) = 0;
  /// Sets the interface up, with these addresses and gateways and no others. Other routes of it
  /// stay as far as its new nets lead to their gateways. NS_ERROR_FILE_NOT_FOUND as above.
  /// Windows: CreateUnicastIpAddressEntry and CreateIpForwardEntry2.
  virtual nsresult WriteInterface(const std::string& aName,
                                  const nsInterfaceSettings& aSettings) = 0;
  /// Whatever is in force now. NS_ERROR_FILE_NOT_FOUND as above, NS_ERROR_FILE_CORRUPTED for bytes
  /// that are no record, which change nothing.
  /// Windows: CreateUnicastIpAddressEntry and CreateIpForwardEntry2.
  virtual nsresult RestoreInterface(const std::string& aName, const std::string& aRecord) = 0;

  /// The machine's DNS servers that have IPv4 addresses, in the order in which they are asked.
  /// Windows: GetInterfaceDnsSettings.
  virtual nsresult ReadServers(std::vector<nsIPv4Bytes>* aServers) = 0;
  /// What the machine's resolver is set to.
  /// Windows: GetInterfaceDnsSettings.
  virtual nsresult ReadResolver(std::string* aRecord) = 0;
  /// These servers and no others, durably; nothing else of it changes.
  /// Windows: SetInterfaceDnsSettings.
  virtual nsresult WriteResolver(const std::vector<nsIPv4Bytes>& aServers) = 0;
  /// Durably. NS_ERROR_FILE_CORRUPTED as in RestoreInterface.
  /// Windows: SetInterfaceDnsSettings.
  virtual nsresult RestoreResolver(const std::string& aRecord) = 0;

  /// The machine's one journal, which outlives the process. Loading and saving reserve it for this
  /// port until DropJournal, the end of the port or that of the process; while another one has it
  /// they answer NS_ERROR_FILE_IS_LOCKED. NS_ERROR_FILE_NOT_FOUND when there is none, which
  /// reserves nothing.
  /// Windows: LockFileEx and ReadFile.
  virtual nsresult LoadJournal(std::string* aText) = 0;
  /// On success it is durable: the whole of it, or what was there before.
  /// Windows: LockFileEx and ReplaceFileW.
  virtual nsresult SaveJournal(const std::string& aText) = 0;
  /// Durably. Success when there is none.
  /// Windows: DeleteFileW.
  virtual nsresult DropJournal() = 0;
};
