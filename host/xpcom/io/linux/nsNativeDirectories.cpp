#include "nsNativeDirectories.h"

#include <dlfcn.h>
#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "nsXPCOM.h"

namespace fs = std::filesystem;

namespace {

std::string Variable(const char* aName) {
  const char* value = std::getenv(aName);
  return value && *value == '/' ? value : "";
}

std::string Home() {
  if (const std::string home = Variable("HOME"); !home.empty()) return home;
  char buffer[16384];
  passwd entry;
  passwd* found = nullptr;
  (void)getpwuid_r(getuid(), &entry, buffer, sizeof buffer, &found);
  return found ? found->pw_dir : "";
}

std::string Temporary() {
  for (const char* name : {"TMPDIR", "TMP", "TEMP"})
    if (const std::string directory = Variable(name); !directory.empty()) return directory;
  return "/tmp";
}

std::string ProgramDirectory() {
  std::error_code error;
  return fs::read_symlink("/proc/self/exe", error).parent_path().native();
}

std::string HostLibrary() {
  Dl_info info;
  if (!dladdr(reinterpret_cast<const void*>(&NS_NewNativeLocalFile), &info)) return "";
  std::error_code error;
  return fs::canonical(info.dli_fname, error).native();
}

std::string In(const std::string& aDirectory, const char* aName) {
  return aDirectory.empty() ? "" : (fs::path(aDirectory) / aName).native();
}

struct BuiltIn {
  std::string_view mKey;
  std::string (*mFind)();
};
constexpr BuiltIn kBuiltIn[] = {
    {"Home", Home},
    {"TmpD", Temporary},
    {"CurWorkD",
     [] {
       std::error_code error;
       return fs::current_path(error).native();
     }},
    {"Desk", [] { return In(Home(), "Desktop"); }},
    {"CurProcD", ProgramDirectory},
    {"XCurProcD", ProgramDirectory},
    {"GreD", [] { return fs::path(HostLibrary()).parent_path().native(); }},
    {"XpcomLib", HostLibrary},
};

}  // namespace

std::string NS_NativeDirectory(std::string_view aKey) {
  for (const BuiltIn& each : kBuiltIn)
    if (each.mKey == aKey) return each.mFind();
  return "";
}
