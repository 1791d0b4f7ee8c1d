// A snapshot as bytes: what one run of a watch leaves for the next.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

class nsSystemFileSystemNode;

/// FNV-1a of 64 bits.
uint64_t NS_Checksum(std::string_view aBytes);

/// What a snapshot is of.
struct nsSystemFileSystemOrigin {
  std::u16string_view mRootPath;
  uint64_t mVolume;        ///< The root's, as nsPlatformFiles::ReadVolume tells it; 0: not known.
  uint16_t mNumber;        ///< The tree's own number for the root's volume.
  uint16_t mOtherNumbers;  ///< For what can't be known to be on the same volume again.
};

/// Everything below the root, with a version and a checksum.
std::string NS_FormatSnapshot(const nsSystemFileSystemOrigin& aOrigin,
                              const nsSystemFileSystemNode& aRoot);

/// Puts everything below the root that the bytes tell of. Identities count only for what was on the
/// root's volume, if that is the same still. Takes any bytes: false, and the root may hold some of
/// it, for what is damaged, of another version or of another root.
bool NS_ParseSnapshot(std::string_view aBytes, const nsSystemFileSystemOrigin& aOrigin,
                      nsSystemFileSystemNode* aRoot);
