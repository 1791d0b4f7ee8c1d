// The port of fonts: those of the platform, and those that this process adds to them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "nsError.h"

/// Main thread.
class nsPlatformFonts {
 public:
  struct Face {
    std::string mFamily;  ///< Bytes as the platform has them.
    bool mItalic = false;
    uint16_t mWeight = 400;  ///< 1 to 1000.
  };

  virtual ~nsPlatformFonts() = default;

  /// The folders, as native paths, that hold the fonts of all programs. Not searched below.
  /// NS_ERROR_NOT_AVAILABLE when the platform does not tell.
  /// Windows: SHGetFolderPathA, CSIDL_FONTS.
  virtual nsresult ReadSystemFolders(std::vector<std::string>* aPaths) = 0;
  /// Makes the fonts of a file available to this process. *aCount is how many they are; a success
  /// with 0 does not happen: NS_ERROR_FAILURE for a file without a font that the platform can use.
  /// A file that was added already is added once more.
  /// Windows: AddFontResourceExA.
  virtual nsresult AddFontFile(const std::string& aPath, uint32_t* aCount) = 0;
  /// Undoes every AddFontFile of the same path. NS_ERROR_FAILURE when there is none to undo.
  /// Windows: RemoveFontResourceExA, until it fails.
  virtual nsresult RemoveFontFile(const std::string& aPath) = 0;
  /// The faces of a family, added ones included, in the platform's order. The platform may take
  /// names that differ in case or blanks for the same, so mFamily says what each is called. None is
  /// no error.
  /// Windows: EnumFontFamiliesExA.
  virtual nsresult ReadFaces(const std::string& aFamily, std::vector<Face>* aFaces) = 0;
};
