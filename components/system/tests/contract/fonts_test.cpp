// What every backend of fonts keeps to.
#include "nsFontContract.h"
#include "nsSimulatedMachine.h"

namespace {

class SimulatedFonts final : public nsFontMachine {
 public:
  SimulatedFonts() { mMachine.mFonts->AddSystemFolder("/usr/share/fonts"); }
  nsPlatformFonts& Fonts() override { return *mMachine.mFonts; }
  void Expect(const std::string& aPath, std::vector<nsPlatformFonts::Face> aFaces) override {
    mMachine.mFonts->SetFile(aPath, std::move(aFaces));
  }

 private:
  nsSimulatedMachine mMachine;
};

TEST_P(FontContract, AnAddedFileIsNotSeenOrNotForgotten) {
  nsPlatformFonts& port = mMachine->Fonts();
  const std::string a = Make("a.ttf", {"Port One", "Bold", true});
  const std::string b = Make("b.ttf", {"Port Two", "Italic", false, true});
  uint32_t count = 0;
  ASSERT_EQ(port.AddFontFile(a, &count), NS_OK);
  EXPECT_EQ(count, 1u);
  ASSERT_EQ(port.AddFontFile(b, &count), NS_OK);

  Faces faces = Read("Port One");
  ASSERT_EQ(faces.size(), 1u);
  EXPECT_EQ(faces[0].mFamily, "Port One");
  EXPECT_FALSE(faces[0].mItalic);
  EXPECT_EQ(faces[0].mWeight, 700);
  faces = Read("Port Two");
  ASSERT_EQ(faces.size(), 1u);
  EXPECT_TRUE(faces[0].mItalic);
  EXPECT_EQ(faces[0].mWeight, 400);

  ASSERT_EQ(port.AddFontFile(a, &count), NS_OK);
  EXPECT_EQ(count, 1u);
  EXPECT_EQ(port.RemoveFontFile(a), NS_OK);
  EXPECT_EQ(port.RemoveFontFile(a), NS_ERROR_FAILURE);
  EXPECT_TRUE(Read("Port One").empty());
  EXPECT_EQ(Read("Port Two").size(), 1u) << "it went with the other";
  EXPECT_EQ(port.RemoveFontFile(b), NS_OK);
}

TEST_P(FontContract, ABadFileIsAddedOrHarmsTheOthers) {
  nsPlatformFonts& port = mMachine->Fonts();
  const std::string good = Make("good.ttf", {"Port Good"});
  mDirectory.Put("bad.ttf", "no font");
  const std::string bad = (mDirectory / "bad.ttf").string();
  mMachine->Expect(bad, {});
  uint32_t count = 0;
  ASSERT_EQ(port.AddFontFile(good, &count), NS_OK);
  count = 4711;
  EXPECT_EQ(port.AddFontFile(bad, &count), NS_ERROR_FAILURE);
  EXPECT_EQ(port.AddFontFile((mDirectory / "missing.ttf").string(), &count), NS_ERROR_FAILURE);
  EXPECT_EQ(count, 4711u);
  EXPECT_EQ(port.RemoveFontFile(bad), NS_ERROR_FAILURE);
  EXPECT_EQ(Read("Port Good").size(), 1u);
  EXPECT_TRUE(Read("no such family").empty());
  EXPECT_EQ(port.RemoveFontFile(good), NS_OK);
}

TEST_P(FontContract, TheSystemsFoldersAreNoPaths) {
  std::vector<std::string> folders;
  ASSERT_EQ(mMachine->Fonts().ReadSystemFolders(&folders), NS_OK);
  ASSERT_FALSE(folders.empty());
  for (const std::string& folder : folders)
    EXPECT_TRUE(std::filesystem::path(folder).is_absolute()) << folder;
}

INSTANTIATE_TEST_SUITE_P(
    Simulated, FontContract,
    testing::Values(NS_ContractBackend<nsFontMachine, SimulatedFonts>("simulated")));

}  // namespace
