#include "nsFileGroup.h"

#include <grp.h>
#include <sys/stat.h>

std::string NS_GroupThatMay(const std::string& aPath, mode_t aRight) {
  struct stat status;
  if (stat(aPath.c_str(), &status) != 0 || !(status.st_mode & aRight)) return "";
  char buffer[4096];
  struct group entry, *found = nullptr;
  const bool known = getgrgid_r(status.st_gid, &entry, buffer, sizeof buffer, &found) == 0 && found;
  return " (members of the group \"" +
         (known ? std::string(found->gr_name) : std::to_string(status.st_gid)) + "\" may)";
}
