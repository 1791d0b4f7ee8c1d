#include "nsMediaMonikers.h"

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "IBindCtx.h"
#include "ICreateDevEnum.h"
#include "IMoniker.h"
#include "IPropertyBag.h"
#include "IRunningObjectTable.h"
#include "nsLock.h"
#include "nsMediaEnum.h"
#include "nsMediaFilter.h"
#include "nsTableFilters.h"
#include "nsTunerFilters.h"
#include "nsUtf.h"

namespace {

// ---- Names

class PropertyBag final : public nsImplements<PropertyBag, IPropertyBag> {
 public:
  PropertyBag(std::u16string aFriendlyName, std::u16string aPath)
      : mFriendlyName(std::move(aFriendlyName)), mPath(std::move(aPath)) {}
  /// E_INVALIDARG for a name that there is not, and when another type than a text is wanted.
  nsresult Read(const char16_t* aName, VARIANT* aValue, IErrorLog*) override {
    if (!aName || !aValue) return E_POINTER;
    const std::u16string_view name(aName);
    const bool isName = name == u"FriendlyName";
    if ((!isName && name != u"DevicePath") || (aValue->vt != VT_EMPTY && aValue->vt != VT_BSTR))
      return E_INVALIDARG;
    char16_t* const text = NS_NewMediaBSTR(isName ? mFriendlyName : mPath);
    if (!text) return E_OUTOFMEMORY;
    aValue->vt = VT_BSTR;
    aValue->bstrVal = text;
    return S_OK;
  }
  nsresult Write(const char16_t*, VARIANT*) override { return E_NOTIMPL; }

 private:
  ~PropertyBag() override = default;
  const std::u16string mFriendlyName, mPath;
};

class Moniker final : public nsImplements<Moniker, IMoniker> {
 public:
  using Factory = std::function<nsCOMPtr<IBaseFilter>()>;
  /// Without a factory it is only a name.
  Moniker(std::u16string aDisplayName, std::u16string aFriendlyName = {}, Factory aFactory = {})
      : mDisplayName(std::move(aDisplayName)),
        mFriendlyName(std::move(aFriendlyName)),
        mFactory(std::move(aFactory)) {}

  nsresult GetClassID(nsCID*) override { return E_NOTIMPL; }
  nsresult IsDirty() override { return S_FALSE; }
  nsresult Load(IStream*) override { return E_NOTIMPL; }
  nsresult Save(IStream*, int32_t) override { return E_NOTIMPL; }
  nsresult GetSizeMax(uint64_t*) override { return E_NOTIMPL; }
  nsresult BindToObject(IBindCtx*, IMoniker*, const nsIID& aIID, void** aResult) override {
    if (!aResult) return E_POINTER;
    return mFactory ? mFactory()->QueryInterface(aIID, aResult) : MK_E_NOOBJECT;
  }
  nsresult BindToStorage(IBindCtx*, IMoniker*, const nsIID& aIID, void** aResult) override {
    if (!aResult) return E_POINTER;
    if (!mFactory) return MK_E_NOOBJECT;
    return MakeRefCounted<PropertyBag>(mFriendlyName, mDisplayName)->QueryInterface(aIID, aResult);
  }
  nsresult Reduce(IBindCtx*, uint32_t, IMoniker**, IMoniker**) override { return E_NOTIMPL; }
  nsresult ComposeWith(IMoniker*, int32_t, IMoniker**) override { return E_NOTIMPL; }
  nsresult Enum(int32_t, IEnumMoniker**) override { return E_NOTIMPL; }
  nsresult IsEqual(IMoniker* aOther) override;
  nsresult Hash(uint32_t* aHash) override {
    if (!aHash) return E_POINTER;
    *aHash = static_cast<uint32_t>(std::hash<std::u16string>()(mDisplayName));
    return S_OK;
  }
  nsresult IsRunning(IBindCtx*, IMoniker*, IMoniker*) override { return E_NOTIMPL; }
  nsresult GetTimeOfLastChange(IBindCtx*, IMoniker*, uint64_t*) override { return E_NOTIMPL; }
  nsresult Inverse(IMoniker**) override { return E_NOTIMPL; }
  nsresult CommonPrefixWith(IMoniker*, IMoniker**) override { return E_NOTIMPL; }
  nsresult RelativePathTo(IMoniker*, IMoniker**) override { return E_NOTIMPL; }
  nsresult GetDisplayName(IBindCtx*, IMoniker*, char16_t** aName) override {
    if (!aName) return E_POINTER;
    char16_t* const name = NS_MediaText(mDisplayName);
    if (!name) return E_OUTOFMEMORY;
    *aName = name;
    return S_OK;
  }
  nsresult ParseDisplayName(IBindCtx*, IMoniker*, char16_t*, uint32_t*, IMoniker**) override {
    return E_NOTIMPL;
  }
  nsresult IsSystemMoniker(uint32_t*) override { return E_NOTIMPL; }

