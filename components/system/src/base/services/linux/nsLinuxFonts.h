#pragma once

#include "nsPlatformFonts.h"

/// Fontconfig: its directories, its families, and its application fonts, which everything in this
/// process that draws text by it then has.
class nsLinuxFonts final : public nsPlatformFonts {
 public:
  nsresult ReadSystemFolders(std::vector<std::string>* aPaths) override;
  nsresult AddFontFile(const std::string& aPath, uint32_t* aCount) override;
  nsresult RemoveFontFile(const std::string& aPath) override;
  nsresult ReadFaces(const std::string& aFamily, std::vector<Face>* aFaces) override;
};
