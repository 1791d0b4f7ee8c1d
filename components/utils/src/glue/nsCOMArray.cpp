#include "nsCOMArray.h"

#include "nsISimpleEnumerator.h"
#include "nsImplements.h"

namespace {

class nsCOMArrayEnumerator final
    : public nsImplementsOnOneThread<nsCOMArrayEnumerator, nsISimpleEnumerator> {
 public:
  explicit nsCOMArrayEnumerator(std::vector<nsCOMPtr<nsISupports>> aElements)
      : mElements(std::move(aElements)) {}

  nsresult HasMoreElements(bool* aResult) override {
    if (!aResult) return NS_ERROR_NULL_POINTER;
    *aResult = mNext < mElements.size();
    return NS_OK;
  }

  nsresult GetNext(nsISupports** aResult) override {
    if (!aResult) return NS_ERROR_NULL_POINTER;
    if (mNext >= mElements.size()) return NS_ERROR_UNEXPECTED;
    mElements[mNext++].forget(aResult);
    return NS_OK;
  }

 private:
  ~nsCOMArrayEnumerator() override = default;
  size_t mNext = 0;
  std::vector<nsCOMPtr<nsISupports>> mElements;
};

}  // namespace

nsresult vorel::detail::NewArrayEnumerator(nsISimpleEnumerator** aResult,
                                           std::vector<nsCOMPtr<nsISupports>> aElements) {
  MakeRefCounted<nsCOMArrayEnumerator>(std::move(aElements)).forget(aResult);
  return NS_OK;
}
