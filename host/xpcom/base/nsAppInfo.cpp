#include "nsAppInfo.h"

#include <prsystem.h>

#include <map>
#include <string_view>

#include "nsHostMessage.h"
#include "nsNativeFile.h"

const char kOS[] = "Linux";
#if defined(__x86_64__)
const char kABI[] = "x86_64-gcc3";
#elif defined(__aarch64__)
const char kABI[] = "aarch64-gcc3";
#else
const char kABI[] = "unknown-gcc3";
#endif

namespace {

std::string_view Trim(std::string_view aText) {
  constexpr char kSpace[] = " \t\r";
  const size_t first = aText.find_first_not_of(kSpace);
  return first == aText.npos ? "" : aText.substr(first, aText.find_last_not_of(kSpace) - first + 1);
}

}  // namespace

nsAppInfo nsAppInfo::Read(const std::string& aDirectory) {
  nsAppInfo info;
  if (aDirectory.empty()) return info;
  std::string contents;
  const std::string path = aDirectory + "/application.ini";
  if (const nsresult rv = NS_ReadFile(path, &contents, kConfigurationLimit, nsFileKind::eRegular);
      NS_FAILED(rv)) {
    if (rv != NS_ERROR_FILE_NOT_FOUND && rv != NS_ERROR_FILE_NOT_DIRECTORY)
      NS_HostMessage(eHostError, path + ": " + std::string(NS_ResultName(rv)));
    return info;
  }
  const std::map<std::string_view, std::string*> fields = {{"Vendor", &info.mVendor},
                                                           {"Name", &info.mName},
                                                           {"Version", &info.mVersion},
                                                           {"BuildID", &info.mBuildID},
                                                           {"ID", &info.mID}};
  bool inApp = false;
  for (std::string_view rest = contents; !rest.empty();) {
    const size_t end = rest.find('\n');
    const std::string_view line = Trim(rest.substr(0, end));
    rest.remove_prefix(end == rest.npos ? rest.size() : end + 1);
    if (line.starts_with('[')) inApp = line == "[App]";
    const size_t equals = line.find('=');
    if (!inApp || equals == line.npos) continue;
    if (const auto field = fields.find(Trim(line.substr(0, equals))); field != fields.end())
      *field->second = Trim(line.substr(equals + 1));
  }
  return info;
}

std::string NS_OSVersion() {
  char release[256];
  return PR_GetSystemInfo(PR_SI_RELEASE, release, sizeof release) == PR_SUCCESS ? release : "";
}
