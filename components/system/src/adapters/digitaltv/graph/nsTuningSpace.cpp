#include "nsTuningSpace.h"

#include <array>
#include <string>

#include "IDVBTLocator.h"
#include "IDVBTuneRequest.h"
#include "IDVBTuningSpace2.h"
#include "nsLock.h"
#include "nsMediaEnum.h"

namespace {

// A set of numbers, -1 until they are put.
template <size_t N>
class Numbers {
 public:
  Numbers() { mValues.fill(-1); }
  Numbers(const Numbers& aOther) : mValues(aOther.Copy()) {}
  Numbers& operator=(const Numbers&) = delete;
  nsresult Get(size_t aIndex, int32_t* aValue) const {
    if (!aValue) return E_POINTER;
    const nsAutoLock lock(mLock);
    *aValue = mValues[aIndex];
    return S_OK;
  }
  nsresult Put(size_t aIndex, int32_t aValue) {
    const nsAutoLock lock(mLock);
    mValues[aIndex] = aValue;
    return S_OK;
  }

 private:
  std::array<int32_t, N> Copy() const {
    const nsAutoLock lock(mLock);
    return mValues;
  }
  mutable nsMutex mLock;
  std::array<int32_t, N> mValues NS_GUARDED_BY(mLock);
};

// ---- Where a stream is to be found

class Locator final : public nsImplements<Locator, nsWithoutDispatch<IDVBTLocator>> {
 public:
  Locator() = default;
  Locator(const Locator& aOther) : nsImplementsWith(), mNumbers(aOther.mNumbers) {}
  Locator& operator=(const Locator&) = delete;

  nsresult get_CarrierFrequency(int32_t* a) override { return mNumbers.Get(kFrequency, a); }
  nsresult put_CarrierFrequency(int32_t a) override { return mNumbers.Put(kFrequency, a); }
  nsresult get_InnerFEC(int32_t* a) override { return mNumbers.Get(kInnerFEC, a); }
  nsresult put_InnerFEC(int32_t a) override { return mNumbers.Put(kInnerFEC, a); }
  nsresult get_InnerFECRate(int32_t* a) override { return mNumbers.Get(kInnerRate, a); }
  nsresult put_InnerFECRate(int32_t a) override { return mNumbers.Put(kInnerRate, a); }
  nsresult get_OuterFEC(int32_t* a) override { return mNumbers.Get(kOuterFEC, a); }
  nsresult put_OuterFEC(int32_t a) override { return mNumbers.Put(kOuterFEC, a); }
  nsresult get_OuterFECRate(int32_t* a) override { return mNumbers.Get(kOuterRate, a); }
  nsresult put_OuterFECRate(int32_t a) override { return mNumbers.Put(kOuterRate, a); }
  nsresult get_Modulation(int32_t* a) override { return mNumbers.Get(kModulation, a); }
  nsresult put_Modulation(int32_t a) override { return mNumbers.Put(kModulation, a); }
  nsresult get_SymbolRate(int32_t* a) override { return mNumbers.Get(kSymbolRate, a); }
  nsresult put_SymbolRate(int32_t a) override { return mNumbers.Put(kSymbolRate, a); }
  nsresult get_Bandwidth(int32_t* a) override { return mNumbers.Get(kBandwidth, a); }
  nsresult put_Bandwidth(int32_t a) override { return mNumbers.Put(kBandwidth, a); }
  nsresult get_LPInnerFEC(int32_t* a) override { return mNumbers.Get(kLPFEC, a); }
  nsresult put_LPInnerFEC(int32_t a) override { return mNumbers.Put(kLPFEC, a); }
  nsresult get_LPInnerFECRate(int32_t* a) override { return mNumbers.Get(kLPRate, a); }
  nsresult put_LPInnerFECRate(int32_t a) override { return mNumbers.Put(kLPRate, a); }
  nsresult get_HAlpha(int32_t* a) override { return mNumbers.Get(kHAlpha, a); }
  nsresult put_HAlpha(int32_t a) override { return mNumbers.Put(kHAlpha, a); }
  nsresult get_Guard(int32_t* a) override { return mNumbers.Get(kGuard, a); }
  nsresult put_Guard(int32_t a) override { return mNumbers.Put(kGuard, a); }
  nsresult get_Mode(int32_t* a) override { return mNumbers.Get(kMode, a); }
  nsresult put_Mode(int32_t a) override { return mNumbers.Put(kMode, a); }
  nsresult get_OtherFrequencyInUse(int16_t* aInUse) override {
    if (!aInUse) return E_POINTER;
    int32_t value = 0;
    (void)mNumbers.Get(kOtherFrequency, &value);
    *aInUse = static_cast<int16_t>(value);
    return S_OK;
  }
  nsresult put_OtherFrequencyInUse(int16_t a) override { return mNumbers.Put(kOtherFrequency, a); }
  nsresult Clone(ILocator** aLocator) override {
    if (!aLocator) return E_POINTER;
    MakeRefCounted<Locator>(*this).forget(aLocator);
    return S_OK;
  }

