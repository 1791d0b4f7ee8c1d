// The limit of the heap of scripts.
#pragma once

#include <jsapi.h>

#include <cstdint>
#include <string>

/// Once for a context: memory counts as out when a collection at the limit does not help, and not
/// only after one for each few objects that it found. Whoever has been told may use an eighth of
/// the limit more, up to half of it, until a collection finds less than the limit again. False when
/// memory is out.
bool NS_InitScriptHeap(JSContext* cx);
/// In bytes; may be changed at any time.
void NS_SetHeapLimit(JSContext* cx, uint32_t aBytes);
/// File and line of the script that was last told that memory is out: its exception has no place of
/// its own. Empty the second time, when no script ran, and when it was making the name of a
/// property.
std::string NS_TakePlaceOfMemoryOut();
