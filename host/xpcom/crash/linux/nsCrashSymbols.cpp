#include "nsCrashSymbols.h"

#include <elf.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

namespace {

// Reads hexadecimal digits up to another character, which it goes past.
uint64_t EatNumber(char*& aAt, const char* aEnd) {
  uint64_t value = 0;
  while (aAt < aEnd) {
    const char digit = *aAt++;
    if (digit >= '0' && digit <= '9')
      value = value << 4 | static_cast<unsigned>(digit - '0');
    else if (digit >= 'a' && digit <= 'f')
      value = value << 4 | static_cast<unsigned>(digit - 'a' + 10);
    else
      break;
  }
  return value;
}

// A file in memory, every access to which is checked.
class MappedFile {
 public:
  explicit MappedFile(const char* aPath) {
    const int file = open(aPath, O_RDONLY | O_CLOEXEC);
    if (file < 0) return;
    struct stat status;
    if (fstat(file, &status) == 0 && S_ISREG(status.st_mode) && status.st_size > 0) {
      void* data =
          mmap(nullptr, static_cast<size_t>(status.st_size), PROT_READ, MAP_PRIVATE, file, 0);
      if (data != MAP_FAILED) {
        mData = static_cast<const char*>(data);
        mSize = static_cast<size_t>(status.st_size);
      }
    }
    close(file);
  }
  MappedFile(const MappedFile&) = delete;
  MappedFile& operator=(const MappedFile&) = delete;
  ~MappedFile() {
    if (mData) munmap(const_cast<char*>(mData), mSize);
  }

  template <class T>
  bool Read(uint64_t aOffset, T* aOut) const {
    if (aOffset > mSize || mSize - aOffset < sizeof(T)) return false;
    std::memcpy(aOut, mData + aOffset, sizeof(T));
    return true;
  }
  // The text there, up to its zero; empty when it has none.
  std::string_view Text(uint64_t aOffset) const {
    if (aOffset >= mSize) return {};
    const void* end = std::memchr(mData + aOffset, '\0', mSize - aOffset);
    if (!end) return {};
    return {mData + aOffset,
            static_cast<size_t>(static_cast<const char*>(end) - (mData + aOffset))};
  }

 private:
  const char* mData = nullptr;
  size_t mSize = 0;
};

// An address as the file's symbols count it.
bool ToVirtualAddress(const MappedFile& aFile, const Elf64_Ehdr& aHeader, uint64_t aOffset,
                      uint64_t* aAddress) {
  for (unsigned i = 0; i < aHeader.e_phnum; ++i) {
    Elf64_Phdr segment;
    if (!aFile.Read(aHeader.e_phoff + uint64_t{i} * sizeof segment, &segment)) return false;
    if (segment.p_type != PT_LOAD || aOffset < segment.p_offset ||
        aOffset - segment.p_offset >= segment.p_filesz)
      continue;
    *aAddress = segment.p_vaddr + (aOffset - segment.p_offset);
    return true;
  }
  return false;
}

bool FindSymbol(const MappedFile& aFile, const Elf64_Shdr& aTable, const Elf64_Shdr& aNames,
                uint64_t aAddress, std::string_view* aName, uint64_t* aInto) {
  for (uint64_t at = 0; at + sizeof(Elf64_Sym) <= aTable.sh_size; at += sizeof(Elf64_Sym)) {
    Elf64_Sym symbol;
    if (!aFile.Read(aTable.sh_offset + at, &symbol)) return false;
    if (ELF64_ST_TYPE(symbol.st_info) != STT_FUNC || aAddress < symbol.st_value ||
        aAddress - symbol.st_value >= symbol.st_size)
      continue;
    *aName = aFile.Text(aNames.sh_offset + symbol.st_name);
    *aInto = aAddress - symbol.st_value;
    return !aName->empty();
  }
  return false;
}

}  // namespace

void nsCrashMaps::Read() {
  mCount = 0;
  const int file = open("/proc/self/maps", O_RDONLY | O_CLOEXEC);
  if (file < 0) return;
  size_t length = 0;
  while (length < kMaximumText - 1) {
    const ssize_t got = read(file, mText + length, kMaximumText - 1 - length);
    if (got <= 0) break;
    length += static_cast<size_t>(got);
  }
  close(file);
  for (char* line = mText; line < mText + length;) {
    char* const end = std::find(line, mText + length, '\n');
    if (end == mText + length || !ParseLine(line, end)) return;
    line = end + 1;
  }
}

