// A host without a script engine: components are compiled code, and there are no scripts to run.
#include "nsScriptHost.h"

#include "nsScriptEngine.h"

namespace {
constexpr char kNone[] = "this host was built without a script engine";
const vorel::Module kModule = {
    vorel::Module::kVersion, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr};
}  // namespace

const vorel::Module& nsScriptHost::Module() { return kModule; }

std::unique_ptr<nsScriptHost> nsScriptHost::Create(const nsScriptOptions&, std::string* aError) {
  *aError = kNone;
  return nullptr;
}

// None is ever made, so that nobody calls these.
nsScriptHost::nsScriptHost() = default;
nsScriptHost::~nsScriptHost() = default;
nsresult nsScriptHost::RunFile(const std::string&) { return NS_ERROR_NOT_AVAILABLE; }
nsresult nsScriptHost::Evaluate(std::string_view, const char*, std::string*) {
  return NS_ERROR_NOT_AVAILABLE;
}
int nsScriptHost::RunUntilDone() { return 0; }
bool nsScriptHost::HasQuit() const { return true; }
void nsScriptHost::SetHeapLimit(uint32_t) {}
void nsScriptHost::Quit(int) {}
std::vector<std::string> nsScriptHost::Complete(std::string_view aText, size_t* aStart) {
  *aStart = aText.size();
  return {};
}
bool nsScriptHost::IsIncomplete(std::string_view) { return false; }
void nsScriptHost::SetAroundOutput(std::function<void(bool)>) {}

// Nor is there a context or a value to call these with.
int32_t JS_TypeOfValue(JSContext*, jsval) { return JSTYPE_OF_VOID; }
JSString* JS_ValueToString(JSContext*, jsval) { return nullptr; }
const char16_t* JS_GetStringCharsZAndLength(JSContext*, JSString*, size_t*) { return nullptr; }
int JS_GetProperty(JSContext*, JSObject*, const char*, jsval*) { return 0; }
int JS_ValueToBoolean(JSContext*, jsval, int* aBoolean) {
  *aBoolean = 0;
  return 1;
}
int JS_ValueToObject(JSContext*, jsval, JSObject**) { return 0; }
void JS_ExplainFailure(const char*) {}
void JS_ClearDateCaches(JSContext*) {}
