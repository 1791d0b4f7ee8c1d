// Objects that carry one value. An object is used by one thread at a time; the value is whole when
// it changes hands.
#pragma once

#include <string>

#include "nsISupportsCString.h"
#include "nsISupportsID.h"
#include "nsISupportsInterfacePointer.h"
#include "nsISupportsPRBool.h"
#include "nsISupportsPRInt32.h"
#include "nsISupportsPRUint32.h"
#include "nsISupportsString.h"
#include "nsImplements.h"
#include "nsString.h"

/// Bool and numbers: 0 until set.
template <class Class, class Interface, class Value, uint16_t kType>
class nsSupportsValue : public nsImplements<Class, Interface> {
 public:
  nsresult GetType(uint16_t* aType) override {
    if (!aType) return NS_ERROR_NULL_POINTER;
    *aType = kType;
    return NS_OK;
  }
  nsresult GetData(Value* aData) override {
    if (!aData) return NS_ERROR_NULL_POINTER;
    *aData = mData;
    return NS_OK;
  }
  nsresult SetData(Value aData) override {
    mData = aData;
    return NS_OK;
  }
  nsresult ToString(char** aResult) override {
    if (!aResult) return NS_ERROR_NULL_POINTER;
    if constexpr (std::same_as<Value, bool>)
      *aResult = NS_NewCString(mData ? "true" : "false");
    else
      *aResult = NS_NewCString(std::to_string(mData));
    return NS_OK;
  }

 private:
  Value mData{};
};

class nsSupportsPRBool final : public nsSupportsValue<nsSupportsPRBool, nsISupportsPRBool, bool,
                                                      nsISupportsPrimitive::TYPE_PRBOOL> {
  ~nsSupportsPRBool() override = default;
};
class nsSupportsPRUint32 final
    : public nsSupportsValue<nsSupportsPRUint32, nsISupportsPRUint32, uint32_t,
                             nsISupportsPrimitive::TYPE_PRUINT32> {
  ~nsSupportsPRUint32() override = default;
};
class nsSupportsPRInt32 final
    : public nsSupportsValue<nsSupportsPRInt32, nsISupportsPRInt32, int32_t,
                             nsISupportsPrimitive::TYPE_PRINT32> {
  ~nsSupportsPRInt32() override = default;
};

class nsSupportsCString final : public nsImplements<nsSupportsCString, nsISupportsCString> {
 public:
  nsSupportsCString() = default;
  explicit nsSupportsCString(std::string_view aData) : mData(aData) {}
  nsresult GetType(uint16_t* aType) override;
  nsresult GetData(nsACString& aData) override;
  nsresult SetData(const nsACString& aData) override;
  nsresult ToString(char** aResult) override;

 private:
  ~nsSupportsCString() override = default;
  nsCString mData;
};

class nsSupportsString final : public nsImplements<nsSupportsString, nsISupportsString> {
 public:
  nsSupportsString() = default;
  explicit nsSupportsString(std::u16string_view aData) : mData(aData) {}
  nsresult GetType(uint16_t* aType) override;
  nsresult GetData(nsAString& aData) override;
  nsresult SetData(const nsAString& aData) override;
  nsresult ToString(char16_t** aResult) override;

 private:
  ~nsSupportsString() override = default;
  nsString mData;
};

/// An identifier; null until set.
class nsSupportsID final : public nsImplements<nsSupportsID, nsISupportsID> {
 public:
  nsSupportsID() = default;
  explicit nsSupportsID(const nsID& aData) : mData(aData) {}
  nsresult GetType(uint16_t* aType) override;
  nsresult GetData(nsID** aData) override;
  nsresult SetData(const nsID* aData) override;
  nsresult ToString(char** aResult) override;

 private:
  ~nsSupportsID() override = default;
  std::optional<nsID> mData;
};

class nsSupportsInterfacePointer final
    : public nsImplements<nsSupportsInterfacePointer, nsISupportsInterfacePointer> {
 public:
  nsresult GetType(uint16_t* aType) override;
  nsresult GetData(nsISupports** aData) override;
  nsresult SetData(nsISupports* aData) override;
  nsresult GetDataIID(nsID** aDataIID) override;
  nsresult SetDataIID(const nsID* aDataIID) override;
  nsresult ToString(char** aResult) override;

 private:
  ~nsSupportsInterfacePointer() override = default;
  nsCOMPtr<nsISupports> mData;
  std::optional<nsID> mIID;
};
