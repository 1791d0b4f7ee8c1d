#include "nsDebugService.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "nsServices.h"

namespace {
std::atomic<int32_t> gAssertions{0};
}

extern "C" {

void NS_DebugBreak(uint32_t aSeverity, const char* aText, const char* aExpression,
                   const char* aFile, int32_t aLine) {
  static constexpr const char* kKinds[] = {"WARNING", "ASSERTION", "BREAK", "ABORT"};
  if (aSeverity == NS_DEBUG_ASSERTION) ++gAssertions;
  std::string line = "###!!! ";
  line += aSeverity < std::size(kKinds) ? kKinds[aSeverity] : kKinds[NS_DEBUG_WARNING];
  if (aText) line.append(": ").append(aText);
  if (aExpression) line.append(": '").append(aExpression).append("'");
  if (aFile) line.append(", file ").append(aFile).append(", line ").append(std::to_string(aLine));
  line += '\n';
  // One call, so that lines of several threads do not mix.
  std::fwrite(line.data(), 1, line.size(), stderr);
  if (aSeverity == NS_DEBUG_ABORT) std::abort();
}

nsresult NS_GetDebug(nsIDebug** aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  nsresult rv;
  auto debug = do_GetService<nsIDebug>("@mozilla.org/xpcom/debug;1", &rv);
  if (NS_SUCCEEDED(rv)) debug.forget(aResult);
  return rv;
}

}  // extern "C"

nsresult nsDebugService::Assertion(const char* aStr, const char* aExpr, const char* aFile,
                                   int32_t aLine) {
  NS_DebugBreak(NS_DEBUG_ASSERTION, aStr, aExpr, aFile, aLine);
  return NS_OK;
}

nsresult nsDebugService::Warning(const char* aStr, const char* aFile, int32_t aLine) {
  NS_DebugBreak(NS_DEBUG_WARNING, aStr, nullptr, aFile, aLine);
  return NS_OK;
}

nsresult nsDebugService::Break(const char* aFile, int32_t aLine) {
  NS_DebugBreak(NS_DEBUG_BREAK, nullptr, nullptr, aFile, aLine);
  return NS_OK;
}

nsresult nsDebugService::Abort(const char* aFile, int32_t aLine) {
  NS_DebugBreak(NS_DEBUG_ABORT, nullptr, nullptr, aFile, aLine);
  return NS_OK;
}

nsresult nsDebugService::GetIsDebugBuild(bool* aIsDebugBuild) {
  if (!aIsDebugBuild) return NS_ERROR_NULL_POINTER;
#ifdef NDEBUG
  *aIsDebugBuild = false;
#else
  *aIsDebugBuild = true;
#endif
  return NS_OK;
}

nsresult nsDebugService::GetAssertionCount(int32_t* aAssertionCount) {
  if (!aAssertionCount) return NS_ERROR_NULL_POINTER;
  *aAssertionCount = gAssertions;
  return NS_OK;
}
