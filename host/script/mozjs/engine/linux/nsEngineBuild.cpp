#include "nsEngineBuild.h"

#include <js/AllocPolicy.h>
#include <js/BuildId.h>
#include <js/Vector.h>
#include <link.h>

#include <algorithm>
#include <cstring>
#include <span>
#include <string>
#include <string_view>

namespace {

constexpr size_t kAligned = 4;  // names and contents of notes
constexpr char kOwner[] = "GNU";

size_t Aligned(size_t aSize) { return (aSize + kAligned - 1) / kAligned * kAligned; }

// What the linker has made of the content of a library, or nothing.
std::string FindBuild(std::string_view aNotes) {
  ElfW(Nhdr) note;
  while (aNotes.size() >= sizeof note) {
    std::memcpy(&note, aNotes.data(), sizeof note);
    aNotes.remove_prefix(sizeof note);
    const size_t name = Aligned(note.n_namesz);
    if (name > aNotes.size() || note.n_descsz > aNotes.size() - name) break;
    const std::string_view content = aNotes.substr(name, note.n_descsz);
    if (note.n_type == NT_GNU_BUILD_ID && note.n_namesz == sizeof kOwner &&
        std::memcmp(aNotes.data(), kOwner, sizeof kOwner) == 0)
      return std::string(content);
    aNotes.remove_prefix(std::min(aNotes.size(), name + Aligned(note.n_descsz)));
  }
  return {};
}

int LookAt(dl_phdr_info* aObject, size_t, void* aBuild) {
  if (!std::strstr(aObject->dlpi_name, "/libmozjs")) return 0;
  for (const auto& header : std::span(aObject->dlpi_phdr, aObject->dlpi_phnum)) {
    if (header.p_type != PT_NOTE) continue;
    auto& build = *static_cast<std::string*>(aBuild);
    build = FindBuild(
        {reinterpret_cast<const char*>(aObject->dlpi_addr + header.p_vaddr), header.p_memsz});
    if (!build.empty()) return 1;
  }
  return 1;
}

}  // namespace

bool NS_MarkEngineBuild() {
  static const std::string sBuild = [] {
    std::string build;
    (void)dl_iterate_phdr(LookAt, &build);
    return build;
  }();
  if (sBuild.empty()) return false;
  JS::SetProcessBuildIdOp(
      [](JS::BuildIdCharVector* aBuild) { return aBuild->append(sBuild.data(), sBuild.size()); });
  return true;
}