  const std::u16string mDisplayName;

 private:
  ~Moniker() override = default;
  const std::u16string mFriendlyName;
  const Factory mFactory;
};

std::u16string DisplayNameOf(IMoniker* aMoniker) {
  char16_t* text = nullptr;
  if (!aMoniker || NS_FAILED(aMoniker->GetDisplayName(nullptr, nullptr, &text))) return {};
  std::u16string name(text);
  NS_MediaFree(text);
  return name;
}

nsresult Moniker::IsEqual(IMoniker* aOther) {
  if (!aOther) return E_POINTER;
  return DisplayNameOf(aOther) == mDisplayName ? S_OK : S_FALSE;
}

// ---- Devices

using Monikers = std::vector<nsCOMPtr<IMoniker>>;

std::u16string PathOf(const std::string& aPath) { return vorel::NameToUtf16(aPath); }

void AddTuner(const std::shared_ptr<nsPlatformTuners>& aTuners, const nsTunerInfo& aInfo,
              Monikers* aMonikers) {
  aMonikers->push_back(
      MakeRefCounted<Moniker>(PathOf(aInfo.mPath), vorel::Utf8ToUtf16(aInfo.mName),
                              [aTuners, aInfo] { return NS_NewTunerFilter(aTuners, aInfo); }));
}

void AddParts(const nsTunerInfo& aInfo, Monikers* aMonikers) {
  for (size_t i = 0; i < aInfo.mParts.size(); ++i)
    aMonikers->push_back(MakeRefCounted<Moniker>(
        PathOf(aInfo.mParts[i].mPath), vorel::Utf8ToUtf16(aInfo.mParts[i].mName),
        [aInfo, i] { return NS_NewTunerPartFilter(aInfo, i + 1); }));
}

// The names by which those who build graphs look for them.
void AddTableFilters(Monikers* aMonikers) {
  constexpr std::u16string_view kInformation = u"BDA MPEG2 Transport Information Filter",
                                kSections = u"MPEG-2 Sections and Tables";
  const auto add = [&](std::u16string_view aName, nsCOMPtr<IBaseFilter> (*aFactory)()) {
    aMonikers->push_back(MakeRefCounted<Moniker>(u"vorel:" + std::u16string(aName),
                                                 std::u16string(aName), aFactory));
  };
  add(kInformation, NS_NewTransportInformationFilter);
  add(kSections, NS_NewSectionsFilter);
}

class DeviceEnum final : public nsImplements<DeviceEnum, ICreateDevEnum> {
 public:
  explicit DeviceEnum(std::shared_ptr<nsPlatformTuners> aTuners) : mTuners(std::move(aTuners)) {}
  nsresult CreateClassEnumerator(const nsCID& aCategory, IEnumMoniker** aEnum, uint32_t) override {
    if (!aEnum) return E_POINTER;
    Monikers monikers;
    if (aCategory == KSCATEGORY_BDA_TRANSPORT_INFORMATION) {
      AddTableFilters(&monikers);
    } else if (aCategory == KSCATEGORY_BDA_NETWORK_TUNER ||
               aCategory == KSCATEGORY_BDA_RECEIVER_COMPONENT) {
      std::vector<nsTunerInfo> tuners;
      if (const nsresult rv = mTuners->ListTuners(&tuners); NS_FAILED(rv)) return rv;
      for (const nsTunerInfo& tuner : tuners)
        if (aCategory == KSCATEGORY_BDA_NETWORK_TUNER)
          AddTuner(mTuners, tuner, &monikers);
        else
          AddParts(tuner, &monikers);
    }
    *aEnum = nullptr;
    if (monikers.empty()) return S_FALSE;
    MakeRefCounted<nsMediaEnum<IEnumMoniker, nsCOMPtr<IMoniker>>>(std::move(monikers))
        .forget(aEnum);
    return S_OK;
  }

