#include "nsScriptHost.h"

#include <js/Array.h>
#include <js/CallAndConstruct.h>
#include <js/CompilationAndEvaluation.h>
#include <js/Date.h>
#include <js/GCAPI.h>
#include <js/PropertyAndElement.h>
#include <js/SourceText.h>

#include "nsScriptEngine.h"
#include "nsScriptErrors.h"
#include "nsScriptHeap.h"
#include "nsScriptModule.h"
#include "nsScriptRuntime.h"

std::unique_ptr<nsScriptHost> nsScriptHost::Create(const nsScriptOptions& aOptions,
                                                   std::string* aError) {
  nsScriptRuntime* const runtime = nsScriptRuntime::GetOrCreate(aError, aOptions.mIsBrief);
  if (!runtime) return nullptr;
  JSContext* const cx = runtime->Context();
  nsScriptRuntime::Entry entry(runtime, false, nsScriptRuntime::Caller::eLoop);
  NS_SetHeapLimit(cx, aOptions.mHeapLimit);
  JS::RootedObject global(cx, runtime->Global());
  JS::RootedValueVector arguments(cx);
  runtime->Output().SetEndsWithOutput(aOptions.mEndsWithOutput);
  bool done = runtime->SetDocumentFile(aOptions.mFile);
  for (const std::string& argument : aOptions.mArguments) {
    JSString* const text = done ? NS_NewScriptString(cx, argument) : nullptr;
    done = text && arguments.append(JS::StringValue(text));
  }
  JS::RootedObject array(cx, done ? JS::NewArrayObject(cx, arguments) : nullptr);
  if (!array || !JS_DefineProperty(cx, global, "arguments", array, JSPROP_ENUMERATE)) {
    JS_ClearPendingException(cx);
    *aError = "the application's arguments can't be set up";
    return nullptr;
  }
  return std::unique_ptr<nsScriptHost>(new nsScriptHost());
}

nsScriptHost::nsScriptHost() = default;
nsScriptHost::~nsScriptHost() { nsScriptRuntime::Shutdown(); }

nsresult nsScriptHost::RunFile(const std::string& aFile) {
  nsScriptRuntime* const runtime = nsScriptRuntime::Current();
  if (!runtime) return NS_ERROR_NOT_AVAILABLE;
  if (runtime->HasQuit()) return NS_OK;  // a component may have, at the start
  nsScriptRuntime::Entry entry(runtime, false, nsScriptRuntime::Caller::eLoop);
  if (runtime->Modules().Run(aFile) || !JS_IsExceptionPending(runtime->Context()))
    return NS_OK;  // through, or stopped by quit()
  runtime->Output().ReportException();
  return NS_ERROR_FAILURE;
}

nsresult nsScriptHost::Evaluate(std::string_view aText, const char* aName, std::string* aResult) {
  nsScriptRuntime* const runtime = nsScriptRuntime::Current();
  if (!runtime) return NS_ERROR_NOT_AVAILABLE;
  if (aResult) aResult->clear();
  JSContext* const cx = runtime->Context();
  nsScriptRuntime::Entry entry(runtime, false, nsScriptRuntime::Caller::eLoop);
  JS::CompileOptions options(cx);
  options.setFileAndLine(aName, 1);
  JS::SourceText<mozilla::Utf8Unit> source;
  JS::RootedValue value(cx), text(cx);
  bool done = source.init(cx, aText.data(), aText.size(), JS::SourceOwnership::Borrowed) &&
              JS::Evaluate(cx, options, source, &value);
  if (done && aResult && !value.isUndefined()) {
    JS::RootedValue inspect(cx, JS::ObjectValue(*runtime->Of(nsScriptRuntime::Tool::eInspect)));
    done = JS::Call(cx, JS::UndefinedHandleValue, inspect, JS::HandleValueArray(value), &text);
    if (done) *aResult = NS_ToText(cx, text);
  }
  if (done || !JS_IsExceptionPending(cx)) return NS_OK;
  runtime->Output().ReportException();
  return NS_ERROR_FAILURE;
}

void nsScriptHost::SetHeapLimit(uint32_t aBytes) {
  if (nsScriptRuntime* const runtime = nsScriptRuntime::Current())
    NS_SetHeapLimit(runtime->Context(), aBytes);
}

int nsScriptHost::RunUntilDone() {
  nsScriptRuntime* const runtime = nsScriptRuntime::Current();
  return runtime ? runtime->RunUntilDone() : 1;
}

bool nsScriptHost::HasQuit() const {
  const nsScriptRuntime* const runtime = nsScriptRuntime::Current();
  return !runtime || runtime->HasQuit();
}

void nsScriptHost::Quit(int aStatus) {
  if (nsScriptRuntime* const runtime = nsScriptRuntime::Current()) runtime->Quit(aStatus);
}

std::vector<std::string> nsScriptHost::Complete(std::string_view aText, size_t* aStart) {
  std::vector<std::string> names;
  *aStart = aText.size();
  nsScriptRuntime* const runtime = nsScriptRuntime::Current();
  if (!runtime) return names;
  JSContext* const cx = runtime->Context();
  nsScriptRuntime::Entry entry(runtime, false, nsScriptRuntime::Caller::eLoop);
  JSString* const string = NS_NewScriptString(cx, aText);
  JS::RootedValue text(cx), answer(cx),
      complete(cx, JS::ObjectValue(*runtime->Of(nsScriptRuntime::Tool::eComplete))), value(cx);
  if (string) text.setString(string);
  // [start, [name...]]
  if (string &&
      JS::Call(cx, JS::UndefinedHandleValue, complete, JS::HandleValueArray(text), &answer)) {
    JS::RootedObject pair(cx, &answer.toObject());
    if (JS_GetElement(cx, pair, 0, &value) && value.isInt32())
      *aStart = static_cast<size_t>(value.toInt32());
    if (JS_GetElement(cx, pair, 1, &value) && value.isObject()) {
      JS::RootedObject list(cx, &value.toObject());
      uint32_t length = 0;
      if (JS::GetArrayLength(cx, list, &length))
        for (uint32_t i = 0; i < length && JS_GetElement(cx, list, i, &value); ++i)
          names.push_back(NS_ToText(cx, value));
    }
  }
  JS_ClearPendingException(cx);
  return names;
}

bool nsScriptHost::IsIncomplete(std::string_view aText) {
  nsScriptRuntime* const runtime = nsScriptRuntime::Current();
  if (!runtime) return false;
  JSContext* const cx = runtime->Context();
  nsScriptRuntime::Entry entry(runtime, false, nsScriptRuntime::Caller::eLoop);
  JS::RootedObject global(cx, runtime->Global());
  return !JS_Utf8BufferIsCompilableUnit(cx, global, aText.data(), aText.size());
}

void nsScriptHost::SetAroundOutput(std::function<void(bool)> aFunction) {
  if (nsScriptRuntime* const runtime = nsScriptRuntime::Current())
    runtime->Output().SetAround(std::move(aFunction));
}

const vorel::Module& nsScriptHost::Module() { return kScriptModule; }

void JS_ClearDateCaches(JSContext*) { JS::ResetTimeZone(); }
