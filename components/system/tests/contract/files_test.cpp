// What every backend of the ports of files and of directory changes keeps to.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>

#include "nsInotifyDirectoryChanges.h"
#include "nsLinuxFiles.h"
#include "nsReaderThread.h"
#include "nsSimulatedFileSystem.h"
#include "nsTemporaryDirectory.h"

namespace {

/// Something to change and the two ports that tell of it. Names are relative to the root, with "/".
class Disk {
 public:
  virtual ~Disk() = default;
  virtual nsPlatformFiles& Files() = 0;
  virtual nsPlatformDirectoryChanges& Changes() = 0;
  virtual std::u16string Root() = 0;
  virtual void MakeDirectory(const std::u16string& aName) = 0;
  virtual void Write(const std::u16string& aName) = 0;
  virtual void MakeLink(const std::u16string& aName) = 0;
  virtual void Rename(const std::u16string& aName, const std::u16string& aNewName) = 0;
  virtual void Remove(const std::u16string& aName) = 0;

  std::u16string Native(std::u16string aName) {
    std::replace(aName.begin(), aName.end(), u'/', Files().Separator());
    return aName;
  }
  nsString Path(const std::u16string& aName = u"") {
    return aName.empty() ? Root() : Root() + Files().Separator() + Native(aName);
  }
};

class SimulatedDisk : public Disk {
 public:
  explicit SimulatedDisk(char16_t aSeparator = u'/')
      : mCalls(std::make_shared<nsSimulatedCalls>()),
        mFiles(std::make_shared<nsSimulatedFiles>(mCalls, aSeparator)),
        mChanges(mCalls, mFiles) {
    mFiles->MakeDirectory(Root());
  }
  nsPlatformFiles& Files() override { return *mFiles; }
  nsPlatformDirectoryChanges& Changes() override { return mChanges; }
  std::u16string Root() override { return mFiles->Separator() == u'/' ? u"/root" : u"C:\\root"; }
  void MakeDirectory(const std::u16string& aName) override { mFiles->MakeDirectory(Path(aName)); }
  void Write(const std::u16string& aName) override { mFiles->Write(Path(aName)); }
  void MakeLink(const std::u16string& aName) override {
    mFiles->MakeOther(Path(aName), nsPlatformFiles::kSymlink);
  }
  void Rename(const std::u16string& aName, const std::u16string& aNewName) override {
    mFiles->Rename(Path(aName), Path(aNewName));
  }
  void Remove(const std::u16string& aName) override { mFiles->Remove(Path(aName)); }

 private:
  nsSimulatedCallsRef mCalls;
  std::shared_ptr<nsSimulatedFiles> mFiles;
  nsSimulatedDirectoryChanges mChanges;
};

class OtherSeparatorDisk final : public SimulatedDisk {
 public:
  OtherSeparatorDisk() : SimulatedDisk(u'\\') {}
};

class NativeDisk final : public Disk {
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

template <class T>
class FilesContract : public testing::Test {
 protected:
  using Entries = std::map<std::u16string, nsPlatformFiles::Entry>;

  Entries List(const std::u16string& aName = u"") {
    Entries entries;
    std::unique_ptr<nsPlatformFiles::Listing> listing;
    EXPECT_EQ(mDisk.Files().OpenListing(mDisk.Path(aName), false, &listing), NS_OK);
    while (listing && listing->HasMore()) {
      nsPlatformFiles::Entry entry;
      EXPECT_EQ(listing->GetNext(&entry), NS_OK);
      EXPECT_TRUE(entries.emplace(entry.mLeafName.view(), entry).second) << "told twice";
    }
    return entries;
  }
  nsresult OpenListing(const std::u16string& aName) {
    std::unique_ptr<nsPlatformFiles::Listing> listing;
    return mDisk.Files().OpenListing(mDisk.Path(aName), false, &listing);
  }

