// The watcher on the real file system.
#include <fcntl.h>
#include <linux/magic.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <future>
#include <map>
#include <new>
#include <random>
#include <sstream>

#include "nsInotifyDirectoryChanges.h"
#include "nsLinuxFiles.h"
#include "nsMountNamespace.h"
#include "nsNativePaths.h"
#include "nsReaderThread.h"
#include "nsSystemFileSystemWatcherService.h"
#include "nsTemporaryDirectory.h"
#include "nsUtf.h"
#include "nsVorelMethodCaller.h"
#include "nsWatchTest.h"

namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

/// Where memory is the disk, identities are not used again, and tests are quick.
const bool gUseMemory = fs::is_directory("/dev/shm") && setenv("TMPDIR", "/dev/shm", 0) == 0;

/// What is below a directory, as listeners name it, with identities. Links are not followed.
std::map<std::string, ino_t> ReadDisk(const fs::path& aRoot) {
  std::map<std::string, ino_t> disk;
  std::error_code error;
  for (fs::recursive_directory_iterator at(aRoot, error), end; at != end; at.increment(error)) {
    struct stat status;
    if (lstat(at->path().c_str(), &status) != 0) continue;
    const std::string relative = at->path().native().substr(aRoot.native().size() + 1);
    disk.emplace(NS_ToUtf8(vorel::NameToUtf16(relative)) + (S_ISDIR(status.st_mode) ? "/" : ""),
                 status.st_ino);
  }
  return disk;
}

std::set<std::string> Names(const std::map<std::string, ino_t>& aDisk) {
  std::set<std::string> names;
  for (const auto& [name, inode] : aDisk) names.insert(name);
  return names;
}

/// A watch on a directory by a watcher of its own; needs a host.
class Watch {
 public:
  using Picture = nsWatchListener::Paths;

  explicit Watch(const fs::path& aRoot) : mRoot(aRoot) {
    mListener->SetPicture(Names(ReadDisk(mRoot)));
    EXPECT_EQ(mWatcher->Init(mListener.get(), nsCString("file://" + mRoot.native()), true), NS_OK);
    EXPECT_EQ(mWatcher->StartWatching(), NS_OK);
    EXPECT_TRUE(NS_RunEventsUntil([this] { return mListener->HasHeard("started"); }));
    mStart = mListener->Take();
  }
  ~Watch() {
    (void)mWatcher->StopWatching();
    nsCOMPtr<nsIWeakReference> weak;
    (void)mWatcher->GetWeakReference(weak.getter_AddRefs());
    mWatcher = nullptr;
    EXPECT_TRUE(NS_RunEventsUntil([&] {
      nsCOMPtr<nsISupports> alive;
      return NS_FAILED(weak->QueryReferent(nsISupports::kIID, NS_OutVoid(alive)));
    })) << "a reference is left";
  }

  /// Whether the listener's picture comes to be what is there.
  bool AwaitPicture(int aSeconds = 30) {
    return NS_RunEventsUntil([this] { return mListener->Picture() == Names(ReadDisk(mRoot)); },
                             aSeconds);
  }
  bool AwaitLine(const std::string& aLine) {
    return NS_RunEventsUntil([&] { return mListener->HasHeard(aLine); });
  }

  const fs::path mRoot;
  Lines mStart;  // what was heard until then
  nsCOMPtr<nsWatchListener> mListener = MakeRefCounted<nsWatchListener>();
  nsCOMPtr<nsSystemFileSystemWatcher> mWatcher =
      MakeRefCounted<nsSystemFileSystemWatcher>(NS_NewNativePlatform());
};

class NativeWatchTest : public nsSystemTest {
 protected:
  NativeWatchTest() { mOptions.mModules.push_back(&vorel::test::kWatcherModule); }
  void SetUp() override { StartHost(); }
  static void Write(const fs::path& aPath) { nsTemporaryDirectory::Write(aPath); }

  nsTemporaryDirectory mRoot;
};

TEST_F(NativeWatchTest, FilesInNewDirectoriesAreLost) {
  Watch watch(mRoot.Path());
  std::thread maker([this] {
    for (int i = 0; i < 1000; ++i) {
      const fs::path directory = mRoot / std::to_string(i);
      fs::create_directory(directory);
      Write(directory / "file");
    }
  });
  EXPECT_TRUE(watch.AwaitPicture());
  maker.join();
  EXPECT_TRUE(watch.AwaitPicture());
  EXPECT_EQ(watch.mListener->Picture().size(), 2000u);
}

TEST_F(NativeWatchTest, TreeThatMovesInOrOutIsNotFollowed) {
  fs::create_directory(mRoot / "root");
  fs::create_directories(mRoot / "outside/a/b/c");
  Write(mRoot / "outside/a/b/c/file");
  Watch watch(mRoot / "root");
  fs::rename(mRoot / "outside", mRoot / "root/in");
  EXPECT_TRUE(watch.AwaitPicture());
  Write(mRoot / "root/in/a/b/c/another");
  EXPECT_TRUE(watch.AwaitLine("added in/a/b/c/another"));
  fs::rename(mRoot / "root/in/a", mRoot / "root/A");
  EXPECT_TRUE(watch.AwaitLine("moved in/a/ > A/"));
  Write(mRoot / "root/A/b/c/third");
  EXPECT_TRUE(watch.AwaitLine("added A/b/c/third"));
  fs::rename(mRoot / "root/A", mRoot / "out");
  EXPECT_TRUE(watch.AwaitPicture());
  (void)watch.mListener->Take();
  Write(mRoot / "out/b/c/not-ours");
  Write(mRoot / "root/ours");
  EXPECT_TRUE(watch.AwaitPicture());
  for (const std::string& line : watch.mListener->Take())
    EXPECT_EQ(line.find("not-ours"), line.npos) << line;
}

TEST_F(NativeWatchTest, CopiedTreeIsSeenInPart) {
  nsTemporaryDirectory source;
  for (int i = 0; i < 50; ++i) {
    const fs::path directory = source / std::to_string(i % 5) / "a/b/c" / std::to_string(i);
    fs::create_directories(directory);
    for (const char* name : {"x", "y", "z"}) Write(directory / name);
  }
  Watch watch(mRoot.Path());
  auto copy = std::async(std::launch::async, [&] {
    fs::copy(source.Path(), mRoot / "copy", fs::copy_options::recursive);
  });
  EXPECT_TRUE(NS_RunEventsUntil(
      [&] { return copy.wait_for(std::chrono::seconds(0)) == std::future_status::ready; }));
  EXPECT_TRUE(watch.AwaitPicture());
  EXPECT_EQ(watch.mListener->Picture().size(), 1u + 5 * 4 + 50 * 4);
}

