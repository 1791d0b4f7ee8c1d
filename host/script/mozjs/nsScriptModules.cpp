// Files of script: scripts, ES modules, components.
#include <js/CompilationAndEvaluation.h>
#include <js/Modules.h>
#include <js/Promise.h>
#include <js/PropertyAndElement.h>
#include <js/ScriptPrivate.h>
#include <js/SourceText.h>
#include <prio.h>

#include <cstdio>
#include <filesystem>

#include "nsConvert.h"
#include "nsIFactory.h"
#include "nsIFileURL.h"
#include "nsIIOService.h"
#include "nsILocalFile.h"
#include "nsIModuleLoader.h"
#include "nsImplements.h"
#include "nsScriptErrors.h"
#include "nsScriptModule.h"
#include "nsScriptRuntime.h"
#include "nsScriptedObject.h"
#include "nsServices.h"
#include "nsString.h"
#include "nsXPCOM.h"

namespace {

/// A file runs once, by whatever name: links are followed where they lead anywhere.
std::string WholePath(const std::string& aFile) {
  namespace fs = std::filesystem;
  std::error_code error;
  const fs::path whole = fs::canonical(aFile, error);
  return error ? fs::absolute(aFile, error).lexically_normal().native() : whole.native();
}

/// The path of a "file:" URL; empty for one that names no file.
std::string PathOfURL(const std::string& aURL) {
  const auto io = do_GetService<nsIIOService>(NS_IOSERVICE_CONTRACTID);
  nsCOMPtr<nsIURI> uri;
  nsCOMPtr<nsIFile> file;
  nsCString path;
  if (!io || NS_FAILED(io->NewURI(nsCString(aURL), nullptr, nullptr, uri.getter_AddRefs())))
    return {};
  const auto url = do_QueryInterface<nsIFileURL>(uri);
  if (!url || NS_FAILED(url->GetFile(file.getter_AddRefs())) ||
      NS_FAILED(file->GetNativePath(path)))
    return {};
  return std::string(path.view());
}

std::string URLOfPath(const std::string& aPath) {
  const auto io = do_GetService<nsIIOService>(NS_IOSERVICE_CONTRACTID);
  nsCOMPtr<nsILocalFile> file;
  nsCOMPtr<nsIURI> uri;
  nsCString spec;
  if (!io || NS_FAILED(NS_NewNativeLocalFile(nsCString(aPath), true, file.getter_AddRefs())) ||
      NS_FAILED(io->NewFileURI(file.get(), uri.getter_AddRefs())) || NS_FAILED(uri->GetSpec(spec)))
    return {};
  return std::string(spec.view());
}

/// The file that an import means, seen from the file that has it. Empty for a bare name, which
/// means nothing here. Only what begins with "file:" is a URL; a path may hold anything.
std::string ResolvePath(const std::string& aSpecifier, const std::string& aFrom) {
  if (aSpecifier.starts_with("file:")) return PathOfURL(aSpecifier);
  if (aSpecifier.starts_with("/")) return aSpecifier;
  if (!aSpecifier.starts_with("./") && !aSpecifier.starts_with("../")) return {};
  return std::filesystem::path(aFrom).parent_path() / aSpecifier;
}

bool Borrow(JSContext* cx, const std::string& aText, JS::SourceText<mozilla::Utf8Unit>& aSource) {
  return aSource.init(cx, aText.data(), aText.size(), JS::SourceOwnership::Borrowed);
}

/// What imports in a file are seen from. Null when memory is out.
JSString* NameForImports(JSContext* cx, const std::string& aFile) {
  return NS_NewScriptString(cx, WholePath(aFile));
}

JSObject* GetModule(const std::string& aFile) {
  return nsScriptRuntime::Current()->Modules().Get(aFile);
}

JSObject* ResolveImport(JSContext* cx, JS::Handle<JS::Value> aReferrer,
                        JS::Handle<JSObject*> aRequest) {
  JS::RootedString specifier(cx, JS::GetModuleRequestSpecifier(cx, aRequest));
  if (!specifier) return nullptr;
  const std::string name = NS_Text(cx, specifier);
  const std::string from = aReferrer.isString() ? NS_Text(cx, aReferrer.toString()) : "./";
  const std::string file = ResolvePath(name, from);
  std::string wrong;
  if (file.empty())
    wrong = name.starts_with("file:") ? "the URL names no file of this machine"
                                      : "a path that begins with ./, ../ or / is expected";
  else if (PR_Access(file.c_str(), PR_ACCESS_READ_OK) != PR_SUCCESS)
    wrong = WholePath(file) + " can't be read";
  if (wrong.empty()) return GetModule(file);
  NS_ThrowTypeError(
      cx, (aReferrer.isString() ? from + ": " : "") + "import \"" + name + "\": " + wrong);
  return nullptr;
}

bool DescribeModule(JSContext* cx, JS::Handle<JS::Value> aPrivate, JS::Handle<JSObject*> aMeta) {
  if (!aPrivate.isString()) return true;
  JS::RootedString url(cx, NS_NewScriptString(cx, URLOfPath(NS_Text(cx, aPrivate.toString()))));
  return url && JS_DefineProperty(cx, aMeta, "url", url, JSPROP_ENUMERATE);
}

/// Links and runs a module; *aPromise is fulfilled when it is through.
bool Evaluate(JSContext* cx, JS::HandleObject aModule, JS::MutableHandleObject aPromise) {
  JS::RootedValue result(cx);
  if (!JS::ModuleInstantiate(cx, aModule) || !JS::ModuleEvaluate(cx, aModule, &result))
    return false;
  aPromise.set(result.isObject() ? &result.toObject() : nullptr);
  return true;
}

/// Whether a module has thrown before its first await; the exception is then pending.
bool Failed(JSContext* cx, JS::HandleObject aPromise) {
  if (!aPromise || JS::GetPromiseState(aPromise) != JS::PromiseState::Rejected) return false;
  JS::RootedValue reason(cx, JS::GetPromiseResult(aPromise));
  if (JS::SetSettledPromiseIsHandled(cx, aPromise)) JS_SetPendingException(cx, reason);
  return true;
}

bool ImportDynamically(JSContext* cx, JS::Handle<JS::Value> aReferrer,
                       JS::Handle<JSObject*> aRequest, JS::Handle<JSObject*> aPromise) {
  JS::RootedObject module(cx, ResolveImport(cx, aReferrer, aRequest));
  JS::RootedObject evaluation(cx);
  if (module && !Evaluate(cx, module, &evaluation)) module = nullptr;
  if (!module && !JS_IsExceptionPending(cx)) return false;
  return JS::FinishDynamicModuleImport(cx, evaluation, aReferrer, aRequest, aPromise);
}

/// The name by which messages call a file: as it was given, made absolute.
std::string Absolute(const std::string& aFile) {
  return std::filesystem::absolute(aFile).lexically_normal().string();
}

/// Hands out objects that a script's class makes.
class ScriptFactory final : public nsImplements<ScriptFactory, nsIFactory> {
 public:
  ScriptFactory(JSContext* cx, JS::HandleObject aClass, std::string aFile)
      : mClass(cx, aClass), mFile(std::move(aFile)) {}

