#include "nsScriptCrash.h"

#include <algorithm>
#include <cstring>

#include "js/Interrupt.h"
#include "js/Utility.h"
#include "js/friend/DumpFunctions.h"
#include "nsHostCrash.h"

namespace {

JSContext* gContext = nullptr;

// May be called from anywhere: it sets flags.
void Interrupt() {
  if (gContext) JS_RequestInterruptCallback(gContext);
}

size_t Describe(char* aOut, size_t aCapacity) {
  if (!gContext) return 0;
  const JS::UniqueChars text = JS::FormatStackDump(gContext, false, false, false);
  const size_t length = text ? std::min(std::strlen(text.get()), aCapacity) : 0;
  std::memcpy(aOut, text.get(), length);
  return length;
}

bool Answer(JSContext*) {
  NS_AnswerCrash();
  return true;
}

constexpr nsCrashScript kScript{Interrupt, Describe};

}  // namespace

bool NS_StartScriptCrash(JSContext* cx) {
  if (!JS_AddInterruptCallback(cx, Answer)) return false;
  gContext = cx;
  NS_SetCrashScript(&kScript);
  return true;
}

void NS_StopScriptCrash() {
  NS_SetCrashScript(nullptr);
  gContext = nullptr;
}
