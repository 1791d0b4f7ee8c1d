#include "nsScriptHeap.h"

#include <js/GCAPI.h>
#include <js/HeapAPI.h>
#include <js/MemoryCallbacks.h>

#include <algorithm>
#include <string>
#include <utility>

namespace {

// In seconds. Between collections of the last resort the engine lets as much time pass; until then
// an allocation that fails is told at once.
constexpr uint32_t kAtOnce = 0, kNotAgain = 3600;

// There is one engine in a process, on one thread.
uint32_t sLimit = 0;
// The limit, or, once a script has been told, what it had then and room to handle that.
uint32_t sLevel = 0;
bool sIsAsked = false;  // where script can be interrupted next, there is a collection
bool sIsCollecting = false;
bool sIsTelling = false;
std::string sPlace;  // where the script was that has been told

uint32_t Sum(uint32_t aOne, uint32_t aOther) { return aOne + std::min(aOther, UINT32_MAX - aOne); }

uint32_t Used(JSContext* cx) { return JS_GetGCParameter(cx, JSGC_BYTES); }

// From ten elevenths of its own limit on the engine collects for every few objects, and script
// would hear of it after minutes. So its limit lies above ours.
void SetLevel(JSContext* cx, uint32_t aLevel) {
  sLevel = aLevel;
  JS_SetGCParameter(cx, JSGC_MAX_BYTES, Sum(aLevel, sLimit / 6));
}

void AskForCollection(JSContext* cx) {
  sIsAsked = true;
  JS_RequestInterruptCallback(cx);
}

void OnCollection(JSContext* cx, JSGCStatus aStatus, JS::GCReason, void*) {
  if (aStatus != JSGC_END) return;
  const uint32_t used = Used(cx);
  if (used <= sLimit && sLevel != sLimit) SetLevel(cx, sLimit);
  JS_SetGCParameter(cx, JSGC_MIN_LAST_DITCH_GC_PERIOD, used > sLevel ? kNotAgain : kAtOnce);
  sIsAsked = false;
  if (used > sLevel && !sIsCollecting) AskForCollection(cx);
}

// The engine counts for each zone on its own when it collects, so that objects and the names of
// their properties can reach its limit together without a collection; and a name for which there is
// no room is an error at once. What young objects leave behind is where all memory grows.
void OnYoungCollection(JSContext* cx, JS::GCNurseryProgress aProgress, JS::GCReason) {
  if (aProgress != JS::GCNurseryProgress::GC_NURSERY_COLLECTION_END || sIsCollecting) return;
  if (!sIsAsked && Used(cx) > Sum(sLevel, sLimit / 16)) AskForCollection(cx);
}

/// Called where script can be interrupted. What is thrown here can be caught there.
bool OnInterrupt(JSContext* cx) {
  if (!std::exchange(sIsAsked, false)) return true;
  // Since the collection that asked for this one, script may have let go of what it held.
  sIsCollecting = true;
  JS_GC(cx);
  sIsCollecting = false;
  if (Used(cx) <= sLevel) return true;
  sIsTelling = true;
  JS_ReportOutOfMemory(cx);
  sIsTelling = false;
  return false;
}

// Whoever catches it allocates a little before anything is let go, if only to tell of it.
void OnOutOfMemory(JSContext* cx, void*) {
  SetLevel(cx, std::min(Sum(std::max(Used(cx), sLimit), sLimit / 8), Sum(sLimit, sLimit / 2)));
  JS_SetGCParameter(cx, JSGC_MIN_LAST_DITCH_GC_PERIOD, kAtOnce);
  // Not known where a name was to be made: the engine has left the script's realm for that.
  JS::AutoFilename file;
  unsigned line = 0;
  const bool isInScript = JS::DescribeScriptedCaller(cx, &file, &line) && file.get();
  sPlace = isInScript ? std::string(file.get()) + ":" + std::to_string(line) : std::string();
  // The engine itself has told it, perhaps without a collection.
  if (!sIsTelling) AskForCollection(cx);
}

}  // namespace

bool NS_InitScriptHeap(JSContext* cx) {
  sIsAsked = false;
  sPlace.clear();
  JS_SetGCParameter(cx, JSGC_MIN_LAST_DITCH_GC_PERIOD, kAtOnce);
  JS_SetGCCallback(cx, OnCollection, nullptr);
  JS::SetGCNurseryCollectionCallback(cx, OnYoungCollection);
  JS::SetOutOfMemoryCallback(cx, OnOutOfMemory, nullptr);
  return JS_AddInterruptCallback(cx, OnInterrupt);
}

void NS_SetHeapLimit(JSContext* cx, uint32_t aBytes) {
  sLimit = aBytes;
  SetLevel(cx, aBytes);
  // Not more than the distance between the two limits may become old at once.
  JS_SetGCParameter(cx, JSGC_MAX_NURSERY_BYTES,
                    std::clamp(aBytes / 16, JS_GetGCParameter(cx, JSGC_MIN_NURSERY_BYTES),
                               JS::DefaultNurseryMaxBytes));
}

std::string NS_TakePlaceOfMemoryOut() { return std::exchange(sPlace, {}); }
