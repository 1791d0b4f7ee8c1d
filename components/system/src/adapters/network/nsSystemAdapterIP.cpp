#include "nsSystemAdapterIP.h"

#include <algorithm>
#include <new>
#include <string>

#include "nsDebug.h"
#include "nsString.h"
#include "nsSystemArray.h"
#include "nsUtf.h"

namespace {

/// Before this major version the first picture lacks addresses and families.
constexpr uint32_t kCompleteVersion = 6;

using Registry = nsPlatformRegistry;

std::string TextOf(nsISystemIPStructure* aAddress) {
  nsCString text;
  (void)aAddress->GetString(text);
  return std::string(text.view());
}

template <class T>
nsresult CloneInto(const nsCOMPtr<T>& aAddress, T** aResult) {
  nsCOMPtr<T> result;
  if (aAddress) {
    nsCOMPtr<nsISystemIPStructure> clone;
    nsresult rv = aAddress->Clone(clone.getter_AddRefs());
    NS_ENSURE_SUCCESS(rv, rv);
    result = do_QueryInterface<T>(clone, &rv);
    NS_ENSURE_SUCCESS(rv, rv);
  }
  result.forget(aResult);
  return NS_OK;
}

nsresult AddressOf(const nsCOMPtr<nsISystemIPAddress>& aAddress, nsISystemIPStructure** aResult) {
  *aResult = nullptr;
  return aAddress ? aAddress->GetAddress(aResult) : NS_OK;
}

std::span<const uint8_t> BytesOf(const std::string& aText) {
  return {reinterpret_cast<const uint8_t*>(aText.data()), aText.size()};
}

nsresult ReadDword(nsPlatformRegistryKey& aKey, const std::string& aName, uint32_t* aNumber) {
  uint32_t type = 0;
  std::vector<uint8_t> data;
  if (const nsresult rv = aKey.QueryValue(aName, sizeof *aNumber, &type, &data); NS_FAILED(rv))
    return rv;
  uint32_t number = 0;
  for (size_t i = data.size(); i > 0; --i) number = number << 8 | data[i - 1];
  *aNumber = number;
  return NS_OK;
}

nsresult Failure(nsresult aRv) { return NS_FAILED(aRv) ? NS_ERROR_FAILURE : aRv; }

}  // namespace

nsSystemAdapterIP::nsSystemAdapterIP(nsPlatformRef aPlatform, nsISystemAdapterIP* aSelf,
                                     nsSystemAdapterGeneric* aGeneric)
    : mPlatform(std::move(aPlatform)),
      mSelf(aSelf),
      mGeneric(aGeneric),
      mLogger(NS_GetLogger("system.adapter.ip")) {}

nsSystemAdapterIP::~nsSystemAdapterIP() = default;

// ---- What discovery brings

nsresult nsSystemAdapterIP::Init(const nsAdapterInfo& aInfo) {
  const nsAutoLock monitor(mMonitor);
  if (mPlatform->mNetwork->GetSystemVersion().mMajor < kCompleteVersion) {
    for (const nsAdapterInfo::Address& entry : aInfo.mIpAddressList) {
      const nsCOMPtr<nsISystemIPAddress> adr(new (std::nothrow) nsSystemIPAddress);
      NS_ENSURE_TRUE(adr, NS_ERROR_UNEXPECTED);
      const nsCOMPtr<nsISystemIPStructure> ip(new (std::nothrow) nsSystemIPv4Structure);
      NS_ENSURE_TRUE(ip, NS_ERROR_UNEXPECTED);
      (void)ip->SetString(nsDependentCString(entry.mIpAddress));
      nsresult rv = adr->SetAddress(ip.get());
      NS_ENSURE_SUCCESS(rv, rv);
      const nsCOMPtr<nsISystemIPStructure> iip(new (std::nothrow) nsSystemIPv4Structure);
      NS_ENSURE_TRUE(iip, NS_ERROR_UNEXPECTED);
      (void)iip->SetString(nsDependentCString(entry.mIpMask));
      rv = adr->SetMask(iip.get());
      NS_ENSURE_SUCCESS(rv, rv);
      mUnicastAddresses.push_back(adr);
    }
  }
  for (const std::string& gateway : aInfo.mGatewayList) {
    const nsCOMPtr<nsISystemIPStructure> ip(new (std::nothrow) nsSystemIPv4Structure);
    NS_ENSURE_TRUE(ip, NS_ERROR_UNEXPECTED);
    (void)ip->SetString(nsDependentCString(gateway));
    SYSTEM_LOG_DEBUG(mLogger, "add gateway = " + TextOf(ip.get()));
    mGatewayAddresses.push_back(ip);
  }
  return NS_OK;
}

