// Lists as script gets them.
#pragma once

#include "nsCOMArray.h"
#include "nsIMutableArray.h"
#include "nsISimpleEnumerator.h"

/// A new "@vorel/array;1" of what an enumerator gives from here on.
nsresult NS_NewScriptArray(nsIArray** aArray, nsISimpleEnumerator* aElements);

/// A new "@vorel/array;1" of the elements as they are now, with references to the same objects.
template <class T>
nsresult NS_NewScriptArray(nsIArray** aArray, const nsCOMArray<T>& aElements) {
  nsCOMPtr<nsISimpleEnumerator> elements;
  const nsresult rv = NS_NewArrayEnumerator(elements.getter_AddRefs(), aElements);
  return NS_FAILED(rv) ? rv : NS_NewScriptArray(aArray, elements.get());
}
