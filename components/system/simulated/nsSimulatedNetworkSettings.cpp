#include "nsSimulatedNetworkSettings.h"

#include <algorithm>
#include <utility>

#include "nsAddressText.h"

namespace {

nsSocketAddress SocketAddressOf(const nsIPv4Bytes& aAddress) {
  nsSocketAddress address;
  std::ranges::copy(aAddress, address.mBytes.begin());
  return address;
}

void ReplaceIPv4(std::vector<nsSocketAddress>& aServers, const std::vector<nsIPv4Bytes>& aIPv4) {
  std::erase_if(aServers, [](const nsSocketAddress& aServer) {
    return aServer.mFamily != nsSocketAddress::kIPv6;
  });
  for (size_t i = 0; i < aIPv4.size(); ++i)
    aServers.insert(aServers.begin() + static_cast<ptrdiff_t>(i), SocketAddressOf(aIPv4[i]));
}

}  // namespace

nsSimulatedNetworkSettings::nsSimulatedNetworkSettings(nsSimulatedCallsRef aCalls,
                                                       std::shared_ptr<nsSimulatedNetwork> aNetwork)
    : nsSimulatedPort(std::move(aCalls), "NetworkSettings"), mNetwork(std::move(aNetwork)) {}

void nsSimulatedNetworkSettings::SetService(std::string aName) {
  const std::lock_guard lock(mLock);
  mService = std::move(aName);
}

void nsSimulatedNetworkSettings::SetFailsHalfway(std::string aInterface) {
  const std::lock_guard lock(mLock);
  mFailsHalfway = std::move(aInterface);
}

void nsSimulatedNetworkSettings::SetJournalTaken(bool aTaken) {
  const std::lock_guard lock(mLock);
  mJournalTaken = aTaken;
}

std::optional<std::string> nsSimulatedNetworkSettings::Journal() const {
  const std::lock_guard lock(mLock);
  return mJournal;
}

void nsSimulatedNetworkSettings::SetJournal(std::optional<std::string> aText) {
  const std::lock_guard lock(mLock);
  mJournal = std::move(aText);
}

std::string nsSimulatedNetworkSettings::Keep(std::vector<nsSimulatedInterface> aInterfaces) {
  const std::lock_guard lock(mLock);
  const std::string record = "record " + std::to_string(mKept.size() + 1);
  mKept[record] = std::move(aInterfaces);
  return record;
}

const std::vector<nsSimulatedInterface>* nsSimulatedNetworkSettings::Kept(
    const std::string& aRecord) const {
  const std::lock_guard lock(mLock);
  const auto found = mKept.find(aRecord);
  return found == mKept.end() ? nullptr : &found->second;  // none is ever removed
}

nsresult nsSimulatedNetworkSettings::FindService(std::string* aName) {
  if (nsresult rv = Enter("FindService"); NS_FAILED(rv)) return rv;
  const std::lock_guard lock(mLock);
  *aName = mService;
  return NS_OK;
}

nsresult nsSimulatedNetworkSettings::ReadInterface(const std::string& aName, std::string* aRecord) {
  if (nsresult rv = Enter("ReadInterface"); NS_FAILED(rv)) return rv;
  for (const nsSimulatedInterface& interface : mNetwork->Interfaces()) {
    if (interface.mAddresses.mAdapterName != aName) continue;
    *aRecord = Keep({interface});
    return NS_OK;
  }
  return NS_ERROR_FILE_NOT_FOUND;
}

nsresult nsSimulatedNetworkSettings::WriteInterface(const std::string& aName,
                                                    const nsInterfaceSettings& aSettings) {
  if (nsresult rv = Enter("WriteInterface"); NS_FAILED(rv)) return rv;
  bool half = false;
  {
    const std::lock_guard lock(mLock);
    half = mFailsHalfway == aName;
  }
  const bool found = mNetwork->Alter(aName, [&](nsSimulatedInterface& aInterface) {
    auto& addresses = aInterface.mAddresses.mUnicastAddresses;
    std::erase_if(addresses, [](const nsUnicastAddress& aAddress) {
      return aAddress.mAddress.mFamily != nsSocketAddress::kIPv6;
    });
    for (size_t i = 0; i < aSettings.mAddresses.size(); ++i) {
      nsUnicastAddress address;
      address.mAddress = SocketAddressOf(aSettings.mAddresses[i].mAddress);
      address.mOnLinkPrefixLength = aSettings.mAddresses[i].mPrefixLength;
      addresses.insert(addresses.begin() + static_cast<ptrdiff_t>(i), address);
    }
    if (half) return;
    aInterface.mGateways.clear();
    for (const nsIPv4Bytes& gateway : aSettings.mGateways)
      aInterface.mGateways.push_back(vorel::address::FormatIPv4(gateway));
  });
  if (!found) return NS_ERROR_FILE_NOT_FOUND;
  Record("WriteInterface " + aName);
  return half ? NS_ERROR_FAILURE : NS_OK;
}