nsresult nsSystemAdapterIP::Init(const nsAdapterAddresses& aAddresses) {
  const nsAutoLock monitor(mMonitor);
  mGeneric->mSysPath = nsString(vorel::NameToUtf16(aAddresses.mAdapterName));
  mGeneric->mLabel = nsString(aAddresses.mFriendlyName);
  mDescription = nsString(aAddresses.mDescription);
  mIfIndex = aAddresses.mIfIndex;
  mOperStatus = aAddresses.mOperStatus;
  mIpv6IfIndex = aAddresses.mIpv6IfIndex;
  mTransmitLinkSpeed = aAddresses.mTransmitLinkSpeed;
  mReceiveLinkSpeed = aAddresses.mReceiveLinkSpeed;
  mInterfaceType = aAddresses.mIfType;
  const bool complete = mPlatform->mNetwork->GetSystemVersion().mMajor >= kCompleteVersion;
  mIpv6Enabled = complete && (aAddresses.mFlags & nsAdapterAddresses::kIpv6Enabled);
  mIpv4Enabled = !complete || (aAddresses.mFlags & nsAdapterAddresses::kIpv4Enabled);
  mDhcpv4Enabled = mDhcpv6Enabled = aAddresses.mFlags & nsAdapterAddresses::kDhcpEnabled;

  const nsCOMPtr<nsISystemMACStructure> mac(new (std::nothrow) nsSystemMACStructure);
  NS_ENSURE_TRUE(mac, NS_ERROR_UNEXPECTED);
  mMacAddress = mac;
  // An empty address is one of a wrong length, not a missing argument.
  static constexpr uint8_t kNothing = 0;
  const auto& bytes = aAddresses.mPhysicalAddress;
  nsresult rv =
      mac->SetBytes(static_cast<uint32_t>(bytes.size()), bytes.empty() ? &kNothing : bytes.data());
  SYSTEM_LOG_DEBUG(mLogger, "MAC adress = " + TextOf(mac.get()));
  NS_ENSURE_SUCCESS(rv, rv);

  if (complete) {
    for (const nsUnicastAddress& entry : aAddresses.mUnicastAddresses) {
      nsCOMPtr<nsISystemIPAddress> address;
      rv = CreateIPAddress(entry, address.getter_AddRefs());
      NS_ENSURE_SUCCESS(rv, rv);
      mUnicastAddresses.push_back(address);
    }
  }
  rv = CreateIPStructures(aAddresses.mAnycastAddresses, mAnycastAddresses);
  NS_ENSURE_SUCCESS(rv, rv);
  rv = CreateIPStructures(aAddresses.mMulticastAddresses, mMulticastAddresses);
  NS_ENSURE_SUCCESS(rv, rv);
  rv = CreateIPStructures(aAddresses.mDnsServers, mDnsServers);
  NS_ENSURE_SUCCESS(rv, rv);
  return NS_OK;
}

