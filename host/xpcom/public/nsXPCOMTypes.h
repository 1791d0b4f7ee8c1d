// What the platform's interface headers need: identifiers, strings, and names of types that only
// pass through.
#pragma once

#include <cstdio>

#include "nsCore.h"
#include "nsXPCOMStrings.h"

class nsITimer;
class nsIInputStream;
class nsIOutputStream;
class nsWrapperCache;

struct PRThread;
struct PRFileDesc;
struct PRLibrary;

struct JSContext;
class JSObject;
class JSString;
class JSFreeOp;

/// A script value as it crosses interfaces: the engine's 8 bytes, not to be looked into. It is
/// rooted by whoever passes it, for the time of the call.
struct jsval {
  uint64_t mBits;
};

using nsTimerCallbackFunc = void (*)(nsITimer* aTimer, void* aClosure);
using nsWriteSegmentFun = nsresult (*)(nsIInputStream* aStream, void* aClosure, const char* aFrom,
                                       uint32_t aOffset, uint32_t aCount, uint32_t* aWritten);
using nsReadSegmentFun = nsresult (*)(nsIOutputStream* aStream, void* aClosure, char* aTo,
                                      uint32_t aOffset, uint32_t aCount, uint32_t* aRead);
/// Makes the native object behind a script constructor.
using nsDOMConstructorFunc = nsresult (*)(nsISupports** aObject);
