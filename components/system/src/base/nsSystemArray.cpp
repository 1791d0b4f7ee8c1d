#include "nsSystemArray.h"

#include "nsServices.h"

nsresult NS_NewScriptArray(nsIArray** aArray, nsISimpleEnumerator* aElements) {
  nsresult rv;
  const auto array = do_CreateInstance<nsIMutableArray>(VOREL_ARRAY_CONTRACTID, &rv);
  if (NS_FAILED(rv)) return rv;
  for (bool more; NS_SUCCEEDED(rv = aElements->HasMoreElements(&more)) && more;) {
    nsCOMPtr<nsISupports> element;
    if (NS_FAILED(rv = aElements->GetNext(element.getter_AddRefs()))) return rv;
    if (NS_FAILED(rv = array->AppendElement(element.get(), false))) return rv;
  }
  if (NS_FAILED(rv)) return rv;
  nsCOMPtr<nsIArray>(array).forget(aArray);
  return NS_OK;
}
