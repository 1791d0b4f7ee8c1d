// A configuration store in memory, for backends whose system has none: the rules of names, types
// and rights, and what a new key of a network interface holds. Where the data lies is theirs.
#pragma once

#include <algorithm>
#include <functional>
#include <optional>
#include <string_view>
#include <utility>

#include "nsAddressText.h"
#include "nsPlatformNetwork.h"
#include "nsPlatformRegistry.h"

struct nsRegistryValue {
  std::string mName;
  uint32_t mType = nsPlatformRegistry::kBinary;
  std::vector<uint8_t> mData;

  friend bool operator==(const nsRegistryValue&, const nsRegistryValue&) = default;
};

/// Keys and their values, both in the order in which they were made.
struct nsRegistryData {
  struct Key {
    std::string mPath;
    std::vector<nsRegistryValue> mValues;

    nsRegistryValue* Find(std::string_view aName) {
      return FindIn(mValues, aName, &nsRegistryValue::mName);
    }
    void Set(nsRegistryValue aValue) {
      if (nsRegistryValue* value = Find(aValue.mName)) {
        value->mType = aValue.mType;
        value->mData = std::move(aValue.mData);
      } else {
        mValues.push_back(std::move(aValue));
      }
    }
    friend bool operator==(const Key&, const Key&) = default;
  };
  std::vector<Key> mKeys;

  Key* Find(std::string_view aPath) { return FindIn(mKeys, aPath, &Key::mPath); }
  /// There is also a key wherever one lies below.
  bool Has(std::string_view aPath) const {
    return std::ranges::any_of(mKeys, [&](const Key& aKey) {
      return SameName(std::string_view(aKey.mPath).substr(0, aPath.size()), aPath) &&
             (aKey.mPath.size() == aPath.size() || aKey.mPath[aPath.size()] == '\\');
    });
  }
  Key& Make(std::string_view aPath) {
    if (Key* key = Find(aPath)) return *key;
    return mKeys.emplace_back(Key{std::string(aPath), {}});
  }

  static bool SameName(std::string_view aA, std::string_view aB) {
    const auto lower = [](char aChar) {
      return aChar >= 'A' && aChar <= 'Z' ? static_cast<char>(aChar + 32) : aChar;
    };
    return std::ranges::equal(aA, aB, {}, lower, lower);
  }
  friend bool operator==(const nsRegistryData&, const nsRegistryData&) = default;

 private:
  template <class T>
  static T* FindIn(std::vector<T>& aList, std::string_view aName, std::string T::*aField) {
    const auto found =
        std::ranges::find_if(aList, [&](const T& aItem) { return SameName(aItem.*aField, aName); });
    return found == aList.end() ? nullptr : &*found;
  }
};

/// The port over such data.
class nsPlatformRegistryStore : public nsPlatformRegistry,
                                public std::enable_shared_from_this<nsPlatformRegistryStore> {
 public:
  nsresult OpenKey(const std::string& aPath, uint32_t aAccess,
                   std::unique_ptr<nsPlatformRegistryKey>* aKey) final {
    bool found = false;
    nsresult rv = Read("OpenKey", [&](nsRegistryData& aData) {
      found = aData.Has(aPath);
      return NS_OK;
    });
    if (NS_FAILED(rv)) return rv;
    if (!found) {
      const std::optional<std::vector<nsRegistryValue>> values = Seed(aPath);
      if (!values) return NS_ERROR_FILE_NOT_FOUND;
      rv = Change(nullptr, [&](nsRegistryData& aData) {
        // Another process may have been first: what it has written since is not to be lost.
        if (!aData.Has(aPath)) aData.Make(aPath).mValues = *values;
        return NS_OK;
      });
      if (NS_FAILED(rv)) return rv;
    }
    *aKey = std::make_unique<Key>(shared_from_this(), aPath, aAccess);
    return NS_OK;
  }
  nsresult CreateKey(const std::string& aPath, uint32_t aAccess,
                     std::unique_ptr<nsPlatformRegistryKey>* aKey) final {
    const nsresult rv = Change("CreateKey", [&](nsRegistryData& aData) {
      (void)aData.Make(aPath);
      return NS_OK;
    });
    if (NS_FAILED(rv)) return rv;
    *aKey = std::make_unique<Key>(shared_from_this(), aPath, aAccess);
    return NS_OK;
  }

 protected:
  using Visitor = std::function<nsresult(nsRegistryData&)>;
  /// Shows the data as it is now; what the visitor changes is lost. aMethod is the method of the
  /// port, null for a step within one.
  virtual nsresult Read(const char* aMethod, const Visitor& aVisitor) = 0;
  /// Keeps what the visitor changes, all of it or, on failure, nothing; nobody else changes the
  /// data meanwhile.
  virtual nsresult Change(const char* aMethod, const Visitor& aVisitor) = 0;
  /// What a key holds that is opened for the first time; nothing when there is no such key.
  virtual std::optional<std::vector<nsRegistryValue>> Seed(const std::string& aPath) = 0;

 private:
  class Key final : public nsPlatformRegistryKey {
   public:
    Key(std::shared_ptr<nsPlatformRegistryStore> aStore, std::string aPath, uint32_t aAccess)
        : mStore(std::move(aStore)), mPath(std::move(aPath)), mAccess(aAccess) {}

    nsresult QueryValue(const std::string& aName, uint32_t aCapacity, uint32_t* aType,
                        std::vector<uint8_t>* aData) override {
      return mStore->Read("QueryValue", [&](nsRegistryData& aStore) {
        if (!(mAccess & kQueryValue)) return NS_ERROR_FILE_ACCESS_DENIED;
        const nsRegistryValue* value = FindValue(aStore, aName);
        if (!value) return NS_ERROR_FILE_NOT_FOUND;
        if (value->mData.size() > aCapacity) return NS_ERROR_FILE_TOO_BIG;
        *aType = value->mType;
        *aData = value->mData;
        return NS_OK;
      });
    }
    nsresult SetValue(const std::string& aName, uint32_t aType,
                      std::span<const uint8_t> aData) override {
      return mStore->Change("SetValue", [&](nsRegistryData& aStore) {
        if (!(mAccess & kSetValue)) return NS_ERROR_FILE_ACCESS_DENIED;
        aStore.Make(mPath).Set({aName, aType, {aData.begin(), aData.end()}});
        return NS_OK;
      });
    }
    nsresult DeleteValue(const std::string& aName) override {
      return mStore->Change("DeleteValue", [&](nsRegistryData& aStore) {
        if (!(mAccess & kSetValue)) return NS_ERROR_FILE_ACCESS_DENIED;
        const nsRegistryValue* value = FindValue(aStore, aName);
        if (!value) return NS_ERROR_FILE_NOT_FOUND;
        auto& values = aStore.Find(mPath)->mValues;
        values.erase(values.begin() + (value - values.data()));
        return NS_OK;
      });
    }
    nsresult EnumerateValues(std::vector<std::string>* aNames) override {
      return mStore->Read("EnumerateValues", [&](nsRegistryData& aStore) {
        if (!(mAccess & kQueryValue)) return NS_ERROR_FILE_ACCESS_DENIED;
        std::vector<std::string> names;
        if (const nsRegistryData::Key* key = aStore.Find(mPath))
          for (const nsRegistryValue& value : key->mValues) names.push_back(value.mName);
        *aNames = std::move(names);
        return NS_OK;
      });
    }

   private:
    static constexpr uint32_t kQueryValue = nsPlatformRegistry::kQueryValue;
    static constexpr uint32_t kSetValue = nsPlatformRegistry::kSetValue;
    nsRegistryValue* FindValue(nsRegistryData& aStore, const std::string& aName) const {
      nsRegistryData::Key* key = aStore.Find(mPath);
      return key ? key->Find(aName) : nullptr;
    }

    const std::shared_ptr<nsPlatformRegistryStore> mStore;
    const std::string mPath;
    const uint32_t mAccess;
  };
};

