// What script finds in its global object.
#include <js/Array.h>
#include <js/CallAndConstruct.h>
#include <js/CompilationAndEvaluation.h>
#include <js/Conversions.h>
#include <js/GCAPI.h>
#include <js/PropertyAndElement.h>
#include <js/SourceText.h>
#include <jsfriendapi.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <utility>

#include "nsConvert.h"
#include "nsICategoryManager.h"
#include "nsIComponentManager.h"
#include "nsIComponentRegistrar.h"
#include "nsIDOMCIExtension.h"
#include "nsIDOMDocument.h"
#include "nsIDOMWindow.h"
#include "nsIFileURL.h"
#include "nsIIOService.h"
#include "nsIJSNativeInitializer.h"
#include "nsILoadGroup.h"
#include "nsILocalFile.h"
#include "nsISimpleEnumerator.h"
#include "nsISupportsCString.h"
#include "nsImplements.h"
#include "nsScriptErrors.h"
#include "nsScriptModule.h"
#include "nsScriptPrelude.h"
#include "nsScriptRuntime.h"
#include "nsServices.h"
#include "nsXPCOM.h"

namespace {

nsScriptRuntime* Runtime() { return nsScriptRuntime::Current(); }

// ---- The document

class ScriptDocument final
    : public nsImplements<ScriptDocument, nsIHostDocument, nsIDOMDocument, nsIDOMWindow> {
 public:
  static const nsClassInfoRecord kClassInfo;
  explicit ScriptDocument(std::string aFile) : mFile(std::move(aFile)) {}

  nsresult GetBaseURI(nsIURI** aBaseURI) override {
    namespace fs = std::filesystem;
    if (!mURI) {
      std::error_code error;
      const fs::path current = fs::current_path(error);
      const std::string path =
          mFile.empty() ? current.string() : (current / mFile).lexically_normal().string();
      const auto io = do_GetService<nsIIOService>(NS_IOSERVICE_CONTRACTID);
      nsCOMPtr<nsILocalFile> file;
      if (!io) return NS_ERROR_NOT_AVAILABLE;
      nsresult rv = NS_NewNativeLocalFile(nsDependentCString(path), true, file.getter_AddRefs());
      if (NS_FAILED(rv)) return rv;
      rv = io->NewFileURI(file.get(), mURI.getter_AddRefs());
      if (NS_FAILED(rv)) return rv;
    }
    nsCOMPtr<nsIURI>(mURI).forget(aBaseURI);
    return NS_OK;
  }
  nsresult GetLoadGroup(nsILoadGroup** aLoadGroup) override {
    if (!mLoadGroup)
      mLoadGroup = do_CreateInstance<nsILoadGroup>("@mozilla.org/network/load-group;1");
    nsCOMPtr<nsILoadGroup>(mLoadGroup).forget(aLoadGroup);
    return NS_OK;
  }
  // Its window is the same object: to compiled code a window is the way to the document, and no
  // more.
  nsresult GetWindow(nsIDOMWindow** aWindow) override { return GetSelf(aWindow); }
  nsresult GetSelf(nsIDOMWindow** aSelf) override {
    nsCOMPtr<nsIDOMWindow>(this).forget(aSelf);
    return NS_OK;
  }
  nsresult GetDocument(nsIDOMDocument** aDocument) override {
    nsCOMPtr<nsIDOMDocument>(this).forget(aDocument);
    return NS_OK;
  }

  /// Nothing is made for a document that nobody asked for its group.
  void Cancel() {
    if (mLoadGroup) (void)mLoadGroup->Cancel(NS_BINDING_ABORTED);
    mLoadGroup = nullptr;
  }

 private:
  ~ScriptDocument() override = default;
  const std::string mFile;
  nsCOMPtr<nsIURI> mURI;
  nsCOMPtr<nsILoadGroup> mLoadGroup;
};

const nsClassInfoRecord ScriptDocument::kClassInfo = {
    NS_ClassInterfaces<nsIHostDocument>, NS_NamedHelper<"Document">, nsIClassInfo::DOM_OBJECT, {}};

// ---- The natives of the prelude

bool Print(JSContext* cx, unsigned aArgc, JS::Value* aVp) {
  JS::CallArgs args = JS::CallArgsFromVp(aArgc, aVp);
  const std::string text = NS_ToText(cx, args.get(1)) + "\n";
  Runtime()->Output().Print(JS::ToBoolean(args.get(0)), text);
  args.rval().setUndefined();
  return true;
}

bool Quit(JSContext* cx, unsigned aArgc, JS::Value* aVp) {
  JS::CallArgs args = JS::CallArgsFromVp(aArgc, aVp);
  int32_t status = 0;
  if (args.hasDefined(0)) {
    if (!args[0].isInt32() || args[0].toInt32() < 0 || args[0].toInt32() > 255)
      return NS_ThrowTypeError(
          cx, "quit: argument 1 (status): a whole number from 0 to 255 is expected, not " +
                  NS_DescribeValue(cx, args[0]));
    status = args[0].toInt32();
  }
  Runtime()->Quit(status);
  Runtime()->StopScripts();
  return false;  // without an exception: no script catches this
}

// ---- Components.interfaces: each is made when it is asked for first, or when all are listed

bool DefineInterface(JSContext* cx, JS::HandleObject aInterfaces, JS::HandleId aId,
                     const nsScriptInterface* aInterface) {
  JS::RootedObject object(cx, Runtime()->Names().InterfaceObject(aInterface));
  return object &&
         JS_DefinePropertyById(cx, aInterfaces, aId, object, JSPROP_ENUMERATE | JSPROP_READONLY);
}

bool ResolveInterface(JSContext* cx, JS::HandleObject aInterfaces, JS::HandleId aId,
                      bool* aResolved) {
  *aResolved = false;
  if (!aId.isString()) return true;
  const nsScriptInterface* const table = nsScriptTables::Find(NS_Text(cx, aId.toString()));
  *aResolved = table && DefineInterface(cx, aInterfaces, aId, table);
  return !table || *aResolved;
}

bool ListInterfaces(JSContext* cx, JS::HandleObject aInterfaces) {
  JS::RootedId id(cx);
  bool has = false;
  for (const nsScriptInterface* table : nsScriptTables::All())
    if (!Runtime()->Names().NameOf(table->mName, &id) ||
        !JS_AlreadyHasOwnPropertyById(cx, aInterfaces, id, &has) ||
        (!has && !DefineInterface(cx, aInterfaces, id, table)))
      return false;
  return true;
}

constexpr JSClassOps kInterfacesOps = {nullptr, nullptr, ListInterfaces, nullptr, ResolveInterface,
                                       nullptr, nullptr, nullptr,        nullptr, nullptr};
constexpr JSClass kInterfacesClass = {"Object", 0, &kInterfacesOps, nullptr, nullptr, nullptr};

bool PrototypeOf(JSContext* cx, unsigned aArgc, JS::Value* aVp) {
  JS::CallArgs args = JS::CallArgsFromVp(aArgc, aVp);
  args.rval().setUndefined();
  const nsScriptInterface* const table = nsScriptTables::Find(NS_ToText(cx, args.get(0)));
  if (!table) return true;
  JSObject* const object = Runtime()->Wrappers().Prototype(table);
  if (!object) return false;
  args.rval().setObject(*object);
  return true;
}

bool ClassIsRegistered(JSContext* cx, unsigned aArgc, JS::Value* aVp) {
  JS::CallArgs args = JS::CallArgsFromVp(aArgc, aVp);
  nsCOMPtr<nsIComponentRegistrar> registrar;
  bool registered = false;
  if (NS_SUCCEEDED(NS_GetComponentRegistrar(registrar.getter_AddRefs())))
    (void)registrar->IsContractIDRegistered(NS_ToText(cx, args.get(0)).c_str(), &registered);
  args.rval().setBoolean(registered);
  return true;
}

/// getService(contract, iid), createInstance(contract, iid); the identifier may be missing.
template <bool Service>
bool GetObject(JSContext* cx, unsigned aArgc, JS::Value* aVp) {
  JS::CallArgs args = JS::CallArgsFromVp(aArgc, aVp);
  nsScriptRuntime* const runtime = Runtime();
  const std::string contract = NS_ToText(cx, args.get(0));
  const std::string method =
      std::string(Service ? "getService" : "createInstance") + " of " + contract;
  nsID iid = nsISupports::kIID;
  if (args.length() > 1 && !runtime->Names().ReadID(args[1], &iid))
    return NS_ThrowTypeError(
        cx, method + ": argument 1 (iid): an interface of Components.interfaces is expected, not " +
                NS_DescribeValue(cx, args[1]));
  nsCOMPtr<nsISupports> object;
  nsKeptCharacters::CallScope kept;
  const nsresult rv =
      Service ? vorel::detail::GetServiceByContract(contract.c_str(), iid, NS_OutVoid(object))
              : vorel::detail::CreateByContract(contract.c_str(), iid, NS_OutVoid(object));
  if (NS_FAILED(rv) || !object)
    return NS_ThrowResult(cx, NS_FAILED(rv) ? rv : NS_ERROR_FAILURE, method);
  return runtime->Wrappers().Wrap(object.get(), nsScriptTables::Find(iid), args.rval());
}

bool CollectGarbage(JSContext* cx, unsigned aArgc, JS::Value* aVp) {
  JS_GC(cx);
  Runtime()->DrainGarbage();
  JS::CallArgsFromVp(aArgc, aVp).rval().setUndefined();
  return true;
}

bool ReportError(JSContext*, unsigned aArgc, JS::Value* aVp) {
  JS::CallArgs args = JS::CallArgsFromVp(aArgc, aVp);
  JS::RootedValue error(Runtime()->Context(), args.get(0));
  Runtime()->Output().Tell(error, "");
  args.rval().setUndefined();
  return true;
}

/// makeError(result, message, method): what `new Components.Exception` gives.
bool MakeError(JSContext* cx, unsigned aArgc, JS::Value* aVp) {
  JS::CallArgs args = JS::CallArgsFromVp(aArgc, aVp);
  double result = static_cast<double>(static_cast<uint32_t>(NS_ERROR_FAILURE));
  if (args.hasDefined(0) && !JS::ToNumber(cx, args[0], &result)) return false;
  const std::string detail = args.hasDefined(1) ? NS_ToText(cx, args[1]) : std::string();
  const std::string method = args.hasDefined(2) ? NS_ToText(cx, args[2]) : std::string();
  NS_ThrowResult(cx, nsresult{JS::ToUint32(result)}, method, detail);
  return JS_GetPendingException(cx, args.rval()) && (JS_ClearPendingException(cx), true);
}

/// Names of top-level let, const and class, which are no properties of the global object.
bool LexicalNames(JSContext* cx, unsigned aArgc, JS::Value* aVp) {
  JS::RootedObject scope(cx, JS_GlobalLexicalEnvironment(Runtime()->Global()));
  JS::RootedIdVector ids(cx);
  JS::RootedValueVector names(cx);
  if (!js::GetPropertyKeys(cx, scope, JSITER_OWNONLY | JSITER_HIDDEN, &ids)) return false;
  for (const JS::PropertyKey& id : ids)
    if (id.isString() && !names.append(JS::StringValue(id.toString()))) return false;
  JSObject* const array = JS::NewArrayObject(cx, names);
  if (!array) return false;
  JS::CallArgsFromVp(aArgc, aVp).rval().setObject(*array);
  return true;
}

/// The class name of a wrapper; undefined for any other value.
bool WrapperName(JSContext* cx, unsigned aArgc, JS::Value* aVp) {
  JS::CallArgs args = JS::CallArgsFromVp(aArgc, aVp);
  args.rval().setUndefined();
  const nsWrapper* const wrapper = nsWrappers::Of(args.get(0));
  if (!wrapper) return true;
  JSString* const name = NS_NewScriptString(cx, wrapper->mClassName);
  if (!name) return false;
  args.rval().setString(name);
  return true;
}

/// A function that called back into a script's toString or trap, which called quit().
template <JSNative Function>
bool Stops(JSContext* cx, unsigned aArgc, JS::Value* aVp) {
  return Function(cx, aArgc, aVp) && !Runtime()->IsStopping();
}

const JSFunctionSpec kNatives[] = {
    JS_FN("print", Stops<Print>, 2, 0),
    JS_FN("prototypeOf", Stops<PrototypeOf>, 1, 0),
    JS_FN("isRegistered", Stops<ClassIsRegistered>, 1, 0),
    JS_FN("getService", Stops<GetObject<true>>, 2, 0),
    JS_FN("createInstance", Stops<GetObject<false>>, 2, 0),
    JS_FN("collectGarbage", Stops<CollectGarbage>, 0, 0),
    JS_FN("reportError", Stops<ReportError>, 1, 0),
    JS_FN("makeError", Stops<MakeError>, 2, 0),
    JS_FN("lexicalNames", LexicalNames, 0, 0),
    JS_FN("wrapperName", WrapperName, 1, 0),
    JS_FS_END,
};

const JSFunctionSpec kGlobals[] = {
    JS_FN("setTimeout", Stops<nsScriptTimers::Set<false>>, 2, JSPROP_ENUMERATE),
    JS_FN("setInterval", Stops<nsScriptTimers::Set<true>>, 2, JSPROP_ENUMERATE),
    JS_FN("clearTimeout", nsScriptTimers::Clear, 1, JSPROP_ENUMERATE),
    JS_FN("clearInterval", nsScriptTimers::Clear, 1, JSPROP_ENUMERATE),
    JS_FN("quit", Quit, 1, JSPROP_ENUMERATE),
    JS_FS_END,
};

// ---- Names from the categories

constexpr char kPropertyCategory[] = "JavaScript-global-property";
constexpr char kClassCategory[] = "JavaScript-DOM-class";
constexpr char kInterfaceCategory[] = "JavaScript-DOM-interface";
constexpr char kConstructorCategory[] = "JavaScript-global-constructor";
constexpr const char* kNameCategories[] = {kPropertyCategory, kClassCategory, kInterfaceCategory,
                                           kConstructorCategory};

std::string CategoryEntry(const char* aCategory, const std::string& aEntry) {
  const auto categories = do_GetService<nsICategoryManager>(NS_CATEGORYMANAGER_CONTRACTID);
  char* value = nullptr;
  if (!categories || NS_FAILED(categories->GetCategoryEntry(aCategory, aEntry.c_str(), &value)) ||
      !value)
    return {};
  std::string result(value);
  NS_Free(value);
  return result;
}

/// `new Name(arguments)`.
bool Construct(JSContext* cx, unsigned aArgc, JS::Value* aVp) {
  JS::CallArgs args = JS::CallArgsFromVp(aArgc, aVp);
  nsScriptRuntime* const runtime = Runtime();
  const auto& name =
      *static_cast<nsNamedInterface*>(js::GetFunctionNativeReserved(&args.callee(), 0).toPrivate());
  if (!args.isConstructing())
    return NS_ThrowTypeError(cx, name.mName + " makes objects with new, and is no function");
  if (!name.mConstructs)
    return NS_ThrowTypeError(cx, name.mName + " makes no objects: it is the name of an interface");

  nsCOMPtr<nsISupports> object;
  nsresult rv = NS_ERROR_NOT_AVAILABLE;
  if (!name.mContractID.empty()) {
    rv = vorel::detail::CreateByContract(name.mContractID.c_str(), nsISupports::kIID,
                                         NS_OutVoid(object));
  } else {
    nsCOMPtr<nsIComponentManager> manager;
    rv = NS_GetComponentManager(manager.getter_AddRefs());
    if (NS_SUCCEEDED(rv))
      rv = manager->CreateInstance(name.mCID, nullptr, nsISupports::kIID, NS_OutVoid(object));
  }
  const std::string method = "new " + name.mName;
  if (NS_FAILED(rv) || !object)
    return NS_ThrowResult(cx, NS_FAILED(rv) ? rv : NS_ERROR_FAILURE, method);
  JS::RootedValue value(cx);
  if (!runtime->Wrappers().Wrap(object.get(), nullptr, &value)) return false;
  if (const auto initializer = do_QueryInterface<nsIJSNativeInitializer>(object)) {
    nsKeptCharacters::CallScope kept;
    const std::string outer = runtime->SetConstructing(method + ": ");
    // The engine's values are 8 bytes, as the platform's are.
    rv = initializer->Initialize(runtime->Document(), cx, &value.toObject(), args.length(),
                                 reinterpret_cast<jsval*>(args.array()));
    (void)runtime->SetConstructing(outer);
    if (NS_FAILED(rv)) return NS_ThrowResult(cx, rv, method);
    JS_ClearPendingException(cx);
  }
  args.rval().set(value);
  return !runtime->IsStopping();
}

/// The object behind a global name that the categories of DOM classes, DOM interfaces or
/// constructors know. *aFound stays false when none does.
bool ResolveClass(JSContext* cx, const std::string& aName, bool* aFound,
                  JS::MutableHandleValue aResult) {
  nsScriptRuntime* const runtime = Runtime();
  const std::string extension = CategoryEntry(kClassCategory, aName);
  const std::string interface = CategoryEntry(kInterfaceCategory, aName);
  const std::string contract = CategoryEntry(kConstructorCategory, aName);
  if (extension.empty() && interface.empty() && contract.empty()) return true;
  nsNamedInterface* const name = runtime->Names().NewName();
  name->mName = aName;
  if (!extension.empty()) {
    nsresult rv = NS_OK;
    const auto registers = do_CreateInstance<nsIDOMCIExtension>(extension.c_str(), &rv);
    if (registers)
      rv = registers->RegisterDOMCI(aName.c_str(), NS_NewScriptObjectFactory(name).get());
    if (NS_FAILED(rv))
      return NS_ThrowResult(cx, rv, aName, "the class is named in JavaScript-DOM-class");
  }
  nsID iid;
  if (!interface.empty() && nsID::Parse(interface, &iid)) name->mIIDs.push_back(iid);
  if (!contract.empty()) {
    name->mContractID = contract;
    name->mConstructs = true;
  }
  JSFunction* const function =
      js::NewFunctionWithReserved(cx, Construct, 0, JSFUN_CONSTRUCTOR, aName.c_str());
  if (!function) return false;
  JS::RootedObject object(cx, JS_GetFunctionObject(function));
  js::SetFunctionNativeReserved(object, 0, JS::PrivateValue(name));
  if (!runtime->Names().DefineHasInstance(object, name)) return false;
  // As of the interface, whose members its objects have first.
  if (!name->mIIDs.empty()) {
    JS::RootedString number(cx, NS_NewScriptString(cx, name->mIIDs[0].ToString()));
    if (!number || !JS_DefineProperty(cx, object, "number", number, JSPROP_READONLY)) return false;
    if (const nsScriptInterface* const table = nsScriptTables::Find(name->mIIDs[0])) {
      JS::RootedObject prototype(cx, runtime->Wrappers().Prototype(table));
      bool has = false;
      if (!prototype || !JS_DefineProperty(cx, object, "prototype", prototype, JSPROP_READONLY) ||
          !JS_AlreadyHasOwnProperty(cx, prototype, "constructor", &has) ||
          (!has && !JS_DefineProperty(cx, prototype, "constructor", object, 0)))
        return false;
    }
  }
  for (const nsIID& id : name->mIIDs)
    for (const nsScriptInterface* level = nsScriptTables::Find(id); level;
         level = nsScriptTables::Parent(*level))
      if (!runtime->Names().DefineInterfaceConstants(object, level)) return false;
  *aFound = true;
  aResult.setObject(*object);
  return true;
}

}  // namespace

