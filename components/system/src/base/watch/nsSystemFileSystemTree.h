// The snapshot of a directory tree, and the look that tells what has changed since.
//
// Whoever owns a tree only says where to look. What changed is always decided by comparing the disk
// with the snapshot, so lost, doubled or reordered hints can't make the snapshot wrong, only late.
#pragma once

#include <atomic>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "nsILog4.h"
#include "nsIThread.h"
#include "nsLock.h"
#include "nsPlatformDirectoryChanges.h"
#include "nsPlatformFiles.h"
#include "nsSystemFileSystemChange.h"
#include "nsThreadSafeWeakReference.h"
#include "nsVorelMethodCaller.h"

class nsISystemFileSystemTreeListener;

/// SetListener, Init, then wait for OnTreeReady or OnRootPathMissing; then any number of cycles of
/// StartUpdate, Update for each directory, StopUpdate; at the end ClearListener.
///
/// Init and ClearListener are called on the owner's thread, which also receives all reports. Cycles
/// may run on any one thread at a time. Locks: mRootNodeLock before mListenerLock.
class nsSystemFileSystemTree final : public nsThreadSafeSupportsWeakReference {
 public:
  using ChangeArray = std::vector<nsCOMPtr<nsSystemFileSystemNodeChange>>;

  /// aReader, where there is one, is opened before the first walk, which has it watch each
  /// directory before it is listed: nothing has to be looked at twice.
  explicit nsSystemFileSystemTree(std::shared_ptr<nsPlatformFiles> aFiles,
                                  std::shared_ptr<nsPlatformDirectoryReader> aReader = nullptr);

  nsresult QueryInterface(const nsIID& aIID, void** aResult) override;

  /// Held weakly. NS_ERROR_NULL_POINTER for null.
  nsresult SetListener(nsISystemFileSystemTreeListener* aListener);
  /// No call into the listener is under way when this returns, but one that it is called from.
  nsresult ClearListener();
  /// Ends walks early, also those that have not begun, without a word. Any thread.
  void Cancel() { mIsCancelled = true; }
  /// The first snapshot is compared with the one that an earlier tree of this root has left in the
  /// file: what differs is reported before OnTreeReady. Where there is none, or one that is damaged
  /// or of another root, aOnFullListing is called on the owner's thread, and everything there is is
  /// reported as added. To be called before Init.
  void CompareWith(const nsAString& aFile, std::function<void()> aOnFullListing);
  /// The snapshot as bytes, for such a file. Not during a cycle.
  std::string Format();
  /// How many cycles have ended. Any thread.
  uint64_t Cycles() const { return mCycles; }

  /// Returns at once; the first snapshot is taken on the thread pool. Once for each tree:
  /// NS_ERROR_ALREADY_INITIALIZED.
  nsresult Init(const nsAString& aRootPath, bool aIsRecursive);
  nsresult InitTree();
  /// Takes the first snapshot on this thread.
  nsresult BuildTree();

  /// Begins a cycle and discards what an earlier one left. With aDetectMoves, removals and
  /// additions of one inode become moves, in whichever directories of the cycle they are found.
  nsresult StartUpdate(bool aDetectMoves);
  /// Gathers the changes of one directory. Fails for one that is not in the snapshot: what lies in
  /// a directory that has just appeared is reported with it.
  nsresult Update(const nsAString& aPath);
  /// Whether there is any use in Update for a directory: not for one that is not in the snapshot,
  /// and not for what lies below one that this cycle has already found gone. Says no in silence.
  bool Expects(const nsAString& aPath);
  /// Applies the changes of the cycle to the snapshot and reports them. Returns at the first
  /// failure with the rest undone.
  nsresult StopUpdate();
  /// Whether the same directories, looked at again, may tell more: a change of the last cycle was
  /// left out because another stood in its way (of the same inode, of the same name, of a directory
  /// above), or a directory moved while one of those asked for was not known.
  bool IsUnfinished() const { return mIsUnfinished; }
  /// Reports at once what is still on its way to the owner's thread, which calls this.
  nsresult Deliver();
  /// Directories that are to be looked at, whether or not anything changes there: those that the
  /// last cycle has walked and that hold what a walk leaves out (links, special files), and all
  /// below one whose place another one has taken.
  const std::vector<nsString>& LeftOut() const { return mLeftOut; }

  nsresult GetNode(const nsAString& aPath, nsSystemFileSystemNode* aRootSearchNode,
                   nsSystemFileSystemNode** aNodeRetVal);
  /// A directory's path ends in the separator.
  nsresult GetNodePath(nsSystemFileSystemNode* aNode, nsAString& aPath, bool aPrependRoot);
  nsSystemFileSystemNode* RootNode() const { return mRootNode.get(); }

 private:
  ~nsSystemFileSystemTree() override = default;

  /// What makes two sightings one thing.
  struct Identity {
    uint64_t mINode;
    uint16_t mVolume;
    nsPlatformFiles::Kind mKind;
    bool operator==(const Identity&) const = default;
  };
  struct IdentityHash {
    size_t operator()(const Identity& aIdentity) const {
      return std::hash<uint64_t>()(aIdentity.mINode) ^ aIdentity.mVolume;
    }
  };
  struct Found {
    uint32_t mType;
    std::u16string mPath, mNewPath;  // the latter of a move
  };
  struct Sighting {
    size_t mChange;  // its place in mChanges
    uint32_t mType;
    bool mIsPaired;
  };

