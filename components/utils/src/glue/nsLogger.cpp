#include "nsLogger.h"

#include <algorithm>
#include <cstdio>

#include "nsDebug.h"
#include "nsServices.h"
#include "nsString.h"

nsCOMPtr<nsILog4Logger> NS_GetLogger(std::string_view aName) {
  nsCOMPtr<nsILog4Logger> logger;
  if (const auto service = do_GetService<nsILog4Service>(VOREL_LOG4SERVICE_CONTRACTID))
    (void)service->GetLogger(nsDependentCString(aName), logger.getter_AddRefs());
  return logger;
}

namespace vorel::detail {

std::string_view FunctionName(std::string_view aPretty) {
  // Cut template arguments ("[with T = ...]"), then the parameter list, then whatever stands before
  // the name. One compiler writes unnamed namespaces with parentheses, the other with braces.
  constexpr std::string_view kUnnamed = "(anonymous namespace)::", kUnnamedToo = "{anonymous}::";
  if (const size_t with = aPretty.find(" [with "); with != aPretty.npos)
    aPretty = aPretty.substr(0, with);
  size_t parenthesis;
  while ((parenthesis = aPretty.find('(')) != aPretty.npos &&
         aPretty.substr(parenthesis).starts_with(kUnnamed))
    aPretty.remove_prefix(parenthesis + kUnnamed.size());
  aPretty = aPretty.substr(0, parenthesis);
  if (const size_t space = aPretty.rfind(' '); space != aPretty.npos)
    aPretty = aPretty.substr(space + 1);
  aPretty.remove_prefix(std::min(aPretty.find_first_not_of("*&"), aPretty.size()));
  if (aPretty.starts_with(kUnnamedToo)) aPretty.remove_prefix(kUnnamedToo.size());
  return aPretty;
}

std::string LocationPath(std::string_view aFile) {
  std::string path(aFile.substr(0, aFile.rfind('.')));
  for (const std::string_view folder :
       {"components/system/src/base/", "components/system/src/adapters/",
        "components/system/src/apb/"})
    if (path.starts_with(folder)) path.erase(folder.size(), path.rfind('/') + 1 - folder.size());
  return path;
}

void Log(nsILog4Logger* aLogger, uint32_t aSeverity, std::string_view aText, const char* aFile,
         const char* aFunction, uint32_t aLine) {
  std::string_view file = aFile;
  // Compilers are given paths from the directory of the build.
  while (file.starts_with("../")) file.remove_prefix(3);
  const std::string source = LocationPath(file);
  const auto location = do_CreateInstance<nsILog4LocationInfo>(VOREL_LOG4LOCATIONINFO_CONTRACTID);
  if (location)
    (void)location->Init(nsDependentCString(source), nsDependentCString(FunctionName(aFunction)),
                         aLine);
  (void)aLogger->Log(aSeverity, nsDependentCString(aText), location.get());
}

void Warn(const char* aText, const char* aOwn, const char* aFile, const char* aFunction,
          uint32_t aLine) {
  const auto logger = NS_GetLogger("debug");
  if (!IsEnabled(logger.get(), nsILog4Logger::SEVERITY_WARNING)) return;
  char text[500];
  if (aOwn)
    std::snprintf(text, sizeof text, "%s : '%s'", aOwn, aText);
  else
    std::snprintf(text, sizeof text, "'%s'", aText);
  Log(logger.get(), nsILog4Logger::SEVERITY_WARNING, text, aFile, aFunction, aLine);
}

}  // namespace vorel::detail
