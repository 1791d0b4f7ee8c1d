// A configuration store in memory, for backends whose system has none: the rules of names, types
// and rights. Where the data lies is theirs, and what a new key holds is its subject's.
#pragma once

#include <algorithm>
#include <functional>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "nsPlatformRegistry.h"

/// Keys and their values, both in the order in which they were made.
struct nsRegistryData {
  /// The name of a value that a key has as long as it holds nothing but its seed. Nobody sees it.
  static constexpr std::string_view kSeeded = "(seeded)";

  struct Key {
    std::string mPath;
    std::vector<nsRegistryValue> mValues;

    nsRegistryValue* Find(std::string_view aName) {
      const auto found = std::ranges::find_if(mValues, [&](const nsRegistryValue& aValue) {
        return NS_SameRegistryName(aValue.mName, aName);
      });
      return found == mValues.end() ? nullptr : &*found;
    }
    void Set(nsRegistryValue aValue) {
      if (nsRegistryValue* value = Find(aValue.mName)) {
        value->mType = aValue.mType;
        value->mData = std::move(aValue.mData);
      } else {
        mValues.push_back(std::move(aValue));
      }
    }
    void DropMark() {
      std::erase_if(mValues, [](const nsRegistryValue& aValue) { return aValue.mName == kSeeded; });
    }
    friend bool operator==(const Key&, const Key&) = default;
  };
  std::vector<Key> mKeys;

  Key* Find(std::string_view aPath) {
    const auto found =
        std::ranges::find_if(mKeys, [&](const Key& aKey) { return IsSamePath(aKey.mPath, aPath); });
    return found == mKeys.end() ? nullptr : &*found;
  }
  /// There is also a key wherever one lies below.
  bool Has(std::string_view aPath) const {
    return std::ranges::any_of(mKeys, [&](const Key& aKey) {
      return IsSamePath(std::string_view(aKey.mPath).substr(0, aPath.size()), aPath) &&
             (aKey.mPath.size() == aPath.size() || aKey.mPath[aPath.size()] == '\\');
    });
  }
  Key& Make(std::string_view aPath) {
    if (Key* key = Find(aPath)) return *key;
    return mKeys.emplace_back(Key{std::string(aPath), {}});
  }
  /// What aData holds, over what is there; neither a key of it nor a value of a key stands twice.
  /// Takes time by the number of keys, not by its square.
  void Merge(nsRegistryData aData) {
    std::unordered_map<std::string, size_t> places;
    for (const Key& key : mKeys) places.emplace(Spelling(key.mPath), places.size());
    for (Key& key : aData.mKeys) {
      const auto [place, isNew] = places.emplace(Spelling(key.mPath), mKeys.size());
      if (isNew)
        mKeys.push_back(std::move(key));
      else
        for (nsRegistryValue& value : key.mValues) mKeys[place->second].Set(std::move(value));
    }
  }

  friend bool operator==(const nsRegistryData&, const nsRegistryData&) = default;

  /// The same for all spellings of a path: who reads many keys finds one again by it.
  static std::string Spelling(std::string_view aPath) {
    const size_t length = std::min(kRegistryExactKeys.size(), aPath.size());
    const std::string_view head = aPath.substr(0, length), rest = aPath.substr(length);
    const bool isExact = NS_SameRegistryName(head, kRegistryExactKeys);
    return NS_ToLowerAscii(head) + (isExact ? std::string(rest) : NS_ToLowerAscii(rest));
  }

 private:
  static bool IsSamePath(std::string_view aA, std::string_view aB) {
    const size_t length = std::min(kRegistryExactKeys.size(), aA.size());
    const std::string_view head = aA.substr(0, length), rest = aA.substr(length);
    if (aA.size() != aB.size() || !NS_SameRegistryName(head, aB.substr(0, length))) return false;
    return NS_SameRegistryName(head, kRegistryExactKeys)
               ? rest == aB.substr(length)
               : NS_SameRegistryName(rest, aB.substr(length));
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
      const auto values = mSeed ? mSeed(aPath) : std::nullopt;
      if (!values) return NS_ERROR_FILE_NOT_FOUND;
      rv = Change(nullptr, [&](nsRegistryData& aData) {
        // Another process may have been first: what it has written since is not to be lost.
        if (aData.Has(aPath)) return NS_OK;
        auto& key = aData.Make(aPath);
        key.mValues = *values;
        key.mValues.push_back({std::string(nsRegistryData::kSeeded), kDword, NS_RegistryDword(1)});
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
  nsresult IsWritten(const std::string& aPath, bool* aIsWritten) final {
    return Read("IsWritten", [&](nsRegistryData& aData) {
      nsRegistryData::Key* const key = aData.Find(aPath);
      *aIsWritten = key && !key->Find(nsRegistryData::kSeeded);
      return NS_OK;
    });
  }

 protected:
  explicit nsPlatformRegistryStore(nsRegistrySeed aSeed) : mSeed(std::move(aSeed)) {}

  using Visitor = std::function<nsresult(nsRegistryData&)>;
  /// Shows the data as it is now; what the visitor changes is lost. aMethod is the method of the
  /// port, null for a step within one.
  virtual nsresult Read(const char* aMethod, const Visitor& aVisitor) = 0;
  /// Keeps what the visitor changes, all of it or, on failure, nothing; nobody else changes the
  /// data meanwhile.
  virtual nsresult Change(const char* aMethod, const Visitor& aVisitor) = 0;

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
        nsRegistryData::Key& key = aStore.Make(mPath);
        key.DropMark();
        key.Set({aName, aType, {aData.begin(), aData.end()}});
        return NS_OK;
      });
    }
    nsresult DeleteValue(const std::string& aName) override {
      return mStore->Change("DeleteValue", [&](nsRegistryData& aStore) {
        if (!(mAccess & kSetValue)) return NS_ERROR_FILE_ACCESS_DENIED;
        const nsRegistryValue* value = FindValue(aStore, aName);
        if (!value) return NS_ERROR_FILE_NOT_FOUND;
        nsRegistryData::Key& key = *aStore.Find(mPath);
        key.mValues.erase(key.mValues.begin() + (value - key.mValues.data()));
        key.DropMark();
        return NS_OK;
      });
    }
    nsresult EnumerateValues(std::vector<std::string>* aNames) override {
      return mStore->Read("EnumerateValues", [&](nsRegistryData& aStore) {
        if (!(mAccess & kQueryValue)) return NS_ERROR_FILE_ACCESS_DENIED;
        std::vector<std::string> names;
        if (const nsRegistryData::Key* key = aStore.Find(mPath))
          for (const nsRegistryValue& value : key->mValues)
            if (value.mName != nsRegistryData::kSeeded) names.push_back(value.mName);
        *aNames = std::move(names);
        return NS_OK;
      });
    }

   private:
    static constexpr uint32_t kQueryValue = nsPlatformRegistry::kQueryValue;
    static constexpr uint32_t kSetValue = nsPlatformRegistry::kSetValue;
    nsRegistryValue* FindValue(nsRegistryData& aStore, const std::string& aName) const {
      nsRegistryData::Key* key = aStore.Find(mPath);
      return key && aName != nsRegistryData::kSeeded ? key->Find(aName) : nullptr;
    }

    const std::shared_ptr<nsPlatformRegistryStore> mStore;
    const std::string mPath;
    const uint32_t mAccess;
  };

  const nsRegistrySeed mSeed;
};
