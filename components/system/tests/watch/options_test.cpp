// What a watcher's options do: patterns, settling, and the comparison with an earlier watch.
#include <random>

#include "nsHostTime.h"
#include "nsSystemFileSystemFilter.h"
#include "nsSystemFileSystemSnapshot.h"
#include "nsTemporaryDirectory.h"
#include "nsWatchTest.h"

namespace {

using Lines = std::vector<std::string>;

bool Fits(std::u16string_view aPattern, std::u16string_view aPath) {
  return nsSystemFileSystemPattern(aPattern).Fits(aPath);
}

TEST(PatternTest, PatternFitsTheWrongNames) {
  for (const auto& [pattern, path] :
       std::initializer_list<std::pair<const char16_t*, const char16_t*>>{{u"a", u"a"},
                                                                          {u"a", u"x/y/a"},
                                                                          {u"*.mp4", u"x/a.mp4"},
                                                                          {u"?", u"x/a"},
                                                                          {u"**", u"a"},
                                                                          {u"a/b", u"a/b"},
                                                                          {u"a/*", u"a/b"},
                                                                          {u"a/**", u"a/b/c"},
                                                                          {u"**/b", u"b"},
                                                                          {u"**/b", u"x/y/b"},
                                                                          {u"a/**/b", u"a/b"},
                                                                          {u"a/**/b", u"a/x/y/b"},
                                                                          {u"*a*b", u"xaxaxb"},
                                                                          {u"x**/b/", u"x/b/"},
                                                                          {u"/**/", u"/"},
                                                                          {u"**/x/**", u"a/x/y"},
                                                                          {u"a/x**/b", u"a/xb"}})
    EXPECT_TRUE(Fits(pattern, path)) << NS_ToUtf8(pattern) << " " << NS_ToUtf8(path);
  for (const auto& [pattern, path] :
       std::initializer_list<std::pair<const char16_t*, const char16_t*>>{{u"a", u"ab"},
                                                                          {u"a", u"a/b"},
                                                                          {u"*.mp4", u"a.mp4/x"},
                                                                          {u"?", u"ab"},
                                                                          {u"a/*", u"a/b/c"},
                                                                          {u"a/?b", u"a//b"},
                                                                          {u"a/b", u"x/a/b"},
                                                                          {u"**/b", u"x/yb"},
                                                                          {u"a/**/b", u"a/xb"},
                                                                          {u"A", u"a"},
                                                                          {u"", u"a"},
                                                                          {u"a.c", u"abc"},
                                                                          {u"**/x/**", u"a/xy/z"}})
    EXPECT_FALSE(Fits(pattern, path)) << NS_ToUtf8(pattern) << " " << NS_ToUtf8(path);
  // One that a search with going back would take for ever with.
  std::u16string stars;
  for (int i = 0; i < 40; ++i) stars += u"*a";
  EXPECT_FALSE(Fits(stars + u"b", std::u16string(2000, u'a')));
}

class FilterTest : public nsSystemTest {
 protected:
  void SetUp() override {
    StartHost();
    NS_UseVirtualTime(true);
  }
  void TearDown() override { NS_UseVirtualTime(false); }

  void Make(const nsFileSystemWatcherOptions& aOptions) {
    mFilter =
        MakeRefCounted<nsSystemFileSystemFilter>(mListener.get(), aOptions, [this] { ++mTold; });
  }
  void Add(const char16_t* aPath) { (void)mFilter->OnFileSystemAdded(nsString(aPath)); }
  void Change(const char16_t* aPath) { (void)mFilter->OnFileSystemChanged(nsString(aPath)); }
  void Remove(const char16_t* aPath) { (void)mFilter->OnFileSystemRemoved(nsString(aPath)); }
  void Move(const char16_t* aFrom, const char16_t* aTo) {
    (void)mFilter->OnFileSystemMoved(nsString(aFrom), nsString(aTo));
  }