nsresult nsSystemAdapterIP::Update(const nsAdapterInfo& aInfo, const nsAdapterAddresses& aAddresses,
                                   bool* aModified) {
  const nsAutoLock monitor(mMonitor);
  const auto firstAddress = [this] {
    nsCOMPtr<nsISystemIPAddress> address;
    nsCOMPtr<nsISystemIPStructure> value;
    (void)GetFirstIpv4Address(address.getter_AddRefs());
    (void)AddressOf(address, value.getter_AddRefs());
    return value;
  };
  const uint32_t oldStatus = mOperStatus;
  const nsCOMPtr<nsISystemIPStructure> oldAddress = firstAddress();

  mMacAddress = nullptr;
  mDhcpv4Server = nullptr;
  mDhcpv6Server = nullptr;
  mUnicastAddresses.clear();
  mMulticastAddresses.clear();
  mAnycastAddresses.clear();
  mDnsServers.clear();
  mGatewayAddresses.clear();
  nsresult rv = Init(aInfo);
  NS_ENSURE_SUCCESS(rv, rv);
  rv = Init(aAddresses);
  NS_ENSURE_SUCCESS(rv, rv);

  if (mOperStatus != oldStatus) {
    *aModified = true;
    return NS_OK;
  }
  const nsCOMPtr<nsISystemIPStructure> newAddress = firstAddress();
  if (!oldAddress) {
    *aModified = static_cast<bool>(newAddress);
    return NS_OK;
  }
  bool equal = false;
  rv = oldAddress->Equals(newAddress.get(), &equal);
  NS_ENSURE_SUCCESS(rv, rv);
  *aModified = !equal;
  return NS_OK;
}

nsresult nsSystemAdapterIP::CreateIPStructure(const nsSocketAddress& aAddress,
                                              nsISystemIPStructure** aResult) {
  nsCOMPtr<nsISystemIPStructure> address;
  nsresult rv;
  if (aAddress.mFamily == nsSocketAddress::kIPv6) {
    const nsCOMPtr<nsISystemIPStructure> ipv6(new (std::nothrow) nsSystemIPv6Structure);
    NS_ENSURE_TRUE(ipv6, NS_ERROR_UNEXPECTED);
    rv = ipv6->SetBytes(nsSystemIPv6Structure::kLength, aAddress.mBytes.data());
    address = ipv6;
  } else {
    const nsCOMPtr<nsISystemIPStructure> ipv4(new (std::nothrow) nsSystemIPv4Structure);
    NS_ENSURE_TRUE(ipv4, NS_ERROR_UNEXPECTED);
    rv = ipv4->SetBytes(nsSystemIPv4Structure::kLength, aAddress.mBytes.data());
    address = ipv4;
  }
  NS_ENSURE_SUCCESS(rv, rv);
  address.forget(aResult);
  return NS_OK;
}

nsresult nsSystemAdapterIP::CreateIPStructures(const std::vector<nsSocketAddress>& aAddresses,
                                               nsCOMArray<nsISystemIPStructure>& aList) {
  for (const nsSocketAddress& entry : aAddresses) {
    nsCOMPtr<nsISystemIPStructure> address;
    const nsresult rv = CreateIPStructure(entry, address.getter_AddRefs());
    NS_ENSURE_SUCCESS(rv, rv);
    aList.push_back(address);
  }
  return NS_OK;
}

nsresult nsSystemAdapterIP::CreateIPAddress(const nsUnicastAddress& aAddress,
                                            nsISystemIPAddress** aResult) {
  const nsCOMPtr<nsISystemIPAddress> adr(new (std::nothrow) nsSystemIPAddress);
  NS_ENSURE_TRUE(adr, NS_ERROR_UNEXPECTED);
  nsCOMPtr<nsISystemIPStructure> address;
  nsresult rv = CreateIPStructure(aAddress.mAddress, address.getter_AddRefs());
  NS_ENSURE_SUCCESS(rv, rv);
  SYSTEM_LOG_DEBUG(mLogger, "adress = " + TextOf(address.get()));
  rv = adr->SetAddress(address.get());
  NS_ENSURE_SUCCESS(rv, rv);
  // Not implemented by the value: it keeps the places for them.
  (void)adr->SetPrefixOrigin(aAddress.mPrefixOrigin);
  (void)adr->SetSuffixOrigin(aAddress.mSuffixOrigin);
  (void)adr->SetDadState(aAddress.mDadState);
  (void)adr->SetValidLifetime(aAddress.mValidLifetime);
  (void)adr->SetPreferredLifetime(aAddress.mPreferredLifetime);
  (void)adr->SetLeaseLifetime(aAddress.mLeaseLifetime);
  rv = adr->SetPrefixLength(aAddress.mOnLinkPrefixLength);
  NS_ENSURE_SUCCESS(rv, rv);
  nsCOMPtr(adr).forget(aResult);
  return NS_OK;
}

