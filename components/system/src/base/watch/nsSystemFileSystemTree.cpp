#include "nsSystemFileSystemTree.h"

#include <algorithm>

#include "nsDebug.h"
#include "nsIEventTarget.h"
#include "nsISystemFileSystemTreeListener.h"
#include "nsIThreadManager.h"
#include "nsLogger.h"
#include "nsServices.h"
#include "nsSystemFileSystemSnapshot.h"

namespace {

constexpr uint32_t eChanged = nsSystemFileSystemChange::eChanged;
constexpr uint32_t eAdded = nsSystemFileSystemChange::eAdded;
constexpr uint32_t eRemoved = nsSystemFileSystemChange::eRemoved;
constexpr uint32_t eMoved = nsSystemFileSystemChange::eMoved;

// One event of the owner's thread reports so many; others of its events come in between.
constexpr int kReportsAtOnce = 64;

// How often all of a tree is looked at until nothing more differs from an earlier snapshot: a look
// tells that a directory has moved, and only the next one what has changed in it.
constexpr int kMostLooks = 100;

// Of what was on a volume that can't be told to be the same: no identity of today is on this one.
constexpr uint64_t kNoVolume = UINT64_MAX;

bool StringBeginsWith(const nsAString& aText, const nsAString& aBeginning) {
  return NS_View(aText).starts_with(NS_View(aBeginning));
}

/// A directory that has gone since it was named is nothing to warn of: the look at the one above it
/// tells.
bool IsGone(nsresult aResult) {
  return aResult == NS_ERROR_FILE_NOT_FOUND || aResult == NS_ERROR_FILE_NOT_DIRECTORY;
}

}  // namespace

nsSystemFileSystemTree::nsSystemFileSystemTree(std::shared_ptr<nsPlatformFiles> aFiles,
                                               std::shared_ptr<nsPlatformDirectoryReader> aReader)
    : mFiles(std::move(aFiles)),
      mReader(std::move(aReader)),
      mSeparator(mFiles->Separator()),
      mLog(NS_GetLogger("system.fileWatcher")) {}

nsresult nsSystemFileSystemTree::QueryInterface(const nsIID& aIID, void** aResult) {
  return NS_QueryInterface<nsISupportsWeakReference>(this, aIID, aResult);
}

nsresult nsSystemFileSystemTree::SetListener(nsISystemFileSystemTreeListener* aListener) {
  NS_ENSURE_TRUE(aListener, NS_ERROR_NULL_POINTER);
  nsresult rv;
  const auto source = do_QueryInterface<nsISupportsWeakReference>(aListener, &rv);
  NS_ENSURE_SUCCESS(rv, rv);
  nsAutoLock lock(mListenerLock);
  return source->GetWeakReference(mListener.getter_AddRefs());
}

nsresult nsSystemFileSystemTree::ClearListener() {
  nsAutoLock lock(mListenerLock);
  mListener = nullptr;
  return NS_OK;
}

// ---- Starting up

nsresult nsSystemFileSystemTree::Init(const nsAString& aRootPath, bool aIsRecursive) {
  if (mIsInitialized) return NS_ERROR_ALREADY_INITIALIZED;
  mIsInitialized = true;
  mRootPath = aRootPath;
  mIsRecursive = aIsRecursive;
  return InitTree();
}

nsresult nsSystemFileSystemTree::InitTree() {
  nsresult rv;
  const auto manager = do_GetService<nsIThreadManager>(NS_THREADMANAGER_CONTRACTID, &rv);
  NS_ENSURE_SUCCESS(rv, rv);
  rv = manager->GetCurrentThread(mOwnerThread.getter_AddRefs());
  NS_ENSURE_SUCCESS(rv, rv);

  const auto runnable =
      NS_NewRunnableMethodCaller<vorel::threads::eWeak>(this, &nsSystemFileSystemTree::BuildTree);
  NS_ENSURE_TRUE(runnable, NS_ERROR_FAILURE);
  const auto threadPool = do_GetService<nsIEventTarget>(VOREL_THREADPOOL_CONTRACTID);
  NS_ENSURE_TRUE(threadPool, NS_ERROR_FAILURE);
  return threadPool->Dispatch(runnable.get(), NS_DISPATCH_NORMAL);
}

void nsSystemFileSystemTree::CompareWith(const nsAString& aFile,
                                         std::function<void()> aOnFullListing) {
  mEarlierFile = aFile;
  mOnFullListing = std::move(aOnFullListing);
}

