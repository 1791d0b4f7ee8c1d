// What tests of digital television share: a host that makes the value classes by their contracts.
#pragma once

#include "nsDigitalTvService.h"
#include "nsIsoCountry.h"
#include "nsSystemTest.h"

namespace vorel::test {
template <class T>
constexpr Module::CIDEntry kClassOf{&T::kModuleClass.mCID, false, nullptr, Construct<T>};
template <class T>
constexpr Module::ContractIDEntry kContractOf{T::kModuleClass.mContractID, &T::kModuleClass.mCID};

inline constexpr Module::CIDEntry kDigitalTvCIDs[] = {kClassOf<nsDigitalTvAudioChannel>,
                                                      kClassOf<nsBDAScanResultDigitalTvService>,
                                                      kClassOf<nsIsoCountry>,
                                                      {nullptr, false, nullptr, nullptr}};
inline constexpr Module::ContractIDEntry kDigitalTvContractIDs[] = {
    kContractOf<nsDigitalTvAudioChannel>,
    kContractOf<nsBDAScanResultDigitalTvService>,
    kContractOf<nsIsoCountry>,
    {nullptr, nullptr}};
inline constexpr Module kDigitalTvModule = {
    Module::kVersion, kDigitalTvCIDs, kDigitalTvContractIDs, nullptr, nullptr, nullptr, nullptr};
}  // namespace vorel::test

class nsDigitalTvTest : public nsSystemTest {
 protected:
  nsDigitalTvTest() { mOptions.mModules.push_back(&vorel::test::kDigitalTvModule); }

  static nsCOMPtr<nsIMutableArray> NewArray() {
    return do_CreateInstance<nsIMutableArray>(VOREL_ARRAY_CONTRACTID);
  }
};
