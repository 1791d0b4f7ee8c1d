// What happened to a node between two looks at the disk.
#pragma once

#include <atomic>

#include "nsSystemFileSystemNode.h"

/// Counted by hand, on any thread.
class nsSystemFileSystemChange {
 public:
  enum ChangeType : uint32_t {
    eChanged = 0,  ///< An entry's last-modified time differs from the snapshot.
    eAdded = 1,    ///< An entry on disk is not in the snapshot.
    eRemoved = 2,  ///< A child in the snapshot is not on disk.
    eMoved = 3,    ///< A removal and an addition of one inode.
  };

  nsSystemFileSystemChange(const nsSystemFileSystemChange&) = delete;
  nsSystemFileSystemChange& operator=(const nsSystemFileSystemChange&) = delete;

  nsrefcnt AddRef();
  nsrefcnt Release();
  /// NS_ERROR_NULL_POINTER for a null pointer, as all below.
  nsresult GetChangeType(uint32_t* aChangeType) const;

 protected:
  explicit nsSystemFileSystemChange(uint32_t aChangeType) : mChangeType(aChangeType) {}
  virtual ~nsSystemFileSystemChange() = default;

 private:
  std::atomic<nsrefcnt> mRefCnt{0};
  const uint32_t mChangeType;
};

class nsSystemFileSystemNodeChange final : public nsSystemFileSystemChange {
 public:
  /// The node: for eChanged and eAdded one freshly made from the disk, for eRemoved and eMoved the
  /// one in the snapshot.
  nsSystemFileSystemNodeChange(nsSystemFileSystemNode* aNode, uint32_t aChangeType)
      : nsSystemFileSystemChange(aChangeType), mNode(aNode) {}

  nsresult GetNode(nsSystemFileSystemNode** aRetVal) const;
  /// Of a move, the node freshly made at the new place; null when never set.
  nsresult GetMovedNode(nsSystemFileSystemNode** aRetVal) const;
  nsresult SetMovedNode(nsSystemFileSystemNode* aNode);

 private:
  ~nsSystemFileSystemNodeChange() override = default;

  const nsCOMPtr<nsSystemFileSystemNode> mNode;
  nsCOMPtr<nsSystemFileSystemNode> mMovedNode;
};
