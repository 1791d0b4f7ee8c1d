// Network interfaces as adapters: live, and as a view of what is configured.
#pragma once

#include "nsISystemAdapterIP.h"
#include "nsISystemAdapterLAN.h"
#include "nsISystemAdapterWLAN.h"
#include "nsISystemAdapterWWAN.h"
#include "nsImplements.h"
#include "nsLock.h"
#include "nsLogger.h"
#include "nsPlatform.h"
#include "nsPlatformNetwork.h"
#include "nsPlatformRegistry.h"
#include "nsSystemAdapterGeneric.h"
#include "nsSystemIPStructure.h"

/// The behaviour of an IP adapter; the three classes below join it to their interface. It is no
/// interface itself.
///
/// mIsRegistered decides in each operation which source serves it: the fields, which discovery
/// fills, or the configuration store.
class nsSystemAdapterIP {
 public:
  // For discovery, on the main thread. A new adapter gets both Init, in this order.
  nsresult Init(const nsAdapterInfo& aInfo);
  nsresult Init(const nsAdapterAddresses& aAddresses);
  /// Takes the records over. Only another operational status or first IPv4 address count as a
  /// modification. After a failure the addresses are gone.
  nsresult Update(const nsAdapterInfo& aInfo, const nsAdapterAddresses& aAddresses,
                  bool* aModified);

  /// By which the system knows the interface; another one may come to bear its name.
  uint32_t IfIndex() const { return mIfIndex; }

  // nsISystemAdapterIP
  nsresult GetRegistered(nsISystemAdapter** aRegistered);
  nsresult GetMacAddress(nsISystemMACStructure** aMacAddress) const;
  nsresult GetDhcpv4Server(nsISystemIPv4Structure** aDhcpv4Server);
  nsresult GetDhcpv6Server(nsISystemIPv6Structure** aDhcpv6Server) const;
  nsresult GetIsDhcpv4Enabled(bool* aIsDhcpv4Enabled);
  nsresult SetIsDhcpv4Enabled(bool aIsDhcpv4Enabled);
  nsresult SetIpv4Address(nsISystemIPStructure* aAddress, nsISystemIPStructure* aNetmask,
                          nsISystemIPStructure* aGateway, int32_t aMetric);
  nsresult GetUnicastAddresses(nsIArray** aUnicastAddresses);
  nsresult GetFirstIpv4Address(nsISystemIPAddress** aFirstIpv4Address);
  nsresult GetAnycastAddresses(nsIArray** aAnycastAddresses) const;
  nsresult GetMulticastAddresses(nsIArray** aMulticastAddresses) const;
  nsresult GetIsDnsDhcpEnabled(bool* aIsDnsDhcpEnabled);
  nsresult SetIsDnsDhcpEnabled(bool aIsDnsDhcpEnabled);
  nsresult SetDns(nsISystemIPStructure* aPrimary, nsISystemIPStructure* aSecondary);
  nsresult GetDns(nsISystemIPStructure** aPrimary, nsISystemIPStructure** aSecondary);
  nsresult GetDnsServers(nsIArray** aDnsServers);
  nsresult GetGatewayAddresses(nsIArray** aGatewayAddresses);
  nsresult GetFirstIpv4Gateway(nsISystemIPv4Structure** aFirstIpv4Gateway);
  nsresult GetIgmpVersion(uint16_t* aIgmpVersion);
  nsresult SetIgmpVersion(uint16_t aIgmpVersion);

 protected:
  /// aSelf and aGeneric are this object, by its other faces.
  nsSystemAdapterIP(nsPlatformRef aPlatform, nsISystemAdapterIP* aSelf,
                    nsSystemAdapterGeneric* aGeneric);
  virtual ~nsSystemAdapterIP();

  /// What an operation does that hands out a field.
  template <class T>
  static nsresult Give(const T& aField, T* aOut) {
    *aOut = aField;
    return NS_OK;
  }

  // Fields of both, live adapter and view. Discovery changes them on the main thread, without the
  // monitor: only the main thread reads them.
  nsString mDescription;
  uint32_t mIfIndex = 0;
  uint32_t mInterfaceType = 0;
  uint32_t mOperStatus = 0;
  uint32_t mIpv6IfIndex = 0;
  uint64_t mTransmitLinkSpeed = 0;
  uint64_t mReceiveLinkSpeed = 0;
  uint64_t mReservedCounterA = 0;
  uint64_t mReservedCounterB = 0;
  bool mIpv4Enabled = false;
  bool mIpv6Enabled = false;
  bool mDhcpv6Enabled = false;