 private:
  enum : size_t {
    kFrequency,
    kInnerFEC,
    kInnerRate,
    kOuterFEC,
    kOuterRate,
    kModulation,
    kSymbolRate,
    kBandwidth,
    kLPFEC,
    kLPRate,
    kHAlpha,
    kGuard,
    kMode,
    kOtherFrequency,
    kCount
  };
  ~Locator() override = default;
  Numbers<kCount> mNumbers;
};

// ---- What is to be tuned to

class TuneRequest final : public nsImplements<TuneRequest, nsWithoutDispatch<IDVBTuneRequest>> {
 public:
  explicit TuneRequest(nsCOMPtr<ITuningSpace> aSpace) : mSpace(std::move(aSpace)) {}
  TuneRequest(const TuneRequest& aOther)
      : nsImplementsWith(),
        mNumbers(aOther.mNumbers),
        mSpace(aOther.mSpace),
        mLocator(aOther.CurrentLocator()) {}
  TuneRequest& operator=(const TuneRequest&) = delete;

  nsresult get_TuningSpace(ITuningSpace** aSpace) override {
    if (!aSpace) return E_POINTER;
    nsCOMPtr(mSpace).forget(aSpace);
    return S_OK;
  }
  nsresult get_Components(IComponents**) override { return E_NOTIMPL; }
  nsresult Clone(ITuneRequest** aRequest) override {
    if (!aRequest) return E_POINTER;
    MakeRefCounted<TuneRequest>(*this).forget(aRequest);
    return S_OK;
  }
  /// Null when none was put.
  nsresult get_Locator(ILocator** aLocator) override {
    if (!aLocator) return E_POINTER;
    CurrentLocator().forget(aLocator);
    return S_OK;
  }
  nsresult put_Locator(ILocator* aLocator) override {
    nsCOMPtr<ILocator> locator(aLocator);
    const nsAutoLock lock(mLock);
    mLocator.swap(locator);
    return S_OK;
  }
  nsresult get_ONID(int32_t* a) override { return mNumbers.Get(0, a); }
  nsresult put_ONID(int32_t a) override { return mNumbers.Put(0, a); }
  nsresult get_TSID(int32_t* a) override { return mNumbers.Get(1, a); }
  nsresult put_TSID(int32_t a) override { return mNumbers.Put(1, a); }
  nsresult get_SID(int32_t* a) override { return mNumbers.Get(2, a); }
  nsresult put_SID(int32_t a) override { return mNumbers.Put(2, a); }

 private:
  ~TuneRequest() override = default;
  nsCOMPtr<ILocator> CurrentLocator() const {
    const nsAutoLock lock(mLock);
    return mLocator;
  }

  Numbers<3> mNumbers;
  const nsCOMPtr<ITuningSpace> mSpace;
  mutable nsMutex mLock;
  nsCOMPtr<ILocator> mLocator NS_GUARDED_BY(mLock);
};

// ---- A kind of network

class TuningSpace final : public nsImplements<TuningSpace, nsWithoutDispatch<IDVBTuningSpace2>> {
 public:
  TuningSpace() = default;
  TuningSpace(const TuningSpace& aOther) : nsImplementsWith(), mNumbers(aOther.mNumbers) {
    const nsAutoLock lock(aOther.mLock);
    mTexts = aOther.mTexts;
    mLocator = aOther.mLocator;
  }
  TuningSpace& operator=(const TuningSpace&) = delete;