nsresult nsSystemFileSystemTree::BuildTree() {
  // Without a report to keep it for, the tree is told of only while it lives.
  constexpr auto kMode = vorel::threads::eWeak;
  if (mIsCancelled) return NS_OK;
  bool exists = false;
  if (NS_FAILED(mFiles->Exists(mRootPath, &exists)) || !exists)
    return DispatchToOwner<kMode>(&nsSystemFileSystemTree::NotifyRootPathMissing);

  {
    nsAutoLock lock(mRootNodeLock);
    mRootNode = nullptr;
    nsPlatformFiles::Entry root;
    if (NS_SUCCEEDED(mFiles->ReadEntry(mRootPath, &root)))
      (void)CreateNode(&root, nullptr, mRootNode.getter_AddRefs());
    // That it can't be opened is told by whoever reads.
    if (mReader) (void)mReader->Open(mRootPath);
    // A root that can't be read is announced as ready all the same; updates fail by its absence.
    if (mRootNode && mEarlierFile.IsEmpty())
      (void)AddChildren(mRootPath, mRootNode.get(), true, false);
  }
  if (mRootNode && !mEarlierFile.IsEmpty()) CatchUp();
  if (mIsCancelled) return NS_OK;
  return DispatchToOwner<kMode>(&nsSystemFileSystemTree::NotifyTreeReady);
}

// The earlier snapshot becomes this tree's, and then all of it is looked at: what differs is told
// as any change is, moves included.
void nsSystemFileSystemTree::CatchUp() {
  std::string bytes;
  uint64_t volume = 0;
  (void)mFiles->ReadVolume(mRootPath, &volume);
  const auto strange = static_cast<uint16_t>(mVolumes.size());
  mVolumes.push_back(kNoVolume);
  const nsCOMPtr<nsSystemFileSystemNode> empty = mRootNode;
  const bool isThere =
      NS_SUCCEEDED(mFiles->ReadKept(mEarlierFile, &bytes)) &&
      NS_ParseSnapshot(bytes, {mRootPath.view(), volume, mRootNode->Volume(), strange},
                       mRootNode.get());
  bytes = {};
  if (!isThere) {
    // What a damaged one has left of itself goes.
    nsPlatformFiles::Entry root;
    nsCOMPtr<nsSystemFileSystemNode> fresh;
    if (NS_SUCCEEDED(mFiles->ReadEntry(mRootPath, &root)) &&
        NS_SUCCEEDED(CreateNode(&root, nullptr, fresh.getter_AddRefs()))) {
      nsAutoLock lock(mRootNodeLock);
      mRootNode = fresh;
    }
    (void)DispatchToOwner<vorel::threads::eStrong>(&nsSystemFileSystemTree::NotifyFullListing);
  }

  mIsCatchingUp = true;
  bool isDone = false;
  for (int looks = 0; !isDone && looks < kMostLooks && !mIsCancelled; ++looks) {
    (void)StartUpdate(true);
    std::vector<nsString> directories{WithSeparator(mRootPath)};
    for (size_t i = 0; i < directories.size(); ++i) {
      nsCOMPtr<nsSystemFileSystemNode> node;
      if (NS_FAILED(GetNode(directories[i], mRootNode.get(), node.getter_AddRefs()))) continue;
      for (const auto& [leafName, child] : node->Children()) {
        if (child->Kind() != nsPlatformFiles::kDirectory) continue;
        nsString path(directories[i]);
        directories.push_back(WithSeparator(path += leafName));
      }
    }
    for (const nsString& directory : directories)
      if (!mIsCancelled && Expects(directory)) (void)Update(directory);
    const bool isSame = std::ranges::all_of(mChanges, [](const auto& aChange) { return !aChange; });
    (void)StopUpdate();
    isDone = isSame && !IsUnfinished() && LeftOut().empty();
  }
  mIsCatchingUp = false;
}

std::string nsSystemFileSystemTree::Format() {
  uint64_t volume = 0;
  (void)mFiles->ReadVolume(mRootPath, &volume);
  nsAutoLock lock(mRootNodeLock);
  if (!mRootNode) return {};
  return NS_FormatSnapshot({mRootPath.view(), volume, mRootNode->Volume(), 0}, *mRootNode);
}

nsresult nsSystemFileSystemTree::NotifyFullListing() {
  CallListener([this](nsISystemFileSystemTreeListener*) { mOnFullListing(); });
  return NS_OK;
}

nsresult nsSystemFileSystemTree::NotifyTreeReady() {
  (void)Deliver();  // what has been found before
  CallListener([this](nsISystemFileSystemTreeListener* aListener) {
    (void)aListener->OnTreeReady(mRootPath, mDiscoveredDirs);
  });
  mDiscoveredDirs = {};
  return NS_OK;
}

nsresult nsSystemFileSystemTree::NotifyRootPathMissing() {
  CallListener(
      [](nsISystemFileSystemTreeListener* aListener) { (void)aListener->OnRootPathMissing(); });
  return NS_OK;
}

// ---- From the disk to nodes

nsresult nsSystemFileSystemTree::CreateNode(const nsPlatformFiles::Entry* aFile,
                                            nsSystemFileSystemNode* aParent,
                                            nsSystemFileSystemNode** aNode) {
  NS_ENSURE_TRUE(aFile, NS_ERROR_NULL_POINTER);
  if (aFile->mLeafName.IsEmpty()) return NS_ERROR_FAILURE;
  if (NS_FAILED(aFile->mStatus)) return aFile->mStatus;
  uint64_t inode = 0;
  uint16_t volume = 0;
  const bool hasINode = NS_SUCCEEDED(GetINode(*aFile, &inode, &volume));
  auto node = MakeRefCounted<nsSystemFileSystemNode>();
  nsresult rv = node->Init(aParent, aFile->mLeafName, aFile->mKind == nsPlatformFiles::kDirectory,
                           aFile->mLastModify, inode, hasINode);
  NS_ENSURE_SUCCESS(rv, rv);
  node->SetOrigin(aFile->mKind, volume);
  node.forget(aNode);
  return NS_OK;
}

