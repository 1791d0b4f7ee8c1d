#include "nsSimulatedNetwork.h"

#include <algorithm>
#include <charconv>
#include <set>
#include <stdexcept>
#include <utility>

#include "nsAddressText.h"
#include "nsUtf.h"

namespace {

// The readers of the library take text behind an address, and blanks before its numbers, as the
// system does; who writes a machine file means what stands there.
bool ReadAddress(const std::string& aText, nsSocketAddress* aAddress) {
  nsSocketAddress address;
  const auto ipv4 = std::span(address.mBytes).first<4>();
  if (aText.find(':') != aText.npos) {
    address.mFamily = nsSocketAddress::kIPv6;
    size_t read = 0;
    if (NS_FAILED(vorel::address::ParseIPv6(aText, address.mBytes, &read)) || read != aText.size())
      return false;
  } else if (NS_FAILED(vorel::address::ParseIPv4(aText, ipv4)) ||
             vorel::address::FormatIPv4(ipv4) != aText) {
    return false;
  }
  *aAddress = address;
  return true;
}

bool ReadUnicast(const std::string& aText, nsUnicastAddress* aAddress) {
  nsUnicastAddress address;
  const size_t slash = aText.find('/');
  if (slash == aText.npos || !ReadAddress(aText.substr(0, slash), &address.mAddress)) return false;
  const std::string_view digits = std::string_view(aText).substr(slash + 1);
  const unsigned longest = address.mAddress.mFamily == nsSocketAddress::kIPv6 ? 128 : 32;
  unsigned length = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), length);
  if (error != std::errc() || end != digits.data() + digits.size() || length > longest)
    return false;
  address.mOnLinkPrefixLength = static_cast<uint8_t>(length);
  *aAddress = address;
  return true;
}

nsSocketAddress SocketAddressOf(const nsMachineValue& aValue) {
  nsSocketAddress address;
  if (!ReadAddress(aValue.AsString(), &address)) aValue.Fail("must be an IPv4 or IPv6 address");
  return address;
}

nsUnicastAddress UnicastOf(const nsMachineValue& aValue) {
  nsUnicastAddress address;
  if (!ReadUnicast(aValue.AsString(), &address))
    aValue.Fail("must be an address with a prefix length behind \"/\"");
  return address;
}

std::string GatewayOf(const nsMachineValue& aValue) {
  if (SocketAddressOf(aValue).mFamily != nsSocketAddress::kIPv4)
    aValue.Fail("must be an IPv4 address");
  return aValue.AsString();
}

template <class T>
std::vector<T> ListOf(const nsMachineValue& aValue, T (*aRead)(const nsMachineValue&)) {
  std::vector<T> list;
  for (const nsMachineValue& element : aValue.AsArray()) list.push_back(aRead(element));
  return list;
}

uint32_t TypeOf(const nsMachineValue& aValue) {
  using Record = nsAdapterAddresses;
  return aValue.AsOneOf<uint32_t>({{"ethernet", Record::kEthernet},
                                   {"wireless", Record::kWireless},
                                   {"loopback", Record::kLoopback},
                                   {"tunnel", Record::kTunnel},
                                   {"ppp", Record::kPpp},
                                   {"wwan", Record::kWwan},
                                   {"other", Record::kOther}});
}

uint32_t MediumOf(const nsMachineValue& aValue) {
  return aValue.AsOneOf<uint32_t>({{"wire", nsIfRow::kEthernet8023},
                                   {"wireless", nsIfRow::kNative80211},
                                   {"bluetooth", nsIfRow::kBluetooth},
                                   {"unspecified", nsIfRow::kUnspecified},
                                   {"other", nsIfRow::kOther}});
}

uint32_t StatusOf(const nsMachineValue& aValue) {
  using Record = nsAdapterAddresses;
  return aValue.AsOneOf<uint32_t>({{"up", Record::kUp},
                                   {"down", Record::kDown},
                                   {"testing", Record::kTesting},
                                   {"unknown", Record::kUnknown},
                                   {"dormant", Record::kDormant},
                                   {"notPresent", Record::kNotPresent},
                                   {"lowerLayerDown", Record::kLowerLayerDown}});
}

