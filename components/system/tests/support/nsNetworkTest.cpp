#include "nsNetworkTest.h"

void nsNetworkTest::SetUp() {
  StartHost();
  mManager = NewManager(mMachine);
}

void nsNetworkTest::TearDown() {
  if (mManager) {
    EXPECT_EQ(mManager->Observe(nullptr, "xpcom-shutdown", nullptr), NS_OK);
  }
  mManager = nullptr;
}

std::vector<nsCOMPtr<nsISystemAdapterIP>> nsNetworkTest::Adapters(nsSystemManager& aManager) {
  nsCOMPtr<nsIArray> adapters;
  EXPECT_EQ(aManager.GetAdaptersByIId(nsISystemAdapterIP::kIID, adapters.getter_AddRefs()), NS_OK);
  return NS_Elements<nsISystemAdapterIP>(adapters.get());
}

nsNetworkTest::Strings nsNetworkTest::Names(nsSystemManager& aManager) {
  Strings names;
  for (const auto& adapter : Adapters(aManager))
    names.push_back((do_QueryInterface<nsISystemAdapterLAN>(adapter)    ? "lan "
                     : do_QueryInterface<nsISystemAdapterWLAN>(adapter) ? "wlan "
                                                                        : "other ") +
                    ::NS_TextOf(adapter, &nsISystemAdapterIP::GetSysPath));
  return names;
}

nsCOMPtr<nsISystemAdapterIP> nsNetworkTest::Found(Interface aInterface) {
  const std::string name = aInterface.mAddresses.mAdapterName;
  mMachine.mNetwork->Put(std::move(aInterface));
  EXPECT_EQ(Discover(), NS_OK);
  for (const auto& adapter : Adapters(*mManager))
    if (::NS_TextOf(adapter, &nsISystemAdapterIP::GetSysPath) == name) return adapter;
  ADD_FAILURE() << name << " was not found";
  return nullptr;
}
