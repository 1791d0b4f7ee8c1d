#include "nsTemporaryDirectory.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <fstream>
#include <iterator>

#include "nsString.h"
#include "nsXPCOM.h"

nsTemporaryDirectory::nsTemporaryDirectory() {
  std::string name = (std::filesystem::temp_directory_path() / "vorel-test-XXXXXX").native();
  mPath = mkdtemp(name.data());
}

nsTemporaryDirectory::~nsTemporaryDirectory() {
  std::error_code ignored;
  std::filesystem::remove_all(mPath, ignored);
}

nsCOMPtr<nsILocalFile> nsTemporaryDirectory::File(std::string_view aName) const {
  nsCOMPtr<nsILocalFile> file;
  EXPECT_EQ(NS_OK, NS_NewNativeLocalFile(nsCString((mPath / aName).native()), false,
                                         file.getter_AddRefs()));
  return file;
}

void nsTemporaryDirectory::Put(std::string_view aName, std::string_view aText) const {
  std::ofstream(mPath / aName, std::ios::binary) << aText;
}

std::string nsTemporaryDirectory::Read(std::string_view aName) const {
  std::ifstream file(mPath / aName, std::ios::binary);
  if (!file) return "(none)";
  return {std::istreambuf_iterator<char>(file), {}};
}

void nsTemporaryDirectory::Write(const std::filesystem::path& aPath, std::string_view aText) {
  std::ofstream(aPath, std::ios::app) << aText;
}
