// The memory service.
#pragma once

#include "nsIMemory.h"
#include "nsImplements.h"
#include "nsXPCOM.h"

/// "@mozilla.org/xpcom/memory-service;1".
class nsMemory final : public nsImplements<nsMemory, nsIMemory> {
 public:
  void* Alloc(size_t aSize) override;
  void* Realloc(void* aPtr, size_t aSize) override;
  void Free(void* aPtr) override;
  nsresult HeapMinimize(bool) override { return NS_ERROR_NOT_IMPLEMENTED; }
  nsresult IsLowMemory(bool*) override { return NS_ERROR_NOT_IMPLEMENTED; }

 private:
  ~nsMemory() override = default;
};