// ---- The view

nsresult nsSystemAdapterIP::GetRegistered(nsISystemAdapter** aRegistered) {
  const nsAutoLock monitor(mMonitor);
  if (!mRegistered) {
    nsCOMPtr<nsISystemAdapterIP> obj;
    nsSystemAdapterIP* view = nullptr;
    const auto make = [&]<class Class>(std::type_identity<Class>) {
      if (auto* made = new (std::nothrow) Class(mPlatform)) {
        obj = made;
        view = made;
      }
    };
    if (do_QueryInterface<nsISystemAdapterLAN>(mSelf))
      make(std::type_identity<nsSystemAdapterLAN>());
    else if (do_QueryInterface<nsISystemAdapterWLAN>(mSelf))
      make(std::type_identity<nsSystemAdapterWLAN>());
    else if (do_QueryInterface<nsISystemAdapterWWAN>(mSelf))
      make(std::type_identity<nsSystemAdapterWWAN>());
    NS_ENSURE_TRUE(obj, NS_ERROR_UNEXPECTED);

    const nsAutoLock viewMonitor(view->mMonitor);
    view->mIsRegistered = true;
    view->mDescription = mDescription;
    view->mGeneric->mSysPath = mGeneric->mSysPath;
    const nsresult rv = CloneInto(mMacAddress, view->mMacAddress.getter_AddRefs());
    NS_ENSURE_SUCCESS(rv, rv);
    view->mIpv4Enabled = mIpv4Enabled;
    view->mIpv6Enabled = mIpv6Enabled;
    view->mTransmitLinkSpeed = mTransmitLinkSpeed;
    view->mReceiveLinkSpeed = mReceiveLinkSpeed;
    view->mReservedCounterA = mReservedCounterA;
    view->mReservedCounterB = mReservedCounterB;
    view->mIgmpVersion = mIgmpVersion;
    view->mRegKey = NS_TcpipInterfaceKey(vorel::Utf16ToName(mGeneric->mSysPath.view()));
    view->mRegistered = obj;
    mRegistered = obj;
  }
  nsCOMPtr<nsISystemAdapter>(mRegistered).forget(aRegistered);
  return NS_OK;
}

// ---- The store

nsresult nsSystemAdapterIP::OpenKey(std::string_view aPath, uint32_t aAccess, RegKey* aKey) const {
  return Failure(mPlatform->mRegistry->OpenKey(std::string(aPath), aAccess, aKey));
}

nsresult nsSystemAdapterIP::ReadValue(const std::string& aName, std::vector<uint8_t>* aData) const {
  RegKey key;
  if (const nsresult rv = OpenKey(mRegKey, Registry::kRead, &key); NS_FAILED(rv)) return rv;
  uint32_t type = 0;
  return Failure(key->QueryValue(aName, kTcpipValueCapacity, &type, aData));
}

nsresult nsSystemAdapterIP::ReadText(const std::string& aName, std::string* aText) const {
  std::vector<uint8_t> data;
  if (const nsresult rv = ReadValue(aName, &data); NS_FAILED(rv)) return rv;
  aText->assign(data.begin(), std::find(data.begin(), data.end(), 0));
  return NS_OK;
}

nsresult nsSystemAdapterIP::WriteValue(std::string_view aKeyPath, const std::string& aName,
                                       uint32_t aType, std::span<const uint8_t> aData) const {
  RegKey key;
  if (const nsresult rv = OpenKey(aKeyPath, Registry::kSetValue, &key); NS_FAILED(rv)) return rv;
  return Failure(key->SetValue(aName, aType, aData));
}

