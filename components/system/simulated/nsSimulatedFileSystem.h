// A file system of facts, and what hears of its changes.
#pragma once

#include <functional>
#include <map>
#include <set>
#include <vector>

#include "nsLock.h"
#include "nsPlatformDirectoryChanges.h"
#include "nsPlatformFiles.h"
#include "nsSimulatedCalls.h"

/// Files and directories that exist as facts only, with either platform's separator. Time stands
/// still but for the changes made here: each gives its file, and the directory of a name that comes
/// or goes, the next number. The identity of what has gone is given to the next thing that is made,
/// of whatever kind, as disks do.
///
/// Paths are absolute. Changes of what is not there, and names below something that is no
/// directory, are mistakes of the test and end the process.
class nsSimulatedFiles final : public nsPlatformFiles, public nsSimulatedPort {
 public:
  explicit nsSimulatedFiles(nsSimulatedCallsRef aCalls, char16_t aSeparator = u'/');

  /// With all directories above it that are missing.
  void MakeDirectory(std::u16string_view aPath);
  /// Makes the file, or changes it.
  void Write(std::u16string_view aPath);
  /// A link or a special file.
  void MakeOther(std::u16string_view aPath, Kind aKind);
  /// One more name for a file.
  void Link(std::u16string_view aPath, std::u16string_view aNewPath);
  /// Takes the place of what had the new name.
  void Rename(std::u16string_view aPath, std::u16string_view aNewPath);
  /// With everything below.
  void Remove(std::u16string_view aPath);

  // Facts that no change announces.
  void SetLastModify(std::u16string_view aPath, int64_t aLastModify);
  void SetINode(std::u16string_view aPath, uint64_t aINode);
  /// For itself only, as if something were mounted there.
  void SetVolume(std::u16string_view aPath, uint64_t aVolume);
  void SetHasINode(std::u16string_view aPath, bool aHasINode);
  /// Its name and its facts can't be read any more, but it is still there.
  void SetUnreadable(std::u16string_view aPath);

  /// All paths below a directory, relative to it, a directory's with a separator at its end.
  std::set<std::u16string> Paths(std::u16string_view aRoot) const;

  /// Is told the path of each change; one at a time.
  void SetObserver(std::function<void(std::u16string_view aPath)> aObserver);

  char16_t Separator() const override { return mSeparator; }
  nsresult Exists(const nsAString& aPath, bool* aExists) override;
  nsresult ReadEntry(const nsAString& aPath, Entry* aEntry) override;
  /// In the order of names.
  nsresult OpenListing(const nsAString& aPath, bool aFollowLink,
                       std::unique_ptr<Listing>* aListing) override;
  /// The one that SetVolume has given the path, 1 without.
  nsresult ReadVolume(const nsAString& aPath, uint64_t* aVolume) override;
  /// What is kept is no simulated file: it is there in any case, and in no listing.
  nsresult ReadKept(const nsAString& aPath, std::string* aContents) override;
  nsresult ReplaceKept(const nsAString& aPath, std::string_view aContents) override;

 private:
  using FreeINodes = std::shared_ptr<std::vector<uint64_t>>;
  struct Node {
    explicit Node(FreeINodes aFree) : mFree(std::move(aFree)) {}
    ~Node() { mFree->push_back(mFacts.mINode); }
    const FreeINodes mFree;
    Entry mFacts;  // without a name
    std::map<std::u16string, std::shared_ptr<Node>> mChildren;
  };
  using NodeRef = std::shared_ptr<Node>;
  class SnapshotListing;

  NodeRef Find(std::u16string_view aPath) const NS_REQUIRES(mLock);
  NodeRef& Slot(std::u16string_view aPath) NS_REQUIRES(mLock);
  void Erase(std::u16string_view aPath) NS_REQUIRES(mLock);
  NodeRef NewNode(Kind aKind) NS_REQUIRES(mLock);
  Node& At(std::u16string_view aPath) NS_REQUIRES(mLock);
  static Entry NamedEntry(std::u16string_view aName, const Node& aNode);

  void Announce(std::u16string_view aPath);

  const char16_t mSeparator;
  int64_t mNow NS_GUARDED_BY(mLock) = 0;
  uint64_t mLastINode NS_GUARDED_BY(mLock) = 0;
  const FreeINodes mFreeINodes = std::make_shared<std::vector<uint64_t>>();
  NodeRef mRoot NS_GUARDED_BY(mLock);
  std::map<std::u16string, std::string> mKept NS_GUARDED_BY(mLock);
  std::function<void(std::u16string_view)> mObserver NS_GUARDED_BY(mLock);
};

/// Tells readers of what changes in the simulated files.
class nsSimulatedDirectoryChanges final : public nsPlatformDirectoryChanges,
                                          public nsSimulatedPort {
 public:
  nsSimulatedDirectoryChanges(nsSimulatedCallsRef aCalls, std::shared_ptr<nsSimulatedFiles> aFiles);
  ~nsSimulatedDirectoryChanges();

  std::unique_ptr<nsPlatformDirectoryReader> NewReader() override;

  /// Names a path below the root of every open reader, whatever is there.
  void Name(std::u16string_view aPath);
  /// Completes the outstanding read of every open reader with this and no names.
  void CompleteEmpty(nsresult aResult);
  /// Blocks until every open reader has handed out all it had, and its thread waits again. Only
  /// with a thread that does.
  void AwaitDelivery();

 private:
  class Reader;

  const std::shared_ptr<nsSimulatedFiles> mFiles;
  nsCondition mChanged;
  std::set<Reader*> mReaders NS_GUARDED_BY(mLock);
};
