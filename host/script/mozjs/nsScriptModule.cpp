#include "nsScriptModule.h"

#include "nsConvert.h"
#include "nsIXPConnect.h"
#include "nsIXPConnectJSObjectHolder.h"
#include "nsImplements.h"

namespace {

/// What a DOM class tells of itself, for the name that is being looked up. Class information by
/// number or by name is not kept: objects here bring their own.
class ScriptObjectFactory final
    : public nsImplements<ScriptObjectFactory, nsIDOMScriptObjectFactory> {
 public:
  explicit ScriptObjectFactory(nsNamedInterface* aName = nullptr) : mName(aName) {}

  nsISupports* GetClassInfoInstance(int32_t) override { return nullptr; }
  nsISupports* GetExternalClassInfoInstance(const nsAString&) override { return nullptr; }
  nsresult RegisterDOMClassInfo(const char* aName, nsDOMConstructorFunc,
                                const nsIID* aProtoChainInterface, const nsIID**, uint32_t, bool,
                                const nsCID* aConstructorCID) override {
    if (!aName || !mName || mName->mName != aName) return NS_ERROR_INVALID_ARG;
    // What else the class implements, others implement too, and are no instances of it.
    if (aProtoChainInterface) mName->mIIDs.push_back(*aProtoChainInterface);
    if (aConstructorCID) {
      mName->mCID = *aConstructorCID;
      mName->mConstructs = true;
    }
    return NS_OK;
  }

 private:
  ~ScriptObjectFactory() override = default;
  nsNamedInterface* const mName;
};

class ObjectHolder final : public nsImplements<ObjectHolder, nsIXPConnectJSObjectHolder> {
 public:
  ObjectHolder(JSContext* cx, JSObject* aObject) : mObject(cx, aObject) {}
  nsresult GetJSObject(JSObject** aObject) override {
    *aObject = mObject;
    return NS_OK;
  }

 private:
  ~ObjectHolder() override = default;
  JS::PersistentRootedObject mObject;
};

/// The two operations by which compiled code goes from an object to a script's, and back.
class XPConnect final : public nsImplements<XPConnect, nsIXPConnect> {
 public:
  nsresult InitClasses(JSContext*, JSObject*) override { return NS_ERROR_NOT_IMPLEMENTED; }
  nsresult InitClassesWithNewWrappedGlobal(JSContext*, nsISupports*, nsIPrincipal*, uint32_t,
                                           nsIXPConnectJSObjectHolder**) override {
    return NS_ERROR_NOT_IMPLEMENTED;
  }
  nsresult WrapNative(JSContext* cx, JSObject*, nsISupports* aObject, const nsIID& aIID,
                      nsIXPConnectJSObjectHolder** aResult) override {
    nsScriptRuntime* const runtime = nsScriptRuntime::Current();
    if (!runtime || !aObject) return NS_ERROR_NOT_AVAILABLE;
    JS::RootedValue value(cx);
    if (!runtime->Wrappers().Wrap(aObject, nsScriptTables::Find(aIID), &value))
      return NS_ERROR_FAILURE;
    MakeRefCounted<ObjectHolder>(cx, &value.toObject()).forget(aResult);
    return NS_OK;
  }
  nsresult WrapNativeToJSVal(JSContext*, JSObject*, nsISupports*, nsWrapperCache*, const nsIID*,
                             bool, jsval*, nsIXPConnectJSObjectHolder**) override {
    return NS_ERROR_NOT_IMPLEMENTED;
  }
  nsresult WrapJS(JSContext* cx, JSObject* aObject, const nsIID& aIID, void** aResult) override {
    nsScriptRuntime* const runtime = nsScriptRuntime::Current();
    if (!runtime || !aObject) return NS_ERROR_NOT_AVAILABLE;
    JS::RootedValue value(cx, JS::ObjectValue(*aObject));
    nsCOMPtr<nsISupports> result;
    if (!NS_ToNative(runtime, value, aIID, runtime->Constructing() + "a property", &result))
      return NS_ERROR_NO_INTERFACE;
    return result->QueryInterface(aIID, aResult);
  }

 private:
  ~XPConnect() override = default;
};

template <class T>
nsresult Construct(nsISupports* aOuter, const nsIID& aIID, void** aResult) {
  if (aOuter) return NS_ERROR_NO_AGGREGATION;
  return MakeRefCounted<T>()->QueryInterface(aIID, aResult);
}

constexpr nsCID kXPConnectCID = "cb6593e0-f9b2-11d2-bdd6-000064657374"_iid;
constexpr nsCID kScriptObjectFactoryCID = "9eb760f0-4380-11d2-b328-00805f8a3859"_iid;
constexpr nsCID kModuleLoaderCID = "d3a6a4f0-2d57-4ae0-9d3a-6c1f3b6f5b0e"_iid;

const vorel::Module::CIDEntry kCIDs[] = {
    {&kXPConnectCID, true, nullptr, Construct<XPConnect>},
    {&kScriptObjectFactoryCID, true, nullptr, Construct<ScriptObjectFactory>},
    {&kModuleLoaderCID, true, nullptr, NS_ConstructModuleLoader},
    {nullptr, false, nullptr, nullptr},
};

const vorel::Module::ContractIDEntry kContracts[] = {
    {"@mozilla.org/js/xpc/XPConnect;1", &kXPConnectCID},
    {"@vorel/script/module-loader;1", &kModuleLoaderCID},
    {nullptr, nullptr},
};

const vorel::Module::CategoryEntry kCategories[] = {
    {"module-loader", "js", "@vorel/script/module-loader;1"},
    {"module-loader", "mjs", "@vorel/script/module-loader;1"},
    {nullptr, nullptr, nullptr},
};

}  // namespace

nsCOMPtr<nsIDOMScriptObjectFactory> NS_NewScriptObjectFactory(nsNamedInterface* aName) {
  return MakeRefCounted<ScriptObjectFactory>(aName).get();
}

const vorel::Module kScriptModule = {
    vorel::Module::kVersion, kCIDs, kContracts, kCategories, nullptr, nullptr, nullptr};
