#include "nsSystemFileSystemNode.h"

#include <cassert>
#include <vector>

#include "nsDebug.h"

nsSystemFileSystemNode::~nsSystemFileSystemNode() {
  // One after the other instead of each from within its parent's destruction: trees can be deeper
  // than the stack.
  std::vector<nsCOMPtr<nsSystemFileSystemNode>> dying;
  const auto take = [&dying](nsSystemFileSystemNode& aNode) {
    if (!aNode.mChildren) return;
    for (const auto& [name, child] : *aNode.mChildren) dying.push_back(child);
    aNode.mChildren.reset();
  };
  take(*this);
  while (!dying.empty()) {
    const auto node = std::move(dying.back());
    dying.pop_back();
    if (node->mRefCnt == 1) take(*node);
  }
}

nsrefcnt nsSystemFileSystemNode::AddRef() { return ++mRefCnt; }

nsrefcnt nsSystemFileSystemNode::Release() {
  const nsrefcnt count = --mRefCnt;
  assert(count != nsrefcnt(-1) && "released too often");
  if (count == 0) delete this;
  return count;
}

nsresult nsSystemFileSystemNode::Init(nsSystemFileSystemNode* aParent, const nsString& aLeafName,
                                      bool aIsDir, int64_t aLastModify, uint64_t aINode,
                                      bool aHasINode) {
  mParent = aParent;
  mLeafName = aLeafName;
  mIsDir = aIsDir;
  mLastModify = aLastModify;
  mINode = aINode;
  mHasINode = aHasINode;
  return NS_OK;
}

void nsSystemFileSystemNode::SetOrigin(nsPlatformFiles::Kind aKind, uint16_t aVolume) {
  mKind = aKind;
  mVolume = aVolume;
}

nsresult nsSystemFileSystemNode::GetLeafName(nsAString& aLeafName) const {
  return NS_StringCopy(aLeafName, mLeafName);
}

nsresult nsSystemFileSystemNode::SetLeafName(const nsAString& aLeafName) {
  mLeafName = aLeafName;
  return NS_OK;
}

nsresult nsSystemFileSystemNode::GetIsDir(bool* aIsDir) const {
  NS_ENSURE_TRUE(aIsDir, NS_ERROR_NULL_POINTER);
  *aIsDir = mIsDir;
  return NS_OK;
}

nsresult nsSystemFileSystemNode::GetLastModify(int64_t* aLastModify) const {
  NS_ENSURE_TRUE(aLastModify, NS_ERROR_NULL_POINTER);
  *aLastModify = mLastModify;
  return NS_OK;
}

nsresult nsSystemFileSystemNode::GetParent(nsSystemFileSystemNode** aParent) const {
  NS_ENSURE_TRUE(aParent, NS_ERROR_NULL_POINTER);
  nsCOMPtr<nsSystemFileSystemNode>(mParent).forget(aParent);
  return NS_OK;
}

nsresult nsSystemFileSystemNode::GetINode(uint64_t* aINode) const {
  NS_ENSURE_TRUE(aINode, NS_ERROR_NULL_POINTER);
  *aINode = mINode;
  return mHasINode ? NS_OK : NS_ERROR_FAILURE;
}

const nsFileSystemNodeMap& nsSystemFileSystemNode::Children() const {
  static const nsFileSystemNodeMap kNone;
  return mChildren ? *mChildren : kNone;
}

void nsSystemFileSystemNode::ExpectChildren(size_t aCount) {
  if (aCount == 0) return;
  if (!mChildren) mChildren = std::make_unique<nsFileSystemNodeMap>();
  mChildren->reserve(mChildren->size() + aCount);
}

nsresult nsSystemFileSystemNode::AddChild(nsSystemFileSystemNode* aNode) {
  NS_ENSURE_TRUE(aNode, NS_ERROR_NULL_POINTER);
  if (!mChildren) mChildren = std::make_unique<nsFileSystemNodeMap>();
  mChildren->emplace(aNode->mLeafName, aNode);
  aNode->mParent = this;
  return NS_OK;
}

nsresult nsSystemFileSystemNode::RemoveChild(nsSystemFileSystemNode* aNode) {
  NS_ENSURE_TRUE(aNode, NS_ERROR_NULL_POINTER);
  if (mChildren) mChildren->erase(nsString(aNode->mLeafName).view());
  return NS_OK;
}

nsresult nsSystemFileSystemNode::ChangeNode(const nsAString& aLeafName,
                                            nsSystemFileSystemNode* aChangeNode) {
  NS_ENSURE_TRUE(aChangeNode, NS_ERROR_NULL_POINTER);
  const auto found = Children().find(NS_View(aLeafName));
  // Not to be met: only names that the map holds are changed.
  if (found == Children().end()) return NS_ERROR_FAILURE;
  nsSystemFileSystemNode& child = *found->second;
  child.mLastModify = aChangeNode->mLastModify;
  child.mINode = aChangeNode->mINode;
  child.SetOrigin(aChangeNode->mKind, aChangeNode->mVolume);
  child.mLeafName = aChangeNode->mLeafName;
  return NS_OK;
}
