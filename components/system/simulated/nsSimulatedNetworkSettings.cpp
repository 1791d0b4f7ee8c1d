#include "nsSimulatedNetworkSettings.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>
#include <utility>

#include "nsLock.h"
#include "nsPlatformNetworkText.h"

namespace {

bool IsIPv4(const nsSocketAddress& aAddress) { return aAddress.mFamily != nsSocketAddress::kIPv6; }

// The new ones come first, in the place of all of their families.
void ReplaceServers(std::vector<nsSocketAddress>& aServers,
                    const std::vector<nsSocketAddress>& aNew) {
  std::erase_if(aServers, [&](const nsSocketAddress& aServer) {
    return std::ranges::find(aNew, aServer.mFamily, &nsSocketAddress::mFamily) != aNew.end();
  });
  aServers.insert(aServers.begin(), aNew.begin(), aNew.end());
}

// What DHCP and an administrator give; a router's addresses stay.
void ReplaceAddresses(nsAdapterAddresses& aRecord, const nsInterfaceSettings& aSettings) {
  auto& addresses = aRecord.mUnicastAddresses;
  std::erase_if(addresses, [](const nsUnicastAddress& aAddress) {
    return IsIPv4(aAddress.mAddress) || aAddress.mPrefixOrigin == 1;
  });
  for (size_t i = 0; i < aSettings.mAddresses.size(); ++i) {
    nsUnicastAddress address;
    address.mAddress = aSettings.mAddresses[i].mAddress;
    address.mOnLinkPrefixLength = aSettings.mAddresses[i].mPrefixLength;
    addresses.insert(addresses.begin() + static_cast<ptrdiff_t>(i), address);
  }
  if (aSettings.mIsDhcp)
    aRecord.mFlags |= nsAdapterAddresses::kDhcpEnabled;
  else
    aRecord.mFlags &= ~nsAdapterAddresses::kDhcpEnabled;
}

/// Nothing comes of it: the other process calls the handler.
class QuietSource final : public nsEventSource {
 public:
  explicit QuietSource(std::function<void()> aEnd) : mEnd(std::move(aEnd)) {}
  ~QuietSource() override { mEnd(); }
  void Wait() override {
    nsAutoLock lock(mLock);
    mWoken.Wait(lock, [this]() NS_REQUIRES(mLock) { return std::exchange(mIsWoken, false); });
  }
  bool Consume() override { return false; }
  void Wake() override {
    const nsAutoLock lock(mLock);
    mIsWoken = true;
    mWoken.NotifyAll();
  }

 private:
  const std::function<void()> mEnd;
  nsMutex mLock;
  nsCondition mWoken;
  bool mIsWoken NS_GUARDED_BY(mLock) = false;
};

}  // namespace

nsSimulatedNetworkSettings::nsSimulatedNetworkSettings(nsSimulatedCallsRef aCalls,
                                                       std::shared_ptr<nsSimulatedNetwork> aNetwork)
    : nsSimulatedPort(std::move(aCalls), "NetworkSettings"), mNetwork(std::move(aNetwork)) {}

void nsSimulatedNetworkSettings::SetFault(const std::string& aInterface, Fault aFault) {
  const nsAutoLock lock(mLock);
  mFaults[aInterface] = aFault;
}

void nsSimulatedNetworkSettings::SetWay(nsInterfaceWay aWay) {
  const nsAutoLock lock(mLock);
  mWay = std::move(aWay);
}

void nsSimulatedNetworkSettings::SetAway(bool aIsAway) {
  const nsAutoLock lock(mLock);
  mIsAway = aIsAway;
}

uint32_t nsSimulatedNetworkSettings::IgmpVersion() const {
  const nsAutoLock lock(mLock);
  return mIgmpVersion;
}

std::optional<std::string> nsSimulatedNetworkSettings::State() const {
  const nsAutoLock lock(mLock);
  return mState;
}

void nsSimulatedNetworkSettings::SetState(std::optional<std::string> aText) {
  const nsAutoLock lock(mLock);
  mState = std::move(aText);
}

void nsSimulatedNetworkSettings::ReadFacts(const nsMachineValue& aValue) { ReadChange(aValue)(); }

