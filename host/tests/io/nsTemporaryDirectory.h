// A directory of a test's own, gone with it.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "nsCOMPtr.h"
#include "nsILocalFile.h"
#include "nsString.h"
#include "nsXPCOM.h"

class nsTemporaryDirectory {
 public:
  nsTemporaryDirectory() {
    std::string name = (std::filesystem::temp_directory_path() / "vorel-io-XXXXXX").native();
    mPath = mkdtemp(name.data());
  }
  nsTemporaryDirectory(const nsTemporaryDirectory&) = delete;
  nsTemporaryDirectory& operator=(const nsTemporaryDirectory&) = delete;
  ~nsTemporaryDirectory() {
    std::error_code error;
    std::filesystem::remove_all(mPath, error);
  }
  const std::filesystem::path& Path() const { return mPath; }
  std::string operator/(std::string_view aName) const { return (mPath / aName).native(); }

  nsCOMPtr<nsILocalFile> File(std::string_view aName) const {
    nsCOMPtr<nsILocalFile> file;
    EXPECT_EQ(NS_OK, NS_NewNativeLocalFile(nsCString(*this / aName), false, file.getter_AddRefs()));
    return file;
  }
  void Write(std::string_view aName, std::string_view aText) const {
    std::ofstream(*this / aName, std::ios::binary) << aText;
  }
  /// What is in a file; "(none)" when there is none.
  std::string Read(std::string_view aName) const {
    std::ifstream file(*this / aName, std::ios::binary);
    if (!file) return "(none)";
    return {std::istreambuf_iterator<char>(file), {}};
  }

 private:
  std::filesystem::path mPath;
};
