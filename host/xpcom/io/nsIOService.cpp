#include "nsIOService.h"

#include <string>

#include "nsIFileProtocolHandler.h"
#include "nsIObserverService.h"
#include "nsIURI.h"
#include "nsServices.h"
#include "nsStandardURL.h"
#include "nsString.h"

namespace {

constexpr char kLinkStatusChanged[] = "network:link-status-changed";

}  // namespace

const nsClassInfoRecord nsIOService::kClassInfo = {NS_ClassInterfaces<nsIIOService, nsIIOService2>,
                                                   nullptr, nsIClassInfo::SINGLETON,
                                                   "9ac9e770-18bc-11d3-9337-00104ba0fd40"_iid};

nsresult nsIOService::GetProtocolHandler(const char* aScheme, nsIProtocolHandler** aResult) {
  if (!aScheme || !aResult) return NS_ERROR_NULL_POINTER;
  const std::string contract = "@mozilla.org/network/protocol;1?name=" + std::string(aScheme);
  auto handler = do_GetService<nsIProtocolHandler>(contract.c_str());
  if (!handler) return NS_ERROR_UNKNOWN_PROTOCOL;
  handler.forget(aResult);
  return NS_OK;
}

nsresult nsIOService::GetProtocolFlags(const char* aScheme, uint32_t* aResult) {
  nsCOMPtr<nsIProtocolHandler> handler;
  const nsresult rv = GetProtocolHandler(aScheme, handler.getter_AddRefs());
  return NS_FAILED(rv) ? rv : handler->GetProtocolFlags(aResult);
}

nsresult nsIOService::NewURI(const nsACString& aSpec, const char* aOriginCharset, nsIURI* aBaseURI,
                             nsIURI** aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  std::string scheme;
  if (NS_FAILED(NS_ExtractScheme(NS_View(aSpec), &scheme))) {
    if (!aBaseURI) return NS_ERROR_MALFORMED_URI;
    nsCString base;
    const nsresult rv = aBaseURI->GetScheme(base);
    if (NS_FAILED(rv)) return rv;
    scheme = base.view();
  }
  nsCOMPtr<nsIProtocolHandler> handler;
  if (NS_SUCCEEDED(GetProtocolHandler(scheme.c_str(), handler.getter_AddRefs())))
    return handler->NewURI(aSpec, aOriginCharset, aBaseURI, aResult);
  const bool isHierarchical =
      NS_DefaultPort(scheme) != -1 || NS_View(aSpec).find("://") != std::string_view::npos;
  if (!aBaseURI && !isHierarchical) return NS_ERROR_UNKNOWN_PROTOCOL;
  return nsStandardURL::Make(aSpec, aBaseURI, aResult);
}

nsresult nsIOService::NewFileURI(nsIFile* aFile, nsIURI** aResult) {
  nsresult rv;
  const auto handler =
      do_GetService<nsIFileProtocolHandler>(NS_FILEPROTOCOLHANDLER_CONTRACTID, &rv);
  return NS_FAILED(rv) ? rv : handler->NewFileURI(aFile, aResult);
}

nsresult nsIOService::GetOffline(bool* aOffline) {
  if (!aOffline) return NS_ERROR_NULL_POINTER;
  *aOffline = mOffline;
  return NS_OK;
}

nsresult nsIOService::SetOffline(bool aOffline) {
  if (aOffline == mOffline) return NS_OK;
  const auto observers = do_GetService<nsIObserverService>(NS_OBSERVERSERVICE_CONTRACTID);
  auto* const self = static_cast<nsIIOService2*>(this);
  if (observers && aOffline)
    (void)observers->NotifyObservers(self, "network:offline-about-to-go-offline", u"offline");
  mOffline = aOffline;
  if (observers)
    (void)observers->NotifyObservers(self, "network:offline-status-changed",
                                     aOffline ? u"offline" : u"online");
  return NS_OK;
}

nsresult nsIOService::AllowPort(int32_t aPort, const char* /*aScheme*/, bool* aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  *aResult = aPort >= -1 && aPort <= 65535;
  return NS_OK;
}

nsresult nsIOService::ExtractScheme(const nsACString& aURLString, nsACString& aResult) {
  std::string scheme;
  const nsresult rv = NS_ExtractScheme(NS_View(aURLString), &scheme);
  if (NS_SUCCEEDED(rv)) NS_Assign(aResult, scheme);
  return rv;
}

nsresult nsIOService::GetManageOfflineStatus(bool* aManageOfflineStatus) {
  if (!aManageOfflineStatus) return NS_ERROR_NULL_POINTER;
  *aManageOfflineStatus = mManageOffline;
  return NS_OK;
}

nsresult nsIOService::SetManageOfflineStatus(bool aManageOfflineStatus) {
  if (aManageOfflineStatus == mManageOffline) return NS_OK;
  nsresult rv;
  const auto observers = do_GetService<nsIObserverService>(NS_OBSERVERSERVICE_CONTRACTID, &rv);
  if (NS_FAILED(rv)) return rv;
  rv = aManageOfflineStatus ? observers->AddObserver(this, kLinkStatusChanged, false)
                            : observers->RemoveObserver(this, kLinkStatusChanged);
  if (NS_SUCCEEDED(rv)) mManageOffline = aManageOfflineStatus;
  return rv;
}

nsresult nsIOService::Observe(nsISupports* /*aSubject*/, const char* /*aTopic*/,
                              const char16_t* aData) {
  const std::u16string_view state = aData ? aData : u"";
  if (state == u"up" || state == u"down") return SetOffline(state == u"down");
  return NS_OK;
}