bool NS_FindGlobalClass(JSContext* cx, const std::string& aName, JS::MutableHandleValue aResult) {
  aResult.setUndefined();
  if (CategoryEntry(kClassCategory, aName).empty() &&
      CategoryEntry(kConstructorCategory, aName).empty())
    return true;
  JS::RootedObject global(cx, Runtime()->Global());
  return JS_GetProperty(cx, global, aName.c_str(), aResult);
}

bool NS_ResolveGlobalName(JSContext* cx, JS::HandleObject aGlobal, JS::HandleId aId,
                          bool* aResolved) {
  *aResolved = false;
  if (!aId.isString() || !Runtime() || !Runtime()->Context()) return true;
  const std::string name = NS_Text(cx, aId.toString());
  JS::RootedValue value(cx);
  const std::string service = CategoryEntry(kPropertyCategory, name);
  if (!service.empty()) {
    nsCOMPtr<nsISupports> object;
    const nsresult rv =
        vorel::detail::GetServiceByContract(service.c_str(), nsISupports::kIID, NS_OutVoid(object));
    if (NS_FAILED(rv) || !object)
      return NS_ThrowResult(cx, NS_FAILED(rv) ? rv : NS_ERROR_FAILURE, name,
                            service + " is not to be had");
    if (!Runtime()->Wrappers().Wrap(object.get(), nullptr, &value)) return false;
    *aResolved = true;
  } else if (!ResolveClass(cx, name, aResolved, &value)) {
    return false;
  }
  if (Runtime()->IsStopping()) return false;
  return !*aResolved || JS_DefinePropertyById(cx, aGlobal, aId, value, 0);
}

