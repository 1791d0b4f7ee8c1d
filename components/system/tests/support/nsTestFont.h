// Font files made for tests: one letter, and the names and flags that are asked for.
#pragma once

#include <filesystem>
#include <string>

struct nsTestFont {
  std::string mFamily = "Test";
  std::string mStyle = "Regular";
  bool mBold = false;
  bool mItalic = false;

  /// A TrueType file.
  std::string Bytes() const;
};

/// A folder of the process's own, "fonts" in which is all that fontconfig knows; the same each
/// time. To be called before anything of the process has asked fontconfig for anything. Empty when
/// there is no place for it.
std::filesystem::path NS_TestFontFolder();
