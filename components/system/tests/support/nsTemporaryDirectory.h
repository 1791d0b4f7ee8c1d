// A directory of a test's own, on the real file system.
#pragma once

#include <filesystem>
#include <fstream>
#include <string>

class nsTemporaryDirectory {
 public:
  nsTemporaryDirectory() {
    std::string name = (std::filesystem::temp_directory_path() / "vorel-test-XXXXXX").string();
    mPath = mkdtemp(name.data());
  }
  ~nsTemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(mPath, ignored);
  }
  nsTemporaryDirectory(const nsTemporaryDirectory&) = delete;
  nsTemporaryDirectory& operator=(const nsTemporaryDirectory&) = delete;

  const std::filesystem::path& Path() const { return mPath; }
  std::u16string Path16() const { return mPath.u16string(); }
  std::filesystem::path operator/(const std::filesystem::path& aName) const {
    return mPath / aName;
  }

  static void Write(const std::filesystem::path& aPath, const std::string& aText = "text") {
    std::ofstream(aPath, std::ios::app) << aText;
  }

 private:
  std::filesystem::path mPath;
};