 private:
  using RegKey = std::unique_ptr<nsPlatformRegistryKey>;

  nsresult CreateIPStructure(const nsSocketAddress& aAddress, nsISystemIPStructure** aResult);
  nsresult CreateIPAddress(const nsUnicastAddress& aAddress, nsISystemIPAddress** aResult);
  nsresult CreateIPStructures(const std::vector<nsSocketAddress>& aAddresses,
                              nsCOMArray<nsISystemIPStructure>& aList);
  /// Renew the lists of a view.
  nsresult ReadUnicastAddresses() NS_REQUIRES(mMonitor);
  nsresult ReadGatewayAddresses() NS_REQUIRES(mMonitor);
  nsresult ReadDnsServers() NS_REQUIRES(mMonitor);

  // The store. Every failure is NS_ERROR_FAILURE.
  nsresult OpenKey(std::string_view aPath, uint32_t aAccess, RegKey* aKey) const;
  nsresult ReadValue(const std::string& aName, std::vector<uint8_t>* aData) const
      NS_REQUIRES(mMonitor);
  /// The first string of a value.
  nsresult ReadText(const std::string& aName, std::string* aText) const NS_REQUIRES(mMonitor);
  nsresult WriteValue(std::string_view aKeyPath, const std::string& aName, uint32_t aType,
                      std::span<const uint8_t> aData) const;

  const nsPlatformRef mPlatform;
  nsISystemAdapterIP* const mSelf;
  nsSystemAdapterGeneric* const mGeneric;
  const nsCOMPtr<nsILog4Logger> mLogger;

  // In a view this points to the view, so that a view, once made, lives as long as the process:
  // whoever holds the configuration pages open keeps working when the interface goes and comes.
  nsCOMPtr<nsISystemAdapterIP> mRegistered NS_GUARDED_BY(mMonitor);
  std::string mRegKey NS_GUARDED_BY(mMonitor);
  // "system.ip.mMonitor": guards the store, the making of the view, and the fields that say so.
  // Entered again by operations that call others.
  mutable nsRecursiveMutex mMonitor;
  bool mIsRegistered = false;  // set before anybody else has the object
  nsCOMPtr<nsISystemMACStructure> mMacAddress NS_GUARDED_BY(mMonitor);
  uint16_t mIgmpVersion NS_GUARDED_BY(mMonitor) = 3;
  nsCOMPtr<nsISystemIPv4Structure> mDhcpv4Server NS_GUARDED_BY(mMonitor);
  nsCOMPtr<nsISystemIPv6Structure> mDhcpv6Server NS_GUARDED_BY(mMonitor);
  bool mDhcpv4Enabled NS_GUARDED_BY(mMonitor) = false;
  nsCOMArray<nsISystemIPAddress> mUnicastAddresses NS_GUARDED_BY(mMonitor);
  nsCOMArray<nsISystemIPStructure> mMulticastAddresses NS_GUARDED_BY(mMonitor);
  nsCOMArray<nsISystemIPStructure> mAnycastAddresses NS_GUARDED_BY(mMonitor);
  nsCOMArray<nsISystemIPStructure> mDnsServers NS_GUARDED_BY(mMonitor);
  nsCOMArray<nsISystemIPStructure> mGatewayAddresses NS_GUARDED_BY(mMonitor);
};

