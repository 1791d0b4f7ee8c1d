// The frozen functions of the host, beside those for strings. All may be called from any thread.
#pragma once

#include "nsXPCOMTypes.h"

class nsIComponentManager;
class nsIComponentRegistrar;
class nsIDebug;
class nsIDirectoryServiceProvider;
class nsIFile;
class nsILocalFile;
class nsIMemory;
class nsIServiceManager;

enum GeckoProcessType : int32_t {
  GeckoProcessType_Default = 0,
  GeckoProcessType_Plugin = 1,
  GeckoProcessType_Content = 2,
  GeckoProcessType_IPDLUnitTest = 3,
  GeckoProcessType_Invalid = 4,
};

enum : uint32_t {
  NS_DEBUG_WARNING = 0,
  NS_DEBUG_ASSERTION = 1,
  NS_DEBUG_BREAK = 2,
  NS_DEBUG_ABORT = 3
};

#pragma GCC visibility push(default)
extern "C" {

/// NS_ERROR_NOT_INITIALIZED before the host has started and after it has stopped.
nsresult NS_GetServiceManager(nsIServiceManager** aResult);
nsresult NS_GetComponentManager(nsIComponentManager** aResult);
nsresult NS_GetComponentRegistrar(nsIComponentRegistrar** aResult);
nsresult NS_GetMemoryManager(nsIMemory** aResult);
nsresult NS_GetDebug(nsIDebug** aResult);

nsresult NS_NewLocalFile(const nsAString& aPath, bool aFollowLinks, nsILocalFile** aResult);
nsresult NS_NewNativeLocalFile(const nsACString& aPath, bool aFollowLinks, nsILocalFile** aResult);

/// The allocator for memory that changes owner across an interface. Ends the process when memory is
/// out.
void* NS_Alloc(size_t aSize);
void* NS_Realloc(void* aPtr, size_t aSize);
void NS_Free(void* aPtr);
/// The same three for components that were linked against the platform's kit.
void* moz_xmalloc(size_t aSize);
void* moz_xrealloc(void* aPtr, size_t aSize);
void moz_free(void* aPtr);

/// Writes the text to standard error; ends the process for NS_DEBUG_ABORT only.
void NS_DebugBreak(uint32_t aSeverity, const char* aText, const char* aExpression,
                   const char* aFile, int32_t aLine);

/// What this process is: GeckoProcessType_Default unless the program was told otherwise.
GeckoProcessType XRE_GetProcessType();

}  // extern "C"
#pragma GCC visibility pop