std::function<void()> nsSimulatedNetworkSettings::ReadChange(const nsMachineValue& aValue) {
  std::vector<std::function<void()>> changes;
  aValue.AsObject([&](nsMachineObject& aObject) {
    const nsMachineValue* const service = aObject.Optional("service");
    const nsMachineValue* const client = aObject.Optional("dhcpClient");
    if (service)
      changes.emplace_back([this, name = service->AsString()] {
        const nsAutoLock lock(mLock);
        mWay.mService = name;
      });
    if (client)
      changes.emplace_back([this, name = client->AsString()] {
        const nsAutoLock lock(mLock);
        mWay.mDhcpClient = name;
      });
    if (const nsMachineValue* const away = aObject.Optional("away"))
      changes.emplace_back([this, isAway = away->AsBoolean()] { SetAway(isAway); });
    const nsMachineValue* const faults = aObject.Optional("faults");
    if (!faults) return;
    for (const nsMachineValue& element : faults->AsArray())
      element.AsObject([&](nsMachineObject& aFault) {
        const std::string name = aFault.Required("interface").AsString();
        const nsMachineValue& kind = aFault.Required("fault");
        const std::string text = kind.AsString();
        const Fault fault = text == "refused"     ? eRefused
                            : text == "half-done" ? eHalfDone
                            : text == "link-lost" ? eLinkLost
                                                  : eNone;
        if (fault == eNone && text != "none")
          kind.Fail("must be \"none\", \"refused\", \"half-done\" or \"link-lost\"");
        changes.emplace_back([this, name, fault] { SetFault(name, fault); });
      });
  });
  return [changes = std::move(changes)] {
    for (const auto& change : changes) change();
  };
}

std::string nsSimulatedNetworkSettings::Keep(std::vector<nsSimulatedInterface> aInterfaces) {
  const nsAutoLock lock(mLock);
  const std::string record = "record " + std::to_string(mKept.size() + 1);
  mKept[record] = std::move(aInterfaces);
  return record;
}

const std::vector<nsSimulatedInterface>* nsSimulatedNetworkSettings::Kept(
    const std::string& aRecord) const {
  const nsAutoLock lock(mLock);
  const auto found = mKept.find(aRecord);
  return found == mKept.end() ? nullptr : &found->second;  // none is ever removed
}

/// One process of the machine.
class nsSimulatedNetworkSettings::Port final : public nsPlatformNetworkSettings {
 public:
  explicit Port(std::shared_ptr<nsSimulatedNetworkSettings> aShared)
      : mShared(std::move(aShared)) {}
  ~Port() override {
    (void)Release();
    const nsAutoLock lock(mShared->mLock);
    if (mShared->mListener == this) mShared->mListener = nullptr;
  }

