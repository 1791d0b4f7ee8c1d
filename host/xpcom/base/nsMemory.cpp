// The allocator for memory that changes owner across an interface, and the service over it.
#include "nsMemory.h"

#include <algorithm>
#include <cstdlib>

#include "nsServices.h"

namespace {

void* OrDie(void* aMemory) {
  if (!aMemory) NS_DebugBreak(NS_DEBUG_ABORT, "out of memory", nullptr, nullptr, 0);
  return aMemory;
}

}  // namespace

extern "C" {

// A request for nothing gets a block too: null means that memory is out.
void* NS_Alloc(size_t aSize) { return OrDie(std::malloc(std::max<size_t>(aSize, 1))); }
void* NS_Realloc(void* aPtr, size_t aSize) {
  return OrDie(std::realloc(aPtr, std::max<size_t>(aSize, 1)));
}
void NS_Free(void* aPtr) { std::free(aPtr); }

// The same, by the names that the platform's own kit links components against.
void* moz_xmalloc(size_t aSize) { return NS_Alloc(aSize); }
void* moz_xrealloc(void* aPtr, size_t aSize) { return NS_Realloc(aPtr, aSize); }
void moz_free(void* aPtr) { NS_Free(aPtr); }

nsresult NS_GetMemoryManager(nsIMemory** aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  nsresult rv;
  auto memory = do_GetService<nsIMemory>("@mozilla.org/xpcom/memory-service;1", &rv);
  if (NS_SUCCEEDED(rv)) memory.forget(aResult);
  return rv;
}

}  // extern "C"

void* nsMemory::Alloc(size_t aSize) { return NS_Alloc(aSize); }
void* nsMemory::Realloc(void* aPtr, size_t aSize) { return NS_Realloc(aPtr, aSize); }
void nsMemory::Free(void* aPtr) { NS_Free(aPtr); }
