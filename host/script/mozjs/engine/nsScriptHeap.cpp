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
bool sIsFull = false;  // the last collection has left more than the limit
bool sIsCollecting = false;
// Who catches the exception allocates a little before it has let go of anything.
constexpr int kSparedAfterwards = 4;
int sSpared = 0;

/// Of what a collection has found some may still be on its way out, on another thread; setting a
/// parameter waits for that.
bool HasMoreThanItsLimit(JSContext* cx, uint32_t aPause) {
  const auto isOver = [cx] { return JS_GetGCParameter(cx, JSGC_BYTES) > sLimit; };
  if (!isOver()) return false;
  SetPause(cx, aPause);
  return isOver();
}

// From ten elevenths of its own limit on the engine collects for every few objects, and script
// would hear of it after minutes. So its limit lies above ours, and ours is looked at after each
// collection.
void OnCollection(JSContext* cx, JSGCStatus aStatus, JS::GCReason, void*) {
  if (aStatus != JSGC_END) return;
  sIsFull = HasMoreThanItsLimit(cx, sIsCollecting ? kNotAgain : kAtOnce);
  if (!sIsFull) sSpared = 0;
  if (!sIsFull || sIsCollecting || sSpared-- > 0) return;
  sSpared = 0;
  SetPause(cx, kNotAgain);
  JS_RequestInterruptCallback(cx);
}

/// Called where script can be interrupted. What is thrown here can be caught there.
bool OnInterrupt(JSContext* cx) {
  // The collection that has asked for this may have gone on in steps, while script let go of
  // something. One more is exact, and the heap of a script is large by now.
  sIsCollecting = true;
  if (sIsFull) JS_GC(cx);
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