nsresult nsSimulatedNetworkSettings::RestoreInterface(const std::string& aName,
                                                      const std::string& aRecord) {
  if (nsresult rv = Enter("RestoreInterface"); NS_FAILED(rv)) return rv;
  const auto* const kept = Kept(aRecord);
  if (!kept || kept->size() != 1) return NS_ERROR_FILE_CORRUPTED;
  const bool found = mNetwork->Alter(aName, [&](nsSimulatedInterface& aInterface) {
    aInterface.mAddresses.mUnicastAddresses = kept->front().mAddresses.mUnicastAddresses;
    aInterface.mGateways = kept->front().mGateways;
  });
  if (!found) return NS_ERROR_FILE_NOT_FOUND;
  Record("RestoreInterface " + aName);
  return NS_OK;
}

nsresult nsSimulatedNetworkSettings::ReadServers(std::vector<nsIPv4Bytes>* aServers) {
  if (nsresult rv = Enter("ReadServers"); NS_FAILED(rv)) return rv;
  std::vector<nsIPv4Bytes> servers;
  for (const nsSimulatedInterface& interface : mNetwork->Interfaces())
    for (const nsSocketAddress& server : interface.mAddresses.mDnsServers) {
      if (server.mFamily == nsSocketAddress::kIPv6) continue;
      nsIPv4Bytes bytes;
      std::copy_n(server.mBytes.begin(), bytes.size(), bytes.begin());
      if (std::ranges::find(servers, bytes) == servers.end()) servers.push_back(bytes);
    }
  *aServers = std::move(servers);
  return NS_OK;
}

nsresult nsSimulatedNetworkSettings::ReadResolver(std::string* aRecord) {
  if (nsresult rv = Enter("ReadResolver"); NS_FAILED(rv)) return rv;
  *aRecord = Keep(mNetwork->Interfaces());
  return NS_OK;
}

// Interfaces with a gateway have the machine's servers, as on a machine with one resolver.
nsresult nsSimulatedNetworkSettings::WriteResolver(const std::vector<nsIPv4Bytes>& aServers) {
  if (nsresult rv = Enter("WriteResolver"); NS_FAILED(rv)) return rv;
  for (const nsSimulatedInterface& interface : mNetwork->Interfaces())
    (void)mNetwork->Alter(interface.mAddresses.mAdapterName, [&](nsSimulatedInterface& aInterface) {
      ReplaceIPv4(aInterface.mAddresses.mDnsServers,
                  aInterface.mGateways.empty() ? std::vector<nsIPv4Bytes>() : aServers);
    });
  Record("WriteResolver");
  return NS_OK;
}

nsresult nsSimulatedNetworkSettings::RestoreResolver(const std::string& aRecord) {
  if (nsresult rv = Enter("RestoreResolver"); NS_FAILED(rv)) return rv;
  const auto* const kept = Kept(aRecord);
  if (!kept) return NS_ERROR_FILE_CORRUPTED;
  for (const nsSimulatedInterface& interface : *kept)
    (void)mNetwork->Alter(interface.mAddresses.mAdapterName, [&](nsSimulatedInterface& aInterface) {
      aInterface.mAddresses.mDnsServers = interface.mAddresses.mDnsServers;
    });
  Record("RestoreResolver");
  return NS_OK;
}

nsresult nsSimulatedNetworkSettings::LoadJournal(std::string* aText) {
  if (nsresult rv = Enter("LoadJournal"); NS_FAILED(rv)) return rv;
  const std::lock_guard lock(mLock);
  if (mJournalTaken) return NS_ERROR_FILE_IS_LOCKED;
  if (!mJournal) return NS_ERROR_FILE_NOT_FOUND;
  *aText = *mJournal;
  return NS_OK;
}

nsresult nsSimulatedNetworkSettings::SaveJournal(const std::string& aText) {
  if (nsresult rv = Enter("SaveJournal"); NS_FAILED(rv)) return rv;
  const std::lock_guard lock(mLock);
  if (mJournalTaken) return NS_ERROR_FILE_IS_LOCKED;
  mJournal = aText;
  Record("SaveJournal");
  return NS_OK;
}

nsresult nsSimulatedNetworkSettings::DropJournal() {
  if (nsresult rv = Enter("DropJournal"); NS_FAILED(rv)) return rv;
  const std::lock_guard lock(mLock);
  if (mJournalTaken) return NS_ERROR_FILE_IS_LOCKED;
  if (std::exchange(mJournal, std::nullopt)) Record("DropJournal");
  return NS_OK;
}