/// The first values of an interface's key, from the two pictures of it: what is in force stands
/// under the names that DHCP fills or under those of a fixed configuration, as the interface has
/// it.
inline std::vector<nsRegistryValue> NS_SeedInterfaceKey(const nsAdapterAddresses& aAddresses,
                                                        const nsAdapterInfo& aInfo,
                                                        const std::string& aDhcpServer) {
  using Registry = nsPlatformRegistry;
  const bool dhcp = aAddresses.mFlags & nsAdapterAddresses::kDhcpEnabled;
  const std::string prefix = dhcp ? "Dhcp" : "";
  std::vector<std::string> addresses, masks;
  for (const nsAdapterInfo::Address& address : aInfo.mIpAddressList) {
    addresses.push_back(address.mIpAddress);
    masks.push_back(address.mIpMask);
  }
  std::string servers;
  for (const nsSocketAddress& server : aAddresses.mDnsServers) {
    if (server.mFamily == nsSocketAddress::kIPv6) continue;  // readers of the value expect IPv4
    if (!servers.empty()) servers += ",";
    servers += vorel::address::FormatIPv4(std::span(server.mBytes).first<4>());
  }
  std::vector<nsRegistryValue> values{
      {"EnableDHCP", Registry::kDword, NS_RegistryDword(dhcp)},
      {prefix + "IPAddress", Registry::kMultiString, NS_RegistryStrings(addresses)},
      {prefix + "SubnetMask", Registry::kMultiString, NS_RegistryStrings(masks)},
      {prefix + "DefaultGateway", Registry::kMultiString, NS_RegistryStrings(aInfo.mGatewayList)},
      {"NameServer", Registry::kString, NS_RegistryString(dhcp ? "" : servers)},
      {"DhcpNameServer", Registry::kString, NS_RegistryString(dhcp ? servers : "")},
  };
  if (!aDhcpServer.empty())
    values.push_back({"DhcpServer", Registry::kString, NS_RegistryString(aDhcpServer)});
  return values;
}

/// Seed, for a backend that has both pictures: the key of all interfaces is there and empty.
inline std::optional<std::vector<nsRegistryValue>> NS_SeedTcpipKey(
    const std::string& aPath, nsPlatformNetwork& aNetwork,
    const std::function<std::string(const nsAdapterAddresses&)>& aDhcpServerOf) {
  if (nsRegistryData::SameName(aPath, kTcpipParametersKey)) return std::vector<nsRegistryValue>();
  const std::string_view path = aPath;
  if (!nsRegistryData::SameName(path.substr(0, kTcpipInterfacesKey.size()), kTcpipInterfacesKey))
    return std::nullopt;
  const std::string_view name = path.substr(kTcpipInterfacesKey.size());

  std::vector<nsAdapterInfo> infos;
  std::vector<nsAdapterAddresses> addresses;
  if (NS_FAILED(aNetwork.GetAdaptersInfo(&infos)) ||
      NS_FAILED(aNetwork.GetAdaptersAddresses(0, 0, &addresses)))
    return std::nullopt;
  const auto same = [&](const auto& aRecord) {
    return nsRegistryData::SameName(aRecord.mAdapterName, name);
  };
  const auto info = std::ranges::find_if(infos, same);
  const auto record = std::ranges::find_if(addresses, same);
  if (info == infos.end() || record == addresses.end()) return std::nullopt;
  return NS_SeedInterfaceKey(*record, *info, aDhcpServerOf(*record));
}