  nsresult CreateInstance(nsISupports* aOuter, const nsIID& aIID, void** aResult) override {
    nsScriptRuntime* const runtime = nsScriptRuntime::Current();
    if (!runtime || !mClass) return NS_ERROR_NOT_AVAILABLE;
    if (aOuter) return NS_ERROR_NO_AGGREGATION;
    if (runtime->IsStopping()) return NS_ERROR_ABORT;
    JSContext* const cx = runtime->Context();
    nsScriptRuntime::Entry entry(runtime, true);
    JS::RootedValue made(cx), constructor(cx, JS::ObjectValue(*mClass));
    JS::RootedObject object(cx);
    nsCOMPtr<nsISupports> native;
    if (!JS::Construct(cx, constructor, JS::HandleValueArray::empty(), &object)) {
      runtime->Output().ReportException();
      return NS_ERROR_FAILURE;
    }
    made.setObject(*object);
    if (!NS_ToNative(runtime, made, nsISupports::kIID, mFile, &native)) {
      runtime->Output().ReportException();
      return NS_ERROR_FAILURE;
    }
    const nsresult rv = native->QueryInterface(aIID, aResult);
    const nsScriptInterface* const table = nsScriptTables::Find(aIID);
    if (NS_FAILED(rv) && table) {
      NS_ThrowNotImplemented(cx, table, std::string(table->mName), mFile, object);
      runtime->Output().ReportException();
    }
    return rv;
  }
  nsresult LockFactory(bool) override { return NS_OK; }