nsresult nsSystemFileSystemTree::GetINode(const nsPlatformFiles::Entry& aFile, uint64_t* aINode,
                                          uint16_t* aVolume) {
  if (!aFile.mHasINode) return NS_ERROR_FAILURE;
  // There are few at a time, and the root's own comes first.
  const auto known = std::ranges::find(mVolumes, aFile.mVolume);
  const auto number = static_cast<size_t>(known - mVolumes.begin());
  if (number > UINT16_MAX) return NS_ERROR_FAILURE;
  if (known == mVolumes.end()) mVolumes.push_back(aFile.mVolume);
  *aINode = aFile.mINode;
  *aVolume = static_cast<uint16_t>(number);
  return NS_OK;
}

// Two trees can be alike in the names and times of their upper levels.
void nsSystemFileSystemTree::LeaveOutTree(const nsAString& aPath,
                                          const nsSystemFileSystemNode& aDirNode) {
  std::vector<std::pair<nsString, const nsSystemFileSystemNode*>> stack{
      {WithSeparator(aPath), &aDirNode}};
  while (!stack.empty()) {
    const auto [path, node] = std::move(stack.back());
    stack.pop_back();
    mLeftOut.push_back(path);
    for (const auto& [leafName, child] : node->Children()) {
      if (child->Kind() == nsPlatformFiles::kDirectory) {
        nsString below(path);
        stack.emplace_back(WithSeparator(below += leafName), child.get());
      }
    }
  }
}

bool nsSystemFileSystemTree::HasIdentity(const nsSystemFileSystemNode& aNode,
                                         const nsPlatformFiles::Entry& aFile) const {
  uint64_t inode;
  return NS_SUCCEEDED(aNode.GetINode(&inode)) == aFile.mHasINode &&
         (!aFile.mHasINode || (inode == aFile.mINode && aNode.Kind() == aFile.mKind &&
                               mVolumes[aNode.Volume()] == aFile.mVolume));
}

nsresult nsSystemFileSystemTree::GetPathEntries(
    const nsAString& aPath, std::unique_ptr<nsPlatformFiles::Listing>* aEntries) {
  // The root may be a link. Below it links are not followed, also when one takes a directory's
  // place between two looks.
  if (mIsCatchingUp && mReader) (void)mReader->Watch(aPath);
  return mFiles->OpenListing(aPath, WithSeparator(aPath) == WithSeparator(mRootPath), aEntries);
}

nsresult nsSystemFileSystemTree::GetChildren(const nsAString& aPath,
                                             nsSystemFileSystemNode* aParent,
                                             nsFileSystemNodeMap* aChildren, bool* aLeftOut) {
  std::unique_ptr<nsPlatformFiles::Listing> entries;
  nsresult rv = GetPathEntries(aPath, &entries);
  NS_ENSURE_SUCCESS(rv, rv);
  while (entries->HasMore()) {
    nsPlatformFiles::Entry entry;
    if (NS_FAILED(entries->GetNext(&entry))) continue;
    if (entry.mKind == nsPlatformFiles::kSymlink || entry.mKind == nsPlatformFiles::kSpecial) {
      if (aLeftOut) *aLeftOut = true;
      continue;
    }
    nsCOMPtr<nsSystemFileSystemNode> node;
    if (NS_FAILED(CreateNode(&entry, aParent, node.getter_AddRefs()))) continue;
    aChildren->emplace(entry.mLeafName, std::move(node));
  }
  return NS_OK;
}

nsresult nsSystemFileSystemTree::AddChildren(const nsAString& aPath,
                                             nsSystemFileSystemNode* aParent,
                                             bool aBuildDiscoveredDirs, bool aNotifyListener) {
  std::vector<std::pair<nsString, nsCOMPtr<nsSystemFileSystemNode>>> stack;
  stack.emplace_back(aPath, aParent);
  while (!stack.empty() && !mIsCancelled) {
    const auto [path, node] = std::move(stack.back());
    stack.pop_back();
    const nsString base = WithSeparator(path);
    // One that can't be watched is in the snapshot all the same.
    if (aBuildDiscoveredDirs && mReader) (void)mReader->Watch(path);
    nsFileSystemNodeMap children;
    bool leftOut = false;
    (void)GetChildren(path, node.get(), &children, &leftOut);
    // A link in a new directory is told by the first look at that, which must come in any case.
    if (leftOut && aNotifyListener) mLeftOut.push_back(base);
    node->ExpectChildren(children.size());
    for (const auto& [leafName, child] : children) {
      if (NS_FAILED(node->AddChild(child.get()))) continue;
      bool isDir;
      if (NS_FAILED(child->GetIsDir(&isDir)) || (!isDir && !aNotifyListener)) continue;
      nsString childPath(base);
      childPath += leafName;
      if (mIsRecursive && isDir) {
        stack.emplace_back(childPath, child);
        if (aBuildDiscoveredDirs) mDiscoveredDirs.push_back(childPath);
      }
      if (aNotifyListener &&
          NS_FAILED(NotifyChanges(isDir ? WithSeparator(childPath) : childPath, eAdded)))
        SYSTEM_LOG_ERROR(mLog, "Could not notify listener of change!");
    }
  }
  return NS_OK;
}