 private:
  ~DeviceEnum() override = default;
  const std::shared_ptr<nsPlatformTuners> mTuners;
};

// ---- What runs

class RunningObjectTable final : public nsImplements<RunningObjectTable, IRunningObjectTable> {
 public:
  nsresult Register(uint32_t, nsISupports* aObject, IMoniker* aName,
                    uint32_t* aRegistration) override {
    if (!aObject || !aName || !aRegistration) return E_POINTER;
    const nsAutoLock lock(mLock);
    *aRegistration = ++mLast;
    mEntries.push_back({mLast, aName, aObject, DisplayNameOf(aName)});
    return S_OK;
  }
  nsresult Revoke(uint32_t aRegistration) override {
    Entry revoked;  // let go of when the lock is no longer held
    const nsAutoLock lock(mLock);
    const auto found = std::ranges::find(mEntries, aRegistration, &Entry::mRegistration);
    if (found == mEntries.end()) return E_INVALIDARG;
    revoked = std::move(*found);
    mEntries.erase(found);
    return S_OK;
  }
  nsresult IsRunning(IMoniker* aName) override {
    nsCOMPtr<nsISupports> object;
    const nsresult rv = GetObject(aName, object.getter_AddRefs());
    return rv == MK_E_NOOBJECT ? S_FALSE : rv;
  }
  nsresult GetObject(IMoniker* aName, nsISupports** aObject) override {
    if (!aName || !aObject) return E_POINTER;
    const std::u16string name = DisplayNameOf(aName);
    const nsAutoLock lock(mLock);
    const auto found = std::ranges::find(mEntries, name, &Entry::mDisplayName);
    if (found == mEntries.end()) return MK_E_NOOBJECT;
    nsCOMPtr(found->mObject).forget(aObject);
    return S_OK;
  }
  nsresult NoteChangeTime(uint32_t, uint64_t*) override { return E_NOTIMPL; }
  nsresult GetTimeOfLastChange(IMoniker*, uint64_t*) override { return E_NOTIMPL; }
  nsresult EnumRunning(IEnumMoniker** aEnum) override {
    if (!aEnum) return E_POINTER;
    Monikers names;
    const nsAutoLock lock(mLock);
    for (const Entry& entry : mEntries) names.push_back(entry.mName);
    MakeRefCounted<nsMediaEnum<IEnumMoniker, nsCOMPtr<IMoniker>>>(std::move(names)).forget(aEnum);
    return S_OK;
  }

 private:
  struct Entry {
    uint32_t mRegistration = 0;
    nsCOMPtr<IMoniker> mName;
    nsCOMPtr<nsISupports> mObject;
    std::u16string mDisplayName;
  };
  ~RunningObjectTable() override = default;
  nsMutex mLock;
  std::vector<Entry> mEntries NS_GUARDED_BY(mLock);
  uint32_t mLast NS_GUARDED_BY(mLock) = 0;
};

class BindCtx final : public nsImplements<BindCtx, IBindCtx> {
 public:
  explicit BindCtx(nsCOMPtr<IRunningObjectTable> aRunning) : mRunning(std::move(aRunning)) {}
  nsresult RegisterObjectBound(nsISupports*) override { return E_NOTIMPL; }
  nsresult RevokeObjectBound(nsISupports*) override { return E_NOTIMPL; }
  nsresult ReleaseBoundObjects() override { return S_OK; }
  nsresult SetBindOptions(BIND_OPTS*) override { return E_NOTIMPL; }
  nsresult GetBindOptions(BIND_OPTS*) override { return E_NOTIMPL; }
  nsresult GetRunningObjectTable(IRunningObjectTable** aTable) override {
    if (!aTable) return E_POINTER;
    nsCOMPtr(mRunning).forget(aTable);
    return S_OK;
  }
  nsresult RegisterObjectParam(char16_t*, nsISupports*) override { return E_NOTIMPL; }
  nsresult GetObjectParam(char16_t*, nsISupports**) override { return E_NOTIMPL; }
  nsresult EnumObjectParam(IEnumString**) override { return E_NOTIMPL; }
  nsresult RevokeObjectParam(char16_t*) override { return E_NOTIMPL; }

 private:
  ~BindCtx() override = default;
  const nsCOMPtr<IRunningObjectTable> mRunning;
};

}  // namespace

nsCOMPtr<ICreateDevEnum> NS_NewMediaDeviceEnum(std::shared_ptr<nsPlatformTuners> aTuners) {
  return MakeRefCounted<DeviceEnum>(std::move(aTuners));
}

nsresult NS_FindMediaDevice(const std::shared_ptr<nsPlatformTuners>& aTuners,
                            std::u16string_view aPath, IMoniker** aMoniker) {
  if (aPath.empty()) return MK_E_SYNTAX;
  std::vector<nsTunerInfo> tuners;
  if (const nsresult rv = aTuners->ListTuners(&tuners); NS_FAILED(rv)) return rv;
  Monikers monikers;
  for (const nsTunerInfo& tuner : tuners) {
    AddTuner(aTuners, tuner, &monikers);
    AddParts(tuner, &monikers);
  }
  AddTableFilters(&monikers);
  for (auto& moniker : monikers)
    if (DisplayNameOf(moniker.get()) == aPath) {
      moniker.forget(aMoniker);
      return S_OK;
    }
  return MK_E_NOOBJECT;
}

nsCOMPtr<IMoniker> NS_NewItemMoniker(std::u16string_view aDelimiter, std::u16string_view aItem) {
  return MakeRefCounted<Moniker>(std::u16string(aDelimiter) + std::u16string(aItem));
}
nsCOMPtr<IBindCtx> NS_NewBindCtx(nsCOMPtr<IRunningObjectTable> aRunning) {
  return MakeRefCounted<BindCtx>(std::move(aRunning));
}
nsCOMPtr<IRunningObjectTable> NS_NewRunningObjectTable() {
  return MakeRefCounted<RunningObjectTable>();
}
