#include "nsLinuxTimeZones.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <memory>
#include <set>
#include <sstream>

#include "nsErrno.h"
#include "nsNativeFile.h"
#include "nsUniqueFd.h"

namespace fs = std::filesystem;

namespace {

// As every link to a zone is written, whatever the root.
constexpr std::string_view kZoneData = "/usr/share/zoneinfo/";
// The largest file of the zone data has some 4 KB.
constexpr size_t kMaximumFileSize = 256 * 1024;

// Nothing for an empty file as well.
std::optional<std::string> ReadFile(const std::string& aPath) {
  std::string bytes;
  if (NS_FAILED(NS_ReadFile(aPath, &bytes, kMaximumFileSize, nsFileKind::eRegular)) ||
      bytes.empty())
    return std::nullopt;
  return bytes;
}

// A name from outside must not lead out of the zone data. "localtime" there is a link to the
// machine's setting, and "posixrules" one to an example: they are names of no zone.
bool IsPlainName(std::string_view aName) {
  return !aName.empty() && aName.front() != '/' && aName.find("..") == aName.npos &&
         aName.find('\0') == aName.npos && aName != "localtime" && aName != "posixrules";
}

}  // namespace

nsLinuxTimeZones::nsLinuxTimeZones(std::string_view aRoot)
    : mLocalTime(std::string(aRoot) + "/etc/localtime"),
      mZoneData(std::string(aRoot) + std::string(kZoneData)),
      mTimeZone(std::string(aRoot) + "/etc/timezone") {}

bool nsLinuxTimeZones::HasZone(std::string_view aOlsonName) const {
  if (!IsPlainName(aOlsonName)) return false;
  const nsUniqueFd file(open((mZoneData + std::string(aOlsonName)).c_str(), O_RDONLY | O_CLOEXEC));
  char magic[4] = {};
  return file && read(file.get(), magic, sizeof magic) == sizeof magic &&
         std::string_view(magic, sizeof magic) == "TZif";
}

nsresult nsLinuxTimeZones::Describe(std::string_view aOlsonName,
                                    nsPlatformZoneInformation* aInformation) const {
  if (!HasZone(aOlsonName)) return NS_ERROR_NOT_AVAILABLE;
  const auto bytes = ReadFile(mZoneData + std::string(aOlsonName));
  const auto zone = bytes ? nsZoneFile::Parse(*bytes) : std::nullopt;
  if (!zone) return NS_ERROR_FILE_CORRUPTED;
  *aInformation = zone->Describe(time(nullptr));
  return NS_OK;
}

nsresult nsLinuxTimeZones::ReadCurrentOlsonName(std::string* aName) {
  std::error_code error;
  // What the link says is the name that was set, which may be one of several of its zone; where it
  // leads over others, the name is where it ends.
  for (const fs::path& target :
       {fs::read_symlink(mLocalTime, error), fs::canonical(mLocalTime, error)}) {
    const std::string text = target.string();
    constexpr std::string_view kFolder = "/zoneinfo/";
    if (const size_t at = text.rfind(kFolder); at != text.npos) {
      std::string name = text.substr(at + kFolder.size());
      for (const std::string_view variant : {"posix/", "right/"})
        if (name.starts_with(variant)) name.erase(0, variant.size());
      if (HasZone(name)) {
        *aName = name;
        return NS_OK;
      }
    }
  }
  if (!fs::exists(mLocalTime, error) && !error) {
    *aName = "UTC";  // what the system goes by where nothing is set
    return NS_OK;
  }
  const auto bytes = ReadFile(mLocalTime);
  const auto name = bytes ? FindZoneOfCopy(*bytes) : std::nullopt;
  if (!name) return NS_ERROR_NOT_AVAILABLE;
  *aName = *name;
  return NS_OK;
}

bool nsLinuxTimeZones::HasSameBytes(const std::string& aOlsonName,
                                    const std::string& aBytes) const {
  std::error_code error;
  return fs::file_size(mZoneData + aOlsonName, error) == aBytes.size() && !error &&
         ReadFile(mZoneData + aOlsonName) == aBytes;
}

bool nsLinuxTimeZones::IsSameZone(const nsPlatformZoneName& aZone, std::string_view aOlsonName) {
  if (!HasZone(aZone.mOlsonName) || !HasZone(aOlsonName)) return false;
  const auto bytes = ReadFile(mZoneData + std::string(aOlsonName));
  return bytes && HasSameBytes(std::string(aZone.mOlsonName), *bytes);
}