// ---- The cycle

nsresult nsSystemFileSystemTree::StartUpdate(bool aDetectMoves) {
  mDetectMoves = aDetectMoves;
  mIsUnfinished = mMissedDirectory = false;
  mTellsLinks = std::exchange(mHasSkippedLinks, false);
  mINodeIndex.clear();
  mGone.clear();
  mChanges.clear();
  mLeftOut.clear();
  return NS_OK;
}

bool nsSystemFileSystemTree::Expects(const nsAString& aPath) {
  nsAutoLock lock(mRootNodeLock);
  std::u16string_view path = NS_View(aPath);
  const nsSystemFileSystemNode* node = mRootNode.get();
  if (!node || !path.starts_with(mRootPath.view())) return false;
  path.remove_prefix(mRootPath.Length());
  while (true) {
    path.remove_prefix(std::min(path.find_first_not_of(mSeparator), path.size()));
    if (path.empty()) return true;
    const size_t end = std::min(path.find(mSeparator), path.size());
    const auto found = node->Children().find(path.substr(0, end));
    if (found == node->Children().end() || found->second->Kind() != nsPlatformFiles::kDirectory) {
      // One that is not known yet, perhaps because what holds it moves in this cycle.
      mMissedDirectory = true;
      return false;
    }
    node = found->second.get();
    if (mGone.contains(node)) return false;
    path.remove_prefix(end);
  }
}

nsresult nsSystemFileSystemTree::Update(const nsAString& aPath) {
  nsresult rv;
  nsCOMPtr<nsSystemFileSystemNode> node;
  {
    nsAutoLock lock(mRootNodeLock);
    rv = GetNode(aPath, mRootNode.get(), node.getter_AddRefs());
    // A directory that has taken a file's place is not known yet, only its name is.
    bool isDir = false;
    if (NS_SUCCEEDED(rv) && NS_SUCCEEDED(node->GetIsDir(&isDir)) && !isDir)
      rv = NS_ERROR_FILE_NOT_DIRECTORY;
    if (NS_FAILED(rv)) mMissedDirectory = true;
  }
  NS_ENSURE_SUCCESS(rv, rv);
  rv = GetNodeChanges(node.get(), aPath, &mChanges);
  if (IsGone(rv)) return rv;
  NS_ENSURE_SUCCESS(rv, rv);
  return NS_OK;
}

nsresult nsSystemFileSystemTree::GetNodeChanges(nsSystemFileSystemNode* aNode,
                                                const nsAString& aPath, ChangeArray* aChanges) {
  // No lock is needed: only this cycle writes to the tree.
  const auto pathOf = [base = WithSeparator(aPath)](const nsPlatformFiles::Entry& aEntry) {
    nsString path(base);
    return path += aEntry.mLeafName;
  };
  nsFileSystemNodeMap gone = aNode->Children();
  std::unique_ptr<nsPlatformFiles::Listing> entries;
  nsresult rv = GetPathEntries(aPath, &entries);
  if (IsGone(rv)) return rv;
  NS_ENSURE_SUCCESS(rv, rv);

  const auto append = [&](const nsPlatformFiles::Entry& aEntry, uint32_t aChangeType) {
    nsCOMPtr<nsSystemFileSystemNode> node;
    if (NS_FAILED(CreateNode(&aEntry, aNode, node.getter_AddRefs()))) {
      SYSTEM_LOG_ERROR(mLog, "ERROR: Could not create a nsSystemFileSystemNode!");
      return false;
    }
    // Links of one file that come by the hundred are one thing to say.
    const bool isTold = mHasSkippedLinks;
    if (NS_FAILED(AppendCreateNodeChangeItem(node.get(), aChangeType, aChanges))) {
      if (!isTold) SYSTEM_LOG_ERROR(mLog, "ERROR: Could not add create change item!");
      return false;
    }
    return true;
  };

  // Unlike the first walk, this takes in symbolic links and special files. Kept as it stands: one
  // that the walk has left out is reported at the first look at its directory.
  while (entries->HasMore()) {
    nsPlatformFiles::Entry entry;
    if (NS_FAILED(entries->GetNext(&entry))) {
      SYSTEM_LOG_ERROR(mLog, "ERROR: Could not GetNext() item in enumerator!");
      continue;
    }
    if (entry.mLeafName.IsEmpty()) {
      SYSTEM_LOG_ERROR(mLog, "ERROR: Could not get the leaf name from the file-spec!");
      continue;
    }
    const auto found = gone.find(entry.mLeafName.view());
    if (found == gone.end()) {
      (void)append(entry, eAdded);
      continue;
    }
    nsSystemFileSystemNode* const child = found->second.get();
    if (NS_FAILED(entry.mStatus)) {
      SYSTEM_LOG_ERROR(mLog, "ERROR: Could not get file last modify time!");
      continue;
    }
    int64_t known;
    if (NS_FAILED(child->GetLastModify(&known))) {
      SYSTEM_LOG_ERROR(mLog, "ERROR: Could not get node last modify time!");
      continue;
    }
    bool isDir = false;
    (void)child->GetIsDir(&isDir);
    if (isDir != (entry.mKind == nsPlatformFiles::kDirectory)) {
      // A file in a directory's place, or the other way round, is not the old thing changed: the
      // node would keep its children, or never get any. It has gone; the next look finds the new
      // one.
      (void)AppendCreateNodeChangeItem(child, eRemoved, aChanges);
      mIsUnfinished = true;
    } else if (known != entry.mLastModify) {
      if (isDir && !HasIdentity(*child, entry)) LeaveOutTree(pathOf(entry), *child);
      if (!append(entry, eChanged)) continue;
    } else if (!HasIdentity(*child, entry)) {
      if (isDir) LeaveOutTree(pathOf(entry), *child);
      // Something else of the same time in its place is no change, but has to be known by its own
      // identity when it moves.
      nsCOMPtr<nsSystemFileSystemNode> node;
      if (NS_SUCCEEDED(CreateNode(&entry, aNode, node.getter_AddRefs()))) {
        nsAutoLock lock(mRootNodeLock);
        (void)aNode->ChangeNode(entry.mLeafName, node.get());
      }
    }
    gone.erase(found);
  }

  for (const auto& [leafName, child] : gone)
    (void)AppendCreateNodeChangeItem(child.get(), eRemoved, aChanges);
  return NS_OK;
}

