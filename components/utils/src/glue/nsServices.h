// Services and instances by contract ID or class ID.
#pragma once

#include "nsCOMPtr.h"
#include "nsXPCOM.h"

namespace vorel::detail {
nsresult GetServiceByContract(const char* aContractID, const nsIID& aIID, void** aResult);
nsresult GetServiceByCID(const nsCID& aCID, const nsIID& aIID, void** aResult);
nsresult CreateByContract(const char* aContractID, const nsIID& aIID, void** aResult);
}  // namespace vorel::detail

/// The one instance; null when it is not to be had, and *aRv, where given, says why.
template <nsInterface T>
nsCOMPtr<T> do_GetService(const char* aContractID, nsresult* aRv = nullptr) {
  nsCOMPtr<T> result;
  const nsresult rv = vorel::detail::GetServiceByContract(aContractID, T::kIID, NS_OutVoid(result));
  if (aRv) *aRv = rv;
  return result;
}
template <nsInterface T>
nsCOMPtr<T> do_GetService(const nsCID& aCID, nsresult* aRv = nullptr) {
  nsCOMPtr<T> result;
  const nsresult rv = vorel::detail::GetServiceByCID(aCID, T::kIID, NS_OutVoid(result));
  if (aRv) *aRv = rv;
  return result;
}

/// A new instance; null when it is not to be had.
template <nsInterface T>
nsCOMPtr<T> do_CreateInstance(const char* aContractID, nsresult* aRv = nullptr) {
  nsCOMPtr<T> result;
  const nsresult rv = vorel::detail::CreateByContract(aContractID, T::kIID, NS_OutVoid(result));
  if (aRv) *aRv = rv;
  return result;
}

// Contract IDs of the platform's and the host's services.
inline constexpr char NS_CATEGORYMANAGER_CONTRACTID[] = "@mozilla.org/categorymanager;1";
inline constexpr char NS_OBSERVERSERVICE_CONTRACTID[] = "@mozilla.org/observer-service;1";
inline constexpr char NS_PREFSERVICE_CONTRACTID[] = "@mozilla.org/preferences-service;1";
inline constexpr char NS_THREADMANAGER_CONTRACTID[] = "@mozilla.org/thread-manager;1";
inline constexpr char NS_TIMER_CONTRACTID[] = "@mozilla.org/timer;1";
inline constexpr char NS_ARRAY_CONTRACTID[] = "@mozilla.org/array;1";
inline constexpr char NS_LOCALFILE_CONTRACTID[] = "@mozilla.org/file/local;1";
inline constexpr char NS_DIRECTORYSERVICE_CONTRACTID[] = "@mozilla.org/file/directory_service;1";
inline constexpr char NS_IOSERVICE_CONTRACTID[] = "@mozilla.org/network/io-service;1";
inline constexpr char NS_FILEPROTOCOLHANDLER_CONTRACTID[] =
    "@mozilla.org/network/protocol;1?name=file";
inline constexpr char VOREL_ARRAY_CONTRACTID[] = "@vorel/array;1";
inline constexpr char VOREL_PREFS_CONTRACTID[] = "@vorel/ipc/prefs;1";
inline constexpr char VOREL_THREADPOOL_CONTRACTID[] = "@vorel/vorelthreadpool;1";
inline constexpr char VOREL_LOG4SERVICE_CONTRACTID[] = "@vorel/log4service;1";
inline constexpr char VOREL_LOG4LOCATIONINFO_CONTRACTID[] = "@vorel/log4locationinfo;1";