// "7f0000000000-7f0000001000 r-xp 00000000 08:01 12345    /usr/lib/libfoo.so"
bool nsCrashMaps::ParseLine(char* aBegin, char* aEnd) {
  if (mCount == kMaximumMappings) return false;
  Mapping& mapping = mMappings[mCount];
  char* at = aBegin;
  mapping.mStart = EatNumber(at, aEnd);
  mapping.mEnd = EatNumber(at, aEnd);
  if (aEnd - at < 5) return true;
  mapping.mWritable = at[1] == 'w';
  mapping.mExecutable = at[2] == 'x';
  at += 5;
  mapping.mOffset = EatNumber(at, aEnd);
  *aEnd = '\0';
  char* const path = std::find(at, aEnd, '/');
  mapping.mPath = {path, static_cast<size_t>(aEnd - path)};
  ++mCount;
  return true;
}

const nsCrashMaps::Mapping* nsCrashMaps::Find(uintptr_t aAddress) const {
  for (size_t i = 0; i < mCount; ++i)
    if (aAddress >= mMappings[i].mStart && aAddress < mMappings[i].mEnd) return &mMappings[i];
  return nullptr;
}

bool NS_FindFunction(const char* aPath, uint64_t aFileOffset, char* aName, size_t aCapacity,
                     uint64_t* aInto) {
  const MappedFile file(aPath);
  Elf64_Ehdr header;
  uint64_t address = 0;
  if (!file.Read(0, &header) || std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0 ||
      header.e_ident[EI_CLASS] != ELFCLASS64 ||
      !ToVirtualAddress(file, header, aFileOffset, &address))
    return false;
  // All functions first; a stripped file has those only that it offers to others.
  for (const uint32_t wanted : {uint32_t{SHT_SYMTAB}, uint32_t{SHT_DYNSYM}}) {
    for (unsigned i = 0; i < header.e_shnum; ++i) {
      Elf64_Shdr table, names;
      std::string_view name;
      if (!file.Read(header.e_shoff + uint64_t{i} * sizeof table, &table)) return false;
      if (table.sh_type != wanted ||
          !file.Read(header.e_shoff + uint64_t{table.sh_link} * sizeof names, &names) ||
          !FindSymbol(file, table, names, address, &name, aInto))
        continue;
      NS_SimplifyName(name, aName, aCapacity);
      return true;
    }
  }
  return false;
}

size_t NS_FindBuildId(const char* aPath, uint8_t* aId, size_t aCapacity) {
  const MappedFile file(aPath);
  Elf64_Ehdr header;
  if (!file.Read(0, &header) || std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0 ||
      header.e_ident[EI_CLASS] != ELFCLASS64)
    return 0;
  for (unsigned i = 0; i < header.e_phnum; ++i) {
    Elf64_Phdr segment;
    if (!file.Read(header.e_phoff + uint64_t{i} * sizeof segment, &segment)) return 0;
    if (segment.p_type != PT_NOTE) continue;
    const uint64_t end = segment.p_offset + std::min<uint64_t>(segment.p_filesz, 64 * 1024);
    Elf64_Nhdr note;
    for (uint64_t at = segment.p_offset; at < end && file.Read(at, &note);) {
      const auto padded = [](uint64_t aSize) { return (aSize + 3) & ~uint64_t{3}; };
      at += sizeof note;
      if (note.n_type == NT_GNU_BUILD_ID && note.n_namesz == sizeof ELF_NOTE_GNU &&
          file.Text(at) == ELF_NOTE_GNU && note.n_descsz <= aCapacity) {
        for (size_t byte = 0; byte < note.n_descsz; ++byte)
          if (!file.Read(at + padded(note.n_namesz) + byte, &aId[byte])) return 0;
        return note.n_descsz;
      }
      at += padded(note.n_namesz) + padded(note.n_descsz);
    }
  }
  return 0;
}

size_t NS_SimplifyName(std::string_view aMangled, char* aOut, size_t aCapacity) {
  size_t length = 0;
  const auto add = [&](std::string_view aText) {
    const size_t room = aCapacity - 1 - length;
    const size_t taken = std::min(aText.size(), room);
    std::memcpy(aOut + length, aText.data(), taken);
    length += taken;
  };
  std::string_view rest = aMangled;
  const bool nested = rest.starts_with("_ZN");
  if (nested) {
    rest.remove_prefix(3);
    if (rest.starts_with('K')) rest.remove_prefix(1);
  } else if (rest.starts_with("_Z")) {
    rest.remove_prefix(2);
  }
  // Names are preceded by their lengths; anything else, templates above all, is more than this
  // knows.
  bool whole = rest.size() < aMangled.size();
  for (bool first = true; whole; first = false) {
    size_t size = 0;
    while (!rest.empty() && rest[0] >= '0' && rest[0] <= '9' && size < 4096) {
      size = size * 10 + static_cast<size_t>(rest[0] - '0');
      rest.remove_prefix(1);
    }
    if (size == 0 || size > rest.size()) {
      whole = !first && nested && rest.starts_with('E');
      break;
    }
    if (!first) add("::");
    add(rest.substr(0, size));
    rest.remove_prefix(size);
    if (!nested) break;
  }
  if (!whole) {
    length = 0;
    add(aMangled);
  }
  aOut[length] = '\0';
  return length;
}
