// What tests of IP adapters share.
#pragma once

#include "nsIArray.h"
#include "nsISystemAdapterIP.h"
#include "nsISystemAdapterLAN.h"
#include "nsISystemAdapterWLAN.h"
#include "nsISystemAdapterWWAN.h"
#include "nsISystemIPAddress.h"
#include "nsISystemIPv4Structure.h"
#include "nsISystemMACStructure.h"
#include "nsSystemTest.h"

/// An address, or another value, as text; "none" for null.
template <class T>
std::string NS_TextOf(const nsCOMPtr<T>& aValue) {
  if (!aValue) return "none";
  nsCString text;
  EXPECT_EQ(aValue->GetString(text), NS_OK);
  return std::string(text.view());
}

class nsNetworkTest : public nsSystemTest {
 protected:
  using Strings = std::vector<std::string>;
  using Interface = nsSimulatedInterface;

  void SetUp() override {
    StartHost();
    mManager = NewManager(mMachine);
  }
  void TearDown() override {
    if (mManager) {
      EXPECT_EQ(mManager->Observe(nullptr, "xpcom-shutdown", nullptr), NS_OK);
    }
    mManager = nullptr;
  }

  static constexpr auto Wire = nsSimulatedNetwork::Wire;
  nsresult Discover() { return mManager->RefreshAdapters(nsISystemAdapterIP::kIID); }

  static std::vector<nsCOMPtr<nsISystemAdapterIP>> Adapters(nsSystemManager& aManager) {
    nsCOMPtr<nsIArray> adapters;
    EXPECT_EQ(aManager.GetAdaptersByIId(nsISystemAdapterIP::kIID, adapters.getter_AddRefs()),
              NS_OK);
    return NS_Elements<nsISystemAdapterIP>(adapters.get());
  }
  /// "lan eth0", "wlan wl0", in the manager's order.
  static Strings Names(nsSystemManager& aManager) {
    Strings names;
    for (const auto& adapter : Adapters(aManager))
      names.push_back((do_QueryInterface<nsISystemAdapterLAN>(adapter)    ? "lan "
                       : do_QueryInterface<nsISystemAdapterWLAN>(adapter) ? "wlan "
                                                                          : "other ") +
                      ::NS_TextOf(adapter, &nsISystemAdapterIP::GetSysPath));
    return names;
  }
  Strings Names() { return Names(*mManager); }

  /// The live adapter of an interface, which is on the machine and found.
  nsCOMPtr<nsISystemAdapterIP> Found(Interface aInterface) {
    const std::string name = aInterface.mAddresses.mAdapterName;
    mMachine.mNetwork->Put(std::move(aInterface));
    EXPECT_EQ(Discover(), NS_OK);
    for (const auto& adapter : Adapters(*mManager))
      if (::NS_TextOf(adapter, &nsISystemAdapterIP::GetSysPath) == name) return adapter;
    ADD_FAILURE() << name << " was not found";
    return nullptr;
  }

  nsCOMPtr<nsSystemManager> mManager;
};