// ---- Settings that are the fields' in both

nsresult nsSystemAdapterIP::GetMacAddress(nsISystemMACStructure** aMacAddress) const {
  const nsAutoLock monitor(mMonitor);
  return CloneInto(mMacAddress, aMacAddress);
}

nsresult nsSystemAdapterIP::GetDhcpv6Server(nsISystemIPv6Structure** aDhcpv6Server) const {
  const nsAutoLock monitor(mMonitor);
  return CloneInto(mDhcpv6Server, aDhcpv6Server);
}

nsresult nsSystemAdapterIP::GetAnycastAddresses(nsIArray** aAnycastAddresses) const {
  const nsAutoLock monitor(mMonitor);
  return NS_NewScriptArray(aAnycastAddresses, mAnycastAddresses);
}

nsresult nsSystemAdapterIP::GetMulticastAddresses(nsIArray** aMulticastAddresses) const {
  const nsAutoLock monitor(mMonitor);
  return NS_NewScriptArray(aMulticastAddresses, mMulticastAddresses);
}

// ---- Addresses

nsresult nsSystemAdapterIP::GetDhcpv4Server(nsISystemIPv4Structure** aDhcpv4Server) {
  const nsAutoLock monitor(mMonitor);
  if (mIsRegistered && !mDhcpv4Server) {
    std::string text;
    if (const nsresult rv = ReadText("DhcpServer", &text); NS_FAILED(rv)) return rv;
    const nsCOMPtr<nsISystemIPv4Structure> ipv4(new (std::nothrow) nsSystemIPv4Structure);
    NS_ENSURE_TRUE(ipv4, NS_ERROR_UNEXPECTED);
    if (NS_FAILED(ipv4->SetString(nsDependentCString(text)))) return NS_ERROR_FAILURE;
    mDhcpv4Server = ipv4;
  }
  return CloneInto(mDhcpv4Server, aDhcpv4Server);
}

nsresult nsSystemAdapterIP::GetIsDhcpv4Enabled(bool* aIsDhcpv4Enabled) {
  const nsAutoLock monitor(mMonitor);
  *aIsDhcpv4Enabled = mDhcpv4Enabled;
  if (!mIsRegistered) return NS_OK;
  RegKey key;
  if (const nsresult rv = OpenKey(mRegKey, Registry::kRead, &key); NS_FAILED(rv)) return rv;
  uint32_t value = 0;
  if (NS_FAILED(ReadDword(*key, "EnableDHCP", &value))) return NS_ERROR_FAILURE;
  mDhcpv4Enabled = value != 0;
  *aIsDhcpv4Enabled = mDhcpv4Enabled;
  return NS_OK;
}

nsresult nsSystemAdapterIP::SetIsDhcpv4Enabled(bool aIsDhcpv4Enabled) {
  if (!mIsRegistered) return NS_ERROR_NOT_IMPLEMENTED;
  const nsAutoLock monitor(mMonitor);
  const nsresult rv =
      WriteValue(mRegKey, "EnableDHCP", Registry::kDword, NS_RegistryDword(aIsDhcpv4Enabled));
  if (NS_SUCCEEDED(rv)) mDhcpv4Enabled = aIsDhcpv4Enabled;
  return rv;
}

