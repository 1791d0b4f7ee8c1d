#include "nsSystemFileSystemChange.h"

#include <cassert>

#include "nsDebug.h"

nsrefcnt nsSystemFileSystemChange::AddRef() { return ++mRefCnt; }

nsrefcnt nsSystemFileSystemChange::Release() {
  const nsrefcnt count = --mRefCnt;
  assert(count != nsrefcnt(-1) && "released too often");
  if (count == 0) delete this;
  return count;
}

nsresult nsSystemFileSystemChange::GetChangeType(uint32_t* aChangeType) const {
  NS_ENSURE_TRUE(aChangeType, NS_ERROR_NULL_POINTER);
  *aChangeType = mChangeType;
  return NS_OK;
}

nsresult nsSystemFileSystemNodeChange::GetNode(nsSystemFileSystemNode** aRetVal) const {
  NS_ENSURE_TRUE(aRetVal, NS_ERROR_NULL_POINTER);
  nsCOMPtr<nsSystemFileSystemNode>(mNode).forget(aRetVal);
  return NS_OK;
}

nsresult nsSystemFileSystemNodeChange::GetMovedNode(nsSystemFileSystemNode** aRetVal) const {
  NS_ENSURE_TRUE(aRetVal, NS_ERROR_NULL_POINTER);
  nsCOMPtr<nsSystemFileSystemNode>(mMovedNode).forget(aRetVal);
  return NS_OK;
}

nsresult nsSystemFileSystemNodeChange::SetMovedNode(nsSystemFileSystemNode* aNode) {
  NS_ENSURE_TRUE(aNode, NS_ERROR_NULL_POINTER);
  mMovedNode = aNode;
  return NS_OK;
}
