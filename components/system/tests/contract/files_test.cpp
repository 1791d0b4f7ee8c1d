// What every backend of the ports of files and of directory changes keeps to.
#include <algorithm>
#include <memory>

#include "nsFilesContract.h"
#include "nsReaderThread.h"
#include "nsSimulatedFileSystem.h"

namespace {

class SimulatedDisk : public nsDisk {
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

TEST_P(FilesContract, ListingMissesAnEntryOrItsKind) {
  mMachine->MakeDirectory(u"directory/below");
  mMachine->Write(u"file");
  mMachine->MakeLink(u"link");
  const auto entries = List();
  ASSERT_EQ(entries.size(), 3u);
  EXPECT_EQ(entries.at(u"directory").mKind, nsPlatformFiles::kDirectory);
  EXPECT_EQ(entries.at(u"file").mKind, nsPlatformFiles::kFile);
  EXPECT_EQ(entries.at(u"link").mKind, nsPlatformFiles::kSymlink);
  for (const auto& [name, entry] : entries) EXPECT_EQ(entry.mStatus, NS_OK);
}

TEST_P(FilesContract, ListingGoesOnForEver) {
  std::unique_ptr<nsPlatformFiles::Listing> listing;
  ASSERT_EQ(mMachine->Files().OpenListing(mMachine->Path(), false, &listing), NS_OK);
  EXPECT_FALSE(listing->HasMore());
  nsPlatformFiles::Entry entry;
  EXPECT_EQ(listing->GetNext(&entry), NS_ERROR_UNEXPECTED);
}

TEST_P(FilesContract, IdentityIsLostInAMove) {
  mMachine->MakeDirectory(u"a");
  mMachine->MakeDirectory(u"b");
  mMachine->Write(u"a/one");
  mMachine->Write(u"a/other");
  const auto before = List(u"a");
  ASSERT_TRUE(before.at(u"one").mHasINode);
  EXPECT_NE(before.at(u"one").mINode, before.at(u"other").mINode);
  mMachine->Rename(u"a/one", u"b/renamed");
  const auto after = List(u"b");
  EXPECT_EQ(after.at(u"renamed").mINode, before.at(u"one").mINode);
  EXPECT_EQ(after.at(u"renamed").mVolume, before.at(u"one").mVolume);
  EXPECT_EQ(after.at(u"renamed").mLastModify, before.at(u"one").mLastModify);
}

TEST_P(FilesContract, WriteLeavesTheTimeAsItWas) {
  mMachine->Write(u"file");
  const auto before = List();
  mMachine->Write(u"file");
  EXPECT_NE(List().at(u"file").mLastModify, before.at(u"file").mLastModify);
}

TEST_P(FilesContract, AbsenceIsTakenForAFailureOrTheOtherWayRound) {
  bool exists = true;
  EXPECT_EQ(mMachine->Files().Exists(mMachine->Path(u"none"), &exists), NS_OK);
  EXPECT_FALSE(exists);
  EXPECT_EQ(mMachine->Files().Exists(mMachine->Path(), &exists), NS_OK);
  EXPECT_TRUE(exists);
  mMachine->Write(u"file");
  mMachine->MakeLink(u"link");
  EXPECT_EQ(OpenListing(u"none"), NS_ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(OpenListing(u"file"), NS_ERROR_FILE_NOT_DIRECTORY);
  EXPECT_EQ(OpenListing(u"link"), NS_ERROR_FILE_NOT_DIRECTORY) << "links are followed";
  nsPlatformFiles::Entry entry;
  EXPECT_EQ(mMachine->Files().ReadEntry(mMachine->Path(u"none"), &entry), NS_ERROR_FILE_NOT_FOUND);
}

TEST_P(FilesContract, PathIsCutOffAtAZero) {
  mMachine->Write(u"file");
  const std::u16string zero(1, u'\0');
  nsPlatformFiles& files = mMachine->Files();
  for (const std::u16string& name : {u"file" + zero, u"file" + zero + u"more", zero}) {
    bool exists = false;
    EXPECT_TRUE(NS_FAILED(files.Exists(mMachine->Path(name), &exists)) || !exists);
    EXPECT_FALSE(exists);
    nsPlatformFiles::Entry entry;
    EXPECT_TRUE(NS_FAILED(files.ReadEntry(mMachine->Path(name), &entry)));
  }
  std::unique_ptr<nsPlatformFiles::Listing> listing;
  const nsString root(std::u16string(mMachine->Path().view()) + zero + u"more");
  EXPECT_TRUE(NS_FAILED(files.OpenListing(root, true, &listing)));
}

TEST_P(FilesContract, TrailingSeparatorChangesTheAnswer) {
  nsPlatformFiles::Entry plain, trailing;
  const nsString path = mMachine->Path();
  ASSERT_EQ(mMachine->Files().ReadEntry(path, &plain), NS_OK);
  nsString withSeparator(path);
  withSeparator += std::u16string(1, mMachine->Files().Separator());
  ASSERT_EQ(mMachine->Files().ReadEntry(withSeparator, &trailing), NS_OK);
  EXPECT_EQ(plain.mLeafName, trailing.mLeafName);
  EXPECT_EQ(plain.mINode, trailing.mINode);
}

struct NoCompletion final : nsPlatformDirectoryReader::Completion {
  void OnReadCompleted(nsresult, uint32_t) override { ADD_FAILURE() << "completed"; }
};

TEST_P(DirectoryChangesContract, ChangeGoesWithoutItsName) {
  mMachine->MakeDirectory(u"a/b");
  ASSERT_EQ(NS_OpenReader(*mReader, mMachine->Files(), mMachine->Path()), NS_OK);
  nsReaderThread thread(*mReader);
  mMachine->Write(u"a/b/file");
  EXPECT_TRUE(thread.AwaitName(mMachine->Native(u"a/b/file")));
  mMachine->Rename(u"a/b/file", u"other");
  EXPECT_TRUE(thread.AwaitName(u"other"));
  thread.Clear();
  mMachine->Remove(u"other");
  EXPECT_TRUE(thread.AwaitName(u"other"));
}

TEST_P(DirectoryChangesContract, ChangeWithoutAReadOutstandingIsLost) {
  ASSERT_EQ(mReader->Open(mMachine->Path()), NS_OK);
  mMachine->Write(u"early");
  nsReaderThread thread(*mReader);
  EXPECT_TRUE(thread.AwaitName(u"early"));
}

TEST_P(DirectoryChangesContract, NamesThatOverfillTheBufferAreLost) {
  ASSERT_EQ(mReader->Open(mMachine->Path()), NS_OK);
  for (char16_t c = u'a'; c <= u'z'; ++c)
    mMachine->Write(u"a-rather-long-name-" + std::u16string(1, c));
  nsReaderThread thread(*mReader, 100);
  EXPECT_TRUE(thread.Await([](const nsReaderThread::Names& aNames) {
    return std::ranges::count_if(aNames, [](const auto& aName) { return aName.size() > 10; }) == 26;
  }));
}

TEST_P(DirectoryChangesContract, NewDirectoryIsNotWatched) {
  ASSERT_EQ(mReader->Open(mMachine->Path()), NS_OK);
  nsReaderThread thread(*mReader);
  mMachine->MakeDirectory(u"new");
  ASSERT_TRUE(thread.AwaitName(u"new"));
  mMachine->Write(u"new/file");
  EXPECT_TRUE(thread.AwaitName(mMachine->Native(u"new/file")));
}

TEST_P(DirectoryChangesContract, MovedDirectoryIsNamedByItsOldPath) {
  mMachine->MakeDirectory(u"old/below");
  ASSERT_EQ(NS_OpenReader(*mReader, mMachine->Files(), mMachine->Path()), NS_OK);
  nsReaderThread thread(*mReader);
  mMachine->Rename(u"old", u"new");
  ASSERT_TRUE(thread.AwaitName(u"new"));
  thread.Clear();
  mMachine->Write(u"new/below/file");
  EXPECT_TRUE(thread.AwaitName(mMachine->Native(u"new/below/file")));
  EXPECT_TRUE(thread.Await([](const nsReaderThread::Names& aNames) {
    return std::ranges::none_of(aNames,
                                [](const auto& aName) { return aName.starts_with(u"old"); });
  }));
}

TEST_P(DirectoryChangesContract, ReminderWaitsForAChange) {
  mReader->Remind(u"before");
  ASSERT_EQ(mReader->Open(mMachine->Path()), NS_OK);
  nsReaderThread thread(*mReader);
  mReader->Remind(mMachine->Native(u"a/."));
  EXPECT_TRUE(thread.AwaitName(mMachine->Native(u"a/.")));
  EXPECT_TRUE(thread.Await([](const nsReaderThread::Names& aNames) {
    return !aNames.contains(u"before");
  })) << "of a time without a root";
}

TEST_P(DirectoryChangesContract, WrongUseGoesUnnoticed) {
  NoCompletion completion;
  alignas(4) uint8_t buffer[64];
  const auto read = [&] { return mReader->Read(buffer, sizeof buffer, true, 0x53, &completion); };
  EXPECT_EQ(read(), NS_ERROR_NOT_INITIALIZED);
  mMachine->Write(u"file");
  EXPECT_EQ(mReader->Open(mMachine->Path(u"none")), NS_ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(mReader->Open(mMachine->Path(u"file")), NS_ERROR_FILE_NOT_DIRECTORY);
  EXPECT_FALSE(mReader->IsOpen());
  ASSERT_EQ(mReader->Open(mMachine->Path()), NS_OK);
  EXPECT_EQ(mReader->Open(mMachine->Path()), NS_ERROR_ALREADY_INITIALIZED);
  EXPECT_EQ(read(), NS_OK);
  EXPECT_EQ(read(), NS_ERROR_IN_PROGRESS);
}

TEST_P(DirectoryChangesContract, ClosedReaderCompletesOrSleepsThroughAWake) {
  NoCompletion completion;
  alignas(4) uint8_t buffer[64];
  ASSERT_EQ(mReader->Open(mMachine->Path()), NS_OK);
  ASSERT_EQ(mReader->Read(buffer, sizeof buffer, true, 0x53, &completion), NS_OK);
  mReader->Close();
  mReader->Close();
  mMachine->Write(u"file");
  mReader->Wake();
  mReader->Wake();
  mReader->Wait();
  EXPECT_FALSE(mReader->Consume());
  EXPECT_EQ(mReader->Open(mMachine->Path()), NS_OK) << "a second watch is refused";
}

const auto kDisks =
    testing::Values(NS_ContractBackend<nsDisk, SimulatedDisk>("machine"),
                    NS_ContractBackend<nsDisk, OtherSeparatorDisk>("otherSeparator"));
INSTANTIATE_TEST_SUITE_P(Simulated, FilesContract, kDisks, testing::PrintToStringParamName());
INSTANTIATE_TEST_SUITE_P(Simulated, DirectoryChangesContract, kDisks,
                         testing::PrintToStringParamName());

}  // namespace
