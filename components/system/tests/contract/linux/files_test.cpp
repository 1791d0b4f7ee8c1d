// A directory of the test's own, for the contract suites.
#include <chrono>
#include <filesystem>

#include "../nsFilesContract.h"
#include "nsInotifyDirectoryChanges.h"
#include "nsLinuxFiles.h"
#include "nsTemporaryDirectory.h"

namespace {

class NativeDisk final : public nsDisk {
 public:
  nsPlatformFiles& Files() override { return mFiles; }
  nsPlatformDirectoryChanges& Changes() override { return mChanges; }
  std::u16string Root() override { return mDirectory.Path16(); }
  void MakeDirectory(const std::u16string& aName) override {
    std::filesystem::create_directories(At(aName));
  }
  void Write(const std::u16string& aName) override {
    nsTemporaryDirectory::Write(At(aName));
    // Clocks of file systems tick so slowly that two writes may bear the same time.
    std::filesystem::last_write_time(
        At(aName), std::filesystem::file_time_type(std::chrono::seconds(++mTime)));
  }
  void MakeLink(const std::u16string& aName) override {
    std::filesystem::create_symlink("/", At(aName));
  }
  void Rename(const std::u16string& aName, const std::u16string& aNewName) override {
    std::filesystem::rename(At(aName), At(aNewName));
  }
  void Remove(const std::u16string& aName) override { std::filesystem::remove_all(At(aName)); }

 private:
  std::filesystem::path At(const std::u16string& aName) { return mDirectory / aName; }

  nsTemporaryDirectory mDirectory;
  nsLinuxFiles mFiles;
  nsInotifyDirectoryChanges mChanges;
  int mTime = 0;
};

const auto kDisk = testing::Values(NS_ContractBackend<nsDisk, NativeDisk>("directory"));
INSTANTIATE_TEST_SUITE_P(Linux, FilesContract, kDisk, testing::PrintToStringParamName());
INSTANTIATE_TEST_SUITE_P(Linux, DirectoryChangesContract, kDisk, testing::PrintToStringParamName());

}  // namespace