nsresult nsSystemFileSystemTree::AppendCreateNodeChangeItem(nsSystemFileSystemNode* aChangedNode,
                                                            uint32_t aChangeType,
                                                            ChangeArray* aChanges) {
  NS_ENSURE_TRUE(aChangedNode, NS_ERROR_NULL_POINTER);
  const auto add = [&] {
    aChanges->push_back(MakeRefCounted<nsSystemFileSystemNodeChange>(aChangedNode, aChangeType));
    if (aChangeType == eRemoved && aChangedNode->Kind() == nsPlatformFiles::kDirectory)
      mGone.insert(aChangedNode);
  };
  Identity identity{0, aChangedNode->Volume(), aChangedNode->Kind()};
  const bool isUsable = NS_SUCCEEDED(aChangedNode->GetINode(&identity.mINode)) && mDetectMoves;
  const auto earlier = isUsable ? mINodeIndex.find(identity) : mINodeIndex.end();
  if (earlier == mINodeIndex.end()) {
    if (isUsable && (aChangeType == eAdded || aChangeType == eRemoved))
      mINodeIndex[identity] = {aChanges->size(), aChangeType, false};
    add();
    return NS_OK;
  }

  // A second sighting of the inode in this cycle.
  Sighting& sighting = earlier->second;
  const bool isPair = (aChangeType == eAdded && sighting.mType == eRemoved) ||
                      (aChangeType == eRemoved && sighting.mType == eAdded);
  if (!isPair || sighting.mIsPaired) {
    if (isPair || !mTellsLinks) mIsUnfinished = true;
    // A second source of one move has gone, whatever took its place at the destination.
    if (mTellsLinks || (isPair && aChangeType == eRemoved)) {
      add();
      return NS_OK;
    }
    // More links of one file: the first is told now, all others by the next look.
    mHasSkippedLinks = true;
    return NS_ERROR_FAILURE;
  }
  nsCOMPtr<nsSystemFileSystemNode> other;
  nsresult rv = (*aChanges)[sighting.mChange]->GetNode(other.getter_AddRefs());
  NS_ENSURE_SUCCESS(rv, rv);
  const bool isSource = aChangeType == eRemoved;
  auto changedItem =
      MakeRefCounted<nsSystemFileSystemNodeChange>(isSource ? aChangedNode : other.get(), eMoved);
  rv = changedItem->SetMovedNode(isSource ? other.get() : aChangedNode);
  NS_ENSURE_SUCCESS(rv, rv);
  if (isSource && aChangedNode->Kind() == nsPlatformFiles::kDirectory) mGone.insert(aChangedNode);
  // The index keeps the earlier change, so that a third sighting (of a hard link) finds it used up.
  (*aChanges)[sighting.mChange] = nullptr;
  sighting.mIsPaired = true;
  aChanges->push_back(std::move(changedItem));
  return NS_OK;
}