/// An IP adapter class: hands out the fields, and forwards the other operations of
/// nsISystemAdapterIP.
template <class Class, class Interface>
class nsSystemAdapterIPOf : public nsSystemAdapterBase<nsImplements<Class, Interface>>,
                            public nsSystemAdapterIP {
  using IP = nsSystemAdapterIP;

 public:
  explicit nsSystemAdapterIPOf(nsPlatformRef aPlatform) : IP(std::move(aPlatform), this, this) {}

  nsresult GetRegistered(nsISystemAdapter** aOut) override { return IP::GetRegistered(aOut); }
  nsresult GetDescription(nsAString& aOut) override { return NS_Give(mDescription, aOut); }
  nsresult GetInterfaceType(uint32_t* aOut) override { return Give(mInterfaceType, aOut); }
  nsresult Reserved11(void*) override { return kReserved; }
  nsresult Reserved12(void*) override { return kReserved; }
  nsresult GetOperStatus(uint32_t* aOut) override { return Give(mOperStatus, aOut); }
  nsresult GetMacAddress(nsISystemMACStructure** aOut) override { return IP::GetMacAddress(aOut); }
  nsresult GetTransmitLinkSpeed(uint64_t* aOut) override { return Give(mTransmitLinkSpeed, aOut); }
  nsresult GetReceiveLinkSpeed(uint64_t* aOut) override { return Give(mReceiveLinkSpeed, aOut); }
  nsresult GetIsIpv4Enabled(bool* aOut) override { return Give(mIpv4Enabled, aOut); }
  nsresult GetIsIpv6Enabled(bool* aOut) override { return Give(mIpv6Enabled, aOut); }
  nsresult GetIpv6InterfaceIndex(uint32_t* aOut) override { return Give(mIpv6IfIndex, aOut); }
  nsresult GetReservedCounterA(uint64_t* aOut) override { return Give(mReservedCounterA, aOut); }
  nsresult GetReservedCounterB(uint64_t* aOut) override { return Give(mReservedCounterB, aOut); }
  nsresult GetDhcpv4Server(nsISystemIPv4Structure** aOut) override {
    return IP::GetDhcpv4Server(aOut);
  }
  nsresult GetDhcpv6Server(nsISystemIPv6Structure** aOut) override {
    return IP::GetDhcpv6Server(aOut);
  }
  nsresult GetIsDhcpv4Enabled(bool* aOut) override { return IP::GetIsDhcpv4Enabled(aOut); }
  nsresult SetIsDhcpv4Enabled(bool aEnabled) override { return IP::SetIsDhcpv4Enabled(aEnabled); }
  nsresult SetIpv4Address(nsISystemIPStructure* aAddress, nsISystemIPStructure* aNetmask,
                          nsISystemIPStructure* aGateway, int32_t aMetric) override {
    return IP::SetIpv4Address(aAddress, aNetmask, aGateway, aMetric);
  }
  nsresult Reserved27(void*, void*, void*, void*) override { return kReserved; }
  nsresult Reserved28(void*) override { return kReserved; }
  nsresult GetIsDhcpv6Enabled(bool* aOut) override { return Give(mDhcpv6Enabled, aOut); }
  nsresult Reserved30(void*) override { return kReserved; }
  nsresult Reserved31(void*, void*, void*, void*, void*, void*) override { return kReserved; }
  nsresult Reserved32(void*, void*, void*, void*, void*, void*) override { return kReserved; }
  nsresult Reserved33(void*, void*) override { return kReserved; }
  nsresult GetUnicastAddresses(nsIArray** aOut) override { return IP::GetUnicastAddresses(aOut); }
  nsresult GetFirstIpv4Address(nsISystemIPAddress** aOut) override {
    return IP::GetFirstIpv4Address(aOut);
  }
  nsresult GetAnycastAddresses(nsIArray** aOut) override { return IP::GetAnycastAddresses(aOut); }
  nsresult GetMulticastAddresses(nsIArray** aOut) override {
    return IP::GetMulticastAddresses(aOut);
  }
  nsresult Reserved38(void*) override { return kReserved; }
  nsresult Reserved39(void*) override { return kReserved; }
  nsresult GetIsDnsDhcpEnabled(bool* aOut) override { return IP::GetIsDnsDhcpEnabled(aOut); }
  nsresult SetIsDnsDhcpEnabled(bool aEnabled) override { return IP::SetIsDnsDhcpEnabled(aEnabled); }
  nsresult SetDns(nsISystemIPStructure* aPrimary, nsISystemIPStructure* aSecondary) override {
    return IP::SetDns(aPrimary, aSecondary);
  }
  nsresult GetDns(nsISystemIPStructure** aPrimary, nsISystemIPStructure** aSecondary) override {
    return IP::GetDns(aPrimary, aSecondary);
  }
  nsresult GetDnsServers(nsIArray** aOut) override { return IP::GetDnsServers(aOut); }
  nsresult Reserved45(void*, void*) override { return kReserved; }
  nsresult Reserved46(void*, void*) override { return kReserved; }
  nsresult GetGatewayAddresses(nsIArray** aOut) override { return IP::GetGatewayAddresses(aOut); }
  nsresult GetFirstIpv4Gateway(nsISystemIPv4Structure** aOut) override {
    return IP::GetFirstIpv4Gateway(aOut);
  }
  nsresult Reserved49(void*, void*, void*, void*) override { return kReserved; }
  nsresult Reserved50(void*, void*) override { return kReserved; }
  nsresult GetIsAlwaysFalse(bool* aOut) override {
    *aOut = false;
    return NS_OK;
  }
  nsresult SetIgnored(uint32_t) override { return NS_OK; }
  nsresult GetIgmpVersion(uint16_t* aOut) override { return IP::GetIgmpVersion(aOut); }
  nsresult SetIgmpVersion(uint16_t aVersion) override { return IP::SetIgmpVersion(aVersion); }
  nsresult Reserved55(void*) override { return kReserved; }
  nsresult Reserved56(void*) override { return kReserved; }
  nsresult Reserved57(void*) override { return kReserved; }
  nsresult Reserved58(void*) override { return kReserved; }
  nsresult Reserved59(void*) override { return kReserved; }
  nsresult Reserved60(void*) override { return kReserved; }
  nsresult Reserved61(void*) override { return kReserved; }
  nsresult Reserved62(void*) override { return kReserved; }
  nsresult Reserved63(void*) override { return kReserved; }

 protected:
  static constexpr nsresult kReserved = NS_ERROR_NOT_IMPLEMENTED;
  ~nsSystemAdapterIPOf() override = default;
};

