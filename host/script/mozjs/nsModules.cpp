// Files of script: scripts, ES modules, components.
#include <js/CompilationAndEvaluation.h>
#include <js/Modules.h>
#include <js/Promise.h>
#include <js/PropertyAndElement.h>
#include <js/SourceText.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>

#include "nsConvert.h"
#include "nsIFactory.h"
#include "nsIModuleLoader.h"
#include "nsImplements.h"
#include "nsScriptErrors.h"
#include "nsScriptModule.h"
#include "nsScriptRuntime.h"
#include "nsScriptedObject.h"
#include "nsString.h"

namespace {

/// The file that an import means, seen from the file that has it. Empty for a bare name, which
/// means nothing here.
std::string ResolvePath(const std::string& aSpecifier, const std::string& aFrom) {
  namespace fs = std::filesystem;
  std::string specifier = aSpecifier;
  if (specifier.starts_with("file://")) specifier.erase(0, 7);
  if (specifier.starts_with("/")) return fs::path(specifier).lexically_normal();
  if (!specifier.starts_with("./") && !specifier.starts_with("../")) return {};
  return (fs::path(aFrom).parent_path() / specifier).lexically_normal();
}

bool Init(JSContext* cx, const std::string& aText, JS::SourceText<mozilla::Utf8Unit>& aSource) {
  return aSource.init(cx, aText.data(), aText.size(), JS::SourceOwnership::Borrowed);
}

JSObject* GetModule(JSContext* cx, const std::string& aFile) {
  auto& modules = nsScriptRuntime::Current()->mModules;
  if (const auto found = modules.find(aFile); found != modules.end()) return found->second;
  std::string text;
  if (!NS_ReadScript(cx, aFile, &text)) return nullptr;
  JS::CompileOptions options(cx);
  options.setFileAndLine(aFile.c_str(), 1);
  JS::SourceText<mozilla::Utf8Unit> source;
  JS::RootedObject module(
      cx, Init(cx, text, source) ? JS::CompileModule(cx, options, source) : nullptr);
  JS::RootedString name(cx, module ? NS_NewScriptString(cx, aFile) : nullptr);
  if (!name) return nullptr;
  JS::SetModulePrivate(module, JS::StringValue(name));
  modules.try_emplace(aFile, cx, module);
  return module;
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
    wrong = "a path that begins with ./, ../ or / is expected";
  else if (access(file.c_str(), R_OK) != 0)
    wrong = file + " can't be read";
  if (wrong.empty()) return GetModule(cx, file);
  NS_ThrowTypeError(
      cx, (aReferrer.isString() ? from + ": " : "") + "import \"" + name + "\": " + wrong);
  return nullptr;
}

bool DescribeModule(JSContext* cx, JS::Handle<JS::Value> aPrivate, JS::Handle<JSObject*> aMeta) {
  if (!aPrivate.isString()) return true;
  JS::RootedString url(cx, NS_NewScriptString(cx, "file://" + NS_Text(cx, aPrivate.toString())));
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
      runtime->ReportException();
      return NS_ERROR_FAILURE;
    }
    made.setObject(*object);
    if (!NS_ToNative(runtime, made, nsISupports::kIID, mFile, &native)) {
      runtime->ReportException();
      return NS_ERROR_FAILURE;
    }
    const nsresult rv = native->QueryInterface(aIID, aResult);
    const nsScriptInterface* const table = nsScriptTables::Find(aIID);
    if (NS_FAILED(rv) && table) {
      NS_ThrowNotImplemented(cx, table, std::string(table->mName), mFile);
      runtime->ReportException();
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
    if (!Load(runtime, file, &getFactory)) {
      runtime->ReportException();
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
      runtime->ReportException();
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
      runtime->ReportException();
      return NS_ERROR_FAILURE;
    }
    return factory->QueryInterface(nsIFactory::kIID, reinterpret_cast<void**>(aResult));
  }

 private:
  ~ModuleLoader() override = default;

  /// The file's NSGetFactory, from the first run of the file.
  static bool Load(nsScriptRuntime* aRuntime, const std::string& aFile,
                   JS::MutableHandleValue aGetFactory) {
    JSContext* const cx = aRuntime->Context();
    if (aFile.ends_with(".mjs")) {
      JS::RootedObject module(cx, GetModule(cx, aFile));
      JS::RootedObject promise(cx);
      if (!module || !Evaluate(cx, module, &promise)) return false;
      JS::RootedObject exports(cx, JS::GetModuleNamespace(cx, module));
      return exports && JS_GetProperty(cx, exports, "NSGetFactory", aGetFactory);
    }
    const std::string key = "component:" + aFile;
    if (const auto found = aRuntime->mModules.find(key); found != aRuntime->mModules.end()) {
      aGetFactory.setObject(*found->second);
      return true;
    }
    std::string text;
    if (!NS_ReadScript(cx, aFile, &text)) return false;
    text += "\n;return typeof NSGetFactory === 'undefined' ? undefined : NSGetFactory;";
    JS::CompileOptions options(cx);
    options.setFileAndLine(aFile.c_str(), 0);  // the engine puts a line before the body
    JS::SourceText<mozilla::Utf8Unit> source;
    JS::RootedObjectVector scope(cx);
    if (!Init(cx, text, source)) return false;
    JSFunction* const body =
        JS::CompileFunction(cx, scope, options, "component", 0, nullptr, source);
    if (!body) return false;
    JS::RootedValue function(cx, JS::ObjectValue(*JS_GetFunctionObject(body)));
    if (!JS::Call(cx, JS::UndefinedHandleValue, function, JS::HandleValueArray::empty(),
                  aGetFactory))
      return false;
    if (aGetFactory.isObject()) {
      JS::RootedObject object(cx, &aGetFactory.toObject());
      aRuntime->mModules.try_emplace(key, cx, object);
    }
    return true;
  }
};

}  // namespace

nsresult NS_ConstructModuleLoader(nsISupports* aOuter, const nsIID& aIID, void** aResult) {
  if (aOuter) return NS_ERROR_NO_AGGREGATION;
  return MakeRefCounted<ModuleLoader>()->QueryInterface(aIID, aResult);
}

void NS_InitModules(JSContext* cx) {
  JSRuntime* const runtime = JS_GetRuntime(cx);
  JS::SetModuleResolveHook(runtime, ResolveImport);
  JS::SetModuleMetadataHook(runtime, DescribeModule);
  JS::SetModuleDynamicImportHook(runtime, ImportDynamically);
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

bool NS_RunFile(nsScriptRuntime* aRuntime, const std::string& aFile) {
  JSContext* const cx = aRuntime->Context();
  const std::string file = Absolute(aFile);
  if (file.ends_with(".mjs")) {
    JS::RootedObject module(cx, GetModule(cx, file));
    JS::RootedObject promise(cx);
    if (!module || !Evaluate(cx, module, &promise)) return false;
    // What goes wrong later than the first await is a rejection, reported like all that nobody
    // handles.
    if (!promise || JS::GetPromiseState(promise) != JS::PromiseState::Rejected) return true;
    JS::RootedValue reason(cx, JS::GetPromiseResult(promise));
    if (JS::SetSettledPromiseIsHandled(cx, promise)) JS_SetPendingException(cx, reason);
    return false;
  }
  std::string text;
  if (!NS_ReadScript(cx, file, &text)) return false;
  JS::CompileOptions options(cx);
  options.setFileAndLine(file.c_str(), 1);
  JS::SourceText<mozilla::Utf8Unit> source;
  JS::RootedValue result(cx);
  return Init(cx, text, source) && JS::Evaluate(cx, options, source, &result);
}