nsresult nsSystemFileSystemTree::StopUpdate() {
  const size_t count = mChanges.size();
  for (size_t i = 0; i < count; ++i) {
    nsSystemFileSystemNodeChange* const change = mChanges[i].get();
    if (!change) continue;  // half of a move that comes later
    uint32_t changeType;
    nsresult rv = change->GetChangeType(&changeType);
    NS_ENSURE_SUCCESS(rv, rv);
    nsCOMPtr<nsSystemFileSystemNode> node, parent;
    rv = change->GetNode(node.getter_AddRefs());
    NS_ENSURE_SUCCESS(rv, rv);
    rv = node->GetParent(parent.getter_AddRefs());
    NS_ENSURE_SUCCESS(rv, rv);
    nsString path;
    rv = GetNodePath(node.get(), path, true);
    NS_ENSURE_SUCCESS(rv, rv);
    bool isDir;
    rv = node->GetIsDir(&isDir);
    NS_ENSURE_SUCCESS(rv, rv);

    // A directory that has gone in this cycle was reported with all that it held; what a look at it
    // saw before or after that belongs to whatever has its name now, which the next look finds.
    const bool isInTree = IsInTree(parent.get());
    if (!isInTree) mIsUnfinished = true;
    if (changeType == eMoved)
      rv = ApplyMove(change, node.get(), parent.get(), isDir, path);
    else if (isInTree)
      rv = ApplyChange(changeType, node.get(), parent.get(), isDir, path);
    NS_ENSURE_SUCCESS(rv, rv);
  }
  mINodeIndex.clear();
  mGone.clear();
  mChanges.clear();
  ++mCycles;
  return NS_OK;
}

nsresult nsSystemFileSystemTree::ApplyChange(uint32_t aChangeType, nsSystemFileSystemNode* aNode,
                                             nsSystemFileSystemNode* aParent, bool aIsDir,
                                             const nsAString& aPath) {
  nsresult rv = NS_OK;
  if (aIsDir && aChangeType == eAdded) rv = NotifyDirAdded(aNode, aPath);
  if (aIsDir && aChangeType == eRemoved) rv = NotifyDirRemoved(aNode, aPath);
  NS_ENSURE_SUCCESS(rv, rv);
  {
    nsAutoLock lock(mRootNodeLock);
    if (aChangeType == eChanged) {
      nsString leafName;
      rv = aNode->GetLeafName(leafName);
      NS_ENSURE_SUCCESS(rv, rv);
      rv = aParent->ChangeNode(leafName, aNode);
    } else if (aChangeType == eAdded) {
      rv = aParent->AddChild(aNode);
    } else {
      rv = aParent->RemoveChild(aNode);
    }
  }
  NS_ENSURE_SUCCESS(rv, rv);
  return NotifyChanges(aPath, aChangeType);
}

nsresult nsSystemFileSystemTree::ApplyMove(nsSystemFileSystemNodeChange* aChange,
                                           nsSystemFileSystemNode* aNode,
                                           nsSystemFileSystemNode* aParent, bool aIsDir,
                                           const nsAString& aOldPath) {
  nsCOMPtr<nsSystemFileSystemNode> movedNode, newParent;
  nsresult rv = aChange->GetMovedNode(movedNode.getter_AddRefs());
  NS_ENSURE_SUCCESS(rv, rv);
  rv = movedNode->GetParent(newParent.getter_AddRefs());
  NS_ENSURE_SUCCESS(rv, rv);
  nsString newPath, leafName;
  rv = GetNodePath(movedNode.get(), newPath, true);
  NS_ENSURE_SUCCESS(rv, rv);

  // With one end in a directory that has gone in this cycle, only the other end is left to tell.
  // And directories that change places between two listings can look as if one had moved into
  // itself.
  const bool isGone = !IsInTree(newParent.get(), aNode);
  if (isGone) mIsUnfinished = true;
  if (!IsInTree(aNode))
    return isGone ? NS_OK : ApplyChange(eAdded, movedNode.get(), newParent.get(), aIsDir, newPath);
  if (isGone) return ApplyChange(eRemoved, aNode, aParent, aIsDir, aOldPath);

  if (aIsDir) {
    rv = NotifyDirMoved(aNode, aOldPath, newPath);
    NS_ENSURE_SUCCESS(rv, rv);
    // Unlike a new one, it is not read here; so a place that could not be looked at may be it.
    if (mMissedDirectory) mIsUnfinished = true;
  }
  nsAutoLock lock(mRootNodeLock);
  // The map's key is the name that the node was added under: remove, rename, add.
  rv = aParent->RemoveChild(aNode);
  NS_ENSURE_SUCCESS(rv, rv);
  rv = movedNode->GetLeafName(leafName);
  NS_ENSURE_SUCCESS(rv, rv);
  rv = aNode->SetLeafName(leafName);
  NS_ENSURE_SUCCESS(rv, rv);
  rv = newParent->AddChild(aNode);
  NS_ENSURE_SUCCESS(rv, rv);
  return NotifyMove(aOldPath, newPath);
}

bool nsSystemFileSystemTree::IsInTree(nsSystemFileSystemNode* aNode,
                                      nsSystemFileSystemNode* aOutside) const {
  nsCOMPtr<nsSystemFileSystemNode> node = aNode;
  while (node != mRootNode) {
    nsCOMPtr<nsSystemFileSystemNode> parent;
    nsString leafName;
    if (!node || node == aOutside || NS_FAILED(node->GetLeafName(leafName)) ||
        NS_FAILED(node->GetParent(parent.getter_AddRefs())) || !parent)
      return false;
    const auto found = parent->Children().find(leafName.view());
    if (found == parent->Children().end() || found->second != node) return false;
    node = std::move(parent);
  }
  return true;
}

