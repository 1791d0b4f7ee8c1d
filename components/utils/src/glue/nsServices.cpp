#include "nsServices.h"

#include "nsIComponentManager.h"
#include "nsIServiceManager.h"

namespace vorel::detail {

nsresult GetServiceByContract(const char* aContractID, const nsIID& aIID, void** aResult) {
  nsCOMPtr<nsIServiceManager> manager;
  const nsresult rv = NS_GetServiceManager(manager.getter_AddRefs());
  return NS_FAILED(rv) ? rv : manager->GetServiceByContractID(aContractID, aIID, aResult);
}

nsresult GetServiceByCID(const nsCID& aCID, const nsIID& aIID, void** aResult) {
  nsCOMPtr<nsIServiceManager> manager;
  const nsresult rv = NS_GetServiceManager(manager.getter_AddRefs());
  return NS_FAILED(rv) ? rv : manager->GetService(aCID, aIID, aResult);
}

nsresult CreateByContract(const char* aContractID, const nsIID& aIID, void** aResult) {
  nsCOMPtr<nsIComponentManager> manager;
  const nsresult rv = NS_GetComponentManager(manager.getter_AddRefs());
  return NS_FAILED(rv) ? rv
                       : manager->CreateInstanceByContractID(aContractID, nullptr, aIID, aResult);
}

}  // namespace vorel::detail