  nsresult get_UniqueName(char16_t** a) override { return Get(kUniqueName, a); }
  nsresult put_UniqueName(char16_t* a) override { return Put(kUniqueName, a); }
  nsresult get_FriendlyName(char16_t** a) override { return Get(kFriendlyName, a); }
  nsresult put_FriendlyName(char16_t* a) override { return Put(kFriendlyName, a); }
  nsresult get_CLSID(char16_t** aClass) override {
    return GiveText(Upper(CLSID_DVBTuningSpace), aClass);
  }
  nsresult get_NetworkType(char16_t** a) override { return Get(kNetworkType, a); }
  nsresult put_NetworkType(char16_t* a) override {
    nsID id;
    return Parse(NS_MediaBSTRView(a), &id) ? Put(kNetworkType, a) : E_INVALIDARG;
  }
  nsresult get__NetworkType(nsID* aType) override {
    if (!aType) return E_POINTER;
    const nsAutoLock lock(mLock);
    return Parse(mTexts[kNetworkType], aType) ? S_OK : E_FAIL;
  }
  nsresult put__NetworkType(const nsCID& aType) override {
    const nsAutoLock lock(mLock);
    mTexts[kNetworkType] = Upper(aType);
    return S_OK;
  }
  nsresult CreateTuneRequest(ITuneRequest** aRequest) override {
    if (!aRequest) return E_POINTER;
    MakeRefCounted<TuneRequest>(this).forget(aRequest);
    return S_OK;
  }
  nsresult EnumCategoryGUIDs(IEnumGUID**) override { return E_NOTIMPL; }
  nsresult EnumDeviceMonikers(IEnumMoniker**) override { return E_NOTIMPL; }
  nsresult get_DefaultPreferredComponentTypes(IComponentTypes**) override { return E_NOTIMPL; }
  nsresult put_DefaultPreferredComponentTypes(IComponentTypes*) override { return E_NOTIMPL; }
  nsresult get_FrequencyMapping(char16_t** a) override { return Get(kMapping, a); }
  nsresult put_FrequencyMapping(char16_t* a) override { return Put(kMapping, a); }
  nsresult get_DefaultLocator(ILocator** aLocator) override {
    if (!aLocator) return E_POINTER;
    const nsAutoLock lock(mLock);
    nsCOMPtr(mLocator).forget(aLocator);
    return S_OK;
  }
  nsresult put_DefaultLocator(ILocator* aLocator) override {
    nsCOMPtr<ILocator> locator(aLocator);
    const nsAutoLock lock(mLock);
    mLocator.swap(locator);
    return S_OK;
  }
  nsresult Clone(ITuningSpace** aSpace) override {
    if (!aSpace) return E_POINTER;
    MakeRefCounted<TuningSpace>(*this).forget(aSpace);
    return S_OK;
  }
  nsresult get_SystemType(int32_t* a) override { return mNumbers.Get(0, a); }
  nsresult put_SystemType(int32_t a) override { return mNumbers.Put(0, a); }
  nsresult get_NetworkID(int32_t* a) override { return mNumbers.Get(1, a); }
  nsresult put_NetworkID(int32_t a) override { return mNumbers.Put(1, a); }

 private:
  enum : size_t { kUniqueName, kFriendlyName, kNetworkType, kMapping, kTexts };
  ~TuningSpace() override = default;

  static bool Parse(std::u16string_view aText, nsID* aId) {
    return aText.size() == 38 && nsID::Parse(std::string(aText.begin(), aText.end()), aId);
  }
  static std::u16string Upper(const nsID& aId) {
    const std::string text = aId.ToString();
    std::u16string upper(text.begin(), text.end());
    for (char16_t& c : upper)
      if (c >= u'a' && c <= u'f') c = static_cast<char16_t>(c - u'a' + u'A');
    return upper;
  }
  static nsresult GiveText(std::u16string_view aText, char16_t** aOut) {
    if (!aOut) return E_POINTER;
    char16_t* const text = NS_NewMediaBSTR(aText);
    if (!text) return E_OUTOFMEMORY;
    *aOut = text;
    return S_OK;
  }
  nsresult Get(size_t aIndex, char16_t** aText) const {
    const nsAutoLock lock(mLock);
    return GiveText(mTexts[aIndex], aText);
  }
  nsresult Put(size_t aIndex, const char16_t* aText) {
    const nsAutoLock lock(mLock);
    mTexts[aIndex] = NS_MediaBSTRView(aText);
    return S_OK;
  }

  Numbers<2> mNumbers;
  mutable nsMutex mLock;
  std::array<std::u16string, kTexts> mTexts NS_GUARDED_BY(mLock);
  nsCOMPtr<ILocator> mLocator;
};

}  // namespace

nsresult NS_NewDVBTuningSpace(const nsIID& aIID, void** aResult) {
  return MakeRefCounted<TuningSpace>()->QueryInterface(aIID, aResult);
}
nsresult NS_NewDVBTLocator(const nsIID& aIID, void** aResult) {
  return MakeRefCounted<Locator>()->QueryInterface(aIID, aResult);
}