// ---- What lies below a directory

nsresult nsSystemFileSystemTree::NotifyDirAdded(nsSystemFileSystemNode* aAddedDirNode,
                                                const nsAString& aPath) {
  NS_ENSURE_TRUE(aAddedDirNode, NS_ERROR_NULL_POINTER);
  return AddChildren(WithSeparator(aPath), aAddedDirNode, false, true);
}

nsresult nsSystemFileSystemTree::NotifyDirRemoved(nsSystemFileSystemNode* aRemovedDirNode,
                                                  const nsAString& aPath) {
  NS_ENSURE_TRUE(aRemovedDirNode, NS_ERROR_NULL_POINTER);
  const nsString path = WithSeparator(aPath);
  return NotifyBelow(*aRemovedDirNode, [&](std::u16string_view aBelow) {
    nsString child(path);
    return NotifyChanges(child += aBelow, eRemoved);
  });
}

nsresult nsSystemFileSystemTree::NotifyDirMoved(nsSystemFileSystemNode* aRemovedDirNode,
                                                const nsAString& aOldPath,
                                                const nsAString& aNewPath) {
  // The argument bears this name, as the text of the check is known by it.
  NS_ENSURE_TRUE(aRemovedDirNode, NS_ERROR_NULL_POINTER);
  const nsString oldPath = WithSeparator(aOldPath), newPath = WithSeparator(aNewPath);
  return NotifyBelow(*aRemovedDirNode, [&](std::u16string_view aBelow) {
    nsString oldChild(oldPath), newChild(newPath);
    return NotifyMove(oldChild += aBelow, newChild += aBelow);
  });
}

template <class Notify>
nsresult nsSystemFileSystemTree::NotifyBelow(const nsSystemFileSystemNode& aDirNode,
                                             Notify aNotify) {
  // No call within itself for each level: trees can be deeper than the stack.
  struct Level {
    nsFileSystemNodeMap::const_iterator mNext, mEnd;
    size_t mLength;  // of the path up to here
  };
  std::u16string path;
  std::vector<Level> levels;
  levels.push_back({aDirNode.Children().begin(), aDirNode.Children().end(), 0});
  while (true) {
    if (levels.back().mNext == levels.back().mEnd) {
      levels.pop_back();
      if (levels.empty()) return NS_OK;
    } else {
      const auto& [leafName, child] = *levels.back().mNext++;
      bool isDir;
      nsresult rv = child->GetIsDir(&isDir);
      NS_ENSURE_SUCCESS(rv, rv);
      path += leafName.view();
      if (isDir) {
        path += mSeparator;
        levels.push_back({child->Children().begin(), child->Children().end(), path.size()});
        continue;
      }
    }
    nsresult rv = aNotify(path);
    NS_ENSURE_SUCCESS(rv, rv);
    path.resize(levels.back().mLength);
  }
}

// ---- Over to the owner's thread

nsresult nsSystemFileSystemTree::NotifyChanges(const nsAString& aPath, uint32_t aChangeType) {
  NS_ENSURE_TRUE(aChangeType == eChanged || aChangeType == eAdded || aChangeType == eRemoved,
                 NS_ERROR_INVALID_ARG);
  return Report(aPath, nsString(), aChangeType);
}

nsresult nsSystemFileSystemTree::NotifyMove(const nsAString& aOldPath, const nsAString& aNewPath) {
  return Report(aOldPath, aNewPath, eMoved);
}

// The owner's thread gets one event for many reports: those of a burst would each cost it one.
nsresult nsSystemFileSystemTree::Report(const nsAString& aPath, const nsAString& aNewPath,
                                        uint32_t aChangeType) {
  const bool isOwner = IsOnOwnerThread();
  {
    nsAutoLock lock(mReportsLock);
    mReports.push_back(
        {aChangeType, std::u16string(NS_View(aPath)), std::u16string(NS_View(aNewPath))});
    if (!isOwner && std::exchange(mIsDelivering, true)) return NS_OK;
  }
  if (isOwner) return Deliver();
  // What has something to tell keeps the tree.
  const nsresult rv =
      DispatchToOwner<vorel::threads::eStrong>(&nsSystemFileSystemTree::DeliverSome);
  if (NS_FAILED(rv)) {
    nsAutoLock lock(mReportsLock);
    mIsDelivering = false;
    mReports.pop_back();
  }
  return rv;
}

bool nsSystemFileSystemTree::DeliverOne() {
  Found found;
  {
    nsAutoLock lock(mReportsLock);
    if (mReports.empty()) return false;
    found = std::move(mReports.front());
    mReports.pop_front();
  }
  CallListener([&](nsISystemFileSystemTreeListener* aListener) {
    const nsDependentString path(found.mPath), newPath(found.mNewPath);
    if (found.mType == eMoved)
      (void)aListener->OnMoveFound(path, newPath);
    else
      (void)aListener->OnChangeFound(path, found.mType);
  });
  return true;
}

