#include "nsIsoCountry.h"

nsresult nsIsoCountry::GetCode(nsACString& aCode) {
  NS_Assign(aCode, mCode.view());
  return NS_OK;
}

nsresult nsIsoCountry::SetCode(const nsACString& aCode) {
  mCode = aCode;
  return NS_OK;
}

nsresult nsIsoCountry::GetName(nsACString& aName) {
  NS_Assign(aName, mName.view());
  return NS_OK;
}

nsresult nsIsoCountry::SetName(const nsACString& aName) {
  mName = aName;
  return NS_OK;
}
