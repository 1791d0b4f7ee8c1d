// One file or directory in the snapshot of a watched tree.
#pragma once

#include <atomic>
#include <memory>

#include "nsCOMPtr.h"
#include "nsFileSystemNodeMap.h"
#include "nsPlatformFiles.h"
#include "nsString.h"

/// Owned by its parent's map, by changes that speak of it, and by who works on it. The counts may
/// change on any thread; all else of a node in the live tree is guarded by the tree's lock.
///
/// A null pointer for an argument is NS_ERROR_NULL_POINTER everywhere.
class nsSystemFileSystemNode final {
 public:
  nsSystemFileSystemNode() = default;
  nsSystemFileSystemNode(const nsSystemFileSystemNode&) = delete;
  nsSystemFileSystemNode& operator=(const nsSystemFileSystemNode&) = delete;

  nsrefcnt AddRef();
  nsrefcnt Release();

  nsresult Init(nsSystemFileSystemNode* aParent, const nsString& aLeafName, bool aIsDir,
                int64_t aLastModify, uint64_t aINode, bool aHasINode);
  /// What else belongs to the identity: a number says nothing without its volume, and one that a
  /// file had may be a directory's next. aVolume is the tree's own number for it.
  void SetOrigin(nsPlatformFiles::Kind aKind, uint16_t aVolume);

  nsresult GetLeafName(nsAString& aLeafName) const;
  /// Leaves the key under which the parent's map holds this node: remove, rename, add again.
  nsresult SetLeafName(const nsAString& aLeafName);
  nsresult GetIsDir(bool* aIsDir) const;
  nsresult GetLastModify(int64_t* aLastModify) const;
  /// Null, and success, for the root.
  nsresult GetParent(nsSystemFileSystemNode** aParent) const;
  /// Writes the number always; NS_ERROR_FAILURE when the identity could not be read.
  nsresult GetINode(uint64_t* aINode) const;
  nsPlatformFiles::Kind Kind() const { return mKind; }
  uint16_t Volume() const { return mVolume; }

  /// By the name that they had when they were added.
  const nsFileSystemNodeMap& Children() const;
  /// So many are to be added.
  void ExpectChildren(size_t aCount);
  /// Keeps the present child of that name, if there is one; becomes the new one's parent in any
  /// case.
  nsresult AddChild(nsSystemFileSystemNode* aNode);
  /// Removes the child of that name, whichever node it is.
  nsresult RemoveChild(nsSystemFileSystemNode* aNode);
  /// Takes over time, identity and name of a node into the child of a name.
  nsresult ChangeNode(const nsAString& aLeafName, nsSystemFileSystemNode* aChangeNode);

 private:
  ~nsSystemFileSystemNode();

  // In an order without gaps, as there is one of these for each file.
  std::atomic<nsrefcnt> mRefCnt{0};
  bool mHasINode = false;
  bool mIsDir = false;
  nsPlatformFiles::Kind mKind = nsPlatformFiles::kFile;
  uint16_t mVolume = 0;
  std::unique_ptr<nsFileSystemNodeMap> mChildren;  // made for the first child: files have none
  nsString mLeafName;
  uint64_t mINode = 0;
  int64_t mLastModify = 0;
  nsSystemFileSystemNode* mParent = nullptr;
};
