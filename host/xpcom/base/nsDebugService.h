// The debug service.
#pragma once

#include "nsIDebug2.h"
#include "nsImplements.h"
#include "nsXPCOM.h"

/// "@mozilla.org/xpcom/debug;1".
class nsDebugService final : public nsImplements<nsDebugService, nsIDebug2> {
 public:
  nsresult Assertion(const char* aStr, const char* aExpr, const char* aFile,
                     int32_t aLine) override;
  nsresult Warning(const char* aStr, const char* aFile, int32_t aLine) override;
  nsresult Break(const char* aFile, int32_t aLine) override;
  nsresult Abort(const char* aFile, int32_t aLine) override;
  nsresult GetIsDebugBuild(bool* aIsDebugBuild) override;
  nsresult GetAssertionCount(int32_t* aAssertionCount) override;

 private:
  ~nsDebugService() override = default;
};