std::vector<uint8_t> MacOf(const nsMachineValue& aValue) {
  std::vector<uint8_t> bytes;
  const std::string& text = aValue.AsString();
  const bool plain = text.find_first_not_of("0123456789abcdefABCDEF-:") == text.npos;
  if (!text.empty() && (!plain || NS_FAILED(vorel::address::ParseMAC(text, &bytes))))
    aValue.Fail("must be bytes in hexadecimal with \"-\" or \":\" between");
  return bytes;
}

using Step = std::function<void(nsSimulatedInterface&)>;

// The fields that an object has, as steps: a change sets those and leaves the others.
struct Fields {
  std::string mName;
  std::vector<Step> mSteps;

  void ApplyTo(nsSimulatedInterface& aInterface) const {
    for (const Step& step : mSteps) step(aInterface);
    aInterface.mHasInfo = aInterface.mAddresses.mPhysicalAddress.size() == 6;
  }
};

Fields ReadFields(const nsMachineValue& aValue) {
  Fields fields;
  aValue.AsObject([&](nsMachineObject& aObject) {
    const nsMachineValue& name = aObject.Required("name");
    fields.mName = name.AsString();
    if (fields.mName.empty()) name.Fail("must not be empty");
    const auto set = [&](const char* aKey, auto aRead, auto aAssign) {
      if (const nsMachineValue* value = aObject.Optional(aKey))
        fields.mSteps.push_back([read = aRead(*value), aAssign](nsSimulatedInterface& aInterface) {
          aAssign(aInterface, read);
        });
    };
    const auto text = [](const nsMachineValue& aText) {
      return vorel::Utf8ToUtf16(aText.AsString());
    };
    const auto boolean = [](const nsMachineValue& aBool) { return aBool.AsBoolean(); };
    const auto number = [](const nsMachineValue& aNumber) { return aNumber.AsInteger<uint32_t>(); };
    const auto speed = [](const nsMachineValue& aNumber) {
      return static_cast<uint64_t>(aNumber.AsInteger<int64_t>(0));
    };
    const auto flag = [](uint32_t aFlag) {
      return [aFlag](nsSimulatedInterface& aI, bool aOn) {
        uint32_t& flags = aI.mAddresses.mFlags;
        flags = aOn ? flags | aFlag : flags & ~aFlag;
      };
    };
    using I = nsSimulatedInterface;
    using Sockets = std::vector<nsSocketAddress>;
    const auto sockets = [](const nsMachineValue& aList) { return ListOf(aList, SocketAddressOf); };
    set("label", text, [](I& aI, const auto& aText) { aI.mAddresses.mFriendlyName = aText; });
    set("description", text, [](I& aI, const auto& aText) { aI.mAddresses.mDescription = aText; });
    set("index", number, [](I& aI, uint32_t aNumber) { aI.mAddresses.mIfIndex = aNumber; });
    set("type", TypeOf, [](I& aI, uint32_t aType) { aI.mAddresses.mIfType = aType; });
    set("medium", MediumOf, [](I& aI, uint32_t aMedium) { aI.mPhysicalMedium = aMedium; });
    set("status", StatusOf, [](I& aI, uint32_t aStatus) { aI.mAddresses.mOperStatus = aStatus; });
    set("mac", MacOf, [](I& aI, const auto& aMac) { aI.mAddresses.mPhysicalAddress = aMac; });
    set("speed", speed, [](I& aI, uint64_t aSpeed) {
      aI.mAddresses.mTransmitLinkSpeed = aI.mAddresses.mReceiveLinkSpeed = aSpeed;
    });
    set("ipv4", boolean, flag(nsAdapterAddresses::kIpv4Enabled));
    set("ipv6", boolean, flag(nsAdapterAddresses::kIpv6Enabled));
    set("dhcp", boolean, flag(nsAdapterAddresses::kDhcpEnabled));
    set(
        "addresses", [](const nsMachineValue& aList) { return ListOf(aList, UnicastOf); },
        [](I& aI, const auto& aList) { aI.mAddresses.mUnicastAddresses = aList; });
    set("multicast", sockets,
        [](I& aI, const Sockets& aList) { aI.mAddresses.mMulticastAddresses = aList; });
    set("dns", sockets, [](I& aI, const Sockets& aList) { aI.mAddresses.mDnsServers = aList; });
    set(
        "gateways", [](const nsMachineValue& aList) { return ListOf(aList, GatewayOf); },
        [](I& aI, const auto& aList) { aI.mGateways = aList; });
    set("answersSsid", boolean, [](I& aI, bool aAnswers) { aI.mAnswersSsid = aAnswers; });
  });
  return fields;
}

