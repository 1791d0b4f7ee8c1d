#include "nsClassInfo.h"

#include "nsIXPCScriptable.h"
#include "nsImplements.h"
#include "nsString.h"
#include "nsXPCOM.h"

nsresult GenericClassInfo::QueryInterface(const nsIID& aIID, void** aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  *aResult = aIID == nsISupports::kIID || aIID == nsIClassInfo::kIID
                 ? static_cast<nsIClassInfo*>(this)
                 : nullptr;
  return *aResult ? NS_OK : NS_ERROR_NO_INTERFACE;
}

nsresult GenericClassInfo::GetInterfaces(uint32_t* aCount, nsIID*** aArray) {
  return mRecord->getInterfaces(aCount, aArray);
}

nsresult GenericClassInfo::GetHelperForLanguage(uint32_t aLanguage, nsISupports** aResult) {
  return mRecord->getLanguageHelper ? mRecord->getLanguageHelper(aLanguage, aResult)
                                    : NS_ERROR_NOT_IMPLEMENTED;
}

nsresult GenericClassInfo::GetContractID(char** aContractID) {
  *aContractID = nullptr;
  return NS_ERROR_NOT_IMPLEMENTED;
}

nsresult GenericClassInfo::GetClassDescription(char** aClassDescription) {
  *aClassDescription = nullptr;
  return NS_ERROR_NOT_IMPLEMENTED;
}

nsresult GenericClassInfo::GetClassID(nsCID** aClassID) {
  *aClassID = nullptr;
  return NS_ERROR_NOT_IMPLEMENTED;
}

nsresult GenericClassInfo::GetImplementationLanguage(uint32_t* aLanguage) {
  *aLanguage = nsIProgrammingLanguage::CPLUSPLUS;
  return NS_OK;
}

nsresult GenericClassInfo::GetFlags(uint32_t* aFlags) {
  *aFlags = mRecord->flags;
  return NS_OK;
}

nsresult GenericClassInfo::GetClassIDNoAlloc(nsCID* aClassID) {
  *aClassID = mRecord->classID;
  return NS_OK;
}

namespace {

// The host asks it for the name only: the flags say that it wants no other call.
class nsGenericHelper final : public nsImplements<nsGenericHelper, nsIXPCScriptable> {
 public:
  explicit nsGenericHelper(const char* aName) : mName(aName) {}

  nsresult GetClassName(char** aClassName) override {
    *aClassName = NS_NewCString(mName);
    return NS_OK;
  }
  nsresult GetScriptableFlags(uint32_t* aFlags) override {
    *aFlags = 0;
    return NS_OK;
  }

  using Wrapper = nsIXPConnectWrappedNative;
  nsresult PreCreate(nsISupports*, JSContext*, JSObject*, JSObject**) override { return kNo; }
  nsresult Create(Wrapper*, JSContext*, JSObject*) override { return kNo; }
  nsresult PostCreate(Wrapper*, JSContext*, JSObject*) override { return kNo; }
  nsresult AddProperty(Wrapper*, JSContext*, JSObject*, uintptr_t, jsval*, bool*) override {
    return kNo;
  }
  nsresult DelProperty(Wrapper*, JSContext*, JSObject*, uintptr_t, jsval*, bool*) override {
    return kNo;
  }
  nsresult GetProperty(Wrapper*, JSContext*, JSObject*, uintptr_t, jsval*, bool*) override {
    return kNo;
  }
  nsresult SetProperty(Wrapper*, JSContext*, JSObject*, uintptr_t, jsval*, bool*) override {
    return kNo;
  }
  nsresult Enumerate(Wrapper*, JSContext*, JSObject*, bool*) override { return kNo; }
  nsresult NewEnumerate(Wrapper*, JSContext*, JSObject*, uint32_t, jsval*, uintptr_t*,
                        bool*) override {
    return kNo;
  }
  nsresult NewResolve(Wrapper*, JSContext*, JSObject*, uintptr_t, uint32_t, JSObject**,
                      bool*) override {
    return kNo;
  }
  nsresult Convert(Wrapper*, JSContext*, JSObject*, uint32_t, jsval*, bool*) override {
    return kNo;
  }
  nsresult Finalize(Wrapper*, JSFreeOp*, JSObject*) override { return kNo; }
  nsresult CheckAccess(Wrapper*, JSContext*, JSObject*, uintptr_t, uint32_t, jsval*,
                       bool*) override {
    return kNo;
  }
  nsresult Call(Wrapper*, JSContext*, JSObject*, uint32_t, jsval*, jsval*, bool*) override {
    return kNo;
  }
  nsresult Construct(Wrapper*, JSContext*, JSObject*, uint32_t, jsval*, jsval*, bool*) override {
    return kNo;
  }
  nsresult HasInstance(Wrapper*, JSContext*, JSObject*, const jsval&, bool*, bool*) override {
    return kNo;
  }
  nsresult Equality(Wrapper*, JSContext*, JSObject*, const jsval&, bool*) override { return kNo; }
  nsresult OuterObject(Wrapper*, JSContext*, JSObject*, JSObject**) override { return kNo; }
  nsresult PostCreatePrototype(JSContext*, JSObject*) override { return NS_OK; }

 private:
  static constexpr nsresult kNo = NS_ERROR_NOT_IMPLEMENTED;
  ~nsGenericHelper() override = default;
  const char* const mName;
};

}  // namespace

nsresult NS_NewGenericHelper(uint32_t aLanguage, const char* aClassName, nsISupports** aResult) {
  *aResult = nullptr;
  if (aLanguage == nsIProgrammingLanguage::JAVASCRIPT)
    MakeRefCounted<nsGenericHelper>(aClassName).forget(aResult);
  return NS_OK;
}

namespace vorel::detail {

nsresult CopyInterfaces(const nsIID* const* aIIDs, uint32_t aCount, uint32_t* aCountOut,
                        nsIID*** aArrayOut) {
  auto** array = static_cast<nsIID**>(NS_Alloc(aCount * sizeof(nsIID*)));
  for (uint32_t i = 0; i < aCount; ++i) array[i] = new (NS_Alloc(sizeof(nsIID))) nsIID(*aIIDs[i]);
  *aCountOut = aCount;
  *aArrayOut = array;
  return NS_OK;
}

}  // namespace vorel::detail
