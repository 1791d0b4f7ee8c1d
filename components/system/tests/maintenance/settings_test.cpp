// General settings.
#include "nsSystemGeneralSettings.h"
#include "nsSystemTest.h"

namespace {

nsCOMPtr<nsISupports> gManager;

// "@vorel/system/systemmanager;1" is a manager on the test's machine.
constexpr nsCID kManagerCID = "f3b0c3c1-2a9e-45ae-8a3d-3f1f2f0f6c11"_iid;
constexpr vorel::Module::CIDEntry kManagerCIDs[] = {
    {&kManagerCID, true, nullptr,
     [](nsISupports*, const nsIID& aIID, void** aResult) {
       return gManager ? gManager->QueryInterface(aIID, aResult) : NS_ERROR_NOT_AVAILABLE;
     }},
    {nullptr, false, nullptr, nullptr}};
constexpr vorel::Module::ContractIDEntry kManagerContracts[] = {
    {"@vorel/system/systemmanager;1", &kManagerCID}, {nullptr, nullptr}};
constexpr vorel::Module kManagerModule = {
    vorel::Module::kVersion, kManagerCIDs, kManagerContracts, nullptr, nullptr, nullptr, nullptr};

class SettingsTest : public nsSystemTest {
 protected:
  SettingsTest() { mOptions.mModules.push_back(&kManagerModule); }
  ~SettingsTest() override { gManager = nullptr; }
  void SetUp() override {
    StartHost();
    gManager = nsCOMPtr<nsISystemManager>(NewManager(mMachine));
    mSettings = MakeRefCounted<nsSystemGeneralSettings>(mMachine.Platform());
    ASSERT_EQ(mSettings->InitGeneric(), NS_OK);
  }
  std::string Uuid() {
    nsCString text("untouched");
    mResult = mSettings->GetUuid(text);
    return std::string(text.view());
  }

  nsCOMPtr<nsSystemGeneralSettings> mSettings;
  nsresult mResult = NS_OK;
};

TEST_F(SettingsTest, TheUuidHasAnotherFormOrChanges) {
  EXPECT_EQ(Uuid(), "untouched");
  EXPECT_TRUE(NS_FAILED(mResult)) << "there is no LAN adapter";
  mMachine.mNetwork->Put(nsSimulatedNetwork::Wire("lan1", "00-1A-2B-3C-4D-5E"));
  EXPECT_EQ(Uuid(), "00000000-0000-0000-0001-001a2b3c4d5e");
  mMachine.mNetwork->Remove("lan1");
  mMachine.mNetwork->Put(nsSimulatedNetwork::Wire("lan2", "02-00-00-00-00-01"));
  EXPECT_EQ(Uuid(), "00000000-0000-0000-0001-001a2b3c4d5e");
}

TEST_F(SettingsTest, ADeviceIdIsReadAtTheWrongPlaces) {
  mMachine.mNetwork->Put(nsSimulatedNetwork::Wire("lan1", "00-11-22-33-44-55"));
  mMachine.mHost->SetDeviceId("12345678901");
  EXPECT_EQ(Uuid(), "4d2513435-0000-0000-0000-001122334455");
}

TEST_F(SettingsTest, AnIdOfAnotherLengthIsUsed) {
  mMachine.mNetwork->Put(nsSimulatedNetwork::Wire("lan1", "00-11-22-33-44-55"));
  mMachine.mHost->SetDeviceId("1234567890");
  EXPECT_EQ(Uuid(), "00000000-0000-0000-0001-001122334455");
}

TEST_F(SettingsTest, TheCursorFollowsWhatOthersDidToItsCounter) {
  bool shown = false;
  EXPECT_EQ(mSettings->GetShowCursor(&shown), NS_OK);
  EXPECT_TRUE(shown);
  for (const int32_t before : {0, 3, -1, -7}) {
    mMachine.mHost->SetCursorCounter(before);
    EXPECT_EQ(mSettings->SetShowCursor(false), NS_OK);
    EXPECT_EQ(mMachine.mHost->CursorCounter(), -1) << before;
    EXPECT_EQ(mSettings->SetShowCursor(false), NS_OK);
    EXPECT_EQ(mMachine.mHost->CursorCounter(), -1) << before;
    mMachine.mHost->SetCursorCounter(before);
    EXPECT_EQ(mSettings->SetShowCursor(true), NS_OK);
    EXPECT_EQ(mMachine.mHost->CursorCounter(), 0) << before;
  }
  // A counter that does not move is let be.
  mMachine.mHost->SetCursorCounter(5, 5);
  EXPECT_EQ(mSettings->SetShowCursor(false), NS_OK);
  EXPECT_EQ(mSettings->GetShowCursor(&shown), NS_OK);
  EXPECT_FALSE(shown);
}

TEST_F(SettingsTest, AFieldIsLostOrTakenForAnother) {
  nsString text;
  EXPECT_EQ(mSettings->GetField1(text), NS_OK);
  EXPECT_TRUE(text.IsEmpty());
  EXPECT_EQ(mSettings->SetField1(nsString(std::u16string_view(u"a\0b", 3))), NS_ERROR_INVALID_ARG)
      << "it would be kept up to the zero";
  EXPECT_EQ(mSettings->SetField1(nsString(u"first")), NS_OK);
  EXPECT_EQ(mSettings->SetField5(nsString(u"h\u00f6he \u2192 \U0001F5BC")), NS_OK);
  EXPECT_EQ(mSettings->GetField5(text), NS_OK);
  EXPECT_EQ(text.view(), u"h\u00f6he \u2192 \U0001F5BC");
  EXPECT_EQ(mSettings->GetField1(text), NS_OK);
  EXPECT_EQ(text.view(), u"first");
  EXPECT_EQ(mSettings->GetField2(text), NS_OK);
  EXPECT_TRUE(text.IsEmpty());
}

TEST_F(SettingsTest, AFactThatIsMissingIsMadeUp) {
  nsCString text("untouched");
  EXPECT_TRUE(NS_FAILED(mSettings->GetVersion(text)));
  EXPECT_EQ(TakeLog("warning debug"),
            std::vector<std::string>{"warning debug: 'NS_ENSURE_SUCCESS(rv, rv) failed'"});
  SetPref("extensions.lastAppVersion", "4.2.1");
  EXPECT_EQ(mSettings->GetVersion(text), NS_OK);
  EXPECT_EQ(text.view(), "4.2.1");
  EXPECT_EQ(mSettings->GetHostName(text), NS_OK);
  EXPECT_EQ(text.view(), "simulated");
  mMachine.mHost->SetHostName(std::string(64, 'x'));
  EXPECT_EQ(mSettings->GetHostName(text), NS_OK);
  EXPECT_EQ(text.view(), "simulated") << "a name that is too long leaves it as it is";
  EXPECT_EQ(mSettings->GetDeviceId(text), NS_ERROR_NOT_IMPLEMENTED);
  EXPECT_EQ(mSettings->SetHostName(text), NS_ERROR_NOT_IMPLEMENTED);
}

}  // namespace