  T mDisk;
};

using Disks = testing::Types<SimulatedDisk, OtherSeparatorDisk, NativeDisk>;
TYPED_TEST_SUITE(FilesContract, Disks);

TYPED_TEST(FilesContract, ListingMissesAnEntryOrItsKind) {
  this->mDisk.MakeDirectory(u"directory/below");
  this->mDisk.Write(u"file");
  this->mDisk.MakeLink(u"link");
  const auto entries = this->List();
  ASSERT_EQ(entries.size(), 3u);
  EXPECT_EQ(entries.at(u"directory").mKind, nsPlatformFiles::kDirectory);
  EXPECT_EQ(entries.at(u"file").mKind, nsPlatformFiles::kFile);
  EXPECT_EQ(entries.at(u"link").mKind, nsPlatformFiles::kSymlink);
  for (const auto& [name, entry] : entries) EXPECT_EQ(entry.mStatus, NS_OK);
}

TYPED_TEST(FilesContract, ListingGoesOnForEver) {
  std::unique_ptr<nsPlatformFiles::Listing> listing;
  ASSERT_EQ(this->mDisk.Files().OpenListing(this->mDisk.Path(), false, &listing), NS_OK);
  EXPECT_FALSE(listing->HasMore());
  nsPlatformFiles::Entry entry;
  EXPECT_EQ(listing->GetNext(&entry), NS_ERROR_UNEXPECTED);
}

TYPED_TEST(FilesContract, IdentityIsLostInAMove) {
  this->mDisk.MakeDirectory(u"a");
  this->mDisk.MakeDirectory(u"b");
  this->mDisk.Write(u"a/one");
  this->mDisk.Write(u"a/other");
  const auto before = this->List(u"a");
  ASSERT_TRUE(before.at(u"one").mHasINode);
  EXPECT_NE(before.at(u"one").mINode, before.at(u"other").mINode);
  this->mDisk.Rename(u"a/one", u"b/renamed");
  const auto after = this->List(u"b");
  EXPECT_EQ(after.at(u"renamed").mINode, before.at(u"one").mINode);
  EXPECT_EQ(after.at(u"renamed").mVolume, before.at(u"one").mVolume);
  EXPECT_EQ(after.at(u"renamed").mLastModify, before.at(u"one").mLastModify);
}

TYPED_TEST(FilesContract, WriteLeavesTheTimeAsItWas) {
  this->mDisk.Write(u"file");
  const auto before = this->List();
  this->mDisk.Write(u"file");
  EXPECT_NE(this->List().at(u"file").mLastModify, before.at(u"file").mLastModify);
}

TYPED_TEST(FilesContract, AbsenceIsTakenForAFailureOrTheOtherWayRound) {
  bool exists = true;
  EXPECT_EQ(this->mDisk.Files().Exists(this->mDisk.Path(u"none"), &exists), NS_OK);
  EXPECT_FALSE(exists);
  EXPECT_EQ(this->mDisk.Files().Exists(this->mDisk.Path(), &exists), NS_OK);
  EXPECT_TRUE(exists);
  this->mDisk.Write(u"file");
  this->mDisk.MakeLink(u"link");
  EXPECT_EQ(this->OpenListing(u"none"), NS_ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(this->OpenListing(u"file"), NS_ERROR_FILE_NOT_DIRECTORY);
  EXPECT_EQ(this->OpenListing(u"link"), NS_ERROR_FILE_NOT_DIRECTORY) << "links are followed";
  nsPlatformFiles::Entry entry;
  EXPECT_EQ(this->mDisk.Files().ReadEntry(this->mDisk.Path(u"none"), &entry),
            NS_ERROR_FILE_NOT_FOUND);
}

TYPED_TEST(FilesContract, PathIsCutOffAtAZero) {
  this->mDisk.Write(u"file");
  const std::u16string zero(1, u'\0');
  nsPlatformFiles& files = this->mDisk.Files();
  for (const std::u16string& name : {u"file" + zero, u"file" + zero + u"more", zero}) {
    bool exists = false;
    EXPECT_TRUE(NS_FAILED(files.Exists(this->mDisk.Path(name), &exists)) || !exists);
    EXPECT_FALSE(exists);
    nsPlatformFiles::Entry entry;
    EXPECT_TRUE(NS_FAILED(files.ReadEntry(this->mDisk.Path(name), &entry)));
  }
  std::unique_ptr<nsPlatformFiles::Listing> listing;
  const nsString root(std::u16string(this->mDisk.Path().view()) + zero + u"more");
  EXPECT_TRUE(NS_FAILED(files.OpenListing(root, true, &listing)));
}

TYPED_TEST(FilesContract, TrailingSeparatorChangesTheAnswer) {
  nsPlatformFiles::Entry plain, trailing;
  const nsString path = this->mDisk.Path();
  ASSERT_EQ(this->mDisk.Files().ReadEntry(path, &plain), NS_OK);
  nsString withSeparator(path);
  withSeparator += std::u16string(1, this->mDisk.Files().Separator());
  ASSERT_EQ(this->mDisk.Files().ReadEntry(withSeparator, &trailing), NS_OK);
  EXPECT_EQ(plain.mLeafName, trailing.mLeafName);
  EXPECT_EQ(plain.mINode, trailing.mINode);
}

template <class T>
class DirectoryChangesContract : public FilesContract<T> {
 protected:
  DirectoryChangesContract() : mReader(this->mDisk.Changes().NewReader()) {}

  std::unique_ptr<nsPlatformDirectoryReader> mReader;
};
TYPED_TEST_SUITE(DirectoryChangesContract, Disks);

struct NoCompletion final : nsPlatformDirectoryReader::Completion {
  void OnReadCompleted(nsresult, uint32_t) override { ADD_FAILURE() << "completed"; }
};

TYPED_TEST(DirectoryChangesContract, ChangeGoesWithoutItsName) {
  this->mDisk.MakeDirectory(u"a/b");
  ASSERT_EQ(NS_OpenReader(*this->mReader, this->mDisk.Files(), this->mDisk.Path()), NS_OK);
  nsReaderThread thread(*this->mReader);
  this->mDisk.Write(u"a/b/file");
  EXPECT_TRUE(thread.AwaitName(this->mDisk.Native(u"a/b/file")));
  this->mDisk.Rename(u"a/b/file", u"other");
  EXPECT_TRUE(thread.AwaitName(u"other"));
  thread.Clear();
  this->mDisk.Remove(u"other");
  EXPECT_TRUE(thread.AwaitName(u"other"));
}

TYPED_TEST(DirectoryChangesContract, ChangeWithoutAReadOutstandingIsLost) {
  ASSERT_EQ(this->mReader->Open(this->mDisk.Path()), NS_OK);
  this->mDisk.Write(u"early");
  nsReaderThread thread(*this->mReader);
  EXPECT_TRUE(thread.AwaitName(u"early"));
}

TYPED_TEST(DirectoryChangesContract, NamesThatOverfillTheBufferAreLost) {
  ASSERT_EQ(this->mReader->Open(this->mDisk.Path()), NS_OK);
  for (char16_t c = u'a'; c <= u'z'; ++c)
    this->mDisk.Write(u"a-rather-long-name-" + std::u16string(1, c));
  nsReaderThread thread(*this->mReader, 100);
  EXPECT_TRUE(thread.Await([](const nsReaderThread::Names& aNames) {
    return std::ranges::count_if(aNames, [](const auto& aName) { return aName.size() > 10; }) == 26;
  }));
}

TYPED_TEST(DirectoryChangesContract, NewDirectoryIsNotWatched) {
  ASSERT_EQ(this->mReader->Open(this->mDisk.Path()), NS_OK);
  nsReaderThread thread(*this->mReader);
  this->mDisk.MakeDirectory(u"new");
  ASSERT_TRUE(thread.AwaitName(u"new"));
  this->mDisk.Write(u"new/file");
  EXPECT_TRUE(thread.AwaitName(this->mDisk.Native(u"new/file")));
}

TYPED_TEST(DirectoryChangesContract, MovedDirectoryIsNamedByItsOldPath) {
  this->mDisk.MakeDirectory(u"old/below");
  ASSERT_EQ(NS_OpenReader(*this->mReader, this->mDisk.Files(), this->mDisk.Path()), NS_OK);
  nsReaderThread thread(*this->mReader);
  this->mDisk.Rename(u"old", u"new");
  ASSERT_TRUE(thread.AwaitName(u"new"));
  thread.Clear();
  this->mDisk.Write(u"new/below/file");
  EXPECT_TRUE(thread.AwaitName(this->mDisk.Native(u"new/below/file")));
  EXPECT_TRUE(thread.Await([](const nsReaderThread::Names& aNames) {
    return std::ranges::none_of(aNames,
                                [](const auto& aName) { return aName.starts_with(u"old"); });
  }));
}

TYPED_TEST(DirectoryChangesContract, ReminderWaitsForAChange) {
  this->mReader->Remind(u"before");
  ASSERT_EQ(this->mReader->Open(this->mDisk.Path()), NS_OK);
  nsReaderThread thread(*this->mReader);
  this->mReader->Remind(this->mDisk.Native(u"a/."));
  EXPECT_TRUE(thread.AwaitName(this->mDisk.Native(u"a/.")));
  EXPECT_TRUE(thread.Await([](const nsReaderThread::Names& aNames) {
    return !aNames.contains(u"before");
  })) << "of a time without a root";
}

TYPED_TEST(DirectoryChangesContract, WrongUseGoesUnnoticed) {
  NoCompletion completion;
  alignas(4) uint8_t buffer[64];
  const auto read = [&] {
    return this->mReader->Read(buffer, sizeof buffer, true, 0x53, &completion);
  };
  EXPECT_EQ(read(), NS_ERROR_NOT_INITIALIZED);
  this->mDisk.Write(u"file");
  EXPECT_EQ(this->mReader->Open(this->mDisk.Path(u"none")), NS_ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(this->mReader->Open(this->mDisk.Path(u"file")), NS_ERROR_FILE_NOT_DIRECTORY);
  EXPECT_FALSE(this->mReader->IsOpen());
  ASSERT_EQ(this->mReader->Open(this->mDisk.Path()), NS_OK);
  EXPECT_EQ(this->mReader->Open(this->mDisk.Path()), NS_ERROR_ALREADY_INITIALIZED);
  EXPECT_EQ(read(), NS_OK);
  EXPECT_EQ(read(), NS_ERROR_IN_PROGRESS);
}

TYPED_TEST(DirectoryChangesContract, ClosedReaderCompletesOrSleepsThroughAWake) {
  NoCompletion completion;
  alignas(4) uint8_t buffer[64];
  ASSERT_EQ(this->mReader->Open(this->mDisk.Path()), NS_OK);
  ASSERT_EQ(this->mReader->Read(buffer, sizeof buffer, true, 0x53, &completion), NS_OK);
  this->mReader->Close();
  this->mReader->Close();
  this->mDisk.Write(u"file");
  this->mReader->Wake();
  this->mReader->Wake();
  this->mReader->Wait();
  EXPECT_FALSE(this->mReader->Consume());
  EXPECT_EQ(this->mReader->Open(this->mDisk.Path()), NS_OK) << "a second watch is refused";
}

}  // namespace
