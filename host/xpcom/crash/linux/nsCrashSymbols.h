// From addresses of this process to the names of functions, by means that a signal handler may
// use: no allocation, no lock, nothing of the C library but system calls.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

/// What the process has mapped, as it was when last read. For one thread at a time.
class nsCrashMaps {
 public:
  struct Mapping {
    uintptr_t mStart = 0, mEnd = 0;
    uint64_t mOffset = 0;  ///< In the file.
    bool mExecutable = false;
    bool mWritable = false;
    std::string_view mPath;  ///< Empty for memory that is no file's; closed by a zero.
  };

  /// Reads /proc/self/maps; what there is no room for is left out.
  void Read();
  size_t Count() const { return mCount; }
  const Mapping& operator[](size_t aIndex) const { return mMappings[aIndex]; }
  /// Null when the address is in none.
  const Mapping* Find(uintptr_t aAddress) const;

 private:
  static constexpr size_t kMaximumMappings = 4096;
  static constexpr size_t kMaximumText = 512 * 1024;

  bool ParseLine(char* aBegin, char* aEnd);

  Mapping mMappings[kMaximumMappings] = {};
  size_t mCount = 0;
  char mText[kMaximumText] = {};
};

/// The function of an ELF file, any bytes of which may be damaged, that has the code of a file
/// offset. aName takes up the name, closed by a zero and cut where it is too long; *aInto is how
/// far into the function that is. False when no symbol tells.
bool NS_FindFunction(const char* aPath, uint64_t aFileOffset, char* aName, size_t aCapacity,
                     uint64_t* aInto);

/// The build's identifier in an ELF file, which may be damaged: how many bytes of it there are; 0
/// when it has none, or one that is longer than there is room.
size_t NS_FindBuildId(const char* aPath, uint8_t* aId, size_t aCapacity);

/// "nsSystemMaintenance::CrashProcess" out of "_ZN19nsSystemMaintenance12CrashProcessEv"; names of
/// another form as they are. Returns the length; aOut is closed by a zero.
size_t NS_SimplifyName(std::string_view aMangled, char* aOut, size_t aCapacity);