std::vector<Fields> ReadInterfaces(const nsMachineValue& aValue) {
  std::vector<Fields> interfaces;
  std::set<std::string> names;
  for (const nsMachineValue& element : aValue.AsArray()) {
    Fields fields = ReadFields(element);
    if (!names.insert(fields.mName).second) element.FailRepeated("interface", fields.mName);
    interfaces.push_back(std::move(fields));
  }
  return interfaces;
}

std::string Dotted(std::span<const uint8_t, 16> aBytes) {
  return vorel::address::FormatIPv4(aBytes.first<4>());
}

std::string MaskText(unsigned aLength) {
  std::array<uint8_t, 16> bytes{};
  for (unsigned bit = 0; bit < aLength; ++bit)
    bytes[bit / 8] = static_cast<uint8_t>(bytes[bit / 8] | 0x80u >> bit % 8);
  return Dotted(bytes);
}

}  // namespace

nsSimulatedNetwork::nsSimulatedNetwork(nsSimulatedCallsRef aCalls)
    : nsSimulatedPort(std::move(aCalls), "Network") {}

nsSimulatedInterface nsSimulatedNetwork::Wire(const std::string& aName, const std::string& aMac,
                                              const std::vector<std::string>& aAddresses) {
  nsSimulatedInterface wire;
  nsAdapterAddresses& record = wire.mAddresses;
  record.mAdapterName = aName;
  record.mFriendlyName = record.mDescription = vorel::Utf8ToUtf16(aName);
  record.mIfType = nsAdapterAddresses::kEthernet;
  record.mOperStatus = nsAdapterAddresses::kUp;
  record.mFlags = nsAdapterAddresses::kIpv4Enabled | nsAdapterAddresses::kIpv6Enabled;
  (void)vorel::address::ParseMAC(aMac, &record.mPhysicalAddress);
  for (const std::string& address : aAddresses)
    record.mUnicastAddresses.push_back(Address(address));
  return wire;
}

nsUnicastAddress nsSimulatedNetwork::Address(const std::string& aText) {
  nsUnicastAddress address;
  if (!ReadUnicast(aText, &address)) throw std::invalid_argument(aText);
  return address;
}

nsSocketAddress nsSimulatedNetwork::Server(const std::string& aText) {
  nsSocketAddress address;
  if (!ReadAddress(aText, &address)) throw std::invalid_argument(aText);
  return address;
}

nsSimulatedInterface* nsSimulatedNetwork::Find(const std::string& aName) {
  const auto found = std::ranges::find_if(mInterfaces, [&](const nsSimulatedInterface& aInterface) {
    return aInterface.mAddresses.mAdapterName == aName;
  });
  return found == mInterfaces.end() ? nullptr : &*found;
}

void nsSimulatedNetwork::Changed() {
  std::function<void()> listener;
  {
    const nsAutoLock lock(mLock);
    listener = mListener;
  }
  if (listener) listener();
}

void nsSimulatedNetwork::Put(nsSimulatedInterface aInterface) {
  {
    const nsAutoLock lock(mLock);
    nsAdapterAddresses& record = aInterface.mAddresses;
    nsSimulatedInterface* const known = Find(record.mAdapterName);
    if (record.mIfIndex == 0) record.mIfIndex = known ? known->mAddresses.mIfIndex : mLastIndex + 1;
    mLastIndex = std::max(mLastIndex, record.mIfIndex);
    if (record.mFlags & nsAdapterAddresses::kIpv6Enabled) record.mIpv6IfIndex = record.mIfIndex;
    if (known)
      *known = std::move(aInterface);
    else
      mInterfaces.push_back(std::move(aInterface));
  }
  Changed();
}

