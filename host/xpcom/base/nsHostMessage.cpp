#include "nsHostMessage.h"

#include <cstdio>

#include "nsLogger.h"
#include "nsString.h"

void NS_HostMessage(nsHostSeverity aSeverity, std::string_view aText) {
  static_assert(eHostDebug == nsILog4Logger::SEVERITY_DEBUG &&
                eHostWarning == nsILog4Logger::SEVERITY_WARNING &&
                eHostError == nsILog4Logger::SEVERITY_ERROR);
  // What goes wrong while the logging service is being made must not ask for it again.
  static thread_local bool sInside = false;
  nsCOMPtr<nsILog4Logger> logger;
  if (!sInside) {
    sInside = true;
    logger = NS_GetLogger("host");
    sInside = false;
  }
  if (logger)
    (void)logger->Log(aSeverity, nsDependentCString(aText), nullptr);
  else if (aSeverity != eHostDebug)
    std::fprintf(stderr, "vorel: %.*s\n", static_cast<int>(aText.size()), aText.data());
}
