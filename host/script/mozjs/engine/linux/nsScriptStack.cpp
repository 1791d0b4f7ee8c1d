#include "nsScriptStack.h"

#include <sys/resource.h>

#include <algorithm>

// The main thread has 8 MB as a rule. Of a smaller stack scripts have half: calls into compiled
// code take their part of it.
size_t NS_ScriptStackSize() {
  constexpr size_t kMost = 1u << 20;
  rlimit limit;
  if (getrlimit(RLIMIT_STACK, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) return kMost;
  return std::min<size_t>(kMost, limit.rlim_cur / 2);
}
