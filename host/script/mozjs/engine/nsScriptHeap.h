// The limit of the heap of scripts.
#pragma once

#include <jsapi.h>

#include <cstdint>

/// Once for a context: memory counts as out when collections at the limit do not help, and not only
/// after one for each few objects that they found. False when memory is out.
bool NS_InitScriptHeap(JSContext* cx);
/// In bytes; may be changed at any time.
void NS_SetHeapLimit(JSContext* cx, uint32_t aBytes);
