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

  void SetUp() override;
  void TearDown() override;

  static constexpr auto Wire = nsSimulatedNetwork::Wire;
  nsresult Discover() { return mManager->RefreshAdapters(nsISystemAdapterIP::kIID); }

  static std::vector<nsCOMPtr<nsISystemAdapterIP>> Adapters(nsSystemManager& aManager);
  /// "lan eth0", "wlan wl0", in the manager's order.
  static Strings Names(nsSystemManager& aManager);
  Strings Names() { return Names(*mManager); }

  /// The live adapter of an interface, which is on the machine and found.
  nsCOMPtr<nsISystemAdapterIP> Found(Interface aInterface);

  nsCOMPtr<nsSystemManager> mManager;
};
