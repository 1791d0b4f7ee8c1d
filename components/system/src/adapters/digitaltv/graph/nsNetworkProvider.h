// The head of a receiver's graph: it is told what to tune to, and passes it on to the tuner.
#pragma once

#include "IFrequencyMap.h"
#include "IScanningTuner.h"
#include "nsLock.h"
#include "nsMediaFilter.h"

/// Of terrestrial networks.
class nsNetworkProvider final
    : public nsImplements<nsNetworkProvider, nsMediaFilter, IScanningTuner, IFrequencyMap> {
 public:
  nsNetworkProvider();

  nsresult get_TuningSpace(ITuningSpace** aSpace) override;
  nsresult put_TuningSpace(ITuningSpace* aSpace) override;
  nsresult EnumTuningSpaces(IEnumTuningSpaces**) override { return E_NOTIMPL; }
  nsresult get_TuneRequest(ITuneRequest** aRequest) override;
  /// E_INVALIDARG for a request that has no terrestrial locator, and for what the tuner can't do.
  /// Without a tuner, or while the graph is stopped, it is kept.
  nsresult put_TuneRequest(ITuneRequest* aRequest) override;
  nsresult Validate(ITuneRequest* aRequest) override;
  nsresult get_PreferredComponentTypes(IComponentTypes**) override { return E_NOTIMPL; }
  nsresult put_PreferredComponentTypes(IComponentTypes*) override { return E_NOTIMPL; }
  nsresult get_SignalStrength(int32_t*) override { return E_NOTIMPL; }
  nsresult TriggerSignalEvents(int32_t) override { return E_NOTIMPL; }
  nsresult SeekUp() override { return E_NOTIMPL; }
  nsresult SeekDown() override { return E_NOTIMPL; }
  nsresult ScanUp(int32_t) override { return E_NOTIMPL; }
  nsresult ScanDown(int32_t) override { return E_NOTIMPL; }
  nsresult AutoProgram() override { return E_NOTIMPL; }

  nsresult get_FrequencyMapping(uint32_t*, uint32_t**) override { return E_NOTIMPL; }
  nsresult put_FrequencyMapping(uint32_t, uint32_t*) override { return E_NOTIMPL; }
  nsresult get_CountryCode(uint32_t*) override { return E_NOTIMPL; }
  nsresult put_CountryCode(uint32_t) override { return E_NOTIMPL; }
  /// E_INVALIDARG for a code that no country has. A country without terrestrial television has an
  /// empty list.
  nsresult get_DefaultFrequencyMapping(uint32_t aCode, uint32_t* aCount,
                                       uint32_t** aFrequencies) override;
  /// Those that have a list, each code once.
  nsresult get_CountryCodeList(uint32_t* aCount, uint32_t** aCodes) override;

 private:
  ~nsNetworkProvider() override = default;
  nsresult OnRun() override;
  nsresult PassOn(ITuneRequest* aRequest);

  nsMediaPin& mOutput;
  nsMutex mLock;
  nsCOMPtr<ITuningSpace> mSpace NS_GUARDED_BY(mLock);
  nsCOMPtr<ITuneRequest> mRequest NS_GUARDED_BY(mLock);
  bool mIsPassedOn NS_GUARDED_BY(mLock) = false;
};