nsresult nsSystemAdapterIP::SetIpv4Address(nsISystemIPStructure* aAddress,
                                           nsISystemIPStructure* aNetmask,
                                           nsISystemIPStructure* aGateway, int32_t aMetric) {
  NS_ENSURE_TRUE(aAddress, NS_ERROR_INVALID_ARG);
  NS_ENSURE_TRUE(aNetmask, NS_ERROR_INVALID_ARG);
  NS_ENSURE_TRUE(aGateway, NS_ERROR_INVALID_ARG);
  if (!mIsRegistered) return NS_ERROR_NOT_IMPLEMENTED;
  const nsAutoLock monitor(mMonitor);
  RegKey key;
  nsresult rv = OpenKey(mRegKey, Registry::kSetValue, &key);
  if (NS_FAILED(rv)) return rv;
  const auto write = [&](const char* aName, std::string aText) {
    aText.append(2, '\0');
    return Failure(key->SetValue(aName, Registry::kMultiString, BytesOf(aText)));
  };
  // Written as "IpAddress" and read as "IPAddress": names are found without regard to case, and
  // this spelling is the one that other readers of the store know.
  const std::pair<const char*, nsISystemIPStructure*> values[] = {
      {"IpAddress", aAddress}, {"SubnetMask", aNetmask}, {"DefaultGateway", aGateway}};
  for (const auto& [name, value] : values) {
    nsCString text;
    rv = value->GetString(text);
    NS_ENSURE_SUCCESS(rv, rv);
    rv = write(name, std::string(text.view()));
    if (NS_FAILED(rv)) return rv;
  }
  return aMetric == -1 ? NS_OK : write("DefaultGatewayMetric", std::to_string(aMetric));
}

nsresult nsSystemAdapterIP::ReadUnicastAddresses() {
  bool dhcp = false;
  nsresult rv = GetIsDhcpv4Enabled(&dhcp);
  NS_ENSURE_SUCCESS(rv, rv);
  mUnicastAddresses.clear();
  const std::string prefix = dhcp ? "Dhcp" : "";
  std::string address, mask;
  rv = ReadText(prefix + "IPAddress", &address);
  if (NS_FAILED(rv)) return rv;
  const nsCOMPtr<nsISystemIPStructure> ipv4(new (std::nothrow) nsSystemIPv4Structure);
  NS_ENSURE_TRUE(ipv4, NS_ERROR_UNEXPECTED);
  rv = ipv4->SetString(nsDependentCString(address));
  NS_ENSURE_SUCCESS(rv, rv);
  const nsCOMPtr<nsISystemIPAddress> adr(new (std::nothrow) nsSystemIPAddress);
  NS_ENSURE_TRUE(adr, NS_ERROR_UNEXPECTED);
  rv = adr->SetAddress(ipv4.get());
  NS_ENSURE_SUCCESS(rv, rv);
  rv = ReadText(prefix + "SubnetMask", &mask);
  if (NS_FAILED(rv)) return rv;
  const nsCOMPtr<nsISystemIPStructure> iip(new (std::nothrow) nsSystemIPv4Structure);
  NS_ENSURE_TRUE(iip, NS_ERROR_UNEXPECTED);
  (void)iip->SetString(nsDependentCString(mask));
  rv = adr->SetMask(iip.get());
  NS_ENSURE_SUCCESS(rv, rv);
  mUnicastAddresses.push_back(adr);
  return NS_OK;
}

nsresult nsSystemAdapterIP::GetUnicastAddresses(nsIArray** aUnicastAddresses) {
  const nsAutoLock monitor(mMonitor);
  if (mIsRegistered) {
    if (const nsresult rv = ReadUnicastAddresses(); NS_FAILED(rv)) return rv;
  }
  return NS_NewScriptArray(aUnicastAddresses, mUnicastAddresses);
}

nsresult nsSystemAdapterIP::GetFirstIpv4Address(nsISystemIPAddress** aFirstIpv4Address) {
  const nsAutoLock monitor(mMonitor);
  if (mIsRegistered) {
    const nsresult rv = ReadUnicastAddresses();
    NS_ENSURE_SUCCESS(rv, rv);
  }
  for (const auto& candidate : mUnicastAddresses) {
    nsCOMPtr<nsISystemIPStructure> address;
    const nsresult rv = AddressOf(candidate, address.getter_AddRefs());
    NS_ENSURE_SUCCESS(rv, rv);
    if (!do_QueryInterface<nsISystemIPv4Structure>(address)) continue;
    nsCOMPtr(candidate).forget(aFirstIpv4Address);
    return NS_OK;
  }
  return NS_ERROR_FAILURE;
}