  nsresult FindWay(const std::string& aName, nsInterfaceWay* aWay) override {
    if (nsresult rv = mShared->Enter("FindWay"); NS_FAILED(rv)) return rv;
    if (!Has(aName)) return NS_ERROR_FILE_NOT_FOUND;
    const nsAutoLock lock(mShared->mLock);
    *aWay = mShared->mWay;
    if (mShared->mIsAway) *aWay = {"", "", aWay->mTakesServers, false};
    return NS_OK;
  }
  nsresult AwaitService(const std::string& aService, uint32_t aMilliseconds) override {
    if (nsresult rv = mShared->Enter("AwaitService"); NS_FAILED(rv)) return rv;
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(aMilliseconds);
    while (IsAway(aService)) {
      if (std::chrono::steady_clock::now() >= end) return NS_ERROR_OFFLINE;
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return NS_OK;
  }
  nsresult ReadInterface(const std::string& aName, uint32_t, std::string* aRecord) override {
    if (nsresult rv = mShared->Enter("ReadInterface"); NS_FAILED(rv)) return rv;
    if (IsAway()) return NS_ERROR_OFFLINE;
    for (const nsSimulatedInterface& interface : mShared->mNetwork->Interfaces()) {
      if (interface.mAddresses.mAdapterName != aName) continue;
      *aRecord = mShared->Keep({interface});
      return NS_OK;
    }
    return NS_ERROR_FILE_NOT_FOUND;
  }
  nsresult WriteInterface(const std::string& aName, const std::string&,
                          const nsInterfaceSettings& aSettings) override {
    if (nsresult rv = mShared->Enter("WriteInterface"); NS_FAILED(rv)) return rv;
    if (IsAway()) return NS_ERROR_OFFLINE;
    const auto [fault, takesServers] = FaultOf(aName);
    if (fault == eRefused) return NS_ERROR_FAILURE;
    const bool found =
        mShared->mNetwork->Alter(aName, [&, half = fault == eHalfDone, lost = fault == eLinkLost,
                                         ours = takesServers](nsSimulatedInterface& aInterface) {
          ReplaceAddresses(aInterface.mAddresses, aSettings);
          if (half) return;
          aInterface.mGateways.clear();
          for (const nsSocketAddress& gateway : aSettings.mGateways)
            aInterface.mGateways.push_back(NS_AddressText(gateway));
          if (ours && !aSettings.mServers.empty())
            ReplaceServers(aInterface.mAddresses.mDnsServers, aSettings.mServers);
          if (lost) aInterface.mAddresses.mOperStatus = nsAdapterAddresses::kDown;
        });
    if (!found) return NS_ERROR_FILE_NOT_FOUND;
    mShared->Record("WriteInterface " + aName);
    return fault == eHalfDone ? NS_ERROR_FAILURE : NS_OK;
  }
  nsresult KeepInterface(const std::string& aName, const std::string&) override {
    if (nsresult rv = mShared->Enter("KeepInterface"); NS_FAILED(rv)) return rv;
    if (IsAway()) return NS_ERROR_OFFLINE;
    return Has(aName) ? NS_OK : NS_ERROR_FILE_NOT_FOUND;
  }
  nsresult ForgetInterface(const std::string& aName, const std::string&) override {
    if (nsresult rv = mShared->Enter("ForgetInterface"); NS_FAILED(rv)) return rv;
    if (IsAway()) return NS_ERROR_OFFLINE;
    return Has(aName) ? NS_OK : NS_ERROR_FILE_NOT_FOUND;
  }
  nsresult RestoreInterface(const std::string& aName, const std::string& aRecord) override {
    if (nsresult rv = mShared->Enter("RestoreInterface"); NS_FAILED(rv)) return rv;
    if (IsAway()) return NS_ERROR_OFFLINE;
    const auto* const kept = mShared->Kept(aRecord);
    if (!kept || kept->size() != 1) return NS_ERROR_FILE_CORRUPTED;
    const bool found = mShared->mNetwork->Alter(
        aName, [&](nsSimulatedInterface& aInterface) { aInterface = kept->front(); });
    if (!found) return NS_ERROR_FILE_NOT_FOUND;
    mShared->Record("RestoreInterface " + aName);
    return NS_OK;
  }

  nsresult ReadServers(std::vector<nsSocketAddress>* aServers) override {
    if (nsresult rv = mShared->Enter("ReadServers"); NS_FAILED(rv)) return rv;
    std::vector<nsSocketAddress> servers;
    for (const nsSimulatedInterface& interface : mShared->mNetwork->Interfaces())
      for (const nsSocketAddress& server : interface.mAddresses.mDnsServers)
        if (std::ranges::find(servers, server) == servers.end()) servers.push_back(server);
    *aServers = std::move(servers);
    return NS_OK;
  }
  nsresult ReadResolver(std::string* aRecord) override {
    if (nsresult rv = mShared->Enter("ReadResolver"); NS_FAILED(rv)) return rv;
    *aRecord = mShared->Keep(mShared->mNetwork->Interfaces());
    return NS_OK;
  }
  // Interfaces with a gateway have the machine's servers, as on a machine with one resolver.
  nsresult WriteResolver(const std::vector<nsSocketAddress>& aServers) override {
    if (nsresult rv = mShared->Enter("WriteResolver"); NS_FAILED(rv)) return rv;
    for (const nsSimulatedInterface& interface : mShared->mNetwork->Interfaces())
      (void)mShared->mNetwork->Alter(
          interface.mAddresses.mAdapterName, [&](nsSimulatedInterface& aInterface) {
            if (!aInterface.mGateways.empty())
              ReplaceServers(aInterface.mAddresses.mDnsServers, aServers);
          });
    mShared->Record("WriteResolver");
    return NS_OK;
  }
  nsresult RestoreResolver(const std::string& aRecord) override {
    if (nsresult rv = mShared->Enter("RestoreResolver"); NS_FAILED(rv)) return rv;
    const auto* const kept = mShared->Kept(aRecord);
    if (!kept) return NS_ERROR_FILE_CORRUPTED;
    for (const nsSimulatedInterface& interface : *kept)
      (void)mShared->mNetwork->Alter(
          interface.mAddresses.mAdapterName, [&](nsSimulatedInterface& aInterface) {
            aInterface.mAddresses.mDnsServers = interface.mAddresses.mDnsServers;
          });
    mShared->Record("RestoreResolver");
    return NS_OK;
  }

  nsresult ReadIgmpVersion(uint32_t* aVersion) override {
    if (nsresult rv = mShared->Enter("ReadIgmpVersion"); NS_FAILED(rv)) return rv;
    *aVersion = mShared->IgmpVersion();
    return NS_OK;
  }
  nsresult WriteIgmpVersion(uint32_t aVersion) override {
    if (nsresult rv = mShared->Enter("WriteIgmpVersion"); NS_FAILED(rv)) return rv;
    if (aVersion > 3) return NS_ERROR_INVALID_ARG;
    {
      const nsAutoLock lock(mShared->mLock);
      mShared->mIgmpVersion = aVersion;
    }
    mShared->Record("WriteIgmpVersion " + std::to_string(aVersion));
    return NS_OK;
  }

  nsresult LockState() override {
    if (nsresult rv = mShared->Enter("LockState"); NS_FAILED(rv)) return rv;
    const nsAutoLock lock(mShared->mLock);
    if (mShared->mHolder && mShared->mHolder != this) return NS_ERROR_FILE_IS_LOCKED;
    mShared->mHolder = this;
    return NS_OK;
  }
  nsresult UnlockState() override {
    // One that fails would keep the state from everybody: no system has that.
    return Release();
  }
  nsresult LoadState(std::string* aText) override {
    if (nsresult rv = mShared->Enter("LoadState"); NS_FAILED(rv)) return rv;
    const nsAutoLock lock(mShared->mLock);
    if (!mShared->mState) return NS_ERROR_FILE_NOT_FOUND;
    *aText = *mShared->mState;
    return NS_OK;
  }
  nsresult SaveState(const std::string& aText) override {
    if (nsresult rv = mShared->Enter("SaveState"); NS_FAILED(rv)) return rv;
    const nsAutoLock lock(mShared->mLock);
    if (mShared->mHolder != this) return NS_ERROR_FILE_IS_LOCKED;
    mShared->mState = aText;
    mShared->Record("SaveState");
    return NS_OK;
  }

  nsresult Listen(std::function<void(nsNetworkRequest)> aHandler,
                  std::shared_ptr<nsEventSource>* aSource) override {
    if (nsresult rv = mShared->Enter("Listen"); NS_FAILED(rv)) return rv;
    // The handler holds who listens, who may hold the machine.
    *aSource = std::make_shared<QuietSource>([shared = mShared, self = this] {
      std::function<void(nsNetworkRequest)> handler;
      const nsAutoLock lock(shared->mLock);
      if (shared->mListener != self) return;
      shared->mListener = nullptr;
      handler.swap(shared->mHandler);
    });
    const nsAutoLock lock(mShared->mLock);
    mShared->mHandler = std::move(aHandler);
    mShared->mListener = this;
    return NS_OK;
  }
  nsresult Ask(const std::string& aWord, std::string* aAnswer) override {
    if (nsresult rv = mShared->Enter("Ask"); NS_FAILED(rv)) return rv;
    struct Answer {
      nsMutex mLock;
      nsCondition mCome;
      std::optional<std::string> mText NS_GUARDED_BY(mLock);
    };
    const auto answer = std::make_shared<Answer>();
    std::function<void(nsNetworkRequest)> handler;
    {
      const nsAutoLock lock(mShared->mLock);
      if (!mShared->mListener || mShared->mHolder != mShared->mListener)
        return NS_ERROR_NOT_AVAILABLE;
      handler = mShared->mHandler;
    }
    handler({aWord, [answer](const std::string& aText) {
               const nsAutoLock lock(answer->mLock);
               answer->mText = aText;
               answer->mCome.NotifyAll();
             }});
    nsAutoLock lock(answer->mLock);
    answer->mCome.Wait(lock,
                       [&]() NS_REQUIRES(answer->mLock) { return answer->mText.has_value(); });
    *aAnswer = *answer->mText;
    return NS_OK;
  }
  std::string Reason() override { return ""; }
  void Cancel() override {}

 private:
  nsresult Release() {
    const nsAutoLock lock(mShared->mLock);
    if (mShared->mHolder == this) mShared->mHolder = nullptr;
    return NS_OK;
  }
  bool IsAway() const {
    const nsAutoLock lock(mShared->mLock);
    return mShared->mIsAway;
  }
  bool IsAway(const std::string& aService) const {
    const nsAutoLock lock(mShared->mLock);
    return mShared->mIsAway && mShared->mWay.mService == aService;
  }
  bool Has(const std::string& aName) const {
    return std::ranges::any_of(mShared->mNetwork->Interfaces(),
                               [&](const nsSimulatedInterface& aInterface) {
                                 return aInterface.mAddresses.mAdapterName == aName;
                               });
  }
  /// And whether servers are set by interface.
  std::pair<Fault, bool> FaultOf(const std::string& aName) const {
    const nsAutoLock lock(mShared->mLock);
    const auto found = mShared->mFaults.find(aName);
    return {found == mShared->mFaults.end() ? eNone : found->second, mShared->mWay.mTakesServers};
  }

  const std::shared_ptr<nsSimulatedNetworkSettings> mShared;
};

std::shared_ptr<nsPlatformNetworkSettings> nsSimulatedNetworkSettings::NewPort(
    std::shared_ptr<nsSimulatedNetworkSettings> aSettings) {
  return std::make_shared<Port>(std::move(aSettings));
}
