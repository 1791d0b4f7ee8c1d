#include "nsSupportsPrimitives.h"

#include <new>

#include "nsXPCOM.h"

namespace {

nsresult Give(uint16_t aValue, uint16_t* aOut) {
  if (!aOut) return NS_ERROR_NULL_POINTER;
  *aOut = aValue;
  return NS_OK;
}

nsresult Give(std::string_view aValue, char** aOut) {
  if (!aOut) return NS_ERROR_NULL_POINTER;
  *aOut = NS_NewCString(aValue);
  return NS_OK;
}

nsresult Give(const std::optional<nsID>& aValue, nsID** aOut) {
  if (!aOut) return NS_ERROR_NULL_POINTER;
  *aOut = aValue ? new (NS_Alloc(sizeof(nsID))) nsID(*aValue) : nullptr;
  return NS_OK;
}

std::optional<nsID> Take(const nsID* aId) { return aId ? std::optional(*aId) : std::nullopt; }

}  // namespace

nsresult nsSupportsCString::GetType(uint16_t* aType) { return Give(TYPE_CSTRING, aType); }
nsresult nsSupportsCString::GetData(nsACString& aData) { return NS_CStringCopy(aData, mData); }
nsresult nsSupportsCString::SetData(const nsACString& aData) {
  return NS_CStringCopy(mData, aData);
}
nsresult nsSupportsCString::ToString(char** aResult) { return Give(mData.view(), aResult); }

nsresult nsSupportsString::GetType(uint16_t* aType) { return Give(TYPE_STRING, aType); }
nsresult nsSupportsString::GetData(nsAString& aData) { return NS_StringCopy(aData, mData); }
nsresult nsSupportsString::SetData(const nsAString& aData) { return NS_StringCopy(mData, aData); }
nsresult nsSupportsString::ToString(char16_t** aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  *aResult = NS_StringCloneData(mData);
  return NS_OK;
}

nsresult nsSupportsID::GetType(uint16_t* aType) { return Give(TYPE_ID, aType); }
nsresult nsSupportsID::GetData(nsID** aData) { return Give(mData, aData); }
nsresult nsSupportsID::SetData(const nsID* aData) {
  mData = Take(aData);
  return NS_OK;
}
nsresult nsSupportsID::ToString(char** aResult) {
  return Give(mData ? mData->ToString() : "null", aResult);
}

nsresult nsSupportsInterfacePointer::GetType(uint16_t* aType) {
  return Give(TYPE_INTERFACE_POINTER, aType);
}
nsresult nsSupportsInterfacePointer::GetData(nsISupports** aData) {
  if (!aData) return NS_ERROR_NULL_POINTER;
  nsCOMPtr<nsISupports>(mData).forget(aData);
  return NS_OK;
}
nsresult nsSupportsInterfacePointer::SetData(nsISupports* aData) {
  mData = aData;
  return NS_OK;
}
nsresult nsSupportsInterfacePointer::GetDataIID(nsID** aDataIID) { return Give(mIID, aDataIID); }
nsresult nsSupportsInterfacePointer::SetDataIID(const nsID* aDataIID) {
  mIID = Take(aDataIID);
  return NS_OK;
}
nsresult nsSupportsInterfacePointer::ToString(char** aResult) {
  return Give("[interface pointer]", aResult);
}
