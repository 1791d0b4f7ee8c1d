// Addresses as values: IPv4, IPv6, MAC, and an address with its prefix length.
#pragma once

#include <array>
#include <span>
#include <vector>

#include "nsIJSNativeInitializer.h"
#include "nsISystemIPAddress.h"
#include "nsISystemIPv4Structure.h"
#include "nsISystemIPv6Structure.h"
#include "nsISystemMACStructure.h"
#include "nsImplements.h"
#include "nsModuleClass.h"
#include "nsString.h"

/// A byte buffer of which mLength bytes are the address. It never gets shorter than the class's own
/// length, so that the accessors of single bytes always find theirs.
class nsAddressBytes {
 public:
  explicit nsAddressBytes(uint32_t aLength) : mLength(aLength), mBytes(aLength) {}

  nsresult GetBytes(uint32_t* aCount, uint8_t** aBytes) const;
  nsresult SetBytes(uint32_t aCount, const uint8_t* aBytes);
  nsresult Equals(nsISystemIPStructure* aOther, bool* aEqual) const;
  /// Takes another length. Bytes behind it keep what they held.
  void Assign(std::span<const uint8_t> aBytes);

  std::span<const uint8_t> Address() const { return {mBytes.data(), mLength}; }
  template <size_t N>
  std::span<uint8_t, N> First() {
    return std::span<uint8_t, N>(mBytes.data(), N);
  }
  uint8_t& operator[](size_t aIndex) { return mBytes[aIndex]; }

 private:
  uint32_t mLength;
  std::vector<uint8_t> mBytes;
};

/// What the three plain values share. Class gives kLength and kIgnoresArguments, and the text
/// form by Format and Parse.
template <class Class, class Interface>
class nsSystemIPStructure : public nsImplements<Class, Interface, nsIJSNativeInitializer> {
 public:
  nsresult GetString(nsACString& aString) override {
    return NS_Give(static_cast<Class*>(this)->Format(), aString);
  }
  nsresult SetString(const nsACString& aString) override {
    return static_cast<Class*>(this)->Parse(NS_View(aString));
  }
  nsresult GetBytes(uint32_t* aCount, uint8_t** aBytes) override {
    return mBytes.GetBytes(aCount, aBytes);
  }
  nsresult SetBytes(uint32_t aCount, const uint8_t* aBytes) override {
    return mBytes.SetBytes(aCount, aBytes);
  }
  nsresult Clone(nsISystemIPStructure** aClone) override {
    const auto clone = MakeRefCounted<Class>();
    clone->mBytes = mBytes;
    nsCOMPtr<nsISystemIPStructure>(clone).forget(aClone);
    return NS_OK;
  }
  nsresult Equals(nsISystemIPStructure* aOther, bool* aEqual) override {
    return mBytes.Equals(aOther, aEqual);
  }
  /// NS_ERROR_FAILURE with arguments of the script constructor, but for the class that ignores
  /// them.
  nsresult Initialize(nsISupports*, JSContext*, JSObject*, uint32_t aArgc, jsval*) override {
    return aArgc == 0 || Class::kIgnoresArguments ? NS_OK : NS_ERROR_FAILURE;
  }

 protected:
  nsSystemIPStructure() : mBytes(Class::kLength) {}
  ~nsSystemIPStructure() override = default;
  nsAddressBytes mBytes;
};

// One accessor pair for a byte of the address.
#define VOREL_ADDRESS_BYTE(aIndex)                    \
  nsresult GetByte##aIndex(uint8_t* aByte) override { \
    *aByte = this->mBytes[aIndex];                    \
    return NS_OK;                                     \
  }                                                   \
  nsresult SetByte##aIndex(uint8_t aByte) override {  \
    this->mBytes[aIndex] = aByte;                     \
    return NS_OK;                                     \
  }

#define VOREL_ADDRESS_BYTES_0_TO_3 \
  VOREL_ADDRESS_BYTE(0) VOREL_ADDRESS_BYTE(1) VOREL_ADDRESS_BYTE(2) VOREL_ADDRESS_BYTE(3)
#define VOREL_ADDRESS_BYTES_0_TO_5 \
  VOREL_ADDRESS_BYTES_0_TO_3 VOREL_ADDRESS_BYTE(4) VOREL_ADDRESS_BYTE(5)

class nsSystemIPv4Structure final
    : public nsSystemIPStructure<nsSystemIPv4Structure, nsISystemIPv4Structure> {
 public:
  static constexpr uint32_t kLength = 4;
  static constexpr bool kIgnoresArguments = true;
  static constexpr nsModuleClass kModuleClass{.mRow = 0,
                                              .mCID = "44be1a59-69ba-401e-aa66-ee1e5142d685"_iid,
                                              .mContractID = "@vorel/system/ipv4structure;1"};
  static constexpr nsClassInfoRecord kClassInfo =
      NS_ClassInfo<"SystemIPv4Structure", nsISystemIPStructure, nsISystemIPv4Structure>(
          kModuleClass.mCID);

  VOREL_ADDRESS_BYTES_0_TO_3
  std::string Format();
  nsresult Parse(std::string_view aText);

 private:
  ~nsSystemIPv4Structure() override = default;
};