TEST_F(NativeWatchTest, RenamesAreTornApart) {
  for (int i = 0; i < 2000; ++i) Write(mRoot / ("old" + std::to_string(i)));
  Watch watch(mRoot.Path());
  for (int i = 0; i < 2000; ++i)
    fs::rename(mRoot / ("old" + std::to_string(i)), mRoot / ("new" + std::to_string(i)));
  EXPECT_TRUE(watch.AwaitPicture());
  const Lines heard = watch.mListener->Take();
  EXPECT_EQ(std::count_if(heard.begin(), heard.end(),
                          [](const std::string& aLine) { return aLine.starts_with("moved "); }),
            2000);
}

TEST_F(NativeWatchTest, LinksAreFollowed) {
  nsTemporaryDirectory outside;
  Watch watch(mRoot.Path());
  fs::create_symlink(outside.Path(), mRoot / "link");
  fs::create_symlink(mRoot.Path(), mRoot / "loop");
  EXPECT_TRUE(watch.AwaitLine("added link"));
  nsTemporaryDirectory::Write(outside / "file");
  fs::create_directory(mRoot / "directory");
  EXPECT_TRUE(watch.AwaitLine("added directory/"));
  fs::remove(mRoot / "directory");
  fs::create_symlink(outside.Path(), mRoot / "directory");  // in a watched directory's place
  EXPECT_TRUE(watch.AwaitPicture());
  for (const std::string& line : watch.mListener->Take())
    EXPECT_EQ(line.find("file"), line.npos) << line;
}

TEST_F(NativeWatchTest, RootBehindALinkIsMissing) {
  nsTemporaryDirectory place;
  fs::create_directory_symlink(mRoot.Path(), place / "link");
  Watch watch(place / "link");
  Write(mRoot / "file");
  EXPECT_TRUE(watch.AwaitLine("added file"));
}

TEST_F(NativeWatchTest, OddNamesAreMixedUp) {
  Watch watch(mRoot.Path());
  const std::string longest(255, 'x');
  const Lines names = {"caf\xE9", "caf\xE8", "back\\slash",      "new\nline",
                       " ",       longest,   "\xF0\x9F\x98\x80", "%41"};
  for (const std::string& name : names) {
    fs::create_directory(mRoot / name);
    Write(mRoot / name / name);
  }
  EXPECT_TRUE(NS_RunEventsUntil([&] {
    const Lines heard = watch.mListener->Take();
    static size_t sCount;
    return (sCount +=
            static_cast<size_t>(std::count_if(heard.begin(), heard.end(), [](const auto& aLine) {
              return aLine.starts_with("added");
            }))) >= 2 * names.size();
  })) << "two that differ in odd bytes only are taken for one";
  fs::rename(mRoot / "caf\xE9", mRoot / "cafe");
  EXPECT_TRUE(watch.AwaitLine("moved caf\uFFFD/ > cafe/"));
  Write(mRoot / longest / "more");
  EXPECT_TRUE(watch.AwaitLine("added " + longest + "/more"));
}