  /// aLeftOut, when given, tells whether the directory holds what is skipped.
  nsresult GetChildren(const nsAString& aPath, nsSystemFileSystemNode* aParent,
                       nsFileSystemNodeMap* aChildren, bool* aLeftOut = nullptr);
  nsresult AddChildren(const nsAString& aPath, nsSystemFileSystemNode* aParent,
                       bool aBuildDiscoveredDirs, bool aNotifyListener);
  nsresult CreateNode(const nsPlatformFiles::Entry* aFile, nsSystemFileSystemNode* aParent,
                      nsSystemFileSystemNode** aNode);
  nsresult GetNodeChanges(nsSystemFileSystemNode* aNode, const nsAString& aPath,
                          ChangeArray* aChanges);
  nsresult AppendCreateNodeChangeItem(nsSystemFileSystemNode* aChangedNode, uint32_t aChangeType,
                                      ChangeArray* aChanges);
  nsresult ApplyChange(uint32_t aChangeType, nsSystemFileSystemNode* aNode,
                       nsSystemFileSystemNode* aParent, bool aIsDir, const nsAString& aPath);
  nsresult ApplyMove(nsSystemFileSystemNodeChange* aChange, nsSystemFileSystemNode* aNode,
                     nsSystemFileSystemNode* aParent, bool aIsDir, const nsAString& aOldPath);
  /// Whether a node can still be reached from the root, and not through aOutside.
  bool IsInTree(nsSystemFileSystemNode* aNode, nsSystemFileSystemNode* aOutside = nullptr) const;
  nsresult NotifyDirAdded(nsSystemFileSystemNode* aAddedDirNode, const nsAString& aPath);
  nsresult NotifyDirRemoved(nsSystemFileSystemNode* aRemovedDirNode, const nsAString& aPath);
  nsresult NotifyDirMoved(nsSystemFileSystemNode* aRemovedDirNode, const nsAString& aOldPath,
                          const nsAString& aNewPath);
  /// Calls with the relative path of each entry below a directory, the deepest first; a directory's
  /// ends in the separator. Ends at the first failure, and fails with it.
  template <class Notify>
  nsresult NotifyBelow(const nsSystemFileSystemNode& aDirNode, Notify aNotify);
  nsresult NotifyChanges(const nsAString& aPath, uint32_t aChangeType);
  nsresult NotifyMove(const nsAString& aOldPath, const nsAString& aNewPath);
  void CatchUp();
  nsresult NotifyTreeReady();
  nsresult NotifyRootPathMissing();
  nsresult NotifyFullListing();
  nsresult Report(const nsAString& aPath, const nsAString& aNewPath, uint32_t aChangeType);
  nsresult DeliverSome();
  bool DeliverOne();
  nsresult GetINode(const nsPlatformFiles::Entry& aFile, uint64_t* aINode, uint16_t* aVolume);
  void LeaveOutTree(const nsAString& aPath, const nsSystemFileSystemNode& aDirNode);
  bool HasIdentity(const nsSystemFileSystemNode& aNode, const nsPlatformFiles::Entry& aFile) const;
  nsresult GetPathEntries(const nsAString& aPath,
                          std::unique_ptr<nsPlatformFiles::Listing>* aEntries);

  template <class Call>
  void CallListener(Call aCall);
  template <vorel::threads::Ownership Mode>
  nsresult DispatchToOwner(nsresult (nsSystemFileSystemTree::*aMethod)());
  bool IsOnOwnerThread() const;
  nsString WithSeparator(const nsAString& aPath) const;

  const std::shared_ptr<nsPlatformFiles> mFiles;
  const std::shared_ptr<nsPlatformDirectoryReader> mReader;
  const char16_t mSeparator;
  const nsCOMPtr<nsILog4Logger> mLog;
  nsCOMPtr<nsSystemFileSystemNode> mRootNode;
  nsCOMPtr<nsIThread> mOwnerThread;
  nsCOMPtr<nsIWeakReference> mListener NS_GUARDED_BY(mListenerLock);
  nsString mRootPath;
  std::vector<uint64_t> mVolumes;  // the place is the tree's own number
  std::atomic<bool> mIsCancelled = false;
  bool mIsRecursive = false;
  bool mIsInitialized = false;
  // Guards mRootNode and the nodes below it. Only the thread of the cycle changes them, and reads
  // them without it, which the compiler can't check.
  nsMutex mRootNodeLock;
  // Guards mListener and every call into it. Reentrant: a listener may let go of the watch in a
  // call.
  nsRecursiveMutex mListenerLock;
  std::vector<nsString> mDiscoveredDirs;
  nsString mEarlierFile;
  std::function<void()> mOnFullListing;
  bool mIsCatchingUp = false;  // what is looked at is watched first
  std::atomic<uint64_t> mCycles = 0;

  nsMutex mReportsLock;  // guards what follows; nothing else is locked while it is held
  std::deque<Found> mReports NS_GUARDED_BY(mReportsLock);  // on their way to the owner's thread
  bool mIsDelivering NS_GUARDED_BY(mReportsLock) = false;  // an event for them is on its way
  // The cycle.
  bool mDetectMoves = false;
  bool mIsUnfinished = false;
  bool mMissedDirectory = false;
  bool mHasSkippedLinks = false;  // this cycle; the next one tells them
  bool mTellsLinks = false;
  ChangeArray mChanges;  // null: has become a part of a later one
  std::unordered_map<Identity, Sighting, IdentityHash> mINodeIndex;
  std::unordered_set<const nsSystemFileSystemNode*> mGone;  // directories; mChanges holds them
  std::vector<nsString> mLeftOut;
};
