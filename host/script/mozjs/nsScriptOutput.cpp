#include "nsScriptOutput.h"

#include <js/ErrorReport.h>
#include <js/Exception.h>
#include <js/SavedFrameAPI.h>

#include <cstdio>

#include "nsConvert.h"
#include "nsScriptErrors.h"
#include "nsScriptHeap.h"
#include "nsScriptRuntime.h"
#include "nsUtf.h"

void nsScriptOutput::Print(bool aIsError, const std::string& aText) {
  FILE* const out = aIsError ? stderr : stdout;
  const Scope output(*this);
  fwrite(aText.data(), 1, aText.size(), out);
  // Lines of an application are read by others as they come.
  if (fflush(out) != 0 && !aIsError && mEndsWithOutput) mRuntime.Quit(0);
}

void nsScriptOutput::ReportException() {
  JSContext* const cx = mRuntime.Context();
  JS::RootedValue exception(cx);
  if (!JS_GetPendingException(cx, &exception)) {
    JS_ClearPendingException(cx);
    return;
  }
  JS_ClearPendingException(cx);
  ReportValue(exception, "");
}

void nsScriptOutput::ReportValue(JS::HandleValue aException, const char* aPrefix) {
  Tell(aException, aPrefix);
  mRuntime.CountError();
}

void nsScriptOutput::Tell(JS::HandleValue aException, const char* aPrefix) {
  JSContext* const cx = mRuntime.Context();
  const Scope output(*this);
  std::string place, text, stack;
  JS::RootedObject error(cx, aException.isObject() ? &aException.toObject() : nullptr);
  if (error) {
    if (const JSErrorReport* const report = JS_ErrorFromException(cx, error)) {
      if (report->filename && *report->filename)
        // The engine counts columns from 1, but those of syntax errors from 0.
        place = std::string(report->filename) + ":" + std::to_string(report->lineno) + ":" +
                std::to_string(report->column + (report->exnType == JSEXN_SYNTAXERR)) + ": ";
      // Deep in a recursion there is no room for the error's own toString.
      if (report->exnType == JSEXN_INTERNALERR) text = report->message().c_str();
    }
    JS::RootedObject frames(cx, JS::ExceptionStackOrNull(error));
    JS::RootedString lines(cx);
    if (frames && JS::BuildStackString(cx, nullptr, frames, &lines, 4)) stack = NS_Text(cx, lines);
  }
  if (text.empty()) text = NS_ToText(cx, aException);
  JS_ClearPendingException(cx);
  if (!error && text == "out of memory")
    if (const std::string last = NS_TakePlaceOfMemoryOut(); !last.empty()) place = last + ": ";
  // One frame is what the place says already; of a deep recursion the first ones are enough.
  size_t end = 0;
  int lines = 0;
  while (lines < 10 && (end = stack.find('\n', end)) != stack.npos) ++lines, ++end;
  if (lines < 2)
    stack.clear();
  else if (end != stack.npos)
    stack.resize(end);
  text = vorel::Printable(place + aPrefix + text, true);
  fprintf(stderr, "vorel: %s\n%s", text.c_str(), vorel::Printable(stack, true).c_str());
}
