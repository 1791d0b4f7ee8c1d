// The adapter base: which bindings a profile gets.
#include "nsSystemTest.h"

namespace {

using Strings = std::vector<std::string>;

class AdapterTest : public nsSystemTest {
 protected:
  void SetUp() override { StartHost(); }

  // Where the bindings of the profile "p" come from: the subtree of each, in order.
  Strings Bind() {
    nsCOMPtr<nsIArray> bindings;
    EXPECT_EQ(mAdapter->GenerateApplicationProfileBindings(NS_NewTestProfile(u"p").get(),
                                                           bindings.getter_AddRefs()),
              NS_OK);
    mNullResult = !bindings;
    Strings roots;
    for (const auto& binding : NS_Elements<nsISystemApplicationProfileBinding>(bindings.get()))
      roots.push_back(nsTestBinding::Root(binding.get()));
    return roots;
  }
  std::string Mask(nsresult aExpected) {
    nsString type, mask;
    EXPECT_EQ(mAdapter->GetMaskConnectors(type, mask), aExpected);
    return NS_ToUtf8(type) + "/" + NS_ToUtf8(mask);
  }

  nsCOMPtr<nsTestAdapter> mAdapter = MakeRefCounted<nsTestAdapter>();
  bool mNullResult = false;
};

struct MaskCase {
  std::vector<const char16_t*> mMasks;
  nsresult mResult;
  std::string mTypeAndMask;
};

TEST_F(AdapterTest, MasksOfSeveralConnectorsAreJoinedWrongly) {
  const MaskCase cases[] = {
      {{}, NS_OK, "/*"},
      {{u"1", u"4"}, NS_OK, "usb/5"},
      {{u"4294967295"}, NS_OK, "usb/4294967295"},
      {{u"4294967296"}, NS_ERROR_FAILURE, "usb/"},
      {{u"1", u"*"}, NS_ERROR_FAILURE, "usb/"},
      {{u"1", u""}, NS_ERROR_FAILURE, "usb/"},
      {{u"*", u"1"}, NS_OK, "usb/*"},
      {{u"*", u"1x"}, NS_OK, "usb/*"},
      {{u"0", u"*"}, NS_OK, "usb/*"},
      {{u""}, NS_OK, "usb/*"},
      {{u"1x"}, NS_ERROR_FAILURE, "usb/"},
      {{u"**"}, NS_ERROR_FAILURE, "usb/"},
  };
  for (const auto& [masks, result, expected] : cases) {
    mAdapter->mConnectors.clear();
    for (const char16_t* mask : masks) mAdapter->AddConnector(u"usb", mask);
    EXPECT_EQ(Mask(result), expected);
  }
}

TEST_F(AdapterTest, ConnectorTypeIsNotTheFirstOneThatHasAName) {
  mAdapter->AddConnector(u"", u"1");
  mAdapter->AddConnector(u"pci", u"2");
  mAdapter->AddConnector(u"usb", u"4");
  EXPECT_EQ(Mask(NS_OK), "pci/7");
}

TEST_F(AdapterTest, LevelsAreSkippedOrInTheWrongOrder) {
  for (const char* key :
       {"p.*.*.*", "p.*.usb.*", "p.*.usb.5", "p.disk.*.*", "p.disk.usb.*", "p.disk.usb.5"})
    AllowProfile(key);
  const std::string tree = "vorel.app-profile.";

  EXPECT_EQ(Bind(), Strings{tree + "p.*.*.*."});
  mAdapter->SetDevice(u"disk");
  EXPECT_EQ(Bind(), (Strings{tree + "p.disk.*.*.", tree + "p.*.*.*."}));
  mAdapter->AddConnector(u"usb", u"1");
  mAdapter->AddConnector(u"usb", u"4");
  EXPECT_EQ(Bind(), (Strings{tree + "p.disk.usb.5.", tree + "p.disk.usb.*.", tree + "p.disk.*.*.",
                             tree + "p.*.usb.5.", tree + "p.*.usb.*.", tree + "p.*.*.*."}));
  mAdapter->mDevice = nullptr;
  EXPECT_EQ(Bind(), (Strings{tree + "p.*.usb.5.", tree + "p.*.usb.*.", tree + "p.*.*.*."}));
}

TEST_F(AdapterTest, WildcardMaskIsTriedTwice) {
  AllowProfile("p.disk.usb.*");
  mAdapter->SetDevice(u"disk");
  mAdapter->AddConnector(u"usb", u"*");
  EXPECT_EQ(Bind(), Strings{"vorel.app-profile.p.disk.usb.*."});
}

// Registered under the most general key only; the preferences ask for a connector type.
class ConnectorSegmentTest : public AdapterTest {
 protected:
  void SetUp() override {
    AdapterTest::SetUp();
    AddCategoryEntry("vorel-application-profile-binding", "p.*.*.*", nsTestBinding::kContractID);
    mAdapter->SetDevice(u"disk");
  }
  size_t CountFor(const char16_t* aConnectorType) {
    mAdapter->mConnectors.clear();
    mAdapter->AddConnector(aConnectorType, u"*");
    return Bind().size();
  }
};

TEST_F(ConnectorSegmentTest, SegmentWithoutStarAnswersMoreOrLessThanItsBeginning) {
  SetPref("vorel.app-profile.p.disk.usb.*.authorized", true);
  EXPECT_EQ(CountFor(u"usb"), 1u);
  EXPECT_EQ(CountFor(u"usb2"), 1u);
  EXPECT_EQ(CountFor(u"us"), 0u);
  EXPECT_EQ(CountFor(u"xusb"), 0u);
}

TEST_F(ConnectorSegmentTest, StarAtTheEndOfASegmentBecomesAWildcard) {
  // The star stays in the name of the subtree.
  SetPref("vorel.app-profile.p.disk.usb*.*.authorized", true);
  EXPECT_EQ(CountFor(u"usb"), 1u);
  EXPECT_EQ(CountFor(u"usb2"), 0u);
  EXPECT_EQ(CountFor(u"us"), 0u);
}

TEST_F(ConnectorSegmentTest, PointDirectlyBehindTheAdapterTypeEndsASegment) {
  SetPref("vorel.app-profile.p.disk..usb.*.authorized", true);
  EXPECT_EQ(CountFor(u"usb"), 0u);
}

TEST_F(ConnectorSegmentTest, NameIsResetAfterAMatchWithoutItsMask) {
  // Names are listed in alphabetical order. "usb*" comes first and matches, but has nothing for
  // this mask: from then on the name is too long, and "usb" is not found, although it is there.
  SetPref("vorel.app-profile.p.disk.usb.*.authorized", true);
  EXPECT_EQ(CountFor(u"usb"), 1u);
  SetPref("vorel.app-profile.p.disk.usb*.1.authorized", true);
  EXPECT_EQ(CountFor(u"usb"), 0u);
  EXPECT_EQ(CountFor(u"usb2"), 1u) << "which \"usb*\" does not match";
}

TEST_F(AdapterTest, EmptyBranchOfTheWildcardIsWithheld) {
  nsCOMPtr<nsIPrefBranch> branch;
  EXPECT_EQ(mAdapter->GetPrefBranch(nsString(u"vorel.app-profile.p"), nsString(u"disk"),
                                    nsString(u"*"), nsString(u"7"), branch.getter_AddRefs()),
            NS_ERROR_NOT_AVAILABLE);
  EXPECT_TRUE(branch);
  EXPECT_EQ(
      TakeLog("debug system.adapter.generic"),
      Strings{"debug system.adapter.generic: Empty branch for vorel.app-profile.p.disk.*.*."});
}

TEST_F(AdapterTest, UnregisteredProfileIsNotNull) {
  SetPref("vorel.app-profile.p.*.*.*.authorized", true);
  EXPECT_TRUE(Bind().empty());
  EXPECT_TRUE(mNullResult);
  EXPECT_EQ(TakeLog("debug system.adapter.generic"),
            (Strings{"debug system.adapter.generic: Testing p.*.*.*",
                     "debug system.adapter.generic: The profile p is not registred"}));
  EXPECT_EQ(mAdapter->GenerateApplicationProfileBindings(nullptr, nullptr), NS_ERROR_NULL_POINTER);
  EXPECT_EQ(TakeLog("warning"),
            Strings{"warning debug: 'NS_ENSURE_TRUE(aApplicationProfile) failed'"});
}

TEST_F(AdapterTest, CategoryKeysAreTriedInTheWrongOrder) {
  mAdapter->SetDevice(u"disk");
  mAdapter->AddConnector(u"usb", u"3");
  (void)Bind();
  const std::string log = "debug system.adapter.generic: ";
  EXPECT_EQ(TakeLog(log + "Testing"),
            (Strings{log + "Testing p.disk.usb.3", log + "Testing p.disk.*.*",
                     log + "Testing p.*.usb.3", log + "Testing p.*.*.*"}));
}

TEST_F(AdapterTest, ClassIsNotTakenFromAKeysOwnCategory) {
  // The first entry of the category that the key names gives class and contract; the class then has
  // its own subtree.
  AddCategoryEntry("p.*.*.*", "Reader", nsTestBinding::kContractID);
  SetPref("vorel.app-profile.p.*.*.*.size", "1");
  SetPref("vorel.app-profile.p.*.*.*.authorized", false);
  SetPref("vorel.app-profile.p:Reader.*.*.*.authorized", true);
  EXPECT_EQ(Bind(), Strings{"vorel.app-profile.p:Reader.*.*.*."});
}

TEST_F(AdapterTest, ClassNameOfThePreferencesIsNotFollowed) {
  AddCategoryEntry("vorel-application-profile-binding", "p.disk.*.*", "@vorel/test/none;1");
  AddCategoryEntry("p.*.*.*", "First", "@vorel/test/none;1");
  AddCategoryEntry("p.*.*.*", "Wanted", nsTestBinding::kContractID);
  SetPref("vorel.app-profile.p.*.*.*.class-name", "Wanted");
  SetPref("vorel.app-profile.p:Wanted.*.*.*.authorized", true);
  mAdapter->SetDevice(u"disk");
  EXPECT_EQ(Bind(), Strings{"vorel.app-profile.p:Wanted.*.*.*."});
  EXPECT_FALSE(TakeLog("debug system.adapter.generic: Profile class-name=Wanted").empty());
}

TEST_F(AdapterTest, RefusedBindingsAreMade) {
  AddCategoryEntry("vorel-application-profile-binding", "p.*.*.*", nsTestBinding::kContractID);
  const std::string tree = "vorel.app-profile.p.*.*.*.";
  const auto bindings = do_CreateInstance<nsIMutableArray>(NS_ARRAY_CONTRACTID);
  const nsString any(u"*");
  const auto instanciate = [&](const char* aContractID) {
    const nsresult rv =
        mAdapter->InstanciateProfile(NS_NewTestProfile(u"p").get(), any, any, any,
                                     nsCString(aContractID), nsCString(), bindings.get());
    EXPECT_TRUE(NS_Elements<nsISupports>(bindings.get()).empty());
    return rv;
  };
  EXPECT_EQ(instanciate(nsTestBinding::kContractID), NS_ERROR_NOT_AVAILABLE) << "no preferences";
  SetPref(tree + "other", true);
  EXPECT_TRUE(NS_FAILED(instanciate(nsTestBinding::kContractID))) << "not told whether authorized";
  SetPref(tree + "authorized", false);
  EXPECT_EQ(instanciate(nsTestBinding::kContractID), NS_OK) << "not authorized";
  SetPref(tree + "authorized", true);
  SetPref(tree + "init-fails", true);
  EXPECT_EQ(instanciate(nsTestBinding::kContractID), NS_OK);
  SetPref(tree + "init-fails", false);
  SetPref(tree + "disabled", true);
  EXPECT_EQ(instanciate(nsTestBinding::kContractID), NS_OK);
  EXPECT_EQ(instanciate("@vorel/test/none;1"), NS_ERROR_FACTORY_NOT_REGISTERED);
}

TEST_F(AdapterTest, BadMaskStopsTheSearch) {
  AllowProfile("p.*.*.*");
  mAdapter->AddConnector(u"usb", u"1x");
  EXPECT_EQ(Bind(), Strings{"vorel.app-profile.p.*.*.*."});
  EXPECT_EQ(TakeLog("error"), Strings{"error system.adapter.generic: Bad connector_mask"});
}

TEST_F(AdapterTest, BindingDoesNotKnowItsAdapterAndProfile) {
  AllowProfile("p.*.*.*");
  const auto profile = NS_NewTestProfile(u"p");
  nsCOMPtr<nsIArray> bindings;
  ASSERT_EQ(mAdapter->GenerateApplicationProfileBindings(profile.get(), bindings.getter_AddRefs()),
            NS_OK);
  const auto elements = NS_Elements<nsISystemApplicationProfileBinding>(bindings.get());
  ASSERT_EQ(elements.size(), 1u);
  nsCOMPtr<nsISystemAdapter> adapter;
  nsCOMPtr<nsISystemApplicationProfile> bound;
  ASSERT_EQ(elements[0]->GetAdapter(adapter.getter_AddRefs()), NS_OK);
  ASSERT_EQ(elements[0]->GetApplicationProfile(bound.getter_AddRefs()), NS_OK);
  EXPECT_EQ(adapter.get(), static_cast<nsISystemAdapter*>(mAdapter.get()));
  EXPECT_EQ(bound.get(), profile.get());
}

TEST_F(AdapterTest, ArraysShareTheirContentWithTheAdapter) {
  mAdapter->AddConnector(u"usb", u"1");
  nsCOMPtr<nsIArray> connectors, objects;
  ASSERT_EQ(mAdapter->GetConnectors(connectors.getter_AddRefs()), NS_OK);
  ASSERT_EQ(mAdapter->GetAttachedObjects(objects.getter_AddRefs()), NS_OK);
  mAdapter->AddConnector(u"usb", u"2");
  const auto elements = NS_Elements<nsISystemConnector>(connectors.get());
  ASSERT_EQ(elements.size(), 1u);
  EXPECT_EQ(elements[0].get(), mAdapter->mConnectors[0].get()) << "the same objects";
  EXPECT_TRUE(objects);
  EXPECT_TRUE(NS_Elements<nsISupports>(objects.get()).empty());
  nsCOMPtr<nsISystemDevice> device;
  EXPECT_EQ(mAdapter->GetDevice(device.getter_AddRefs()), NS_OK);
  EXPECT_FALSE(device);
}

// ---- Connectors

class ConnectorTest : public nsSystemTest {
 protected:
  void SetUp() override { StartHost(); }
  static nsCOMPtr<nsISystemConnector> New() {
    nsCOMPtr<nsISystemConnector> connector;
    EXPECT_EQ(NewSystemConnector(connector.getter_AddRefs(), nsString(u"usb"), nsString(u"*"),
                                 nsString(u"usb connector"), nsString(u"type/usb"), nullptr,
                                 nullptr, nullptr),
              NS_OK);
    return connector;
  }
};

TEST_F(ConnectorTest, LabelIsNotStored) {
  const auto connector = New();
  ASSERT_EQ(connector->SetLabel(nsString(u"Prise à gauche")), NS_OK);
  EXPECT_EQ(NS_TextOf(connector, &nsISystemConnector::GetLabel), "Prise à gauche");
  char* stored = nullptr;
  ASSERT_EQ(do_GetService<nsIPrefBranch>(VOREL_PREFS_CONTRACTID)
                ->GetCharPref("vorel.connectors.usb.*", &stored),
            NS_OK);
  EXPECT_STREQ(stored, "Prise à gauche");
  NS_Free(stored);
  EXPECT_EQ(
      TakeLog("debug system.connector"),
      Strings{
          "debug system.connector: Setting preference vorel.connectors.usb.* = Prise à gauche"});
}

TEST_F(ConnectorTest, LabelIsLostWithoutPreferences) {
  const auto connector = New();
  mHost.Stop();
  EXPECT_EQ(connector->SetLabel(nsString(u"new")), NS_ERROR_FAILURE);
  EXPECT_EQ(NS_TextOf(connector, &nsISystemConnector::GetLabel), "new");
  EXPECT_EQ(TakeLog("error"), Strings{"error system.connector: Can't get preferences service"});
}

TEST_F(ConnectorTest, TypeChangesTheCallersString) {
  nsString text(u"before");
  EXPECT_EQ(New()->GetType(text), NS_OK);
  EXPECT_EQ(text, u"before");
}

}  // namespace