nsresult nsSystemAdapterIP::ReadGatewayAddresses() {
  bool dhcp = false;
  nsresult rv = GetIsDhcpv4Enabled(&dhcp);
  NS_ENSURE_SUCCESS(rv, rv);
  mGatewayAddresses.clear();
  const std::string name = dhcp ? "DhcpDefaultGateway" : "DefaultGateway";
  std::string gateway;
  rv = ReadText(name, &gateway);
  if (NS_FAILED(rv)) {
    SYSTEM_LOG_WARNING(mLogger, "Can't get register value " + name);
    return rv;
  }
  const nsCOMPtr<nsISystemIPStructure> ipv4(new (std::nothrow) nsSystemIPv4Structure);
  NS_ENSURE_TRUE(ipv4, NS_ERROR_UNEXPECTED);
  rv = ipv4->SetString(nsDependentCString(gateway));
  NS_ENSURE_SUCCESS(rv, rv);
  mGatewayAddresses.push_back(ipv4);
  return NS_OK;
}

nsresult nsSystemAdapterIP::GetGatewayAddresses(nsIArray** aGatewayAddresses) {
  const nsAutoLock monitor(mMonitor);
  if (mIsRegistered) {
    if (const nsresult rv = ReadGatewayAddresses(); NS_FAILED(rv)) return rv;
  }
  return NS_NewScriptArray(aGatewayAddresses, mGatewayAddresses);
}

nsresult nsSystemAdapterIP::GetFirstIpv4Gateway(nsISystemIPv4Structure** aFirstIpv4Gateway) {
  const nsAutoLock monitor(mMonitor);
  if (mIsRegistered) (void)ReadGatewayAddresses();
  for (const auto& candidate : mGatewayAddresses) {
    if (const auto ipv4 = do_QueryInterface<nsISystemIPv4Structure>(candidate))
      return CloneInto(ipv4, aFirstIpv4Gateway);
  }
  return NS_ERROR_FAILURE;
}

// ---- DNS

nsresult nsSystemAdapterIP::GetIsDnsDhcpEnabled(bool* aIsDnsDhcpEnabled) {
  if (!mIsRegistered) return NS_OK;
  const nsAutoLock monitor(mMonitor);
  std::vector<uint8_t> servers;
  if (const nsresult rv = ReadValue("NameServer", &servers); NS_FAILED(rv)) return rv;
  *aIsDnsDhcpEnabled = servers.size() < 2;
  return NS_OK;
}

nsresult nsSystemAdapterIP::SetIsDnsDhcpEnabled(bool aIsDnsDhcpEnabled) {
  if (!mIsRegistered) return NS_ERROR_NOT_IMPLEMENTED;
  if (!aIsDnsDhcpEnabled) return NS_OK;
  const nsAutoLock monitor(mMonitor);
  const nsresult rv = WriteValue(mRegKey, "NameServer", Registry::kString, {});
  if (NS_SUCCEEDED(rv)) SYSTEM_LOG_DEBUG(mLogger, "NameServer reset");
  return rv;
}

nsresult nsSystemAdapterIP::SetDns(nsISystemIPStructure* aPrimary,
                                   nsISystemIPStructure* aSecondary) {
  if (!mIsRegistered) return NS_ERROR_NOT_IMPLEMENTED;
  const nsAutoLock monitor(mMonitor);
  std::string servers;
  for (nsISystemIPStructure* server : {aPrimary, aSecondary}) {
    if (!server) continue;
    nsCString text;
    const nsresult rv = server->GetString(text);
    NS_ENSURE_SUCCESS(rv, rv);
    if (!servers.empty()) servers += ',';
    servers += text.view();
  }
  SYSTEM_LOG_DEBUG(mLogger, "RegSetValueExA reg=NameServer val=" + servers +
                                " size=" + std::to_string(servers.size() + 1));
  servers += '\0';
  return WriteValue(mRegKey, "NameServer", Registry::kString, BytesOf(servers));
}