class nsSystemIPv6Structure final
    : public nsSystemIPStructure<nsSystemIPv6Structure, nsISystemIPv6Structure> {
 public:
  static constexpr uint32_t kLength = 16;
  static constexpr bool kIgnoresArguments = false;
  static constexpr nsModuleClass kModuleClass{.mRow = 1,
                                              .mCID = "fb3dbf4f-d33f-49a0-9b48-45d3d3f5d3dd"_iid,
                                              .mContractID = "@vorel/system/ipv6structure;1"};
  static constexpr nsClassInfoRecord kClassInfo =
      NS_ClassInfo<"SystemIPv6Structure", nsISystemIPStructure, nsISystemIPv6Structure>(
          kModuleClass.mCID);

  VOREL_ADDRESS_BYTES_0_TO_5
  VOREL_ADDRESS_BYTE(6)
  VOREL_ADDRESS_BYTE(7)
  VOREL_ADDRESS_BYTE(8)
  VOREL_ADDRESS_BYTE(9)
  VOREL_ADDRESS_BYTE(10)
  VOREL_ADDRESS_BYTE(11)
  VOREL_ADDRESS_BYTE(12)
  VOREL_ADDRESS_BYTE(13)
  VOREL_ADDRESS_BYTE(14)
  VOREL_ADDRESS_BYTE(15)
  std::string Format();
  nsresult Parse(std::string_view aText);

 private:
  ~nsSystemIPv6Structure() override = default;
};

class nsSystemMACStructure final
    : public nsSystemIPStructure<nsSystemMACStructure, nsISystemMACStructure> {
 public:
  static constexpr uint32_t kLength = 6;
  static constexpr bool kIgnoresArguments = false;
  static constexpr nsModuleClass kModuleClass{.mRow = 2,
                                              .mCID = "2348063c-bd53-4d5d-974e-90e20dc9c54d"_iid,
                                              .mContractID = "@vorel/system/macstructure;1"};
  static constexpr nsClassInfoRecord kClassInfo =
      NS_ClassInfo<"SystemMACStructure", nsISystemIPStructure, nsISystemMACStructure>(
          kModuleClass.mCID);

  VOREL_ADDRESS_BYTES_0_TO_5
  std::string Format();
  nsresult Parse(std::string_view aText);

 private:
  ~nsSystemMACStructure() override = default;
};

#undef VOREL_ADDRESS_BYTES_0_TO_5
#undef VOREL_ADDRESS_BYTES_0_TO_3
#undef VOREL_ADDRESS_BYTE

class nsSystemIPAddress final
    : public nsImplements<nsSystemIPAddress, nsISystemIPAddress, nsIJSNativeInitializer> {
 public:
  static constexpr nsClassInfoRecord kClassInfo =
      NS_ClassInfo<"SystemIPAddress", nsISystemIPAddress>(
          "8d0a6f6c-6b0d-4f0e-9a37-3f4a3c5b7e21"_iid);

  nsresult GetAddress(nsISystemIPStructure** aAddress) override;
  nsresult SetAddress(nsISystemIPStructure* aAddress) override;
  nsresult GetPrefixLength(uint8_t* aPrefixLength) override;
  nsresult SetPrefixLength(uint8_t aPrefixLength) override;
  nsresult GetMask(nsISystemIPStructure** aMask) override;
  nsresult SetMask(nsISystemIPStructure* aMask) override;
  nsresult GetPrefixOrigin(uint16_t* aPrefixOrigin) override;
  nsresult SetPrefixOrigin(uint16_t) override { return NS_ERROR_NOT_IMPLEMENTED; }
  nsresult GetSuffixOrigin(uint32_t*) override { return NS_ERROR_NOT_IMPLEMENTED; }
  nsresult SetSuffixOrigin(uint32_t) override { return NS_ERROR_NOT_IMPLEMENTED; }
  nsresult GetValidLifetime(uint64_t*) override { return NS_ERROR_NOT_IMPLEMENTED; }
  nsresult SetValidLifetime(uint64_t) override { return NS_ERROR_NOT_IMPLEMENTED; }
  nsresult GetPreferredLifetime(uint64_t*) override { return NS_ERROR_NOT_IMPLEMENTED; }
  nsresult SetPreferredLifetime(uint64_t) override { return NS_ERROR_NOT_IMPLEMENTED; }
  nsresult GetLeaseLifetime(uint64_t*) override { return NS_ERROR_NOT_IMPLEMENTED; }
  nsresult SetLeaseLifetime(uint64_t) override { return NS_ERROR_NOT_IMPLEMENTED; }
  nsresult GetDadState(uint32_t*) override { return NS_ERROR_NOT_IMPLEMENTED; }
  nsresult SetDadState(uint32_t) override { return NS_ERROR_NOT_IMPLEMENTED; }
  /// NS_ERROR_FAILURE with arguments.
  nsresult Initialize(nsISupports*, JSContext*, JSObject*, uint32_t aArgc, jsval*) override {
    return aArgc == 0 ? NS_OK : NS_ERROR_FAILURE;
  }

 private:
  ~nsSystemIPAddress() override = default;

  nsCOMPtr<nsISystemIPStructure> mAddress;
  uint8_t mPrefixLength = 0;
  uint16_t mPrefixOrigin = 1;
};