nsresult nsSystemFileSystemTree::Deliver() {
  while (DeliverOne()) {
  }
  return NS_OK;
}

nsresult nsSystemFileSystemTree::DeliverSome() {
  for (int i = 0; i < kReportsAtOnce; ++i)
    if (!DeliverOne()) break;
  {
    nsAutoLock lock(mReportsLock);
    mIsDelivering = !mReports.empty();
    if (!mIsDelivering) return NS_OK;
  }
  return DispatchToOwner<vorel::threads::eStrong>(&nsSystemFileSystemTree::DeliverSome);
}

template <class Call>
void nsSystemFileSystemTree::CallListener(Call aCall) {
  // Let go of only after the lock: this may be the last reference, and the listener's end leads to
  // ClearListener.
  nsCOMPtr<nsISystemFileSystemTreeListener> listener;
  nsAutoLock lock(mListenerLock);
  if (mListener &&
      NS_SUCCEEDED(
          mListener->QueryReferent(nsISystemFileSystemTreeListener::kIID, NS_OutVoid(listener))) &&
      listener)
    aCall(listener.get());
}

template <vorel::threads::Ownership Mode>
nsresult nsSystemFileSystemTree::DispatchToOwner(nsresult (nsSystemFileSystemTree::*aMethod)()) {
  const auto runnable = NS_NewRunnableMethodCaller<Mode>(this, aMethod);
  return mOwnerThread->Dispatch(runnable.get(), NS_DISPATCH_NORMAL);
}

bool nsSystemFileSystemTree::IsOnOwnerThread() const {
  bool isCurrent = false;
  return NS_SUCCEEDED(mOwnerThread->IsOnCurrentThread(&isCurrent)) && isCurrent;
}

// ---- Paths

nsString nsSystemFileSystemTree::WithSeparator(const nsAString& aPath) const {
  nsString path(aPath);
  if (!path.view().ends_with(mSeparator)) path += {&mSeparator, 1};
  return path;
}

nsresult nsSystemFileSystemTree::GetNodePath(nsSystemFileSystemNode* aNode, nsAString& aPath,
                                             bool aPrependRoot) {
  NS_ENSURE_TRUE(aNode, NS_ERROR_NULL_POINTER);
  std::vector<nsString> names;
  for (nsCOMPtr<nsSystemFileSystemNode> node = aNode; node != mRootNode;) {
    nsresult rv = node->GetLeafName(names.emplace_back());
    NS_ENSURE_SUCCESS(rv, rv);
    nsCOMPtr<nsSystemFileSystemNode> parent;
    rv = node->GetParent(parent.getter_AddRefs());
    NS_ENSURE_SUCCESS(rv, rv);
    NS_ENSURE_TRUE(parent, NS_ERROR_FAILURE);
    node = std::move(parent);
  }
  std::u16string path;
  if (aPrependRoot) path.append(mRootPath.view()) += mSeparator;
  for (auto name = names.rbegin(); name != names.rend(); ++name) {
    if (name != names.rbegin()) path += mSeparator;
    path += name->view();
  }
  bool isDir;
  nsresult rv = aNode->GetIsDir(&isDir);
  NS_ENSURE_SUCCESS(rv, rv);
  if (isDir && !path.empty() && !path.ends_with(mSeparator)) path += mSeparator;
  NS_Assign(aPath, path);
  return NS_OK;
}

nsresult nsSystemFileSystemTree::GetNode(const nsAString& aPath,
                                         nsSystemFileSystemNode* aRootSearchNode,
                                         nsSystemFileSystemNode** aNodeRetVal) {
  NS_ENSURE_TRUE(aRootSearchNode, NS_ERROR_NULL_POINTER);
  NS_ENSURE_TRUE(aNodeRetVal, NS_ERROR_NULL_POINTER);
  NS_ENSURE_TRUE(StringBeginsWith(aPath, mRootPath), NS_ERROR_INVALID_ARG);
  std::u16string_view path = NS_View(aPath);
  if (path.ends_with(mSeparator)) path.remove_suffix(1);

  nsCOMPtr<nsSystemFileSystemNode> node = aRootSearchNode;
  if (path != mRootPath.view()) {
    const auto strRange = static_cast<std::ptrdiff_t>(path.find(mRootPath.view()));
    NS_ENSURE_TRUE(strRange >= 0, NS_ERROR_FAILURE);
    path.remove_prefix(static_cast<size_t>(strRange) + mRootPath.Length());
    if (path.starts_with(mSeparator)) path.remove_prefix(1);
    while (true) {
      const size_t end = std::min(path.find(mSeparator), path.size());
      const auto found = node->Children().find(path.substr(0, end));
      if (found == node->Children().end()) return NS_ERROR_FAILURE;
      node = nsCOMPtr<nsSystemFileSystemNode>(found->second);
      if (end == path.size()) break;
      path.remove_prefix(end + 1);
    }
  }
  node.forget(aNodeRetVal);
  return NS_OK;
}
