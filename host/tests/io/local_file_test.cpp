// Files and directories.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <set>

#include "nsISimpleEnumerator.h"
#include "nsString.h"
#include "nsTemporaryDirectory.h"
#include "nsXPCOM.h"

namespace {

std::string PathOf(nsIFile* aFile) {
  nsCString path;
  EXPECT_EQ(NS_OK, aFile->GetNativePath(path));
  return std::string(path.view());
}

bool Says(nsIFile* aFile, nsresult (nsIFile::*aQuestion)(bool*)) {
  bool answer = false;
  EXPECT_EQ(NS_OK, (aFile->*aQuestion)(&answer));
  return answer;
}

nsCOMPtr<nsILocalFile> At(std::string_view aPath) {
  nsCOMPtr<nsILocalFile> file;
  EXPECT_EQ(NS_OK, NS_NewNativeLocalFile(nsCString(aPath), false, file.getter_AddRefs()));
  return file;
}

class LocalFile : public testing::Test {
 protected:
  nsTemporaryDirectory mDir;
};

TEST_F(LocalFile, AnAppendedNameLeavesTheDirectory) {
  const auto file = At("/a//");
  EXPECT_EQ("/a", PathOf(file.get()));
  for (const std::string_view name :
       {std::string_view(".."), std::string_view("b/c"), std::string_view("b\0c", 3)})
    EXPECT_EQ(NS_ERROR_FILE_UNRECOGNIZED_PATH, file->AppendNative(nsCString(name))) << name;
  for (const char* path : {"/b", "b/../c", ".."})
    EXPECT_EQ(NS_ERROR_FILE_UNRECOGNIZED_PATH, file->AppendRelativeNativePath(nsCString(path)))
        << path;
  EXPECT_EQ(NS_ERROR_FILE_UNRECOGNIZED_PATH, file->SetNativeLeafName(nsCString("x/y")));
  EXPECT_EQ("/a", PathOf(file.get()));
  EXPECT_EQ(NS_OK, file->Append(nsString(u"\u00e9")));
  EXPECT_EQ(NS_OK, file->AppendRelativeNativePath(nsCString("b//c/")));
  EXPECT_EQ("/a/\xc3\xa9/b/c", PathOf(file.get()));
  EXPECT_EQ(NS_OK, file->SetLeafName(nsString(u"d")));
  nsString path;
  EXPECT_EQ(NS_OK, file->GetPath(path));
  EXPECT_EQ(u"/a/\u00e9/b/d", path);
}

TEST_F(LocalFile, ARelativeOrEmptyPathIsTaken) {
  nsCOMPtr<nsILocalFile> file;
  EXPECT_EQ(NS_ERROR_FILE_UNRECOGNIZED_PATH,
            NS_NewLocalFile(nsString(u"a/b"), false, file.getter_AddRefs()));
  EXPECT_EQ(
      NS_ERROR_FILE_UNRECOGNIZED_PATH,
      NS_NewLocalFile(nsString(std::u16string_view(u"/a\0b", 4)), false, file.getter_AddRefs()));
  EXPECT_EQ(nullptr, file.get());
  ASSERT_EQ(NS_OK, NS_NewLocalFile(nsString(), false, file.getter_AddRefs()));
  bool answer = true;
  nsCString path;
  EXPECT_EQ(NS_ERROR_NOT_INITIALIZED, file->Exists(&answer));
  EXPECT_EQ(NS_ERROR_NOT_INITIALIZED, file->GetNativePath(path));
  EXPECT_EQ(NS_ERROR_NOT_INITIALIZED, file->Remove(true));
  EXPECT_TRUE(answer);
}

TEST_F(LocalFile, TheRootOrItsChildrenAreMishandled) {
  const auto root = At("/"), child = At("/a"), alike = At("/ab"), below = At("/a/b");
  EXPECT_EQ("/", PathOf(root.get()));
  nsCOMPtr<nsIFile> parent = child;
  EXPECT_EQ(NS_OK, root->GetParent(parent.getter_AddRefs()));
  EXPECT_EQ(nullptr, parent.get());
  EXPECT_EQ(NS_OK, child->GetParent(parent.getter_AddRefs()));
  EXPECT_EQ("/", PathOf(parent.get()));
  const auto contains = [](nsIFile* aA, nsIFile* aB, bool aRecur) {
    bool answer = false;
    EXPECT_EQ(NS_OK, aA->Contains(aB, aRecur, &answer));
    return answer;
  };
  EXPECT_TRUE(contains(root.get(), below.get(), true));
  EXPECT_FALSE(contains(root.get(), below.get(), false));
  EXPECT_TRUE(contains(root.get(), child.get(), false));
  EXPECT_FALSE(contains(child.get(), alike.get(), true));
  EXPECT_FALSE(contains(child.get(), child.get(), true));
  nsCString way;
  EXPECT_EQ(NS_OK, alike->GetRelativeDescriptor(below.get(), way));
  EXPECT_EQ("../../ab", way);
  EXPECT_EQ(NS_OK, root->SetRelativeDescriptor(below.get(), way));
  EXPECT_EQ("/ab", PathOf(root.get()));
}

TEST_F(LocalFile, ANameThatIsNotUtf8IsLost) {
  mDir.Put("bad\xff.txt", "x");
  nsCOMPtr<nsISimpleEnumerator> entries;
  ASSERT_EQ(NS_OK, mDir.File("")->GetDirectoryEntries(entries.getter_AddRefs()));
  nsCOMPtr<nsISupports> entry;
  ASSERT_EQ(NS_OK, entries->GetNext(entry.getter_AddRefs()));
  const auto file = do_QueryInterface<nsIFile>(entry);
  EXPECT_TRUE(Says(file.get(), &nsIFile::Exists));
  nsString leaf;
  EXPECT_EQ(NS_OK, file->GetLeafName(leaf));
  EXPECT_EQ(std::u16string_view(u"bad\xDCFF.txt"), leaf.view());
  // What is told can be opened, by path and by name.
  nsString path;
  EXPECT_EQ(NS_OK, file->GetPath(path));
  nsCOMPtr<nsILocalFile> again;
  ASSERT_EQ(NS_OK, NS_NewLocalFile(path, true, again.getter_AddRefs()));
  EXPECT_TRUE(Says(again.get(), &nsIFile::Exists));
  const auto named = mDir.File("");
  ASSERT_EQ(NS_OK, named->Append(leaf));
  EXPECT_TRUE(Says(named.get(), &nsIFile::Exists));
}

TEST_F(LocalFile, AnEntryIsMissingOrTakenForAnotherKind) {
  mDir.Put("file", "12345");
  std::filesystem::create_directory(mDir / "dir");
  std::filesystem::create_symlink("file", mDir / "link");
  std::filesystem::create_symlink("nowhere", mDir / "broken");
  ASSERT_EQ(0, mkfifo((mDir / ".fifo").c_str(), 0600));
  std::set<std::string> seen;
  nsCOMPtr<nsISimpleEnumerator> entries;
  ASSERT_EQ(NS_OK, mDir.File("")->GetDirectoryEntries(entries.getter_AddRefs()));
  for (bool more; NS_SUCCEEDED(entries->HasMoreElements(&more)) && more;) {
    nsCOMPtr<nsISupports> entry;
    ASSERT_EQ(NS_OK, entries->GetNext(entry.getter_AddRefs()));
    const auto file = do_QueryInterface<nsIFile>(entry);
    std::string kind = PathOf(file.get()).substr(mDir.Path().native().size()) + ":";
    bool answer = false;
    if (Says(file.get(), &nsIFile::IsSymlink)) kind += "link ";
    if (NS_FAILED(file->IsFile(&answer)))
      kind += "nothing";
    else
      kind += answer                                    ? "file"
              : Says(file.get(), &nsIFile::IsDirectory) ? "dir"
              : Says(file.get(), &nsIFile::IsSpecial)   ? "special"
                                                        : "?";
    if (Says(file.get(), &nsIFile::IsHidden)) kind += " hidden";
    seen.insert(kind);
  }
  EXPECT_EQ((std::set<std::string>{"/file:file", "/dir:dir", "/link:link file",
                                   "/broken:link nothing", "/.fifo:special hidden"}),
            seen);
  int64_t size = -1;
  EXPECT_EQ(NS_OK, mDir.File("file")->GetFileSize(&size));
  EXPECT_EQ(5, size);
  nsCString target;
  EXPECT_EQ(NS_OK, mDir.File("link")->GetNativeTarget(target));
  EXPECT_EQ((mDir / "file").native(), target);
  EXPECT_EQ(NS_ERROR_FILE_INVALID_PATH, mDir.File("file")->GetNativeTarget(target));
  EXPECT_EQ(NS_ERROR_FILE_NOT_DIRECTORY,
            mDir.File("file")->GetDirectoryEntries(entries.getter_AddRefs()));
}

TEST_F(LocalFile, AMissingFileIsNotReportedAsSuch) {
  const auto file = mDir.File("none");
  int64_t number = 7;
  bool answer = true;
  nsCOMPtr<nsISimpleEnumerator> entries;
  EXPECT_EQ(NS_OK, file->Exists(&answer));
  EXPECT_FALSE(answer);
  EXPECT_EQ(NS_ERROR_FILE_NOT_FOUND, file->GetFileSize(&number));
  EXPECT_EQ(NS_ERROR_FILE_NOT_FOUND, file->GetLastModifiedTime(&number));
  EXPECT_EQ(NS_ERROR_FILE_NOT_FOUND, file->IsWritable(&answer));
  EXPECT_EQ(NS_ERROR_FILE_NOT_FOUND, file->GetDirectoryEntries(entries.getter_AddRefs()));
  EXPECT_EQ(NS_ERROR_FILE_NOT_FOUND, file->Remove(false));
  EXPECT_EQ(NS_ERROR_FILE_NOT_FOUND, file->Remove(true));
  EXPECT_EQ(NS_ERROR_FILE_NOT_FOUND, file->MoveToNative(nullptr, nsCString("other")));
  EXPECT_EQ(NS_ERROR_FILE_NOT_FOUND, file->Normalize());
  EXPECT_EQ(7, number);
  mDir.Put("file", "");
  EXPECT_EQ(NS_ERROR_FILE_NOT_DIRECTORY, mDir.File("file/x")->GetFileSize(&number));
}

TEST_F(LocalFile, CreateOverwritesOrStopsAtAMissingDirectory) {
  EXPECT_EQ(NS_OK, mDir.File("a/b/c")->Create(nsIFile::NORMAL_FILE_TYPE, 0644));
  EXPECT_EQ(NS_ERROR_FILE_ALREADY_EXISTS,
            mDir.File("a/b/c")->Create(nsIFile::NORMAL_FILE_TYPE, 0644));
  EXPECT_EQ(NS_ERROR_FILE_ALREADY_EXISTS, mDir.File("a/b")->Create(nsIFile::DIRECTORY_TYPE, 0755));
  EXPECT_EQ(NS_ERROR_FILE_UNKNOWN_TYPE, mDir.File("d")->Create(2, 0755));
  const auto unique = mDir.File("a/b/c.tar.gz");
  for (const char* name : {"c.tar.gz", "c.tar-1.gz", "c.tar-1-1.gz"}) {
    EXPECT_EQ(NS_OK, unique->CreateUnique(nsIFile::NORMAL_FILE_TYPE, 0600));
    EXPECT_EQ(mDir / "a/b" / name, PathOf(unique.get()));
  }
  EXPECT_EQ(NS_ERROR_FILE_DIR_NOT_EMPTY, mDir.File("a")->Remove(false));
  EXPECT_EQ(NS_OK, mDir.File("a")->Remove(true));
  EXPECT_FALSE(Says(mDir.File("a").get(), &nsIFile::Exists));
}

TEST_F(LocalFile, RemovingALinkRemovesWhatItLeadsTo) {
  std::filesystem::create_directory(mDir / "dir");
  mDir.Put("dir/kept", "x");
  std::filesystem::create_directory_symlink("dir", mDir / "link");
  EXPECT_EQ(NS_OK, mDir.File("link")->Remove(true));
  EXPECT_EQ("x", mDir.Read("dir/kept"));
}

TEST_F(LocalFile, AMoveLosesAFileOrTheWayToIt) {
  mDir.Put("new", "new");
  mDir.Put("old", "old");
  std::filesystem::create_directory(mDir / "dir");
  const auto file = mDir.File("new");
  EXPECT_EQ(NS_ERROR_FILE_ALREADY_EXISTS, file->MoveToNative(nullptr, nsCString("dir")));
  EXPECT_EQ(NS_ERROR_FILE_DESTINATION_NOT_DIR,
            file->MoveToNative(mDir.File("old").get(), nsCString("x")));
  EXPECT_EQ(NS_ERROR_FILE_UNRECOGNIZED_PATH, file->MoveToNative(nullptr, nsCString("../x")));
  EXPECT_EQ(NS_ERROR_FILE_COPY_OR_MOVE_FAILED,
            mDir.File("dir")->MoveToNative(mDir.File("dir").get(), nsCString("x")));
  EXPECT_EQ(mDir / "new", PathOf(file.get()));
  EXPECT_EQ(NS_OK, file->MoveToNative(nullptr, nsCString("old")));
  EXPECT_EQ("new", mDir.Read("old"));
  EXPECT_EQ(mDir / "old", PathOf(file.get()));
  EXPECT_EQ(NS_OK, file->MoveToNative(mDir.File("made/for/it").get(), nsCString("")));
  EXPECT_EQ("new", mDir.Read("made/for/it/old"));
}

TEST_F(LocalFile, AMoveToAnotherVolumeLosesTheFile) {
  struct stat here, there;
  if (stat("/dev/shm", &there) != 0 || stat(mDir.Path().c_str(), &here) != 0 ||
      here.st_dev == there.st_dev)
    GTEST_SKIP() << "no second volume at /dev/shm";
  const std::string name = "vorel-move-" + std::to_string(getpid());
  std::filesystem::create_directory(mDir / "dir");
  mDir.Put("dir/file", "text");
  std::filesystem::create_symlink("file", mDir / "dir/link");
  const auto dir = mDir.File("dir");
  ASSERT_EQ(NS_OK, dir->MoveToNative(At("/dev/shm").get(), nsCString(name)));
  EXPECT_FALSE(std::filesystem::exists(mDir / "dir"));
  EXPECT_EQ("file", std::filesystem::read_symlink("/dev/shm/" + name + "/link"));
  EXPECT_EQ("/dev/shm/" + name, PathOf(dir.get()));
  ASSERT_EQ(NS_OK, dir->MoveToNative(mDir.File("").get(), nsCString("back")));
  EXPECT_EQ("text", mDir.Read("back/file"));
}

TEST_F(LocalFile, ACopyIsHalfDoneOrFollowsTheWrongLink) {
  std::filesystem::create_directory(mDir / "dir");
  mDir.Put("dir/file", "text");
  std::filesystem::create_symlink("dir/file", mDir / "link");
  mDir.Put("there", "old");
  EXPECT_EQ(NS_OK, mDir.File("dir/file")->CopyToNative(mDir.File("").get(), nsCString("there")));
  EXPECT_EQ("text", mDir.Read("there"));
  EXPECT_EQ(NS_OK, mDir.File("link")->CopyToNative(nullptr, nsCString("link2")));
  EXPECT_TRUE(std::filesystem::is_symlink(mDir / "link2"));
  EXPECT_EQ(NS_OK, mDir.File("link")->CopyToFollowingLinksNative(nullptr, nsCString("followed")));
  EXPECT_FALSE(std::filesystem::is_symlink(mDir / "followed"));
  EXPECT_EQ("text", mDir.Read("followed"));
  EXPECT_EQ(NS_OK, mDir.File("dir")->CopyToNative(nullptr, nsCString("dir2")));
  EXPECT_EQ("text", mDir.Read("dir2/file"));
  EXPECT_EQ(NS_ERROR_FILE_ALREADY_EXISTS,
            mDir.File("dir")->CopyToNative(nullptr, nsCString("dir2")));
  size_t count = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(mDir.Path()))
    ++count;
  EXPECT_EQ(6u, count) << "something was left behind";
}

TEST_F(LocalFile, ATimeIsCutOrItsSignLost) {
  mDir.Put("file", "");
  const auto file = mDir.File("file");
  for (const int64_t time : {int64_t{1234567890123}, int64_t{0}, int64_t{-1500}}) {
    int64_t seen = 7;
    EXPECT_EQ(NS_OK, file->SetLastModifiedTime(time));
    EXPECT_EQ(NS_OK, file->GetLastModifiedTime(&seen));
    EXPECT_EQ(time, seen);
  }
  uint32_t permissions = 0;
  EXPECT_EQ(NS_OK, file->SetPermissions(0640));
  EXPECT_EQ(NS_OK, file->GetPermissions(&permissions));
  EXPECT_EQ(0640u, permissions);
}

}  // namespace