 private:
  ~ScriptFactory() override = default;
  JS::PersistentRootedObject mClass;
  const std::string mFile;
};

/// Components in script: a file that a manifest names is run once, in a scope of its own, and
/// leaves a function `NSGetFactory(cid)` there. It answers a class, whose objects are made with
/// `new`, or an object with nsIFactory's createInstance; anything else means that the class is not
/// in the file.
class ModuleLoader final : public nsImplements<ModuleLoader, nsIModuleLoader> {
 public:
  nsresult GetFactory(const nsACString& aPath, const nsCID& aCID, nsIFactory** aResult) override {
    std::string error;
    nsScriptRuntime* const runtime = nsScriptRuntime::GetOrCreate(&error);
    if (!runtime) return NS_ERROR_NOT_AVAILABLE;
    if (runtime->IsStopping()) return NS_ERROR_ABORT;
    JSContext* const cx = runtime->Context();
    nsScriptRuntime::Entry entry(runtime, true);
    const std::string file(NS_View(aPath));
    JS::RootedValue getFactory(cx), answer(cx);
    if (!runtime->Modules().GetFactoryOf(file, &getFactory)) {
      runtime->Output().ReportException();
      return NS_ERROR_FAILURE;
    }
    JS::RootedString cid(cx, NS_NewScriptString(cx, aCID.ToString()));
    JS::RootedValueArray<1> arguments(cx);
    if (!cid) return NS_ERROR_OUT_OF_MEMORY;
    arguments[0].setString(cid);
    if (!getFactory.isObject() || !JS::IsCallable(&getFactory.toObject()))
      (void)NS_ThrowTypeError(cx, file + ": a component needs a function NSGetFactory");
    else
      (void)JS::Call(cx, JS::UndefinedHandleValue, getFactory, arguments, &answer);
    if (JS_IsExceptionPending(cx)) {
      runtime->Output().ReportException();
      return NS_ERROR_FAILURE;
    }
    if (!answer.isObject()) return NS_ERROR_FACTORY_NOT_REGISTERED;
    JS::RootedObject made(cx, &answer.toObject());
    if (JS::IsConstructor(made)) {
      MakeRefCounted<ScriptFactory>(cx, made, file).forget(aResult);
      return NS_OK;
    }
    nsCOMPtr<nsISupports> factory;
    if (!NS_ToNative(runtime, answer, nsIFactory::kIID, file + ": what NSGetFactory answered",
                     &factory)) {
      runtime->Output().ReportException();
      return NS_ERROR_FAILURE;
    }
    return factory->QueryInterface(nsIFactory::kIID, reinterpret_cast<void**>(aResult));
  }

 private:
  ~ModuleLoader() override = default;
};

}  // namespace

nsresult NS_ConstructModuleLoader(nsISupports* aOuter, const nsIID& aIID, void** aResult) {
  if (aOuter) return NS_ERROR_NO_AGGREGATION;
  return MakeRefCounted<ModuleLoader>()->QueryInterface(aIID, aResult);
}

void nsScriptModules::Init(JSContext* cx) {
  mCx = cx;
  JSRuntime* const runtime = JS_GetRuntime(cx);
  JS::SetModuleResolveHook(runtime, ResolveImport);
  JS::SetModuleMetadataHook(runtime, DescribeModule);
  JS::SetModuleDynamicImportHook(runtime, ImportDynamically);
}

JSObject* nsScriptModules::Get(const std::string& aFile) {
  JSContext* const cx = mCx;
  const std::string file = WholePath(aFile);
  if (const auto found = mLoaded.find(file); found != mLoaded.end()) return found->second;
  std::string text;
  if (!NS_ReadScript(cx, file, &text)) return nullptr;
  JS::CompileOptions options(cx);
  options.setFileAndLine(file.c_str(), 1);
  JS::SourceText<mozilla::Utf8Unit> source;
  JS::RootedObject module(
      cx, Borrow(cx, text, source) ? JS::CompileModule(cx, options, source) : nullptr);
  JS::RootedString name(cx, module ? NS_NewScriptString(cx, file) : nullptr);
  if (!name) return nullptr;
  JS::SetModulePrivate(module, JS::StringValue(name));
  mLoaded.try_emplace(file, cx, module);
  return module;
}

