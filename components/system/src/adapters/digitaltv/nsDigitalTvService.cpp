#include "nsDigitalTvService.h"

#include "nsLogger.h"
#include "nsServices.h"
#include "nsSystemArray.h"

namespace {
nsresult Copy(nsIArray* aFrom, nsIArray** aTo) {
  nsCOMPtr<nsISimpleEnumerator> elements;
  const nsresult rv = aFrom->Enumerate(elements.getter_AddRefs());
  return NS_FAILED(rv) ? rv : NS_NewScriptArray(aTo, elements.get());
}
}  // namespace

nsDigitalTvAudioChannels::nsDigitalTvAudioChannels()
    : mChannels(do_CreateInstance<nsIMutableArray>(VOREL_ARRAY_CONTRACTID)) {
  if (!mChannels)
    SYSTEM_LOG_ERROR(NS_GetLogger("system.digitaltvreceiver"),
                     "Failed to create nsArray instance \"");
}

nsresult nsDigitalTvAudioChannels::Get(nsIArray** aChannels) const {
  nsCOMPtr<nsIArray> copy;
  if (mChannels) {
    const nsresult rv = Copy(mChannels.get(), copy.getter_AddRefs());
    if (NS_FAILED(rv)) {
      SYSTEM_LOG_ERROR(NS_GetLogger("system.digitaltvreceiver"),
                       "Failed to create nsArrayCI instance \"");
      return rv;
    }
  }
  copy.forget(aChannels);
  return NS_OK;
}

nsresult nsDigitalTvAudioChannels::Set(nsIArray* aChannels) {
  nsCOMPtr<nsIArray> copy;
  if (aChannels) {
    const nsresult rv = Copy(aChannels, copy.getter_AddRefs());
    if (NS_FAILED(rv)) return rv;
  }
  mChannels = copy;
  return NS_OK;
}
