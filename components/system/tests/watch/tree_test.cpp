// The snapshot tree, step by step on simulated files, with either platform's separator.
#include <pthread.h>

#include <algorithm>
#include <random>

#include "nsFaultSweep.h"
#include "nsISystemFileSystemTreeListener.h"
#include "nsSimulatedFileSystem.h"
#include "nsSystemFileSystemTree.h"
#include "nsWatchTest.h"

namespace {

/// Keeps reports as lines, with paths relative to the root and "/".
class TreeListener final : public nsThreadSafeSupportsWeakReference,
                           public nsISystemFileSystemTreeListener {
 public:
  TreeListener(std::u16string aRoot, char16_t aSeparator)
      : mRoot(std::move(aRoot)), mSeparator(aSeparator) {}

  nsresult QueryInterface(const nsIID& aIID, void** aResult) override {
    *aResult =
        NS_FindInterface<nsISupportsWeakReference, nsISystemFileSystemTreeListener>(this, aIID);
    if (!*aResult) return NS_ERROR_NO_INTERFACE;
    AddRef();
    return NS_OK;
  }
  nsrefcnt AddRef() override { return nsThreadSafeSupportsWeakReference::AddRef(); }
  nsrefcnt Release() override { return nsThreadSafeSupportsWeakReference::Release(); }

  nsresult OnChangeFound(const nsAString& aPath, uint32_t aType) override {
    static constexpr const char* kNames[] = {"changed ", "added ", "removed "};
    const std::string path = Relative(aPath);
    if (aType == nsSystemFileSystemChange::eAdded) mPicture.insert(path);
    if (aType == nsSystemFileSystemChange::eRemoved) mPicture.erase(path);
    return Keep(kNames[aType] + path);
  }
  nsresult OnMoveFound(const nsAString& aOldPath, const nsAString& aNewPath) override {
    mPicture.erase(Relative(aOldPath));
    mPicture.insert(Relative(aNewPath));
    return Keep("moved " + Relative(aOldPath) + " > " + Relative(aNewPath));
  }
  nsresult OnTreeReady(const nsAString& aRootPath,
                       const std::vector<nsString>& aDiscoveredDirs) override {
    EXPECT_EQ(NS_View(aRootPath), mRoot);
    std::set<std::string> directories;
    for (const nsString& directory : aDiscoveredDirs) directories.insert(Relative(directory));
    std::string line = "ready";
    for (const std::string& directory : directories) line += " " + directory;
    return Keep(line);
  }
  nsresult OnRootPathMissing() override { return Keep("missing"); }
  nsresult OnTreeError() override { return Keep("error"); }

  std::vector<std::string> Take() { return std::exchange(mHeard, {}); }

  std::set<std::string> mPicture;
  std::function<void()> mThen = [] {};

 private:
  ~TreeListener() override = default;

  std::string Relative(const nsAString& aPath) {
    std::u16string path(NS_View(aPath).substr(std::min(mRoot.size() + 1, NS_View(aPath).size())));
    std::replace(path.begin(), path.end(), mSeparator, u'/');
    return NS_ToUtf8(path);
  }
  nsresult Keep(std::string aLine) {
    mHeard.push_back(std::move(aLine));
    mThen();
    return NS_OK;
  }

  const std::u16string mRoot;
  const char16_t mSeparator;
  std::vector<std::string> mHeard;
};

using Lines = std::vector<std::string>;

Lines Sorted(Lines aLines) {
  std::sort(aLines.begin(), aLines.end());
  return aLines;
}

class TreeTest : public nsSystemTest, public testing::WithParamInterface<char16_t> {
 protected:
  void SetUp() override {
    mOptions.mModules.push_back(&vorel::test::kPoolModule);
    StartHost();
    mRoot = GetParam() == u'/' ? u"/data" : u"C:\\data";
    mFiles = std::make_shared<nsSimulatedFiles>(std::make_shared<nsSimulatedCalls>(), GetParam());
    mFiles->MakeDirectory(mRoot);
    mListener = MakeRefCounted<TreeListener>(mRoot, GetParam());
  }

