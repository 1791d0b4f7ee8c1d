// Lists of strong references, and the snapshot enumerator over one.
#pragma once

#include <vector>

#include "nsCOMPtr.h"

class nsISimpleEnumerator;

template <class T>
using nsCOMArray = std::vector<nsCOMPtr<T>>;

namespace vorel::detail {
nsresult NewArrayEnumerator(nsISimpleEnumerator** aResult,
                            std::vector<nsCOMPtr<nsISupports>> aElements);
}

/// An enumerator over the elements as they are now: later changes of the list do not show in it.
/// Elements not handed out are released with it. One thread at a time.
template <class T>
nsresult NS_NewArrayEnumerator(nsISimpleEnumerator** aResult, const nsCOMArray<T>& aList) {
  std::vector<nsCOMPtr<nsISupports>> elements;
  elements.reserve(aList.size());
  for (const auto& element : aList) elements.emplace_back(element.get());
  return vorel::detail::NewArrayEnumerator(aResult, std::move(elements));
}
inline nsresult NS_NewArrayEnumerator(nsISimpleEnumerator** aResult, std::nullptr_t) {
  return vorel::detail::NewArrayEnumerator(aResult, {});
}