TEST_F(NativeWatchTest, PathsBeyondTheSystemsLimitEndTheWatch) {
  Watch watch(mRoot.Path());
  nsUniqueFd at(open(mRoot.Path().c_str(), O_PATH | O_CLOEXEC));
  const std::string name(200, 'd');
  std::string path;
  for (int depth = 0; depth < 90; ++depth) {
    ASSERT_EQ(mkdirat(at.get(), name.c_str(), 0700), 0);
    at = nsUniqueFd(openat(at.get(), name.c_str(), O_PATH | O_CLOEXEC));
    path += name + "/";
  }
  EXPECT_TRUE(watch.AwaitLine("added " + path));
  const nsUniqueFd file(openat(at.get(), "file", O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
  EXPECT_TRUE(watch.AwaitLine("added " + path + "file"));
  at = nsUniqueFd();
  fs::rename(mRoot / name, mRoot / "short");
  EXPECT_TRUE(watch.AwaitLine("moved " + name + "/ > short/"));
}

TEST_F(NativeWatchTest, RootThatGoesHangsTheWatch) {
  fs::create_directories(mRoot / "root/below");
  Watch watch(mRoot / "root");
  fs::remove_all(mRoot / "root");
  EXPECT_TRUE(NS_RunEventsUntil([] {
    const auto log = nsTestLog::Instance().Take("warning system.fileWatcher");
    return std::any_of(log.begin(), log.end(), [](const std::string& aLine) {
      return aLine.ends_with("was deleted, moved or unmounted: its watch ends");
    });
  }));
}

TEST_F(NativeWatchTest, DirectoriesThatChangePlacesAreNoLongerWatched) {
  for (const char* name : {"a", "b"}) {
    fs::create_directories(mRoot / name / "below");
    Write(mRoot / name / "below" / ("of-" + std::string(name)));
  }
  Watch watch(mRoot.Path());
  for (int i = 0; i < 20; ++i) {
    ASSERT_EQ(renameat2(AT_FDCWD, (mRoot / "a").c_str(), AT_FDCWD, (mRoot / "b").c_str(),
                        RENAME_EXCHANGE),
              0);
    EXPECT_TRUE(watch.AwaitPicture());
    for (const char* name : {"a/below/", "b/below/"}) {
      const std::string path = name + std::to_string(i);
      Write(mRoot / path);
      ASSERT_TRUE(watch.AwaitLine("added " + path));
    }
  }
}

TEST_F(NativeWatchTest, RemovedTreesWarn) {
  for (int i = 0; i < 200; ++i) {
    fs::create_directories(mRoot / std::to_string(i) / "a/b");
    for (const char* name : {"1", "a/2", "a/b/3"}) Write(mRoot / std::to_string(i) / name);
  }
  Watch watch(mRoot.Path());
  for (int i = 0; i < 200; ++i) fs::remove_all(mRoot / std::to_string(i));
  EXPECT_TRUE(watch.AwaitPicture());
  EXPECT_EQ(TakeLog("warning "), Lines());
  EXPECT_EQ(TakeLog("error "), Lines());
}

// Nanoseconds since 1970 overflow in the year 2262.
TEST_F(NativeWatchTest, TimesOfTheFarFutureAreOneOrUndefined) {
  Write(mRoot / "file");
  const auto stamp = [this](time_t aSeconds) {
    const timespec times[] = {{aSeconds, 0}, {aSeconds, 999'999'999}};
    return utimensat(AT_FDCWD, (mRoot / "file").c_str(), times, 0) == 0;
  };
  if (!stamp(9'300'000'000)) GTEST_SKIP() << "the volume has no such times";
  Watch watch(mRoot.Path());
  for (const time_t year2300 : {10'413'792'000, 10'413'792'001}) {
    ASSERT_TRUE(stamp(year2300));
    EXPECT_TRUE(watch.AwaitLine("changed file"));
    (void)watch.mListener->Take();
  }
}

TEST_F(NativeWatchTest, HardLinksByTheHundredAreLost) {
  constexpr int kLinks = 500;
  Write(mRoot / "0");
  Watch watch(mRoot.Path());
  for (int i = 1; i < kLinks; ++i) fs::create_hard_link(mRoot / "0", mRoot / std::to_string(i));
  EXPECT_TRUE(watch.AwaitPicture());
  for (int i = 0; i < kLinks; ++i) fs::remove(mRoot / std::to_string(i));
  EXPECT_TRUE(watch.AwaitPicture());
  EXPECT_LE(TakeLog("error ").size(), 20u);
}

TEST(LinuxFilesTest, NumberThatIsUsedAgainIsTheSameIdentity) {
  // Where the disk is one: memory does not use its numbers again.
  std::string name = "/tmp/vorel-test-XXXXXX";
  ASSERT_NE(mkdtemp(name.data()), nullptr);
  const fs::path directory = name;
  nsLinuxFiles files;
  std::map<ino_t, uint64_t> identities;
  bool isUsedAgain = false;
  for (int i = 0; i < 50 && !isUsedAgain; ++i) {
    nsTemporaryDirectory::Write(directory / "file");
    struct stat status;
    ASSERT_EQ(lstat((directory / "file").c_str(), &status), 0);
    std::unique_ptr<nsPlatformFiles::Listing> listing;
    ASSERT_EQ(files.OpenListing(nsString(directory.u16string()), false, &listing), NS_OK);
    nsPlatformFiles::Entry entry;
    ASSERT_EQ(listing->GetNext(&entry), NS_OK);
    isUsedAgain = identities.contains(status.st_ino);
    EXPECT_TRUE(!isUsedAgain || identities[status.st_ino] != entry.mINode);
    identities[status.st_ino] = entry.mINode;
    fs::remove(directory / "file");
  }
  fs::remove_all(directory);
  if (!isUsedAgain) GTEST_SKIP() << "no number is used again in /tmp";
}

TEST(InotifyTest, DirectoriesWithoutAChangeAreNamed) {
  nsTemporaryDirectory root;
  for (int i = 0; i < 20; ++i) fs::create_directories(root / std::to_string(i) / "below");
  const auto reader = nsInotifyDirectoryChanges().NewReader();
  nsLinuxFiles files;
  ASSERT_EQ(NS_OpenReader(*reader, files, nsString(root.Path16())), NS_OK);
  nsReaderThread thread(*reader);
  nsTemporaryDirectory::Write(root / "7/below/file");
  EXPECT_TRUE(thread.AwaitName(u"7/below/."));
  EXPECT_TRUE(thread.Await([](const nsReaderThread::Names& aNames) {
    return aNames == nsReaderThread::Names{u"7/below/.", u"7/below/file"};
  }));
}

TEST(InotifyTest, NewRightsAreNoReasonToLook) {
  nsTemporaryDirectory root;
  fs::create_directories(root / "known/below");
  const auto reader = nsInotifyDirectoryChanges().NewReader();
  nsLinuxFiles files;
  ASSERT_EQ(NS_OpenReader(*reader, files, nsString(root.Path16())), NS_OK);
  nsReaderThread thread(*reader);
  fs::permissions(root / "known", fs::perms::none);
  fs::permissions(root / "known", fs::perms::owner_all);
  EXPECT_TRUE(thread.AwaitName(u"known/."));
  EXPECT_TRUE(thread.AwaitName(u"known/below/.")) << "it could not be reached";
  thread.Clear();
  fs::permissions(root.Path(), fs::perms::owner_all | fs::perms::group_read);
  EXPECT_TRUE(thread.AwaitName(u"."));
  EXPECT_TRUE(thread.AwaitName(u"known/below/."));
}

TEST_F(NativeWatchTest, NameLongerThanTheBufferEndsTheReadsOrIsNotToldOf) {
  const auto reader = nsInotifyDirectoryChanges().NewReader();
  ASSERT_EQ(reader->Open(nsString(mRoot.Path16())), NS_OK);
  nsReaderThread thread(*reader, 100);
  nsTemporaryDirectory::Write(mRoot / std::string(60, 'x'));
  nsTemporaryDirectory::Write(mRoot / std::string(44, 'y'));
  EXPECT_TRUE(thread.AwaitName(std::u16string(44, u'y')));
  nsTemporaryDirectory::Write(mRoot / "file");
  EXPECT_TRUE(thread.AwaitName(u"file"));
  EXPECT_TRUE(NS_RunEventsUntil([] {
    return std::ranges::any_of(nsTestLog::Instance().Take("warning system.fileWatcher"),
                               [](const std::string& aLine) {
                                 return aLine.find("too long to be told (60 units)") != aLine.npos;
                               });
  }));
}

TEST(InotifyTest, LinkThatIsPointedElsewhereIsStillWatched) {
  for (const char* root : {"link", "far/link/below"}) {
    nsTemporaryDirectory place;
    fs::create_directories(place / "one/below");
    fs::create_directories(place / "two/below");
    fs::create_directory(place / "far");
    fs::create_directory_symlink(place / "one", place / "link");
    fs::create_directory_symlink("../link", place / "far/link");
    const auto reader = nsInotifyDirectoryChanges().NewReader();
    ASSERT_EQ(reader->Open(nsString((place / root).u16string())), NS_OK);
    nsReaderThread thread(*reader);
    nsTemporaryDirectory::Write(place / "another");
    nsTemporaryDirectory::Write(place / root / "file");
    ASSERT_TRUE(thread.AwaitName(u"file"));
    fs::create_directory_symlink(place / "two", place / "fresh");
    fs::rename(place / "fresh", place / "link");
    nsresult result;
    ASSERT_TRUE(thread.AwaitEnd(&result)) << root;
    EXPECT_EQ(result, NS_ERROR_FILE_NOT_FOUND);
  }
}

TEST(InotifyTest, MovedRootIsStillNamed) {
  nsTemporaryDirectory place;
  fs::create_directory(place / "root");
  const auto reader = nsInotifyDirectoryChanges().NewReader();
  ASSERT_EQ(reader->Open(nsString((place / "root").u16string())), NS_OK);
  nsReaderThread thread(*reader);
  fs::rename(place / "root", place / "elsewhere");
  nsresult result;
  ASSERT_TRUE(thread.AwaitEnd(&result));
  EXPECT_EQ(result, NS_ERROR_FILE_NOT_FOUND);
}

TEST(InotifyTest, RootThatMovesWithADirectoryAboveItIsStillNamed) {
  nsTemporaryDirectory place;
  fs::create_directories(place / "above/between/root");
  fs::create_directory(place / "above/other");
  const auto reader = nsInotifyDirectoryChanges().NewReader();
  ASSERT_EQ(reader->Open(nsString((place / "above/between/root").u16string())), NS_OK);
  nsReaderThread thread(*reader);
  fs::rename(place / "above/other", place / "other");
  nsTemporaryDirectory::Write(place / "above/between/root/file");
  EXPECT_TRUE(thread.AwaitName(u"file")) << "another one's move ends the watch";
  fs::rename(place / "above", place / "elsewhere");
  nsresult result;
  ASSERT_TRUE(thread.AwaitEnd(&result));
  EXPECT_EQ(result, NS_ERROR_FILE_NOT_FOUND);
}

/// With the pool's work done here, where the test wants it.
class SteppedNativeWatchTest : public NativeWatchTest {
 protected:
  void SetUp() override {
    mOptions.mModules.push_back(&vorel::test::kPoolModule);
    StartHost();
  }
  void TearDown() override { nsManualPool::Instance().Clear(); }
};

TEST_F(SteppedNativeWatchTest, ChangeBetweenTheFirstWalkAndTheFirstReadIsLost) {
  fs::create_directory(mRoot / "below");
  const auto listener = MakeRefCounted<nsWatchListener>();
  const auto watcher = MakeRefCounted<nsSystemFileSystemWatcher>(NS_NewNativePlatform());
  ASSERT_EQ(watcher->Init(listener.get(), nsCString("file://" + mRoot.Path().native()), true),
            NS_OK);
  ASSERT_EQ(watcher->StartWatching(), NS_OK);
  ASSERT_EQ(nsManualPool::Instance().Run(), 1u);  // the walk
  Write(mRoot / "below/file");
  EXPECT_TRUE(NS_RunEventsUntil([&] {
    (void)nsManualPool::Instance().Run();
    return listener->HasHeard("added below/file");
  }));
  EXPECT_EQ(watcher->StopWatching(), NS_OK);
}

// ---- What needs a process of its own

class NativeWatchDeathTest : public NativeWatchTest {
 protected:
  NativeWatchDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
  void SetUp() override {}

  /// Ends the process with what the function returns, or with 1 when anything has failed. What the
  /// function has made on the disk goes with its end, and so does the fixture's own.
  [[noreturn]] void Leave(const std::function<int()>& aWork) {
    const int status = aWork();
    std::error_code ignored;
    fs::remove_all(mRoot.Path(), ignored);
    (void)fflush(nullptr);  // what has failed, and where
    _exit(status == 0 && HasFailure() ? 1 : status);
  }
};

/// Runs the reader on a root as long as a function does.
void WithReader(const fs::path& aRoot, const std::function<void(nsReaderThread&)>& aFunction) {
  const auto reader = nsInotifyDirectoryChanges().NewReader();
  nsLinuxFiles files;
  if (NS_FAILED(NS_OpenReader(*reader, files, nsString(aRoot.u16string())))) _exit(2);
  nsReaderThread thread(*reader);
  aFunction(thread);
}

/// Of one watch: who comes later hears what those before have heard, as far as it still holds.
void LateClients(const nsTemporaryDirectory& aRoot) {
  for (const char* name : {"closed", "passing"}) {
    fs::create_directory(aRoot / name);
    fs::permissions(aRoot / name, fs::perms::none);
  }
  vorel::test::gWatchPlatform = NS_NewNativePlatform();
  const auto service = MakeRefCounted<nsSystemFileSystemWatcherService>();
  const nsCString url("file://" + aRoot.Path().native());
  const auto line = [&](const char* aName) {
    return "error 4 " + (aRoot / aName).native() + " can't be watched: permission denied";
  };
  std::vector<nsCOMPtr<nsWatchListener>> clients;
  const auto join = [&] {
    clients.push_back(MakeRefCounted<nsWatchListener>());
    EXPECT_EQ(service->StartWatching(url, clients.back().get()), NS_OK);
    return clients.back();
  };
  const auto first = join();
  EXPECT_TRUE(NS_RunEventsUntil(
      [&] { return first->HasHeard(line("closed")) && first->HasHeard(line("passing")); }));
  Lines heard = join()->Take();
  std::ranges::sort(heard);
  EXPECT_EQ(heard, (Lines{line("closed"), line("passing"), "started"}));
  EXPECT_EQ(first->Take().size(), 3u) << "told again";
  fs::remove(aRoot / "passing");
  EXPECT_TRUE(NS_RunEventsUntil([&] { return first->HasHeard("removed passing/"); }));
  EXPECT_EQ(join()->Take(), (Lines{"started", line("closed")}));
  fs::permissions(aRoot / "closed", fs::perms::owner_all);
  nsTemporaryDirectory::Write(aRoot / "closed/another");
  EXPECT_TRUE(NS_RunEventsUntil([&] { return first->HasHeard("added closed/another"); }));
  EXPECT_EQ(join()->Take(), Lines{"started"});
  for (const auto& client : clients) EXPECT_EQ(service->StopWatching(url, client.get()), NS_OK);
  NS_RunEvents();
  vorel::test::gWatchPlatform = nullptr;
}

TEST_F(NativeWatchDeathTest, UnreadableDirectoryEndsTheWatch) {
  if (geteuid() != 0) GTEST_SKIP() << "changing to another user takes the rights of root";
  EXPECT_EXIT(
      {
        Leave([&]() -> int {
          nsTemporaryDirectory root;
          fs::create_directory(root / "closed");
          fs::create_directory(root / "open");
          const uid_t nobody = 65534;
          for (const char* name : {"", "closed", "open"})
            if (chown((root / name).c_str(), nobody, nobody) != 0) return 2;
          // In a process of its own: who made the directory has to take it away.
          const pid_t user = fork();
          if (user == 0) {
            if (setuid(nobody) != 0) _exit(2);
            fs::permissions(root / "closed", fs::perms::none);
            StartHost();
            {
              Watch watch(root.Path());
              const std::string told =
                  (root / "closed").native() + " can't be watched: permission denied";
              EXPECT_EQ(watch.mStart, (Lines{"started", "error 4 " + told}));
              Write(root / "open/file");
              EXPECT_TRUE(watch.AwaitLine("added open/file"));
              fs::permissions(root / "closed", fs::perms::owner_all);
              Write(root / "closed/file");
              EXPECT_TRUE(watch.AwaitLine("added closed/file")) << "it is readable now";
            }
            LateClients(root);
            mHost.Stop();
            _exit(HasFailure() ? 1 : 0);
          }
          int status = 0;
          return waitpid(user, &status, 0) == user && WIFEXITED(status) ? WEXITSTATUS(status) : 2;
        });
      },
      testing::ExitedWithCode(0), "");
}

TEST_F(NativeWatchDeathTest, LimitOfWatchesIsReachedInSilence) {
  EXPECT_EXIT(
      {
        Leave([&]() -> int {
          // A user namespace has a limit of its own, which belongs to nobody else.
          if (unshare(CLONE_NEWUSER) != 0) return 3;
          const auto setLimit = [](int aLimit) {
            std::ofstream limit("/proc/sys/user/max_inotify_watches");
            limit << aLimit << std::flush;
            return bool{limit};
          };
          if (!setLimit(40)) return 3;  // the host has some, and so has the way to the root
          StartHost();
          nsTemporaryDirectory root;
          for (int i = 0; i < 100; ++i) fs::create_directory(root / std::to_string(i));
          {
            Watch watch(root.Path());
            EXPECT_EQ(watch.mStart.size(), 2u);
            EXPECT_TRUE(watch.mStart.back().starts_with("error 4 " + root.Path().native() + "/"));
            for (int i = 0; i < 100; ++i) Write(root / std::to_string(i) / "deep");
            Write(root / "file");
            EXPECT_TRUE(watch.AwaitLine("added file")) << "the rest goes on";
            EXPECT_FALSE(watch.AwaitPicture(0));
            EXPECT_TRUE(setLimit(1000));
            EXPECT_TRUE(watch.AwaitPicture()) << "they are not tried again";
            Write(root / "99/new");
            Write(root / "0/new");
            EXPECT_TRUE(watch.AwaitPicture()) << "they are not watched now";
          }
          const Lines log = TakeLog("warning system.fileWatcher");
          EXPECT_EQ(log.size(), 1u);
          return (log.size() == 1 &&
                  log[0].find("fs.inotify.max_user_watches") != std::string::npos)
                     ? 0
                     : 1;
        });
      },
      [](int aStatus) {
        return WIFEXITED(aStatus) && (WEXITSTATUS(aStatus) == 0 || WEXITSTATUS(aStatus) == 3);
      },
      "");
}

TEST_F(NativeWatchDeathTest, VolumesBelowTheRootOrUnderItAreHeldOrMixedUp) {
  if (geteuid() != 0) GTEST_SKIP() << "mounting takes the rights of root";
  EXPECT_EXIT(
      {
        Leave([&]() -> int {
          if (unshare(CLONE_NEWNS) != 0 ||
              mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
            return 3;
          nsTemporaryDirectory place;
          if (mount("none", place.Path().c_str(), "tmpfs", 0, nullptr) != 0) return 3;
          fs::create_directories(place / "root/below");
          if (mount("none", (place / "root/below").c_str(), "tmpfs", 0, nullptr) != 0) return 3;
          WithReader(place / "root", [&](nsReaderThread& aThread) {
            nsTemporaryDirectory::Write(place / "root/below/file");
            EXPECT_TRUE(aThread.AwaitName(u"below/file"));
            EXPECT_EQ(umount((place / "root/below").c_str()), 0) << "it is held";
            nsTemporaryDirectory::Write(place / "root/below/file");
            nsTemporaryDirectory::Write(place / "root/file");
            EXPECT_TRUE(aThread.AwaitName(u"file"));
          });
          WithReader(place.Path(), [&](nsReaderThread& aThread) {
            EXPECT_EQ(umount(place.Path().c_str()), 0) << "the root's volume is held";
            nsresult result;
            EXPECT_TRUE(aThread.AwaitEnd(&result));
          });
          return 0;
        });
      },
      [](int aStatus) {
        return WIFEXITED(aStatus) && (WEXITSTATUS(aStatus) == 0 || WEXITSTATUS(aStatus) == 3);
      },
      "");
}

TEST_F(NativeWatchDeathTest, VolumesBelowTheRootAreNotFollowed) {
  if (geteuid() != 0) GTEST_SKIP() << "mounting takes the rights of root";
  EXPECT_EXIT(
      {
        Leave([&]() -> int {
          nsMountNamespace mounts;
          if (!mounts.IsUsable()) return 3;
          nsTemporaryDirectory place;
          if (mount("none", place.Path().c_str(), "tmpfs", 0, nullptr) != 0) return 3;
          fs::create_directories(place / "root/volume/under");
          fs::create_directories(place / "root/other");
          Write(place / "root/volume/under/file");
          StartHost();
          {
            Watch watch(place / "root");
            const auto await = [&](const char* aPath) {
              Write(place / "root" / aPath);
              EXPECT_TRUE(watch.AwaitLine("added " + std::string(aPath)));
              EXPECT_TRUE(watch.AwaitPicture());
            };
            const std::string volume = place / "root/volume";
            for (const int flags : {0, int{MNT_DETACH}}) {
              EXPECT_EQ(mount("none", volume.c_str(), "tmpfs", 0, nullptr), 0);
              EXPECT_TRUE(watch.AwaitPicture());
              fs::create_directory(place / "root/volume/new");
              await(flags ? "volume/new/1" : "volume/new/2");
              fs::rename(place / "root/volume/new", place / "root/volume/moved");
              EXPECT_TRUE(watch.AwaitLine("moved volume/new/ > volume/moved/"))
                  << "a move inside of a volume";
              EXPECT_EQ(umount2(volume.c_str(), flags), 0);
              EXPECT_TRUE(watch.AwaitPicture());
              await(flags ? "volume/under/3" : "volume/under/4");
            }
            // Seen at two places, and then at its own again.
            EXPECT_EQ(
                mount(volume.c_str(), (place / "root/other").c_str(), nullptr, MS_BIND, nullptr),
                0);
            EXPECT_TRUE(watch.AwaitPicture());
            EXPECT_EQ(umount((place / "root/other").c_str()), 0);
            EXPECT_TRUE(watch.AwaitPicture());
            await("volume/under/5");
            await("other/6");
            const Lines log = TakeLog("warning ");
            EXPECT_EQ(log, Lines());
          }
          mHost.Stop();  // its threads are in the namespace
          (void)umount2(place.Path().c_str(), MNT_DETACH);
          return 0;
        });
      },
      [](int aStatus) {
        return WIFEXITED(aStatus) && (WEXITSTATUS(aStatus) == 0 || WEXITSTATUS(aStatus) == 3);
      },
      "");
}

TEST_F(NativeWatchDeathTest, MovesOnAnOverlayAreTornApart) {
  if (geteuid() != 0) GTEST_SKIP() << "mounting takes the rights of root";
  EXPECT_EXIT(
      {
        Leave([&]() -> int {
          nsMountNamespace mounts;
          if (!mounts.IsUsable()) return 3;
          nsTemporaryDirectory place;
          for (const char* name : {"lower", "upper"}) {
            fs::create_directory(place / name);
            if (mount("none", (place / name).c_str(), "tmpfs", 0, nullptr) != 0) return 3;
          }
          for (const char* name : {"upper/work", "upper/data", "root"})
            fs::create_directory(place / name);
          for (const char* name : {"lower/file", "upper/data/other"}) Write(place / name);
          const std::string options = "lowerdir=" + (place / "lower").native() +
                                      ",upperdir=" + (place / "upper/data").native() +
                                      ",workdir=" + (place / "upper/work").native();
          if (mount("none", (place / "root").c_str(), "overlay", 0, options.c_str()) != 0) return 3;
          StartHost();
          {
            Watch watch(place / "root");
            fs::rename(place / "root/file", place / "root/moved");
            EXPECT_TRUE(watch.AwaitLine("moved file > moved"));
            fs::rename(place / "root/other", place / "root/one");
            EXPECT_TRUE(watch.AwaitLine("moved other > one"));
            EXPECT_TRUE(watch.AwaitPicture());
          }
          mHost.Stop();
          for (const char* name : {"root", "upper", "lower"})
            (void)umount2((place / name).c_str(), MNT_DETACH);
          return 0;
        });
      },
      [](int aStatus) {
        return WIFEXITED(aStatus) && (WEXITSTATUS(aStatus) == 0 || WEXITSTATUS(aStatus) == 3);
      },
      "");
}

TEST_F(NativeWatchDeathTest, OverflowLosesFiles) {
  constexpr int kFiles = 20000;  // two events each: the kernel's queue holds 16,384
  EXPECT_EXIT(
      {
        Leave([&]() -> int {
          nsTemporaryDirectory root;
          fs::create_directories(root / "a/b");
          int go[2];
          if (pipe2(go, O_CLOEXEC) != 0) return 2;
          const pid_t watcher = getpid();
          if (const pid_t maker = fork(); maker == 0) {
            char byte;
            if (read(go[0], &byte, 1) != 1) _exit(2);
            kill(watcher, SIGSTOP);
            for (int i = 0; i < kFiles; ++i) {
              const fs::path path = root / (i % 2 ? "a/b/" : "a/") / std::to_string(i);
              close(open(path.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
            }
            kill(watcher, SIGCONT);
            _exit(0);
          }
          StartHost();
          bool isGood = false;
          {
            Watch watch(root.Path());
            Write(root / "a/b/first");  // seen once all directories are watched
            EXPECT_TRUE(watch.AwaitLine("added a/b/first"));
            if (write(go[1], "", 1) != 1) return 2;
            isGood = NS_RunEventsUntil(
                [&] { return watch.mListener->Picture().size() == size_t{kFiles} + 3; });
            EXPECT_TRUE(watch.AwaitPicture());
          }
          const Lines log = TakeLog("warning system.fileWatcher");
          return (isGood && std::any_of(log.begin(), log.end(),
                                        [](const std::string& aLine) {
                                          return aLine.find("fs.inotify.max_queued_events") !=
                                                 aLine.npos;
                                        }))
                     ? 0
                     : 1;
        });
      },
      testing::ExitedWithCode(0), "");
}

// ---- Any sequence of operations

/// On memory, and on the disk below /tmp, which uses the numbers of its files again. With mounts of
/// its own where there are the rights for that.
class WatchModelTest : public NativeWatchTest, public testing::WithParamInterface<const char*> {
 protected:
  /// What is below the root, with what tells one thing from another that has its number later.
  using Disk = std::map<std::string, std::string>;

  void SetUp() override {
    struct statfs volume;
    if (statfs(GetParam(), &volume) != 0) GTEST_SKIP() << "no " << GetParam();
    if (GetParam() == std::string("/tmp") && volume.f_type == TMPFS_MAGIC)
      GTEST_SKIP() << "/tmp is memory, too";
    std::string name = std::string(GetParam()) + "/vorel-test-XXXXXX";
    mPlace = mkdtemp(name.data());
    NativeWatchTest::SetUp();
  }
  void TearDown() override {
    if (mMounts.IsUsable() && !mPlace.empty()) UnmountAll();
    std::error_code error;
    if (!mPlace.empty()) fs::remove_all(mPlace, error);
    EXPECT_FALSE(error) << error.message() << ": " << mPlace << " is left behind";
    mHost.Stop();  // its threads are in the namespace
  }

  unsigned Pick(unsigned aCount) { return static_cast<unsigned>(mRandom() % aCount); }
  fs::path Path() {
    fs::path result = mPlace;
    for (unsigned depth = 1 + Pick(4); depth > 0; --depth)
      result /= std::string(1, static_cast<char>('a' + Pick(5)));
    return result;
  }
  // Clocks of file systems tick slowly, and what has the same time counts as the same.
  void Stamp(const fs::path& aPath) {
    const timespec times[] = {{++mTime, 0}, {mTime, 0}};
    (void)utimensat(AT_FDCWD, aPath.c_str(), times, AT_SYMLINK_NOFOLLOW);
  }
  void Unmount() {
    // A path that has moved since leads to nothing, and the mount stays until its directory goes.
    const size_t at = Pick(static_cast<unsigned>(mMounted.size()));
    (void)umount2(mMounted[at].c_str(), Pick(2) ? MNT_DETACH | UMOUNT_NOFOLLOW : UMOUNT_NOFOLLOW);
    mMounted.erase(mMounted.begin() + static_cast<std::ptrdiff_t>(at));
  }

  /// Those too whose directories have moved since, the last ones first.
  void UnmountAll() const {
    std::vector<std::string> places;
    std::ifstream table("/proc/thread-self/mountinfo");
    for (std::string line; std::getline(table, line);) {
      std::istringstream fields(line);
      std::string skipped, place;
      fields >> skipped >> skipped >> skipped >> skipped >> place;
      if (place.starts_with(mPlace.native() + "/")) places.insert(places.begin(), place);
    }
    for (const std::string& place : places) (void)umount2(place.c_str(), MNT_DETACH);
  }

  void Operate() {
    std::error_code ignored;  // of what can't be done just now
    const fs::path path = Path(), other = Path();
    switch (Pick(14)) {
      case 0:
      case 1:
      case 2:
        fs::create_directory(path, ignored);
        break;
      case 3:
      case 4:
      case 5:
        // Not through links, and not into a pipe that nobody reads.
        if (const nsUniqueFd file(
                open(path.c_str(),
                     O_CREAT | O_WRONLY | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600));
            !file || write(file.get(), "text", 4) != 4)
          break;
        Stamp(path);
        break;
      case 6:
        fs::remove_all(path, ignored);
        break;
      case 7:
      case 8:  // files over files, and directories with all they hold
        (void)renameat2(AT_FDCWD, path.c_str(), AT_FDCWD, other.c_str(), 0);
        break;
      case 9:
        (void)renameat2(AT_FDCWD, path.c_str(), AT_FDCWD, other.c_str(), RENAME_EXCHANGE);
        break;
      case 10:
        fs::create_hard_link(path, other, ignored);
        break;
      case 11:
        if (Pick(2) ? symlink("a", path.c_str()) == 0 : mkfifo(path.c_str(), 0600) == 0)
          Stamp(path);
        break;
      case 12:
        if (!fs::is_directory(fs::symlink_status(path, ignored))) break;
        fs::permissions(path, fs::perms::none, ignored);
        fs::permissions(path, fs::perms::owner_all, ignored);
        break;
      case 13:
        if (!mMounts.IsUsable() || Pick(30) != 0) break;
        if (mMounted.size() > 4)
          Unmount();
        else if (fs::is_directory(fs::symlink_status(path, ignored)) &&
                 mount("none", path.c_str(), "tmpfs", 0, nullptr) == 0)
          mMounted.push_back(path);
        break;
    }
  }

  Disk Read() const {
    Disk disk;
    for (const auto& [name, number] : ReadDisk(mPlace)) {
      alignas(file_handle) std::array<char, sizeof(file_handle) + MAX_HANDLE_SZ> buffer;
      auto* const handle = new (buffer.data()) file_handle;
      handle->handle_bytes = MAX_HANDLE_SZ;
      int mount = 0;
      const bool isTold =
          name_to_handle_at(AT_FDCWD, (mPlace / name).c_str(), handle, &mount, 0) == 0;
      disk[name] =
          std::to_string(mount) + " " +
          (isTold ? std::string(reinterpret_cast<char*>(handle->f_handle), handle->handle_bytes)
                  : std::to_string(number));
    }
    return disk;
  }

  nsMountNamespace mMounts;
  fs::path mPlace;
  std::mt19937 mRandom{7};
  time_t mTime = 0;
  std::vector<fs::path> mMounted;
};

INSTANTIATE_TEST_SUITE_P(Places, WatchModelTest, testing::Values("/dev/shm", "/tmp"),
                         [](const auto& aInfo) { return aInfo.index == 0 ? "Memory" : "Disk"; });

/// In seconds: a machine that does much else gives a turn to each thread now and then only.
constexpr int kPatience = 300;

/// VOREL_WATCH_OPERATIONS says how many; the slow set runs a million.
TEST_P(WatchModelTest, PictureDriftsFromTheDisk) {
  const char* const setting = getenv("VOREL_WATCH_OPERATIONS");
  const int operations = setting ? atoi(setting) : 6000;
  Disk identities;  // as far as they are known
  Watch watch(mPlace);
  watch.mListener->mThen = [&](const std::string& aLine) {
    const size_t gap = aLine.find(' ');
    if (aLine.starts_with("moved ")) {
      const size_t middle = aLine.find(" > ");
      const std::string from = aLine.substr(gap + 1, middle - gap - 1);
      if (const auto node = identities.extract(from))
        identities[aLine.substr(middle + 3)] = node.mapped();
    } else {
      identities.erase(aLine.substr(gap + 1));
    }
  };
  for (int done = 0; done < operations;) {
    const int burst = static_cast<int>(1 + Pick(Pick(8) ? 60 : 2000));
    auto driver = std::async(std::launch::async, [&] {
      for (int i = 0; i < burst; ++i) Operate();
    });
    ASSERT_TRUE(NS_RunEventsUntil(
        [&] { return driver.wait_for(std::chrono::seconds(0)) == std::future_status::ready; }));
    done += burst;
    Disk disk;
    const auto isTrue = [&] {
      disk = Read();
      Watch::Picture names;
      for (const auto& [name, identity] : disk) names.insert(name);
      return watch.mListener->Picture() == names &&
             std::all_of(identities.begin(), identities.end(), [&](const auto& aKnown) {
               // A directory in another's place can have the time that the other one had.
               return aKnown.first.ends_with('/') ||
                      (disk.contains(aKnown.first) && disk[aKnown.first] == aKnown.second);
             });
    };
    if (!NS_RunEventsUntil(isTrue, kPatience)) {
      const auto picture = watch.mListener->Picture();
      for (const auto& [name, identity] : disk) {
        if (!picture.contains(name)) ADD_FAILURE() << "never told: " << name;
        if (identities.contains(name) && !name.ends_with('/') && identities[name] != identity)
          ADD_FAILURE() << "something else: " << name;
      }
      for (const std::string& name : picture)
        if (!disk.contains(name)) ADD_FAILURE() << "not there: " << name;
      FAIL() << "after " << done << " operations, with "
             << testing::PrintToString(watch.mListener->Take());
    }
    identities = disk;
    (void)watch.mListener->Take();
    (void)nsTestLog::Instance().Take();
  }
}

// ---- Threads

TEST_F(NativeWatchTest, ManyClientsOfManyRootsMissAChange) {
  constexpr size_t kClients = 64, kRoots = 10;
  vorel::test::gWatchPlatform = NS_NewNativePlatform();
  const auto service = MakeRefCounted<nsSystemFileSystemWatcherService>();
  const auto root = [&](size_t aClient) { return mRoot / std::to_string(aClient % kRoots); };
  const auto url = [&](size_t aClient) { return nsCString("file://" + root(aClient).native()); };
  for (size_t i = 0; i < kRoots; ++i) fs::create_directories(root(i) / "below");
  std::vector<nsCOMPtr<nsWatchListener>> clients;
  for (size_t i = 0; i < kClients; ++i) {
    clients.push_back(MakeRefCounted<nsWatchListener>());
    ASSERT_EQ(service->StartWatching(url(i), clients.back().get()), NS_OK);
  }
  const auto await = [&](const char* aLine) {
    EXPECT_TRUE(NS_RunEventsUntil([&] {
      return std::ranges::all_of(clients,
                                 [&](const auto& aClient) { return aClient->HasHeard(aLine); });
    })) << aLine;
  };
  await("started");
  for (size_t i = 0; i < kRoots; ++i) Write(root(i) / "below/file");
  await("added below/file");
  for (size_t i = 0; i < kClients; ++i)
    EXPECT_EQ(service->StopWatching(url(i), clients[i].get()), NS_OK);
  for (const auto& client : clients) {
    const Lines heard = client->Take();
    EXPECT_EQ(std::ranges::count(heard, "started"), 1);
    EXPECT_EQ(std::ranges::count(heard, "added below/file"), 1);
    EXPECT_EQ(std::ranges::count(heard, "stopped"), 1);
  }
  NS_RunEvents();
  vorel::test::gWatchPlatform = nullptr;
}

TEST_F(NativeWatchTest, WatchersOnManyThreadsRace) {
  for (int i = 0; i < 20; ++i) {
    fs::create_directories(mRoot / std::to_string(i) / "below");
    Write(mRoot / std::to_string(i) / "file");
  }
  vorel::test::gWatchPlatform = NS_NewNativePlatform();
  std::atomic<bool> stop = false;
  std::thread maker([&] {
    for (int i = 0; !stop; ++i) {
      std::error_code ignored;
      Write(mRoot / "0/file");
      fs::create_directory(mRoot / std::to_string(i % 20) / "new", ignored);
      fs::remove(mRoot / std::to_string((i + 7) % 20) / "new", ignored);
    }
  });
  // On the main thread: watchers that are stopped during the first walk, after it, during an
  // update, and from within a report.
  for (int i = 0; i < 60; ++i) {
    const auto listener = MakeRefCounted<nsWatchListener>();
    const auto watcher = MakeRefCounted<nsSystemFileSystemWatcher>(vorel::test::gWatchPlatform);
    ASSERT_EQ(watcher->Init(listener.get(), nsCString("file://" + mRoot.Path().native()), true),
              NS_OK);
    nsSystemFileSystemWatcher* const plain = watcher.get();
    if (i % 4 == 3) {
      listener->mThen = [plain](const std::string& aLine) {
        if (aLine.starts_with("added")) (void)plain->StopWatching();
      };
    }
    ASSERT_EQ(watcher->StartWatching(), NS_OK);
    const auto isFarEnough = [&] {
      return i % 4 == 0 || (i % 4 == 1 && listener->HasHeard("started")) ||
             (i % 4 == 2 && listener->HeardCount() > 1) || listener->HasHeard("stopped");
    };
    EXPECT_TRUE(NS_RunEventsUntil(isFarEnough));
    EXPECT_EQ(watcher->StopWatching(), NS_OK);
  }
  // On threads of their own: clients of the service, each with its root.
  struct Client {
    nsCOMPtr<nsIThread> mThread;
    nsCString mURL;
    std::vector<nsCOMPtr<nsWatchListener>> mListeners;  // a caller does not own its arguments
  };
  std::vector<Client> clients(4);
  for (size_t i = 0; i < clients.size(); ++i) {
    ASSERT_EQ(do_GetService<nsIThreadManager>(NS_THREADMANAGER_CONTRACTID)
                  ->NewThread(0, 0, clients[i].mThread.getter_AddRefs()),
              NS_OK);
    clients[i].mURL = nsCString("file://" + (mRoot / std::to_string(i)).native());
  }
  const auto service = MakeRefCounted<nsSystemFileSystemWatcherService>();
  const auto call = [&](Client& aClient, auto aMethod) {
    const auto caller = NS_NewRunnableMethodCaller<vorel::threads::eStrong>(
        service.get(), aMethod, aClient.mURL, aClient.mListeners.back().get());
    ASSERT_EQ(aClient.mThread->Dispatch(caller.get(), NS_DISPATCH_NORMAL), NS_OK);
  };
  for (size_t round = 0; round < 9; ++round) {
    for (Client& client : clients) {
      client.mListeners.push_back(MakeRefCounted<nsWatchListener>());
      call(client, &nsSystemFileSystemWatcherService::StartWatching);
    }
    EXPECT_TRUE(NS_RunEventsUntil([&] {
      return std::ranges::all_of(clients, [&](const Client& aClient) {
        return aClient.mListeners.back()->HeardCount() >= round % 3;
      });
    }));
    for (Client& client : clients) call(client, &nsSystemFileSystemWatcherService::StopWatching);
  }
  for (Client& client : clients) EXPECT_EQ(client.mThread->Shutdown(), NS_OK);
  stop = true;
  maker.join();
  NS_RunEvents();
  vorel::test::gWatchPlatform = nullptr;
}

}  // namespace