  /// The absolute path of a name below the root.
  std::u16string P(std::string_view aName) {
    std::u16string path = mRoot + u"/" + NS_ToUtf16(aName);
    std::replace(path.begin(), path.end(), u'/', GetParam());
    return path;
  }
  void Build() {
    mTree = MakeRefCounted<nsSystemFileSystemTree>(mFiles);
    ASSERT_EQ(mTree->SetListener(mListener.get()), NS_OK);
    ASSERT_EQ(mTree->Init(nsString(mRoot), true), NS_OK);
    EXPECT_EQ(mListener->Take(), Lines()) << "the first walk is not done by the caller";
    EXPECT_EQ(nsManualPool::Instance().Run(), 1u);
    NS_RunEvents();
  }
  void BuildQuietly() {
    Build();
    (void)mListener->Take();
    mListener->mPicture = Picture();
  }
  /// One cycle over these directories ("" is the root), in this order.
  Lines Look(const std::vector<std::string>& aDirectories) {
    EXPECT_EQ(mTree->StartUpdate(true), NS_OK);
    for (const std::string& directory : aDirectories)
      (void)mTree->Update(nsString(P(directory.empty() ? "" : directory + "/")));
    EXPECT_EQ(mTree->StopUpdate(), NS_OK);
    return mListener->Take();
  }
  /// What is really there.
  std::set<std::string> Picture() {
    std::set<std::string> picture;
    for (std::u16string path : mFiles->Paths(mRoot)) {
      std::replace(path.begin(), path.end(), GetParam(), u'/');
      picture.insert(NS_ToUtf8(path));
    }
    return picture;
  }

  /// What the snapshot says.
  std::set<std::string> Snapshot() {
    std::set<std::string> paths;
    const auto walk = [&](const auto& aSelf, const nsSystemFileSystemNode& aNode,
                          const std::string& aPrefix) -> void {
      for (const auto& [name, child] : aNode.Children()) {
        bool isDir = false;
        (void)child->GetIsDir(&isDir);
        const std::string path = aPrefix + NS_ToUtf8(name) + (isDir ? "/" : "");
        paths.insert(path);
        aSelf(aSelf, *child, path);
      }
    };
    walk(walk, *mTree->RootNode(), "");
    return paths;
  }