bool NS_ListGlobalNames(JSContext* cx, JS::HandleObject aGlobal, JS::MutableHandleIdVector aNames) {
  const auto categories = do_GetService<nsICategoryManager>(NS_CATEGORYMANAGER_CONTRACTID);
  for (const char* category : kNameCategories) {
    nsCOMPtr<nsISimpleEnumerator> entries;
    if (!categories || NS_FAILED(categories->EnumerateCategory(category, entries.getter_AddRefs())))
      continue;
    bool more = false;
    while (NS_SUCCEEDED(entries->HasMoreElements(&more)) && more) {
      nsCOMPtr<nsISupports> entry;
      nsCString name;
      if (NS_FAILED(entries->GetNext(entry.getter_AddRefs()))) break;
      const auto text = do_QueryInterface<nsISupportsCString>(entry);
      if (!text || NS_FAILED(text->GetData(name))) continue;
      JS::RootedString string(cx, NS_NewScriptString(cx, name.view()));
      JS::RootedId id(cx);
      bool known = false;
      if (!string || !JS_StringToId(cx, string, &id) ||
          !JS_AlreadyHasOwnPropertyById(cx, aGlobal, id, &known))
        return false;
      known = known || std::any_of(aNames.begin(), aNames.end(),
                                   [&](const JS::PropertyKey& aKey) { return aKey == id; });
      if (!known && !aNames.append(id)) return false;
    }
  }
  return true;
}