bool nsSimulatedNetwork::Alter(const std::string& aName,
                               const std::function<void(nsSimulatedInterface&)>& aChange) {
  {
    const nsAutoLock lock(mLock);
    nsSimulatedInterface* const known = Find(aName);
    if (!known) return false;
    aChange(*known);
  }
  Changed();
  return true;
}

void nsSimulatedNetwork::Remove(const std::string& aName) {
  {
    const nsAutoLock lock(mLock);
    std::erase_if(mInterfaces, [&](const nsSimulatedInterface& aInterface) {
      return aInterface.mAddresses.mAdapterName == aName;
    });
  }
  Changed();
}

std::vector<nsSimulatedInterface> nsSimulatedNetwork::Interfaces() const {
  const nsAutoLock lock(mLock);
  return mInterfaces;
}

void nsSimulatedNetwork::SetVersion(nsSystemVersion aVersion) {
  const nsAutoLock lock(mLock);
  mVersion = aVersion;
}

void nsSimulatedNetwork::SetIpHelper(bool aLibrary, bool aFunction) {
  const nsAutoLock lock(mLock);
  mHasLibrary = aLibrary;
  mHasFunction = aFunction;
}

void nsSimulatedNetwork::SetListener(std::function<void()> aListener) {
  const nsAutoLock lock(mLock);
  mListener = std::move(aListener);
}

void nsSimulatedNetwork::ReadFacts(const nsMachineValue& aValue) {
  for (const Fields& fields : ReadInterfaces(aValue)) {
    nsSimulatedInterface interface = Wire(fields.mName, "");
    fields.ApplyTo(interface);
    Put(std::move(interface));
  }
}

std::function<void()> nsSimulatedNetwork::ReadChange(const nsMachineValue& aValue) {
  std::vector<std::string> gone;
  std::vector<Fields> set;
  aValue.AsObject([&](nsMachineObject& aObject) {
    if (const nsMachineValue* names = aObject.Optional("remove"))
      for (const nsMachineValue& name : names->AsArray()) gone.push_back(name.AsString());
    if (const nsMachineValue* interfaces = aObject.Optional("set"))
      set = ReadInterfaces(*interfaces);
  });
  return [this, gone, set] {
    for (const std::string& name : gone) Remove(name);
    for (const Fields& fields : set) {
      if (Alter(fields.mName, [&](nsSimulatedInterface& aI) { fields.ApplyTo(aI); })) continue;
      nsSimulatedInterface interface = Wire(fields.mName, "");
      fields.ApplyTo(interface);
      Put(std::move(interface));
    }
  };
}

nsSystemVersion nsSimulatedNetwork::GetSystemVersion() {
  const nsAutoLock lock(mLock);
  return mVersion;
}

/// The interfaces as they were; the calls are the port's, and fail as the test wants it.
class nsSimulatedNetwork::Reading final : public nsNetworkReading {
 public:
  explicit Reading(nsSimulatedNetwork& aNetwork) : mNetwork(aNetwork) {
    const nsAutoLock lock(mNetwork.mLock);
    mInterfaces = mNetwork.mInterfaces;
    mHasFunction = mNetwork.mHasLibrary && mNetwork.mHasFunction;
  }

  nsresult GetAdaptersInfo(std::vector<nsAdapterInfo>* aInfos) override {
    if (nsresult rv = mNetwork.Enter("GetAdaptersInfo"); NS_FAILED(rv)) return mFailure = rv;
    std::vector<nsAdapterInfo> infos;
    for (const nsSimulatedInterface& interface : mInterfaces) {
      if (!interface.mHasInfo) continue;
      nsAdapterInfo info;
      info.mAdapterName = interface.mAddresses.mAdapterName;
      for (const nsUnicastAddress& address : interface.mAddresses.mUnicastAddresses)
        if (address.mAddress.mFamily == nsSocketAddress::kIPv4)
          info.mIpAddressList.push_back(
              {Dotted(address.mAddress.mBytes), MaskText(address.mOnLinkPrefixLength)});
      if (info.mIpAddressList.empty()) info.mIpAddressList.push_back({"0.0.0.0", "0.0.0.0"});
      info.mGatewayList = interface.mGateways;
      if (info.mGatewayList.empty()) info.mGatewayList.push_back("0.0.0.0");
      infos.push_back(std::move(info));
    }
    if (infos.empty()) return NS_ERROR_NOT_AVAILABLE;
    *aInfos = std::move(infos);
    return NS_OK;
  }