bool nsScriptModules::GetFactoryOf(const std::string& aFile, JS::MutableHandleValue aGetFactory) {
  JSContext* const cx = mCx;
  if (aFile.ends_with(".mjs")) {
    JS::RootedObject module(cx, Get(aFile));
    JS::RootedObject promise(cx);
    if (!module || !Evaluate(cx, module, &promise) || Failed(cx, promise)) return false;
    if (promise && JS::GetPromiseState(promise) == JS::PromiseState::Pending)
      return NS_ThrowTypeError(cx, aFile +
                                       ": a component is asked for its classes at once, so "
                                       "that neither it nor what it imports can await");
    JS::RootedObject exports(cx, JS::GetModuleNamespace(cx, module));
    return exports && JS_GetProperty(cx, exports, "NSGetFactory", aGetFactory);
  }
  const std::string key = "component:" + WholePath(aFile);
  if (const auto found = mLoaded.find(key); found != mLoaded.end()) {
    aGetFactory.set(found->second ? JS::ObjectValue(*found->second) : JS::UndefinedValue());
    return true;
  }
  std::string text;
  if (!NS_ReadScript(cx, aFile, &text)) return false;
  text += "\n;return typeof NSGetFactory === 'undefined' ? undefined : NSGetFactory;";
  JS::CompileOptions options(cx);
  options.setFileAndLine(aFile.c_str(), 0);  // the engine puts a line before the body
  JS::SourceText<mozilla::Utf8Unit> source;
  JS::RootedObjectVector scope(cx);
  if (!Borrow(cx, text, source)) return false;
  JSFunction* const body = JS::CompileFunction(cx, scope, options, "component", 0, nullptr, source);
  if (!body) return false;
  JS::RootedFunction rooted(cx, body);
  JS::RootedValue function(cx, JS::ObjectValue(*JS_GetFunctionObject(body)));
  JSString* const name = NameForImports(cx, aFile);
  JSScript* const script = name ? JS_GetFunctionScript(cx, rooted) : nullptr;
  if (!script) return false;
  JS::SetScriptPrivate(script, JS::StringValue(name));
  if (!JS::Call(cx, JS::UndefinedHandleValue, function, JS::HandleValueArray::empty(), aGetFactory))
    return false;
  mLoaded.try_emplace(key, cx, aGetFactory.isObject() ? &aGetFactory.toObject() : nullptr);
  return true;
}

bool NS_ReadScript(JSContext* cx, const std::string& aFile, std::string* aText) {
  std::string text;
  FILE* const in = fopen(aFile.c_str(), "rb");
  char bytes[16384];
  for (size_t count; in && (count = fread(bytes, 1, sizeof bytes, in)) > 0;)
    text.append(bytes, count);
  const bool failed = !in || ferror(in);
  if (in) fclose(in);
  if (failed) return NS_ThrowError(cx, aFile + " can't be read");
  // The first line of a program may say what runs it.
  if (text.starts_with("#!")) text.insert(0, "//");
  *aText = std::move(text);
  return true;
}

bool nsScriptModules::Run(const std::string& aFile) {
  JSContext* const cx = mCx;
  const std::string file = Absolute(aFile);
  if (file.ends_with(".mjs")) {
    JS::RootedObject module(cx, Get(file));
    JS::RootedObject promise(cx);
    if (!module || !Evaluate(cx, module, &promise)) return false;
    // What goes wrong later than the first await is a rejection, reported like all that nobody
    // handles.
    return !Failed(cx, promise);
  }
  std::string text;
  if (!NS_ReadScript(cx, file, &text)) return false;
  JS::CompileOptions options(cx);
  options.setFileAndLine(file.c_str(), 1);
  JS::SourceText<mozilla::Utf8Unit> source;
  JS::RootedScript script(cx,
                          Borrow(cx, text, source) ? JS::Compile(cx, options, source) : nullptr);
  JSString* const name = script ? NameForImports(cx, file) : nullptr;
  if (!name) return false;
  JS::SetScriptPrivate(script, JS::StringValue(name));
  return JS_ExecuteScript(cx, script);
}