class nsSystemAdapterLAN final
    : public nsSystemAdapterIPOf<nsSystemAdapterLAN, nsISystemAdapterLAN> {
 public:
  static constexpr nsClassInfoRecord kClassInfo =
      NS_ClassInfo<"", nsISystemAdapter, nsISystemAdapterIP, nsISystemAdapterLAN>(
          "0e5e0c1c-8f0a-4f3e-a0a9-2a0f6f7d5a01"_iid);
  using nsSystemAdapterIPOf::nsSystemAdapterIPOf;

 private:
  ~nsSystemAdapterLAN() override = default;
};

class nsSystemAdapterWLAN final
    : public nsSystemAdapterIPOf<nsSystemAdapterWLAN, nsISystemAdapterWLAN> {
 public:
  static constexpr nsClassInfoRecord kClassInfo =
      NS_ClassInfo<"", nsISystemAdapter, nsISystemAdapterIP, nsISystemAdapterWLAN>(
          "0e5e0c1c-8f0a-4f3e-a0a9-2a0f6f7d5a02"_iid);
  using nsSystemAdapterIPOf::nsSystemAdapterIPOf;

  nsresult Reserved64(void*) override { return kReserved; }
  nsresult Reserved65(void*) override { return kReserved; }
  nsresult Reserved66(void*) override { return kReserved; }
  nsresult Reserved67(void*) override { return kReserved; }
  nsresult Reserved68(void*) override { return kReserved; }
  nsresult Reserved69(void*, void*, void*, void*, void*) override { return kReserved; }

 private:
  ~nsSystemAdapterWLAN() override = default;
};

class nsSystemAdapterWWAN final
    : public nsSystemAdapterIPOf<nsSystemAdapterWWAN, nsISystemAdapterWWAN> {
 public:
  static constexpr nsClassInfoRecord kClassInfo =
      NS_ClassInfo<"", nsISystemAdapter, nsISystemAdapterIP, nsISystemAdapterWWAN>(
          "0e5e0c1c-8f0a-4f3e-a0a9-2a0f6f7d5a03"_iid);
  using nsSystemAdapterIPOf::nsSystemAdapterIPOf;

  nsresult Reserved64(void*) override { return kReserved; }
  nsresult Reserved65(void*) override { return kReserved; }
  nsresult Reserved66(void*) override { return kReserved; }
  nsresult Reserved67(void*) override { return kReserved; }

 private:
  ~nsSystemAdapterWWAN() override = default;
};