  std::u16string mRoot;
  std::shared_ptr<nsSimulatedFiles> mFiles;
  nsCOMPtr<TreeListener> mListener;
  nsCOMPtr<nsSystemFileSystemTree> mTree;
};

INSTANTIATE_TEST_SUITE_P(Separators, TreeTest, testing::Values(u'/', u'\\'), [](const auto& aInfo) {
  return aInfo.param == u'/' ? "Slash" : "Backslash";
});

// ---- The first snapshot

TEST_P(TreeTest, FirstSnapshotMissesDirectoriesOrReportsFiles) {
  mFiles->MakeDirectory(P("a/b"));
  mFiles->MakeDirectory(P("c"));
  mFiles->Write(P("a/b/file"));
  Build();
  EXPECT_EQ(mListener->Take(), Lines{"ready a a/b c"});
  EXPECT_EQ(Look({"", "a", "a/b", "c"}), Lines()) << "the snapshot lacks what is there";
}

/// On a thread whose stack is small, but not too small for what works level by level.
void OnSmallStack(std::function<void()> aWork) {
  pthread_attr_t attributes;
  ASSERT_EQ(pthread_attr_init(&attributes), 0);
  ASSERT_EQ(pthread_attr_setstacksize(&attributes, 256 * 1024), 0);
  pthread_t thread;
  const auto run = [](void* aFunction) -> void* {
    (*static_cast<std::function<void()>*>(aFunction))();
    return nullptr;
  };
  ASSERT_EQ(pthread_create(&thread, &attributes, run, &aWork), 0);
  ASSERT_EQ(pthread_join(thread, nullptr), 0);
  ASSERT_EQ(pthread_attr_destroy(&attributes), 0);
}

TEST_P(TreeTest, DeepTreeOverflowsTheStack) {
  std::string deep = "top";
  for (int depth = 1; depth < 2000; ++depth) deep += "/d";
  mFiles->MakeDirectory(P(deep));
  BuildQuietly();
  mFiles->Rename(P("top"), P("moved"));
  OnSmallStack([this] { (void)Look({""}); });
  NS_RunEvents();
  EXPECT_EQ(mListener->mPicture, Picture());
  mFiles->Remove(P("moved"));
  OnSmallStack([this] { (void)Look({""}); });
  NS_RunEvents();
  EXPECT_EQ(mListener->mPicture, std::set<std::string>());
}

TEST_P(TreeTest, EmptyRootIsTakenForAMissingOne) {
  Build();
  EXPECT_EQ(mListener->Take(), Lines{"ready"});
}

TEST_P(TreeTest, MissingRootIsTakenForAnEmptyOne) {
  mFiles->Remove(mRoot);
  Build();
  EXPECT_EQ(mListener->Take(), Lines{"missing"});
}

TEST_P(TreeTest, SecondInitOrNoListenerIsAccepted) {
  Build();
  EXPECT_EQ(mTree->Init(nsString(mRoot), true), NS_ERROR_ALREADY_INITIALIZED);
  EXPECT_EQ(mTree->SetListener(nullptr), NS_ERROR_NULL_POINTER);
}

TEST_P(TreeTest, DyingListenerOrTreeIsCalled) {
  mTree = MakeRefCounted<nsSystemFileSystemTree>(mFiles);
  ASSERT_EQ(mTree->SetListener(mListener.get()), NS_OK);
  ASSERT_EQ(mTree->Init(nsString(mRoot), true), NS_OK);
  mListener = nullptr;
  nsManualPool::Instance().Run();
  NS_RunEvents();  // reports are dropped

  mListener = MakeRefCounted<TreeListener>(mRoot, GetParam());
  mTree = MakeRefCounted<nsSystemFileSystemTree>(mFiles);
  ASSERT_EQ(mTree->SetListener(mListener.get()), NS_OK);
  ASSERT_EQ(mTree->Init(nsString(mRoot), true), NS_OK);
  mTree = nullptr;
  nsManualPool::Instance().Clear();  // a walk that finds its tree gone is not run
  EXPECT_EQ(mListener->Take(), Lines());

  mTree = MakeRefCounted<nsSystemFileSystemTree>(mFiles);
  ASSERT_EQ(mTree->SetListener(mListener.get()), NS_OK);
  ASSERT_EQ(mTree->Init(nsString(mRoot), true), NS_OK);
  nsManualPool::Instance().Run();
  mTree = nullptr;  // between the walk and the notice of it
  NS_RunEvents();
  EXPECT_EQ(mListener->Take(), Lines());
}

TEST_P(TreeTest, ListenerThatLetsGoOfTheTreeLocksUp) {
  BuildQuietly();
  mListener->mThen = [this] { EXPECT_EQ(mTree->ClearListener(), NS_OK); };
  mFiles->Write(P("a"));
  mFiles->Write(P("b"));
  EXPECT_EQ(Look({""}).size(), 1u) << "the second report came after ClearListener";
}

// ---- One directory

TEST_P(TreeTest, ChangeIsMistakenOrReportedTwice) {
  mFiles->Write(P("file"));
  mFiles->Write(P("old"));
  BuildQuietly();
  mFiles->Write(P("file"));
  mFiles->Write(P("new"));
  mFiles->Remove(P("old"));
  EXPECT_EQ(Sorted(Look({""})), (Lines{"added new", "changed file", "removed old"}));
  EXPECT_EQ(Look({""}), Lines());
}

TEST_P(TreeTest, EqualTimeIsReportedAsAChange) {
  mFiles->Write(P("file"));
  mFiles->SetLastModify(P("file"), 7);
  BuildQuietly();
  mFiles->Write(P("file"));
  mFiles->SetLastModify(P("file"), 7);
  EXPECT_EQ(Look({""}), Lines());
}

TEST_P(TreeTest, LinksAreWalkedInsteadOfLeftToTheFirstLook) {
  mFiles->MakeOther(P("link"), nsPlatformFiles::kSymlink);
  mFiles->MakeOther(P("pipe"), nsPlatformFiles::kSpecial);
  Build();
  EXPECT_EQ(mListener->Take(), Lines{"ready"});
  EXPECT_EQ(Sorted(Look({""})), (Lines{"added link", "added pipe"}));
}

TEST_P(TreeTest, NewDirectoryIsReportedBeforeWhatItHolds) {
  BuildQuietly();
  mFiles->MakeDirectory(P("a/b"));
  mFiles->Write(P("a/b/file"));
  EXPECT_EQ(Look({""}), (Lines{"added a/b/", "added a/b/file", "added a/"}));
  EXPECT_EQ(Look({"a", "a/b"}), Lines());
}

TEST_P(TreeTest, RemovedDirectoryIsReportedBeforeWhatItHeld) {
  mFiles->MakeDirectory(P("a/b"));
  mFiles->Write(P("a/b/file"));
  BuildQuietly();
  mFiles->Remove(P("a"));
  EXPECT_EQ(Look({""}), (Lines{"removed a/b/file", "removed a/b/", "removed a/"}));
}

TEST_P(TreeTest, UnknownDirectoryIsLookedAt) {
  BuildQuietly();
  mFiles->MakeDirectory(P("a"));
  EXPECT_EQ(mTree->StartUpdate(true), NS_OK);
  EXPECT_EQ(mTree->Update(nsString(P("a/"))), NS_ERROR_FAILURE);
  EXPECT_EQ(mTree->Update(nsString(u"elsewhere")), NS_ERROR_INVALID_ARG);
  EXPECT_EQ(mTree->StopUpdate(), NS_OK);
  EXPECT_EQ(mListener->Take(), Lines());
}

TEST_P(TreeTest, FileInADirectorysPlaceKeepsTheOldChildren) {
  mFiles->MakeDirectory(P("a"));
  mFiles->Write(P("a/file"));
  mFiles->Write(P("b"));
  BuildQuietly();
  mFiles->Remove(P("a"));
  mFiles->Write(P("a"));
  mFiles->Remove(P("b"));
  mFiles->MakeDirectory(P("b/c"));
  EXPECT_EQ(Look({""}), (Lines{"removed a/file", "removed a/", "removed b"}));
  EXPECT_TRUE(mTree->IsUnfinished());
  EXPECT_EQ(Look({""}), (Lines{"added a", "added b/c/", "added b/"}));
  EXPECT_EQ(Look({"", "b", "b/c"}), Lines());
}

// ---- Moves

TEST_P(TreeTest, RenameIsReportedAsRemovalAndAddition) {
  mFiles->Write(P("old"));
  BuildQuietly();
  mFiles->Rename(P("old"), P("new"));
  EXPECT_EQ(Look({""}), Lines{"moved old > new"});
  EXPECT_EQ(Look({""}), Lines());
}

TEST_P(TreeTest, MoveBetweenDirectoriesDependsOnTheirOrder) {
  mFiles->MakeDirectory(P("a"));
  mFiles->MakeDirectory(P("b"));
  mFiles->Write(P("a/file"));
  BuildQuietly();
  mFiles->Rename(P("a/file"), P("b/file"));
  EXPECT_EQ(Look({"a", "b"}), Lines{"moved a/file > b/file"});
  mFiles->Rename(P("b/file"), P("a/file"));
  EXPECT_EQ(Look({"a", "b"}), Lines{"moved b/file > a/file"});
  mFiles->Rename(P("a/file"), P("b/file"));
  EXPECT_EQ(Look({"a"}), Lines{"removed a/file"}) << "of two cycles nothing is remembered";
  EXPECT_EQ(Look({"b"}), Lines{"added b/file"});
}

TEST_P(TreeTest, MovedDirectoryIsReadAgainOrLosesItsChildren) {
  mFiles->MakeDirectory(P("a/b"));
  mFiles->Write(P("a/b/file"));
  BuildQuietly();
  mFiles->Rename(P("a"), P("z"));
  EXPECT_EQ(Look({""}), (Lines{"moved a/b/file > z/b/file", "moved a/b/ > z/b/", "moved a/ > z/"}));
  mFiles->Write(P("z/b/more"));
  EXPECT_EQ(Look({"z", "z/b"}), (Lines{"changed z/b/", "added z/b/more"}));
}

TEST_P(TreeTest, ReusedIdentityIsNotTakenForAMove) {
  mFiles->Write(P("old"));
  mFiles->SetINode(P("old"), 4711);
  BuildQuietly();
  mFiles->Remove(P("old"));
  mFiles->Write(P("new"));
  mFiles->SetINode(P("new"), 4711);
  EXPECT_EQ(Look({""}), Lines{"moved old > new"});
}

TEST_P(TreeTest, MoveIsMadeUpWithoutAnIdentityOrMissedOnAnotherVolume) {
  mFiles->Write(P("one"));
  mFiles->SetHasINode(P("one"), false);
  mFiles->Write(P("two"));
  mFiles->SetVolume(P("two"), 2);
  mFiles->Write(P("three"));
  mFiles->SetINode(P("three"), 33);
  BuildQuietly();
  mFiles->Rename(P("one"), P("1"));
  mFiles->Rename(P("two"), P("2"));
  mFiles->Remove(P("three"));
  mFiles->Write(P("other"));
  mFiles->SetINode(P("other"), 33);  // the same number, on another volume
  mFiles->SetVolume(P("other"), 2);
  EXPECT_EQ(Sorted(Look({""})),
            (Lines{"added 1", "added other", "moved two > 2", "removed one", "removed three"}));
}

TEST_P(TreeTest, NumberThatAnotherKindHadMakesAMove) {
  mFiles->Write(P("file"));
  mFiles->MakeDirectory(P("directory"));
  mFiles->Write(P("plain"));
  mFiles->SetINode(P("file"), 1001);
  mFiles->SetINode(P("directory"), 1002);
  mFiles->SetINode(P("plain"), 1003);
  BuildQuietly();
  for (const char* name : {"file", "directory", "plain"}) mFiles->Remove(P(name));
  mFiles->MakeDirectory(P("new"));
  mFiles->Write(P("new/below"));
  mFiles->Write(P("other"));
  mFiles->MakeOther(P("link"), nsPlatformFiles::kSymlink);
  mFiles->SetINode(P("new"), 1001);
  mFiles->SetINode(P("other"), 1002);
  mFiles->SetINode(P("link"), 1003);
  EXPECT_EQ(Sorted(Look({""})), (Lines{"added link", "added new/", "added new/below", "added other",
                                       "removed directory/", "removed file", "removed plain"}));
  EXPECT_EQ(Snapshot(), Picture());
}

TEST_P(TreeTest, SecondSourceOfAMoveLeavesItsChildrenAtTheDestination) {
  // As where an identity could not be told in time.
  for (const char* name : {"a", "b"}) {
    mFiles->MakeDirectory(P(name));
    mFiles->Write(P(std::string(name) + "/of-" + name));
    mFiles->SetINode(P(name), 1001);
  }
  BuildQuietly();
  mFiles->Remove(P("a"));
  mFiles->Remove(P("b"));
  mFiles->MakeDirectory(P("c"));
  mFiles->SetINode(P("c"), 1001);
  const Lines heard = Look({""});
  EXPECT_EQ(
      std::ranges::count_if(heard, [](const auto& aLine) { return aLine.starts_with("moved"); }), 2)
      << "one directory, and what it held";
  EXPECT_TRUE(mTree->IsUnfinished());
  (void)Look({"", "c"});
  EXPECT_EQ(mListener->mPicture, Picture());
  EXPECT_EQ(Snapshot(), Picture());
}

TEST_P(TreeTest, IdentityOfWhatHasTakenAPlaceIsNotLearnt) {
  mFiles->Write(P("a"));
  mFiles->Write(P("b"));
  BuildQuietly();
  for (const char* name : {"a", "b"}) mFiles->SetLastModify(P(name), 7);
  (void)Look({""});
  mFiles->Rename(P("a"), P("c"));
  mFiles->Rename(P("b"), P("a"));
  mFiles->Rename(P("c"), P("b"));
  EXPECT_EQ(Look({""}), Lines()) << "the same times";
  mFiles->Rename(P("b"), P("d"));
  EXPECT_EQ(Look({""}), Lines{"moved b > d"});
}

TEST_P(TreeTest, MoveHidesTheChangeForEver) {
  mFiles->Write(P("old"));
  BuildQuietly();
  mFiles->Rename(P("old"), P("new"));
  mFiles->Write(P("new"));
  EXPECT_EQ(Look({""}), Lines{"moved old > new"});
  EXPECT_EQ(Look({""}), Lines{"changed new"});
}

TEST_P(TreeTest, HardLinksThatComeTogetherAreLost) {
  mFiles->Write(P("elsewhere"));
  BuildQuietly();
  mFiles->Write(P("1"));
  mFiles->Link(P("1"), P("2"));
  mFiles->Link(P("1"), P("3"));
  EXPECT_EQ(Look({""}), Lines{"added 1"});
  EXPECT_TRUE(mTree->IsUnfinished());
  EXPECT_EQ(TakeLog("error system.fileWatcher"),
            Lines{"error system.fileWatcher: ERROR: Could not add create change item!"});
  EXPECT_EQ(Look({""}), (Lines{"added 2", "added 3"}));
  EXPECT_FALSE(mTree->IsUnfinished());
  for (const char* name : {"1", "2", "3"}) mFiles->Remove(P(name));
  EXPECT_EQ(Look({""}).size(), 1u);
  EXPECT_EQ(Look({""}).size(), 2u);
  EXPECT_EQ(TakeLog("error "), Lines());
}

TEST_P(TreeTest, LookAtWhatHasGoneWarns) {
  mFiles->MakeDirectory(P("a/b"));
  BuildQuietly();
  mFiles->Remove(P("a"));
  EXPECT_EQ(mTree->StartUpdate(true), NS_OK);
  EXPECT_TRUE(mTree->Expects(nsString(P("a/b/"))));
  EXPECT_EQ(mTree->Update(nsString(P("a/b/"))), NS_ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(mTree->Update(nsString(P(""))), NS_OK);
  EXPECT_FALSE(mTree->Expects(nsString(P("a/b/")))) << "it lies below one known to be gone";
  EXPECT_FALSE(mTree->Expects(nsString(P("unknown/"))));
  EXPECT_EQ(mTree->StopUpdate(), NS_OK);
  EXPECT_EQ(TakeLog(""), Lines());
}

// ---- What can't be read

TEST_P(TreeTest, UnreadableEntryEndsTheLook) {
  BuildQuietly();
  mFiles->Write(P("a"));
  mFiles->SetUnreadable(P("a"));
  mFiles->Write(P("b"));
  EXPECT_EQ(Look({""}), Lines{"added b"});
  EXPECT_EQ(
      TakeLog("error "),
      Lines{"error system.fileWatcher: ERROR: Could not get the leaf name from the file-spec!"});
}

TEST_P(TreeTest, NullPointersAreFollowed) {
  BuildQuietly();
  nsCOMPtr<nsSystemFileSystemNode> node;
  EXPECT_EQ(mTree->GetNode(nsString(mRoot), nullptr, node.getter_AddRefs()), NS_ERROR_NULL_POINTER);
  EXPECT_EQ(mTree->GetNode(nsString(mRoot), mTree->RootNode(), nullptr), NS_ERROR_NULL_POINTER);
  EXPECT_EQ(mTree->RootNode()->AddChild(nullptr), NS_ERROR_NULL_POINTER);
  EXPECT_EQ(mTree->RootNode()->RemoveChild(nullptr), NS_ERROR_NULL_POINTER);
  EXPECT_EQ(mTree->RootNode()->GetIsDir(nullptr), NS_ERROR_NULL_POINTER);
  EXPECT_EQ(TakeLog("warning debug"),
            (Lines{"warning debug: 'NS_ENSURE_TRUE(aRootSearchNode) failed'",
                   "warning debug: 'NS_ENSURE_TRUE(aNodeRetVal) failed'",
                   "warning debug: 'NS_ENSURE_TRUE(aNode) failed'",
                   "warning debug: 'NS_ENSURE_TRUE(aNode) failed'",
                   "warning debug: 'NS_ENSURE_TRUE(aIsDir) failed'"}));
}

// ---- Any sequence of operations

/// Random operations between looks at the directories that they touched; what was reported must
/// then amount to what is there.
TEST_P(TreeTest, PictureDriftsFromTheDisk) {
  std::mt19937 random(2024);
  const auto pick = [&](size_t aCount) { return random() % aCount; };
  BuildQuietly();
  std::set<std::string> looks;
  const auto touched = [&](const std::string& aPath) {
    const size_t end = aPath.rfind('/', aPath.size() - 2);
    looks.insert(end == aPath.npos ? "" : aPath.substr(0, end));
  };
  for (int round = 0; round < 2000; ++round) {
    for (size_t operation = 0, count = 1 + pick(6); operation < count; ++operation) {
      const std::set<std::string> there = Picture();
      std::vector<std::string> files, directories{""};
      for (const std::string& path : there)
        (path.ends_with('/') ? directories : files).push_back(path);
      const std::string name =
          directories[pick(directories.size())] + static_cast<char>('a' + pick(5));
      const bool isFree = !there.contains(name) && !there.contains(name + "/");
      switch (pick(6)) {
        case 0:
          if (isFree && directories.size() < 12) {
            mFiles->MakeDirectory(P(name));
            touched(name);
            looks.insert(name);  // the source names a directory that has appeared
          }
          break;
        case 1:
          if (!there.contains(name + "/")) {
            mFiles->Write(P(name));
            touched(name);
          }
          break;
        case 2:
          if (isFree) break;
          mFiles->Remove(P(name));
          touched(name);
          break;
        case 3:
          if (files.empty() || there.contains(name + "/")) break;
          if (const std::string file = files[pick(files.size())]; file != name) {
            mFiles->Rename(P(file), P(name));
            touched(file);
            touched(name);
          }
          break;
        case 4:
          if (files.empty() || !isFree) break;
          mFiles->Link(P(files[pick(files.size())]), P(name));
          touched(name);
          break;
        case 5:
          if (directories.size() < 2 || !isFree) break;
          if (std::string directory = directories[1 + pick(directories.size() - 1)];
              !(name + "/").starts_with(directory)) {
            directory.pop_back();
            mFiles->Rename(P(directory), P(name));
            touched(directory);
            touched(name);
            // And all directories in one that has moved.
            for (const std::string& path : Picture())
              if (path.ends_with('/') && path.starts_with(name + "/"))
                looks.insert(path.substr(0, path.size() - 1));
          }
          break;
      }
    }
    for (int look = 0; look < 1 || (mTree->IsUnfinished() && look < 100); ++look) {
      EXPECT_EQ(mTree->StartUpdate(true), NS_OK);
      for (const std::string& directory : looks)
        (void)mTree->Update(nsString(P(directory.empty() ? "" : directory + "/")));
      EXPECT_EQ(mTree->StopUpdate(), NS_OK);
    }
    ASSERT_EQ(mListener->mPicture, Picture()) << "in round " << round;
    ASSERT_EQ(Snapshot(), Picture()) << "in round " << round;
    looks.clear();
  }
}

// ---- Faults

TEST(TreeFaultTest, FailingCallSpoilsTheSnapshot) {
  nsHostOptions options;
  options.mModules = {&vorel::test::kModule, &vorel::test::kPoolModule};
  nsHost host;
  ASSERT_EQ(host.Start(options), NS_OK);
  NS_SweepFaults([](nsSimulatedMachine& aMachine, bool aFaulty) {
    nsSimulatedFiles& files = *aMachine.mFiles;
    files.MakeDirectory(u"/data/a/b");
    files.Write(u"/data/a/one");
    files.Write(u"/data/two");
    const auto listener = MakeRefCounted<TreeListener>(u"/data", u'/');
    const auto tree = MakeRefCounted<nsSystemFileSystemTree>(aMachine.mFiles);
    ASSERT_EQ(tree->SetListener(listener.get()), NS_OK);
    ASSERT_EQ(tree->Init(nsString(u"/data"), true), NS_OK);
    nsManualPool::Instance().Run();
    NS_RunEvents();
    const Lines first = listener->Take();
    if (first == Lines{"missing"}) {
      EXPECT_TRUE(aFaulty);
      return;
    }
    listener->mPicture = {"a/", "a/b/", "a/one", "two"};
    const auto look = [&] {
      (void)tree->StartUpdate(true);
      for (const char16_t* path : {u"/data/", u"/data/a/", u"/data/a/b/", u"/data/z/"})
        (void)tree->Update(nsString(path));
      (void)tree->StopUpdate();
    };
    look();
    files.Rename(u"/data/a", u"/data/z");
    files.Write(u"/data/z/b/three");
    files.Remove(u"/data/two");
    look();
    if (!aFaulty) {
      EXPECT_EQ(listener->mPicture, (std::set<std::string>{"z/", "z/b/", "z/one"}))
          << "what is new in a directory that moved is found by a look at its new place";
    }
    // One look without a fault sets it right.
    size_t failed;
    do {
      failed = aMachine.mCalls->FailedCalls().size();
      (void)tree->StartUpdate(true);
      for (const char16_t* path : {u"/data/", u"/data/z/", u"/data/z/b/"})
        (void)tree->Update(nsString(path));
      (void)tree->StopUpdate();
    } while (tree->IsUnfinished() || failed != aMachine.mCalls->FailedCalls().size());
    // Without a root there is no snapshot, and nothing is reported.
    if (tree->RootNode()) {
      EXPECT_EQ(listener->mPicture, (std::set<std::string>{"z/", "z/b/", "z/b/three", "z/one"}));
    }
  });
}

}  // namespace