nsCOMPtr<nsIHostDocument> NS_NewScriptDocument(const std::string& aFile) {
  return MakeRefCounted<ScriptDocument>(aFile).get();
}

void NS_CancelLoadGroup(nsIHostDocument* aDocument) {
  // Documents are always ours.
  if (aDocument) static_cast<ScriptDocument*>(aDocument)->Cancel();
}

bool NS_DefineEnvironment(nsScriptRuntime* aRuntime) {
  JSContext* const cx = aRuntime->Context();
  JS::RootedObject global(cx, aRuntime->Global());
  JS::RootedObject host(cx, JS_NewPlainObject(cx)), results(cx, JS_NewPlainObject(cx));
  JS::RootedObject interfaces(cx, JS_NewObjectWithGivenProto(cx, &kInterfacesClass, nullptr));
  if (!host || !results || !interfaces || !JS_DefineFunctions(cx, host, kNatives) ||
      !JS_DefineFunctions(cx, global, kGlobals))
    return false;
#define DEFINE_RESULT(aName, aValue)                                         \
  if (!JS_DefineProperty(cx, results, #aName, static_cast<uint32_t>(aValue), \
                         JSPROP_ENUMERATE | JSPROP_READONLY))                \
    return false;
  NS_RESULT_CODES(DEFINE_RESULT)
#undef DEFINE_RESULT
  if (!JS_DefineProperty(cx, host, "results", results, 0) ||
      !JS_DefineProperty(cx, host, "interfaces", interfaces, 0) ||
      !JS_DefineProperty(cx, global, "window", global, JSPROP_ENUMERATE))
    return false;

  JS::CompileOptions options(cx);
  options.setFileAndLine(kScriptPreludeName, 1);
  JS::SourceText<mozilla::Utf8Unit> source;
  JS::RootedValue prelude(cx), made(cx);
  if (!source.init(cx, kScriptPrelude, sizeof(kScriptPrelude) - 1, JS::SourceOwnership::Borrowed) ||
      !JS::Evaluate(cx, options, source, &prelude))
    return false;
  JS::RootedValueArray<2> arguments(cx);
  arguments[0].setObject(*global);
  arguments[1].setObject(*host);
  if (!JS::Call(cx, JS::UndefinedHandleValue, prelude, arguments, &made)) return false;
  JS::RootedObject tools(cx, &made.toObject());
  JS::RootedValue function(cx);
  if (!JS_GetProperty(cx, tools, "inspect", &function)) return false;
  aRuntime->SetTool(nsScriptRuntime::Tool::eInspect, &function.toObject());
  if (!JS_GetProperty(cx, tools, "complete", &function)) return false;
  aRuntime->SetTool(nsScriptRuntime::Tool::eComplete, &function.toObject());
  if (!JS_GetProperty(cx, tools, "showArray", &function)) return false;
  aRuntime->SetTool(nsScriptRuntime::Tool::eShowArray, &function.toObject());
  if (!JS_GetProperty(cx, tools, "arrayHandler", &function)) return false;
  aRuntime->SetTool(nsScriptRuntime::Tool::eArrayHandler, &function.toObject());
  return true;
}
