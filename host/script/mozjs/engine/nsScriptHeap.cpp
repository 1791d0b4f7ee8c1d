#include "nsScriptHeap.h"

#include <js/GCAPI.h>
#include <js/MemoryCallbacks.h>

#include <algorithm>

namespace {

// In seconds. Between collections of the last resort the engine lets as much time pass; until then
// an allocation that fails is told at once.
constexpr uint32_t kAtOnce = 0, kNotAgain = 3600;

void SetPause(JSContext* cx, uint32_t aSeconds) {
  JS_SetGCParameter(cx, JSGC_MIN_LAST_DITCH_GC_PERIOD, aSeconds);
}

// There is one engine in a process, on one thread.
uint32_t sLimit = 0;
bool sIsFull = false;  // a collection has left more than the limit, as far as it is through
bool sIsCollecting = false;
// Who catches the exception allocates a little before it has let go of anything.
constexpr int kSparedAfterwards = 4;
int sSpared = 0;

// From ten elevenths of its own limit on the engine collects for every few objects, and script
// would hear of it after minutes. So its limit lies above ours, and ours is looked at after each
// collection. But what that has found may still be on its way out, on another thread.
void OnCollection(JSContext* cx, JSGCStatus aStatus, JS::GCReason, void*) {
  if (aStatus != JSGC_END) return;
  sIsFull = JS_GetGCParameter(cx, JSGC_BYTES) > sLimit;
  if (!sIsFull) sSpared = 0;
  if (!sIsFull || sIsCollecting || sSpared-- > 0) return;
  sSpared = 0;
  SetPause(cx, kNotAgain);
  JS_RequestInterruptCallback(cx);
}

/// Called where script can be interrupted. What is thrown here can be caught there.
bool OnInterrupt(JSContext* cx) {
  sIsCollecting = true;
  // Each waits for the end of the one before; the first may have found what script has let go
  // since.
  for (int i = 0; i < 4 && sIsFull; ++i) JS_GC(cx);
  sIsCollecting = false;
  SetPause(cx, kAtOnce);
  if (!sIsFull) return true;
  JS_ReportOutOfMemory(cx);
  sSpared = kSparedAfterwards;
  return false;
}

// A script that has heard of it may have let go of what it held.
void OnOutOfMemory(JSContext* cx, void*) {
  sIsFull = false;
  SetPause(cx, kAtOnce);
}

}  // namespace

bool NS_InitScriptHeap(JSContext* cx) {
  sIsFull = false;
  sSpared = 0;
  SetPause(cx, kAtOnce);
  JS_SetGCCallback(cx, OnCollection, nullptr);
  JS::SetOutOfMemoryCallback(cx, OnOutOfMemory, nullptr);
  return JS_AddInterruptCallback(cx, OnInterrupt);
}

void NS_SetHeapLimit(JSContext* cx, uint32_t aBytes) {
  sLimit = aBytes;
  JS_SetGCParameter(cx, JSGC_MAX_BYTES, aBytes + std::min(aBytes / 6, UINT32_MAX - aBytes));
}
