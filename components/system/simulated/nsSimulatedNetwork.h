// Network interfaces of facts.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "nsMachineValue.h"
#include "nsPlatformNetwork.h"
#include "nsSimulatedCalls.h"

/// The facts of one interface. The second picture follows from the first and the gateways.
struct nsSimulatedInterface {
  nsAdapterAddresses mAddresses;       ///< The name in it is the interface's identity.
  std::vector<std::string> mGateways;  ///< By rising metric.
  uint32_t mPhysicalMedium = nsIfRow::kEthernet8023;
  bool mHasInfo = true;       ///< Whether the second picture has it. Of the machine file's it has
                              ///< those whose address has six bytes.
  bool mHasRow = true;        ///< Whether the interface table has it.
  bool mAnswersSsid = false;  ///< Whether it passes the old wireless test.
};

/// Interfaces by name, which come, change and go.
class nsSimulatedNetwork final : public nsPlatformNetwork, public nsSimulatedPort {
 public:
  explicit nsSimulatedNetwork(nsSimulatedCallsRef aCalls);

  /// A wire that is up, with the addresses of a text each, "192.168.1.20/24" or "fe80::1/64".
  static nsSimulatedInterface Wire(const std::string& aName, const std::string& aMac,
                                   const std::vector<std::string>& aAddresses = {});
  static nsUnicastAddress Address(const std::string& aText);
  static nsSocketAddress Server(const std::string& aText);

  /// The interface of that name is this one from now on, in its old place or a new one at the end.
  void Put(nsSimulatedInterface aInterface);
  /// Changes an interface that is there; false when it is not.
  bool Alter(const std::string& aName, const std::function<void(nsSimulatedInterface&)>& aChange);
  void Remove(const std::string& aName);
  /// As they are now, in their order.
  std::vector<nsSimulatedInterface> Interfaces() const;

  // The system as such. A new one is of version 10 and has all it could have.
  void SetVersion(nsSystemVersion aVersion);
  void SetIpHelper(bool aLibrary, bool aFunction);
  /// Called after each change of the interfaces, on the thread that made it.
  void SetListener(std::function<void()> aListener);

  /// An array of interfaces, as docs/machine-file.md tells. Throws nsMachineFileError.
  void ReadFacts(const nsMachineValue& aValue);
  /// An object of "remove" and "set": what the function that is given back does.
  std::function<void()> ReadChange(const nsMachineValue& aValue);

  nsSystemVersion GetSystemVersion() override;
  std::unique_ptr<nsNetworkReading> Read() override;
  bool LoadIpHelper() override;
  nsresult PacketOpenAdapter(const std::string& aName, PacketAdapter* aAdapter) override;
  nsresult PacketRequest(PacketAdapter aAdapter, bool aSet, uint32_t aOid,
                         std::vector<uint8_t>* aData) override;
  void PacketCloseAdapter(PacketAdapter aAdapter) override;

 private:
  class Reading;

  nsSimulatedInterface* Find(const std::string& aName) NS_REQUIRES(mLock);
  void Changed();

  std::vector<nsSimulatedInterface> mInterfaces NS_GUARDED_BY(mLock);
  uint32_t mLastIndex NS_GUARDED_BY(mLock) = 0;
  nsSystemVersion mVersion NS_GUARDED_BY(mLock){10, 0, 0};
  bool mHasLibrary NS_GUARDED_BY(mLock) = true, mHasFunction NS_GUARDED_BY(mLock) = true;
  // By handle, from 1; empty once closed.
  std::vector<std::string> mOpenPackets NS_GUARDED_BY(mLock);
  std::function<void()> mListener NS_GUARDED_BY(mLock);
};