  nsresult GetAdaptersAddresses(uint32_t, uint32_t,
                                std::vector<nsAdapterAddresses>* aAddresses) override {
    if (nsresult rv = mNetwork.Enter("GetAdaptersAddresses"); NS_FAILED(rv)) return mFailure = rv;
    std::vector<nsAdapterAddresses> addresses;
    for (const nsSimulatedInterface& interface : mInterfaces)
      addresses.push_back(interface.mAddresses);
    *aAddresses = std::move(addresses);
    return NS_OK;
  }

  GetIfEntry2Function FindGetIfEntry2() override {
    if (NS_FAILED(mNetwork.Enter("FindGetIfEntry2")) || !mHasFunction) return {};
    return [this](uint32_t aIfIndex, nsIfRow* aRow) {
      if (nsresult rv = mNetwork.Enter("GetIfEntry2"); NS_FAILED(rv)) return rv;
      for (const nsSimulatedInterface& interface : mInterfaces) {
        if (interface.mAddresses.mIfIndex != aIfIndex || !interface.mHasRow) continue;
        *aRow = {interface.mAddresses.mIfType, 0, interface.mPhysicalMedium};
        return NS_OK;
      }
      return NS_ERROR_NOT_AVAILABLE;
    };
  }

  std::string Reason() const override { return std::string(NS_ResultName(mFailure)); }

 private:
  nsSimulatedNetwork& mNetwork;
  std::vector<nsSimulatedInterface> mInterfaces;
  bool mHasFunction = false;
  nsresult mFailure = NS_OK;
};

std::unique_ptr<nsNetworkReading> nsSimulatedNetwork::Read() {
  return std::make_unique<Reading>(*this);
}

bool nsSimulatedNetwork::LoadIpHelper() {
  if (NS_FAILED(Enter("LoadIpHelper"))) return false;
  const nsAutoLock lock(mLock);
  return mHasLibrary;
}

nsresult nsSimulatedNetwork::PacketOpenAdapter(const std::string& aName, PacketAdapter* aAdapter) {
  if (nsresult rv = Enter("PacketOpenAdapter"); NS_FAILED(rv)) return rv;
  const nsAutoLock lock(mLock);
  for (const nsSimulatedInterface& interface : mInterfaces) {
    const std::string& name = interface.mAddresses.mAdapterName;
    if (!aName.ends_with("_" + name)) continue;
    mOpenPackets.push_back(name);
    *aAdapter = static_cast<PacketAdapter>(mOpenPackets.size());
    Record("PacketOpenAdapter " + aName);
    return NS_OK;
  }
  return NS_ERROR_NOT_AVAILABLE;
}

nsresult nsSimulatedNetwork::PacketRequest(PacketAdapter aAdapter, bool aSet, uint32_t aOid,
                                           std::vector<uint8_t>*) {
  if (nsresult rv = Enter("PacketRequest"); NS_FAILED(rv)) return rv;
  const nsAutoLock lock(mLock);
  if (aAdapter == 0 || aAdapter > mOpenPackets.size()) return NS_ERROR_INVALID_ARG;
  const nsSimulatedInterface* interface = Find(mOpenPackets[aAdapter - 1]);
  const bool answers = interface && interface->mAnswersSsid && !aSet && aOid == kOidSsid;
  return answers ? NS_OK : NS_ERROR_NOT_AVAILABLE;
}

void nsSimulatedNetwork::PacketCloseAdapter(PacketAdapter aAdapter) {
  const nsAutoLock lock(mLock);
  if (aAdapter == 0 || aAdapter > mOpenPackets.size()) return;
  Record("PacketCloseAdapter " + std::exchange(mOpenPackets[aAdapter - 1], ""));
}
