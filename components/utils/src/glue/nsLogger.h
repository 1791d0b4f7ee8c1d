// Writing to the logging service. Logging is never required: without the service or a logger,
// nothing is written.
//
//   mLogger = NS_GetLogger("system.manager");
//   SYSTEM_LOG_DEBUG(mLogger, "shortProfile=" + NS_ToUtf8(name));
//
// The text, UTF-8, is built only after the logger has said that the severity is on.
#pragma once

#include <string>
#include <string_view>

#include "nsCOMPtr.h"
#include "nsILog4.h"

/// The logger of a name; null when logging is not to be had.
nsCOMPtr<nsILog4Logger> NS_GetLogger(std::string_view aName);

namespace vorel::detail {
inline bool IsEnabled(nsILog4Logger* aLogger, uint32_t aSeverity) {
  bool enabled = false;
  return aLogger && NS_SUCCEEDED(aLogger->IsEnabledFor(aSeverity, &enabled)) && enabled;
}
/// aFile as the compiler gives it, aFunction as __PRETTY_FUNCTION__ does.
void Log(nsILog4Logger* aLogger, uint32_t aSeverity, std::string_view aText, const char* aFile,
         const char* aFunction, uint32_t aLine);
/// "nsSystemManager::Init" out of "nsresult nsSystemManager::Init(int)".
std::string_view FunctionName(std::string_view aPretty);
/// "components/system/src/base/nsSystemManager" out of the path of its source file. The room below
/// base, adapters or apb in which a file lies does not show: readers of logs know the form.
std::string LocationPath(std::string_view aFile);
}  // namespace vorel::detail

// The logger may be a temporary: it is held until the line is written.
#define SYSTEM_LOG(aLogger, aSeverity, aText)                                                     \
  do {                                                                                            \
    const auto& vorelHeld = aLogger;                                                              \
    nsILog4Logger* const vorelLogger = NS_RawLogger(vorelHeld);                                   \
    if (vorel::detail::IsEnabled(vorelLogger, aSeverity))                                         \
      vorel::detail::Log(vorelLogger, aSeverity, aText, __FILE__, __PRETTY_FUNCTION__, __LINE__); \
  } while (false)
#define SYSTEM_LOG_DEBUG(aLogger, aText) SYSTEM_LOG(aLogger, nsILog4Logger::SEVERITY_DEBUG, aText)
#define SYSTEM_LOG_WARNING(aLogger, aText) \
  SYSTEM_LOG(aLogger, nsILog4Logger::SEVERITY_WARNING, aText)
#define SYSTEM_LOG_ERROR(aLogger, aText) SYSTEM_LOG(aLogger, nsILog4Logger::SEVERITY_ERROR, aText)

inline nsILog4Logger* NS_RawLogger(nsILog4Logger* aLogger) { return aLogger; }
inline nsILog4Logger* NS_RawLogger(const nsCOMPtr<nsILog4Logger>& aLogger) { return aLogger.get(); }
