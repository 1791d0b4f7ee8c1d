// The snapshot of a directory tree, and the look that tells what has changed since.
//
// Whoever owns a tree only says where to look. What changed is always decided by comparing the disk
// with the snapshot, so lost, doubled or reordered hints can't make the snapshot wrong, only late.
#pragma once

#include <memory>
#include <mutex>
#include <unordered_map>
#include <vector>

#include "nsILog4.h"
#include "nsIThread.h"
#include "nsPlatformFiles.h"
#include "nsSystemFileSystemChange.h"
#include "nsThreadSafeWeakReference.h"

class nsISystemFileSystemTreeListener;

/// SetListener, Init, then wait for OnTreeReady or OnRootPathMissing; then any number of cycles of
/// StartUpdate, Update for each directory, StopUpdate; at the end ClearListener.
///
/// Init and ClearListener are called on the owner's thread, which also receives all reports. Cycles
/// may run on any one thread at a time. Locks: mRootNodeLock before mListenerLock.
class nsSystemFileSystemTree final : public nsThreadSafeSupportsWeakReference {
 public:
  using ChangeArray = std::vector<nsCOMPtr<nsSystemFileSystemNodeChange>>;

  explicit nsSystemFileSystemTree(std::shared_ptr<nsPlatformFiles> aFiles);

  nsresult QueryInterface(const nsIID& aIID, void** aResult) override;

  /// Held weakly. NS_ERROR_NULL_POINTER for null.
  nsresult SetListener(nsISystemFileSystemTreeListener* aListener);
  /// No call into the listener is under way when this returns, but one that it is called from.
  nsresult ClearListener();

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
  /// Applies the changes of the cycle to the snapshot and reports them. Returns at the first
  /// failure with the rest undone.
  nsresult StopUpdate();
  /// Whether the same directories, looked at again, may tell more: a change of the last cycle was
  /// left out because another stood in its way (of the same inode, of the same name, of a directory
  /// above), or a directory moved while one of those asked for was not known.
  bool IsUnfinished() const { return mIsUnfinished; }

  nsresult GetNode(const nsAString& aPath, nsSystemFileSystemNode* aRootSearchNode,
                   nsSystemFileSystemNode** aNodeRetVal);
  /// A directory's path ends in the separator.
  nsresult GetNodePath(nsSystemFileSystemNode* aNode, nsAString& aPath, bool aPrependRoot);
  nsSystemFileSystemNode* RootNode() const { return mRootNode.get(); }

 private:
  ~nsSystemFileSystemTree() override = default;

  nsresult GetChildren(const nsAString& aPath, nsSystemFileSystemNode* aParent,
                       nsFileSystemNodeMap* aChildren);
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
  nsresult NotifyTreeReady();
  nsresult NotifyRootPathMissing();
  nsresult GetINode(const nsPlatformFiles::Entry& aFile, uint64_t* aINode) const;
  nsresult GetPathEntries(const nsAString& aPath,
                          std::unique_ptr<nsPlatformFiles::Listing>* aEntries);

  template <class Call>
  void CallListener(Call aCall);
  template <class... Stored, class... P>
  nsresult DispatchToOwner(nsresult (nsSystemFileSystemTree::*aMethod)(P...),
                           std::type_identity_t<P>... aArguments);
  bool IsOnOwnerThread() const;
  nsString WithSeparator(const nsAString& aPath) const;

  const std::shared_ptr<nsPlatformFiles> mFiles;
  const char16_t mSeparator;
  const nsCOMPtr<nsILog4Logger> mLog;
  nsCOMPtr<nsSystemFileSystemNode> mRootNode;
  nsCOMPtr<nsIThread> mOwnerThread;
  nsCOMPtr<nsIWeakReference> mListener;
  nsString mRootPath;
  uint64_t mRootVolume = 0;
  bool mIsRecursive = false;
  bool mIsInitialized = false;
  std::mutex mRootNodeLock;  // guards the nodes of the live tree
  // Guards mListener and every call into it. Reentrant: a listener may let go of the watch in a
  // call.
  std::recursive_mutex mListenerLock;
  std::vector<nsString> mDiscoveredDirs;

  // The cycle.
  bool mDetectMoves = false;
  bool mIsUnfinished = false;
  bool mMissedDirectory = false;
  ChangeArray mChanges;
  std::unordered_map<uint64_t, nsCOMPtr<nsSystemFileSystemNodeChange>> mINodeIndex;
};
