#include "nsNetworkProvider.h"

#include <algorithm>
#include <utility>

#include "IDVBTLocator.h"
#include "ITuneRequest.h"
#include "ITuningSpace.h"
#include "nsCountryTable.h"
#include "nsMediaTuner.h"

namespace {

nsCOMPtr<IDVBTLocator> LocatorOf(ITuneRequest* aRequest) {
  nsCOMPtr<ILocator> locator;
  if (!aRequest || NS_FAILED(aRequest->get_Locator(locator.getter_AddRefs()))) return nullptr;
  return do_QueryInterface<IDVBTLocator>(locator);
}

nsresult GiveList(const std::vector<uint32_t>& aList, uint32_t* aCount, uint32_t** aOut) {
  if (!aCount || !aOut) return E_POINTER;
  const size_t bytes = std::max<size_t>(aList.size(), 1) * sizeof(uint32_t);
  auto* const list = static_cast<uint32_t*>(NS_MediaAlloc(bytes));
  if (!list) return E_OUTOFMEMORY;
  std::ranges::copy(aList, list);
  *aCount = static_cast<uint32_t>(aList.size());
  *aOut = list;
  return S_OK;
}

}  // namespace

nsNetworkProvider::nsNetworkProvider()
    : mOutput(AddPin<nsPlainMediaPin>(
          PINDIR_OUTPUT, u"Antenna Out",
          std::vector<nsMediaType>{{KSDATAFORMAT_TYPE_BDA_ANTENNA, nsID()}})) {
  SetClass(CLSID_DVBTNetworkProvider);
}

nsresult nsNetworkProvider::get_TuningSpace(ITuningSpace** aSpace) {
  if (!aSpace) return E_POINTER;
  const nsAutoLock lock(mLock);
  if (!mSpace) return E_FAIL;
  nsCOMPtr(mSpace).forget(aSpace);
  return S_OK;
}

nsresult nsNetworkProvider::put_TuningSpace(ITuningSpace* aSpace) {
  if (!aSpace) return E_POINTER;
  nsCOMPtr<ITuningSpace> space(aSpace);
  const nsAutoLock lock(mLock);
  mSpace.swap(space);
  return S_OK;
}

nsresult nsNetworkProvider::get_TuneRequest(ITuneRequest** aRequest) {
  if (!aRequest) return E_POINTER;
  const nsAutoLock lock(mLock);
  if (!mRequest) return E_FAIL;
  nsCOMPtr(mRequest).forget(aRequest);
  return S_OK;
}

nsresult nsNetworkProvider::Validate(ITuneRequest* aRequest) {
  if (!aRequest) return E_POINTER;
  return LocatorOf(aRequest) ? S_OK : E_INVALIDARG;
}

nsresult nsNetworkProvider::put_TuneRequest(ITuneRequest* aRequest) {
  if (const nsresult rv = Validate(aRequest); NS_FAILED(rv)) return rv;
  nsCOMPtr<ITuneRequest> request(aRequest);
  {
    const nsAutoLock lock(mLock);
    mRequest.swap(request);
    mIsPassedOn = IsRunning();
    if (!mIsPassedOn) return S_OK;
  }
  return PassOn(aRequest);
}

nsresult nsNetworkProvider::OnRun() {
  nsCOMPtr<ITuneRequest> request;
  {
    const nsAutoLock lock(mLock);
    if (std::exchange(mIsPassedOn, true)) return S_OK;
    request = mRequest;
  }
  return request ? PassOn(request.get()) : S_OK;
}

nsresult nsNetworkProvider::PassOn(ITuneRequest* aRequest) {
  const nsCOMPtr<nsIMediaSource> source = do_QueryInterface<nsIMediaSource>(mOutput.Peer());
  const auto tuner = source ? source->SourceTuner() : nullptr;
  if (!tuner) return S_OK;
  const nsCOMPtr<IDVBTLocator> locator = LocatorOf(aRequest);
  int32_t frequency = -1, bandwidth = -1;
  if (!locator || NS_FAILED(locator->get_CarrierFrequency(&frequency)) ||
      NS_FAILED(locator->get_Bandwidth(&bandwidth)))
    return E_INVALIDARG;
  return tuner->Tune(frequency, bandwidth);
}

// ---- Frequencies by country

nsresult nsNetworkProvider::get_DefaultFrequencyMapping(uint32_t aCode, uint32_t* aCount,
                                                        uint32_t** aFrequencies) {
  const auto countries = NS_Countries();
  if (std::ranges::find(countries, aCode, &nsCountryRow::mCallingCode) == countries.end())
    return E_INVALIDARG;
  return GiveList(NS_FrequenciesOfCountry(aCode), aCount, aFrequencies);
}

nsresult nsNetworkProvider::get_CountryCodeList(uint32_t* aCount, uint32_t** aCodes) {
  std::vector<uint32_t> codes;
  for (const nsCountryRow& country : NS_Countries())
    if ((codes.empty() || codes.back() != country.mCallingCode) &&
        !NS_FrequenciesOfCountry(country.mCallingCode).empty())
      codes.push_back(country.mCallingCode);
  return GiveList(codes, aCount, aCodes);
}
