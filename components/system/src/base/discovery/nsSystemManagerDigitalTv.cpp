// Discovery of digital television receivers.
#include <new>

#include "nsDebug.h"
#include "nsDirectShowTypes.h"
#include "nsFindCaptureDevice.h"
#include "nsIArray.h"
#include "nsISystemAdapterDigitalTvReceiver.h"
#include "nsISystemApplicationProfile.h"
#include "nsSystemAdapterDigitalTvReceiver.h"
#include "nsSystemApplicationProfile.h"
#include "nsSystemConnector.h"
#include "nsSystemDevice.h"
#include "nsSystemManager.h"

nsresult nsSystemManager::InitDVB() {
  DirectShowSystemDeviceEnumerator tuners(mPlatform, KSCATEGORY_BDA_NETWORK_TUNER);
  std::unique_ptr<DirectShowSystemDevice> tuner;
  while (tuners.Next(&tuner) == NS_OK) {
    const nsCOMPtr<nsSystemAdapterDigitalTvReceiver> adapter(
        new (std::nothrow) nsSystemAdapterDigitalTvReceiver(mPlatform));
    NS_ENSURE_TRUE(adapter, NS_ERROR_OUT_OF_MEMORY);
    std::unique_ptr<DirectShowSystemDevice> demod, capture;
    nsresult rv = FindCaptureDevice(mPlatform, *tuner, &demod, &capture);
    if (NS_SUCCEEDED(rv)) {
      adapter->mTuner = *tuner;
      adapter->mSysPath.Assign(tuner->mDevicePath.value_or(u""));
      if (demod) adapter->mDemod = *demod;
      if (capture) adapter->mCapture = *capture;
    }
    rv = NewSystemDevice(adapter->mDevice.getter_AddRefs(), nsString(u"express-card"),
                         nsString(u"express-card"));
    NS_ENSURE_SUCCESS(rv, rv);
    nsCOMPtr<nsISystemConnector> connector;
    rv = NewSystemConnector(connector.getter_AddRefs(), nsString(u"express-card"), nsString(u"*"),
                            nsString(u"express card connector"), nsString(u"type/express-card"),
                            nullptr, nullptr, nullptr);
    NS_ENSURE_SUCCESS(rv, rv);
    adapter->mConnectors.push_back(connector);
    rv = AddAdapter(adapter.get());
    NS_ENSURE_SUCCESS(rv, rv);
    const nsString name(u"digitaltvreceiver");
    nsCOMPtr<nsISystemApplicationProfile> profile;
    rv = NewSystemApplicationProfile(profile.getter_AddRefs(), name, name, nsString());
    NS_ENSURE_SUCCESS(rv, rv);
    nsCOMPtr<nsIArray> bindings;
    rv = adapter->GenerateApplicationProfileBindings(profile.get(), bindings.getter_AddRefs());
    NS_ENSURE_SUCCESS(rv, rv);
    rv = adapter->Init();
    NS_ENSURE_SUCCESS(rv, rv);
    rv = AppendApplicationProfileBindings(bindings.get());
    NS_ENSURE_SUCCESS(rv, rv);
  }
  return NS_OK;
}

void nsSystemManager::StopScans() {
  for (const auto& adapter : mAdapters)
    if (const auto receiver = do_QueryInterface<nsISystemAdapterDigitalTvReceiver>(adapter))
      (void)receiver->StopScan();
}