  const nsCOMPtr<nsWatchListener> mListener = MakeRefCounted<nsWatchListener>();
  nsCOMPtr<nsSystemFileSystemFilter> mFilter;
  int mTold = 0;
};

TEST_F(FilterTest, WhatIsLeftOutIsTold) {
  Make({.mExclude = {nsString(u"tmp"), nsString(u"a/secret")},
        .mOnly = {nsString(u"*.mp4"), nsString(u"sub/**")}});
  for (const char16_t* path : {u"x.mp4", u"x.txt", u"a/secret/x.mp4", u"a/tmp/", u"sub/tmp/y",
                               u"b/secret/x.mp4", u"sub/any/"})
    Add(path);
  Move(u"x.txt", u"y.mp4");
  Move(u"y.mp4", u"tmp/y.mp4");
  Move(u"x.mp4", u"z.mp4");
  EXPECT_EQ(mListener->Take(), (Lines{"added x.mp4", "added b/secret/x.mp4", "added sub/any/",
                                      "added y.mp4", "removed y.mp4", "moved x.mp4 > z.mp4"}));
}

TEST_F(FilterTest, ChangeIsToldBeforeItHasSettled) {
  Make({.mSettle = 800});
  (void)mFilter->OnWatcherStarted();
  EXPECT_EQ(mTold, 1);
  Add(u"a");
  NS_AdvanceTime(700);
  Change(u"a");
  Add(u"b");
  NS_AdvanceTime(700);
  EXPECT_EQ(mListener->Take(), Lines{"started"});
  EXPECT_EQ(mTold, 1);
  NS_AdvanceTime(200);
  EXPECT_EQ(mListener->Take(), (Lines{"added a", "added b"}));
  EXPECT_EQ(mTold, 2) << "whoever keeps what has been told waits for this";
  Change(u"a");
  (void)mFilter->OnWatcherStopped();
  EXPECT_EQ(mListener->Take(), (Lines{"changed a", "stopped"})) << "what waits at the end is lost";
}

/// Any sequence, against a picture of what was there when the last change was told.
TEST_F(FilterTest, SettlingLosesOrInventsAChange) {
  std::mt19937 random(3);
  constexpr const char16_t* kPaths[] = {u"a", u"b", u"c", u"d"};
  for (int round = 0; round < 3000; ++round) {
    Make({.mSettle = 10});
    std::map<std::string, int> disk{{"a", 1}, {"b", 2}}, told = disk;
    nsWatchListener::Paths before;
    for (const auto& [path, thing] : disk) before.insert(path);
    mListener->SetPicture(before);
    int things = 2;
    bool isChanged = false;
    for (int i = 0; i < 6; ++i) {
      const char16_t* const path = kPaths[random() % 4];
      const char16_t* const other = kPaths[random() % 4];
      const std::string name = NS_ToUtf8(path), to = NS_ToUtf8(other);
      if (!disk.contains(name)) {
        disk[name] = ++things;
        Add(path);
      } else if (const auto kind = random() % 3; kind == 0) {
        isChanged = true;
        Change(path);
      } else if (kind == 1) {
        disk.erase(name);
        Remove(path);
      } else if (!disk.contains(to)) {
        disk[to] = disk.extract(name).mapped();
        Move(path, other);
      }
    }
    (void)mFilter->OnWatcherStopped();
    nsWatchListener::Paths wanted;
    for (const auto& [path, thing] : disk) wanted.insert(path);
    const Lines heard = mListener->Take();
    ASSERT_EQ(mListener->Picture(), wanted) << testing::PrintToString(heard);
    // What is told to be the same thing, where it was or moved, is the same.
    for (const std::string& line : heard) {
      const std::string rest = line.substr(line.find(' ') + 1);
      if (const size_t middle = rest.find(" > "); middle != rest.npos)
        told[rest.substr(middle + 3)] = told.extract(rest.substr(0, middle)).mapped();
      else
        told.erase(rest);
    }
    for (const auto& [path, thing] : told) {
      ASSERT_TRUE(disk.contains(path) && disk[path] == thing)
          << path << " " << isChanged << testing::PrintToString(heard);
    }
  }
}

/// A watcher on simulated files, with a profile.
class SinceTest : public nsSystemTest {
 protected:
  SinceTest() {
    mOptions.mModules.push_back(&vorel::test::kPoolModule);
    mOptions.mProfileDirectory = mProfile.Path();
  }
  void SetUp() override {
    StartHost();
    NS_UseVirtualTime(true);
    Files().MakeDirectory(u"/data/sub/below");
    Files().Write(u"/data/sub/below/file");
    Files().Write(u"/data/a");
  }
  void TearDown() override {
    End();
    NS_RunEvents();
    nsManualPool::Instance().Clear();
    NS_UseVirtualTime(false);
  }

  nsSimulatedFiles& Files() { return *mMachine.mFiles; }
  /// What the start tells.
  Lines Begin() {
    mWatcher = MakeRefCounted<nsSystemFileSystemWatcher>(mMachine.Platform());
    EXPECT_EQ(mWatcher->Init(mListener.get(), nsCString("file:///data"), true), NS_OK);
    EXPECT_EQ(mWatcher->SetSince(nsString(u"name")), NS_OK);
    EXPECT_EQ(mWatcher->StartWatching(), NS_OK);
    nsManualPool::Instance().Run();
    NS_RunEvents();
    return mListener->Take();
  }
  void Settle() {
    mMachine.mDirectoryChanges->AwaitDelivery();
    NS_AdvanceTime(10);
    nsManualPool::Instance().Run();
    NS_RunEvents();
  }
  void End() {
    if (mWatcher) (void)mWatcher->StopWatching();
    mWatcher = nullptr;
    mMachine.mDirectoryChanges->AwaitDelivery();
    NS_RunEvents();
    (void)mListener->Take();
  }
  nsString KeptFile() {
    const std::string root = std::to_string(NS_Checksum("/data"));
    return nsString(NS_ToUtf16((mProfile / "watch" / ("name-" + root)).string()));
  }
  std::string Kept() {
    std::string kept;
    EXPECT_EQ(Files().ReadKept(KeptFile(), &kept), NS_OK);
    return kept;
  }

