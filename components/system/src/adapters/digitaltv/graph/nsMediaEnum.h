// The enumerators of media interfaces, which are all alike, and the memory that interfaces hand
// out.
#pragma once

#include <cstring>
#include <string_view>
#include <vector>

#include "IEnumFilters.h"
#include "IEnumMediaTypes.h"
#include "IEnumMoniker.h"
#include "IEnumPIDMap.h"
#include "IEnumPins.h"
#include "nsDirectShowTypes.h"
#include "nsImplements.h"

/// What CoTaskMemFree takes; null when there is none.
void* NS_MediaAlloc(size_t aSize);
void NS_MediaFree(void* aMemory);
/// A text in such memory, closed by a zero.
char16_t* NS_MediaText(std::u16string_view aText);
/// What SysFreeString takes, its length in bytes in front.
char16_t* NS_NewMediaBSTR(std::u16string_view aText);
void NS_FreeMediaBSTR(char16_t* aText);
/// All of it; an empty text for null.
std::u16string_view NS_MediaBSTRView(const char16_t* aText);

/// What pins of this graph know of a media type. The formats that some types have besides play no
/// part here.
struct nsMediaType {
  nsID mMajor, mSubtype;

  AM_MEDIA_TYPE Full() const {
    AM_MEDIA_TYPE type{};
    type.majortype = mMajor;
    type.subtype = mSubtype;
    return type;
  }
  /// Whether a wanted type, in which an identifier of zeros stands for any, is this one.
  bool Fits(const AM_MEDIA_TYPE& aWanted) const {
    return (aWanted.majortype == nsID() || aWanted.majortype == mMajor) &&
           (aWanted.subtype == nsID() || aWanted.subtype == mSubtype);
  }
  static nsMediaType Of(const AM_MEDIA_TYPE& aType) { return {aType.majortype, aType.subtype}; }
  friend bool operator==(const nsMediaType&, const nsMediaType&) = default;
};

namespace vorel::detail {
template <class I, class Out>
Out OutOfNext(nsresult (I::*)(uint32_t, Out*, uint32_t*));

template <nsInterface I>
bool HandOut(const nsCOMPtr<I>& aItem, I** aOut) {
  nsCOMPtr<I>(aItem).forget(aOut);
  return true;
}
inline bool HandOut(const nsMediaType& aItem, AM_MEDIA_TYPE** aOut) {
  void* const memory = NS_MediaAlloc(sizeof(AM_MEDIA_TYPE));
  if (!memory) return false;
  *aOut = new (memory) AM_MEDIA_TYPE(aItem.Full());
  return true;
}
inline bool HandOut(const PID_MAP& aItem, PID_MAP* aOut) {
  *aOut = aItem;
  return true;
}
}  // namespace vorel::detail

/// Goes through what there was when it was made. One thread at a time.
template <nsInterface I, class Item>
class nsMediaEnum final : public nsImplements<nsMediaEnum<I, Item>, I> {
  using Out = decltype(vorel::detail::OutOfNext(&I::Next));

 public:
  explicit nsMediaEnum(std::vector<Item> aItems, size_t aAt = 0)
      : mItems(std::move(aItems)), mAt(aAt) {}

  nsresult Next(uint32_t aCount, Out* aItems, uint32_t* aFetched) override {
    if (!aItems || (!aFetched && aCount != 1)) return E_POINTER;
    uint32_t count = 0;
    nsresult rv = S_OK;
    while (count < aCount && mAt < mItems.size() && NS_SUCCEEDED(rv)) {
      if (vorel::detail::HandOut(mItems[mAt], aItems + count)) {
        ++count;
        ++mAt;
      } else {
        rv = E_OUTOFMEMORY;
      }
    }
    if (aFetched) *aFetched = count;
    // What was handed out already is the caller's, and a success.
    if (NS_FAILED(rv) && count == 0) return rv;
    return count == aCount ? S_OK : S_FALSE;
  }
  nsresult Skip(uint32_t aCount) override {
    const size_t count = std::min<size_t>(aCount, mItems.size() - mAt);
    mAt += count;
    return count == aCount ? S_OK : S_FALSE;
  }
  nsresult Reset() override {
    mAt = 0;
    return S_OK;
  }
  nsresult Clone(I** aEnum) override {
    if (!aEnum) return E_POINTER;
    MakeRefCounted<nsMediaEnum>(mItems, mAt).forget(aEnum);
    return S_OK;
  }

 private:
  ~nsMediaEnum() override = default;
  const std::vector<Item> mItems;
  size_t mAt;
};

class ITypeInfo;

/// An interface that scripting languages of another platform could call; here none does.
template <nsInterface I>
class nsWithoutDispatch : public I {
 public:
  using Self = nsWithoutDispatch;
  using Base = I;
  static constexpr std::string_view kName = "nsWithoutDispatch";
  static constexpr nsIID kIID = "0d8c3a4e-6b0e-4bd0-9a11-9ff0a3d6c1b7"_iid;

  nsresult GetTypeInfoCount(uint32_t*) override { return E_NOTIMPL; }
  nsresult GetTypeInfo(uint32_t, uint32_t, ITypeInfo**) override { return E_NOTIMPL; }
  nsresult GetIDsOfNames(const nsIID&, char16_t**, uint32_t, uint32_t, int32_t*) override {
    return E_NOTIMPL;
  }
  nsresult Invoke(int32_t, const nsIID&, uint32_t, uint16_t, DISPPARAMS*, VARIANT*, EXCEPINFO*,
                  uint32_t*) override {
    return E_NOTIMPL;
  }

 protected:
  ~nsWithoutDispatch() = default;
};