// The zone whose file has these bytes. Several may: those of the list of zones come first, then
// the others, in the order of their names.
std::optional<std::string> nsLinuxTimeZones::FindZoneOfCopy(const std::string& aBytes) const {
  std::ifstream list(mZoneData + "zone1970.tab");
  for (std::string line; std::getline(list, line);) {
    std::istringstream fields(line);
    std::string countries, place, name;
    if (line.starts_with('#') || !(fields >> countries >> place >> name)) continue;
    if (IsPlainName(name) && HasSameBytes(name, aBytes)) return name;
  }
  std::error_code error;
  std::set<std::string> names;
  const fs::path root(mZoneData);
  for (fs::recursive_directory_iterator entry(root, error), end; entry != end && !error;
       entry.increment(error)) {
    std::error_code fileError;
    std::string name = entry->path().lexically_relative(root).string();
    if (entry->is_regular_file(fileError) && !name.starts_with("posix/") &&
        !name.starts_with("right/") && IsPlainName(name) && HasSameBytes(name, aBytes))
      names.insert(std::move(name));
  }
  if (names.empty()) return std::nullopt;
  return *names.begin();
}

nsresult nsLinuxTimeZones::ReadCurrentStandardName(std::u16string*) {
  return NS_ERROR_NOT_AVAILABLE;
}

nsresult nsLinuxTimeZones::ReadCurrentLocalizedNames(std::u16string* aStandard,
                                                     std::u16string* aDaylight) {
  // Names such as "CST" are shared by zones that lie far apart, so they are told of a zone that is
  // known only.
  std::string name;
  nsresult rv = ReadCurrentOlsonName(&name);
  if (NS_FAILED(rv)) return rv;
  nsPlatformZoneInformation information;
  rv = Describe(name, &information);
  if (NS_FAILED(rv)) return rv;
  *aStandard = information.mStandardName;
  *aDaylight = information.mDaylightName;
  return NS_OK;
}

nsresult nsLinuxTimeZones::FindZone(const nsPlatformZoneName& aZone) {
  return HasZone(aZone.mOlsonName) ? NS_OK : NS_ERROR_NOT_AVAILABLE;
}

nsresult nsLinuxTimeZones::ReadRules(const nsPlatformZoneName& aZone, nsPlatformZoneRules* aRules) {
  nsPlatformZoneInformation information;
  const nsresult rv = Describe(aZone.mOlsonName, &information);
  if (NS_SUCCEEDED(rv)) *aRules = information.mRules;
  return rv;
}

nsresult nsLinuxTimeZones::ReadStandardName(const nsPlatformZoneName& aZone,
                                            std::u16string* aName) {
  nsPlatformZoneInformation information;
  const nsresult rv = Describe(aZone.mOlsonName, &information);
  if (NS_SUCCEEDED(rv)) *aName = information.mStandardName;
  return rv;
}

nsresult nsLinuxTimeZones::ReadDaylightName(const nsPlatformZoneName& aZone,
                                            std::u16string* aName) {
  nsPlatformZoneInformation information;
  const nsresult rv = Describe(aZone.mOlsonName, &information);
  if (NS_FAILED(rv)) return rv;
  if (information.mDaylightName.empty()) return NS_ERROR_NOT_AVAILABLE;
  *aName = information.mDaylightName;
  return NS_OK;
}

nsresult nsLinuxTimeZones::WriteCurrentZone(const nsPlatformZoneName& aZone,
                                            const nsPlatformZoneInformation&, uint32_t* aError) {
  if (!HasZone(aZone.mOlsonName)) {
    *aError = ENOENT;
    return NS_ERROR_NOT_AVAILABLE;
  }
  const auto fail = [aError] {
    const int error = errno;
    *aError = static_cast<uint32_t>(error);
    return NS_ResultOfErrno(error);
  };
  // A link can't be made under a name that is taken, nor rewritten: made beside and moved over.
  const std::string target = std::string(kZoneData) + std::string(aZone.mOlsonName);
  const std::string fresh = mLocalTime + "." + std::to_string(getpid());
  unlink(fresh.c_str());
  if (symlink(target.c_str(), fresh.c_str()) != 0) return fail();
  if (rename(fresh.c_str(), mLocalTime.c_str()) != 0) {
    const nsresult rv = fail();
    unlink(fresh.c_str());
    return rv;
  }
  // The link decides, so that a name beside it that can't be written is no failure.
  if (access(mTimeZone.c_str(), F_OK) == 0)
    (void)NS_ReplaceFile(mTimeZone, std::string(aZone.mOlsonName) + "\n", 0644);
  const nsUniqueFd folder(open(fs::path(mLocalTime).parent_path().c_str(), O_RDONLY | O_CLOEXEC));
  return folder && fsync(folder.get()) == 0 ? NS_OK : fail();
}