  nsTemporaryDirectory mProfile;
  nsCOMPtr<nsWatchListener> mListener = MakeRefCounted<nsWatchListener>();
  nsCOMPtr<nsSystemFileSystemWatcher> mWatcher;
};

const Lines kAll = {
    "error 5 name", "added sub/below/file", "added sub/below/", "added sub/", "added a", "started"};

Lines Sorted(Lines aLines) {
  std::ranges::sort(aLines);
  return aLines;
}

TEST_F(SinceTest, DifferencesFromTheLastWatchAreLost) {
  EXPECT_EQ(Sorted(Begin()), Sorted(kAll));
  Files().Write(u"/data/b");  // told, and no difference later
  Settle();
  EXPECT_TRUE(mListener->HasHeard("added b"));
  End();
  EXPECT_EQ(Begin(), Lines{"started"});
  End();

  Files().Write(u"/data/c");
  Files().Write(u"/data/a");
  Files().Remove(u"/data/b");
  Files().Rename(u"/data/sub", u"/data/moved");
  Files().Write(u"/data/moved/below/new");
  const Lines told = Begin();
  EXPECT_EQ(told.back(), "started");
  EXPECT_EQ(Sorted(told),
            Sorted({"added c", "changed a", "removed b", "moved sub/below/file > moved/below/file",
                    "moved sub/below/ > moved/below/", "moved sub/ > moved/",
                    "added moved/below/new", "changed moved/below/", "started"}));
  Files().Write(u"/data/moved/below/live");
  Settle();
  EXPECT_TRUE(mListener->HasHeard("added moved/below/live")) << "it is not watched";
}

TEST_F(SinceTest, WhatWasNotToldCountsAsTold) {
  (void)Begin();
  mWatcher->Keep();
  nsManualPool::Instance().Run();
  const std::string atStart = Kept();
  Files().Write(u"/data/b");
  mMachine.mDirectoryChanges->AwaitDelivery();
  NS_AdvanceTime(10);  // the look waits in the pool
  mWatcher->Keep();
  nsManualPool::Instance().Run();
  EXPECT_EQ(Kept(), atStart) << "what a later look found was kept with what has been told";
  End();
  EXPECT_NE(Kept(), atStart);
  EXPECT_EQ(Begin(), Lines{"started"});
}

TEST_F(SinceTest, AnotherVolumesNumbersMakeMoves) {
  (void)Begin();
  End();
  // As if another volume were there now, where other things have these numbers.
  Files().Rename(u"/data/a", u"/data/z");
  Files().SetVolume(u"/data", 7);
  const Lines told = Begin();
  EXPECT_EQ(Sorted(told), Sorted({"removed a", "added z", "started"}));
}

TEST_F(SinceTest, DamagedSnapshotCrashesOrIsBelieved) {
  (void)Begin();
  End();
  const std::string good = Kept();
  const auto beginsWith = [&](const std::string& aBytes) {
    EXPECT_EQ(Files().ReplaceKept(KeptFile(), aBytes), NS_OK);
    const Lines told = Begin();
    mWatcher->Keep();
    End();
    return Sorted(told);
  };
  EXPECT_EQ(beginsWith(""), Sorted(kAll));
  EXPECT_EQ(beginsWith(good.substr(0, good.size() / 2)), Sorted(kAll));
  EXPECT_EQ(beginsWith(good + "x"), Sorted(kAll));
  std::mt19937 random(5);
  const size_t head = good.find('\n') + 1;
  const auto root = MakeRefCounted<nsSystemFileSystemNode>();
  for (int i = 0; i < 20'000; ++i) {
    std::string bytes = good;
    const size_t at = random() % bytes.size();
    const char before = bytes[at];
    bytes[at] = static_cast<char>(random());
    if (i < 50 && bytes[at] != before) {
      EXPECT_EQ(beginsWith(bytes), Sorted(kAll)) << "byte " << at;
    }
    // And with a checksum that is right: nothing is promised but that it is read to some end.
    for (int more = static_cast<int>(random() % 4); more > 0; --more)
      bytes[head + random() % (bytes.size() - head)] = static_cast<char>(random() % 4);
    if (random() % 4 == 0) bytes.resize(head + 8 + random() % (bytes.size() - head - 8));
    const uint64_t sum = NS_Checksum(std::string_view(bytes).substr(head + 8));
    for (size_t byte = 0; byte < 8; ++byte)
      bytes[head + byte] = static_cast<char>(sum >> (8 * byte));
    const auto fresh = MakeRefCounted<nsSystemFileSystemNode>();
    (void)NS_ParseSnapshot(bytes, {u"/data", 1, 0, 1}, fresh.get());
  }
  EXPECT_TRUE(NS_ParseSnapshot(good, {u"/data", 1, 0, 1}, root.get()));
  const auto other = MakeRefCounted<nsSystemFileSystemNode>();
  EXPECT_FALSE(NS_ParseSnapshot(good, {u"/elsewhere", 1, 0, 1}, other.get()));
}

}  // namespace