nsresult nsSystemAdapterIP::GetDns(nsISystemIPStructure** aPrimary,
                                   nsISystemIPStructure** aSecondary) {
  const nsAutoLock monitor(mMonitor);
  if (mIsRegistered) {
    const nsresult rv = ReadDnsServers();
    NS_ENSURE_SUCCESS(rv, rv);
  }
  nsISystemIPStructure** const outputs[] = {aPrimary, aSecondary};
  for (size_t i = 0; i < std::size(outputs) && i < mDnsServers.size(); ++i) {
    const nsresult rv = CloneInto(mDnsServers[i], outputs[i]);
    NS_ENSURE_SUCCESS(rv, rv);
  }
  return NS_OK;
}

nsresult nsSystemAdapterIP::ReadDnsServers() {
  bool dhcp = false;
  nsresult rv = GetIsDnsDhcpEnabled(&dhcp);
  NS_ENSURE_SUCCESS(rv, rv);
  mDnsServers.clear();
  std::vector<uint8_t> servers;
  rv = ReadValue(dhcp ? "DhcpNameServer" : "NameServer", &servers);
  if (NS_FAILED(rv)) return rv;
  std::string token;
  for (size_t i = 0; servers.size() > 1 && i < servers.size(); ++i) {
    const char c = static_cast<char>(servers[i]);
    if (c != ' ' && c != ',' && c != '\0') {
      token += c;
      continue;
    }
    // Two separators in a row make an empty token, which is no address: the list is refused.
    SYSTEM_LOG_DEBUG(mLogger, "Add DNS='" + token + "'");
    const nsCOMPtr<nsISystemIPStructure> ip(new (std::nothrow) nsSystemIPv4Structure);
    NS_ENSURE_TRUE(ip, NS_ERROR_UNEXPECTED);
    rv = ip->SetString(nsDependentCString(token));
    NS_ENSURE_SUCCESS(rv, rv);
    mDnsServers.push_back(ip);
    token.clear();
  }
  SYSTEM_LOG_DEBUG(mLogger, "mDnsServers.Count()= " + std::to_string(mDnsServers.size()));
  return NS_OK;
}

nsresult nsSystemAdapterIP::GetDnsServers(nsIArray** aDnsServers) {
  const nsAutoLock monitor(mMonitor);
  if (mIsRegistered) {
    if (const nsresult rv = ReadDnsServers(); NS_FAILED(rv)) return rv;
  }
  return NS_NewScriptArray(aDnsServers, mDnsServers);
}

// ---- IGMP: the store's number is one above script's

nsresult nsSystemAdapterIP::GetIgmpVersion(uint16_t* aIgmpVersion) {
  const nsAutoLock monitor(mMonitor);
  *aIgmpVersion = mIgmpVersion;
  if (!mIsRegistered) return NS_OK;
  mIgmpVersion = 3;
  RegKey key;
  if (const nsresult rv = OpenKey(kTcpipParametersKey, Registry::kRead, &key); NS_FAILED(rv))
    return rv;
  uint32_t version = 0;
  if (NS_SUCCEEDED(ReadDword(*key, "IGMPVersion", &version))) {
    mIgmpVersion = static_cast<uint16_t>(version - 1);
    SYSTEM_LOG_DEBUG(mLogger, "Version retrieved");
  }
  *aIgmpVersion = mIgmpVersion;
  return NS_OK;
}

nsresult nsSystemAdapterIP::SetIgmpVersion(uint16_t aIgmpVersion) {
  const nsAutoLock monitor(mMonitor);
  if (mIsRegistered) {
    const nsresult rv = WriteValue(kTcpipParametersKey, "IGMPVersion", Registry::kDword,
                                   NS_RegistryDword(uint32_t{aIgmpVersion} + 1));
    if (NS_FAILED(rv)) return rv;
  }
  mIgmpVersion = aIgmpVersion;
  return NS_OK;
}

// ---- The classes
