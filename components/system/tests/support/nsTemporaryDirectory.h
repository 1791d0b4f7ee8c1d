// A directory of a test's own, on the real file system, gone with it.
#pragma once

#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

#include "nsCOMPtr.h"
#include "nsILocalFile.h"

class nsTemporaryDirectory {
 public:
  nsTemporaryDirectory();
  ~nsTemporaryDirectory();
  nsTemporaryDirectory(const nsTemporaryDirectory&) = delete;
  nsTemporaryDirectory& operator=(const nsTemporaryDirectory&) = delete;

  const std::filesystem::path& Path() const { return mPath; }
  std::u16string Path16() const { return mPath.u16string(); }
  std::filesystem::path operator/(const std::filesystem::path& aName) const {
    return mPath / aName;
  }

  nsCOMPtr<nsILocalFile> File(std::string_view aName) const;
  /// Makes a file, or replaces what is in it.
  void Put(std::string_view aName, std::string_view aText) const;
  /// What is in a file; "(none)" when there is none.
  std::string Read(std::string_view aName) const;

  /// Adds to a file; makes it when it is not there.
  static void Write(const std::filesystem::path& aPath, std::string_view aText = "text");

 private:
  std::filesystem::path mPath;
};
