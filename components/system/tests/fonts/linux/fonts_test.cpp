// The port of fonts: one suite for the simulated and for the native backend, which runs on a
// configuration of fontconfig of the test's own.
#include <fcntl.h>
#include <fontconfig/fontconfig.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include "nsIFontEnumerator.h"
#include "nsLinuxFonts.h"
#include "nsMutation.h"
#include "nsSystemTest.h"
#include "nsTestFont.h"

namespace {

// A folder of the test's own, which is all that fontconfig knows. Made before anything of this
// process has asked it for anything.
const std::filesystem::path gFolder = [] {
  static char sPath[] = "/tmp/vorel-fontconfig-XXXXXX";
  if (!mkdtemp(sPath)) return std::filesystem::path();
  const std::filesystem::path folder(sPath);
  std::filesystem::create_directory(folder / "fonts");
  std::ofstream(folder / "fonts.conf")
      << "<fontconfig><dir>" << (folder / "fonts").string() << "</dir><cachedir>"
      << (folder / "cache").string() << "</cachedir></fontconfig>";
  setenv("FONTCONFIG_FILE", (folder / "fonts.conf").c_str(), 1);
  atexit([] { std::filesystem::remove_all(sPath); });
  return folder;
}();

class FontPort : public nsSystemTest, public testing::WithParamInterface<bool> {
 protected:
  nsPlatformFonts& Port() {
    return GetParam() ? static_cast<nsPlatformFonts&>(mNative) : *mMachine.mFonts;
  }
  nsLinuxFonts mNative;
};

TEST_P(FontPort, AnAddedFileIsNotSeenOrNotForgotten) {
  ASSERT_FALSE(gFolder.empty());
  nsPlatformFonts& port = Port();
  const std::string a = WriteFile("a.ttf", nsTestFont{"Port One", "Bold", true}.Bytes());
  const std::string b = WriteFile("b.ttf", nsTestFont{"Port Two", "Italic", false, true}.Bytes());
  const std::string bad = WriteFile("bad.ttf", "no font");
  mMachine.mFonts->SetFile(a, {{"Port One", false, 700}});
  mMachine.mFonts->SetFile(b, {{"Port Two", true, 400}});
  mMachine.mFonts->SetFile(bad, {});
  uint32_t count = 0;
  ASSERT_EQ(port.AddFontFile(a, &count), NS_OK);
  EXPECT_EQ(count, 1u);
  ASSERT_EQ(port.AddFontFile(b, &count), NS_OK);
  EXPECT_EQ(port.AddFontFile(bad, &count), NS_ERROR_FAILURE);

  std::vector<nsPlatformFonts::Face> faces;
  ASSERT_EQ(port.ReadFaces("Port One", &faces), NS_OK);
  ASSERT_EQ(faces.size(), 1u);
  EXPECT_EQ(faces[0].mFamily, "Port One");
  EXPECT_FALSE(faces[0].mItalic);
  EXPECT_EQ(faces[0].mWeight, 700);
  ASSERT_EQ(port.ReadFaces("Port Two", &faces), NS_OK);
  ASSERT_EQ(faces.size(), 1u);
  EXPECT_TRUE(faces[0].mItalic);
  EXPECT_EQ(faces[0].mWeight, 400);

  ASSERT_EQ(port.AddFontFile(a, &count), NS_OK);
  EXPECT_EQ(count, 1u);
  EXPECT_EQ(port.RemoveFontFile(a), NS_OK);
  EXPECT_EQ(port.RemoveFontFile(a), NS_ERROR_FAILURE);
  ASSERT_EQ(port.ReadFaces("Port One", &faces), NS_OK);
  EXPECT_TRUE(faces.empty());
  ASSERT_EQ(port.ReadFaces("Port Two", &faces), NS_OK);
  EXPECT_EQ(faces.size(), 1u) << "it went with the other";
  EXPECT_EQ(port.RemoveFontFile(b), NS_OK);
}

INSTANTIATE_TEST_SUITE_P(Backends, FontPort, testing::Bool(),
                         [](const auto& aInfo) { return aInfo.param ? "Native" : "Simulated"; });

class LinuxFonts : public nsSystemTest {};

TEST_F(LinuxFonts, ADamagedFileDoesHarm) {
  nsLinuxFonts fonts;
  const std::string good = nsTestFont{"Damaged"}.Bytes();
  nsMutation mutation;
  for (int round = 0; round < 500; ++round) {
    const std::string bytes = mutation.Damage(good, "\xFF\x7F");
    const std::string path = WriteFile("damaged.ttf", bytes);
    uint32_t count = 0;
    const bool added = NS_SUCCEEDED(fonts.AddFontFile(path, &count));
    EXPECT_EQ(NS_SUCCEEDED(fonts.RemoveFontFile(path)), added);
  }
}

size_t Count(nsPlatformFonts& aFonts, const char* aFamily) {
  std::vector<nsPlatformFonts::Face> faces;
  EXPECT_EQ(aFonts.ReadFaces(aFamily, &faces), NS_OK);
  return faces.size();
}

TEST_F(LinuxFonts, AnAddedFontGoesWhenEverythingIsReadAnew) {
  nsLinuxFonts fonts;
  uint32_t count = 0;
  const std::string path = WriteFile("kept.ttf", nsTestFont{"Kept"}.Bytes());
  ASSERT_EQ(fonts.AddFontFile(path, &count), NS_OK);
  EXPECT_EQ(FcConfigGetRescanInterval(nullptr), 0) << "whoever asks has it read anew";
  ASSERT_TRUE(FcInitReinitialize());
  EXPECT_EQ(Count(fonts, "Kept"), 1u);
  ASSERT_TRUE(FcInitReinitialize());
  EXPECT_EQ(fonts.RemoveFontFile(path), NS_OK);
  EXPECT_EQ(Count(fonts, "Kept"), 0u);
  EXPECT_GT(FcConfigGetRescanInterval(nullptr), 0) << "fontconfig has its way again";
}

TEST_F(LinuxFonts, AFontOfTheSystemIsNotSeenWhileThereAreAddedOnes) {
  nsLinuxFonts fonts(std::chrono::seconds(0));
  uint32_t count = 0;
  const std::string path = WriteFile("added.ttf", nsTestFont{"Added"}.Bytes());
  ASSERT_EQ(fonts.AddFontFile(path, &count), NS_OK);
  std::ofstream(gFolder / "fonts/installed.ttf", std::ios::binary)
      << nsTestFont{"Installed"}.Bytes();
  // A change within the second of the last reading does not show: fontconfig counts in seconds.
  const auto patience = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (Count(fonts, "Installed") == 0 && std::chrono::steady_clock::now() < patience) {
    const timespec now{.tv_sec = time(nullptr), .tv_nsec = 0};
    const timespec times[] = {now, now};
    ASSERT_EQ(utimensat(AT_FDCWD, (gFolder / "fonts").c_str(), times, 0), 0);
    EXPECT_EQ(Count(fonts, "Added"), 1u);
  }
  EXPECT_EQ(Count(fonts, "Installed"), 1u);
  EXPECT_EQ(Count(fonts, "Added"), 1u);
  EXPECT_EQ(fonts.RemoveFontFile(path), NS_OK);
}

TEST_F(LinuxFonts, TheHostDoesNotSeeAnAddedFamily) {
  StartHost();
  const auto enumerator = do_GetService<nsIFontEnumerator>("@mozilla.org/gfx/fontenumerator;1");
  ASSERT_TRUE(enumerator);
  bool changed = false;
  ASSERT_EQ(enumerator->UpdateFontList(&changed), NS_OK);
  ASSERT_EQ(enumerator->UpdateFontList(&changed), NS_OK);
  EXPECT_FALSE(changed);
  nsLinuxFonts fonts;
  uint32_t count = 0;
  const std::string path = WriteFile("host.ttf", nsTestFont{"Host Family"}.Bytes());
  ASSERT_EQ(fonts.AddFontFile(path, &count), NS_OK);
  ASSERT_EQ(enumerator->UpdateFontList(&changed), NS_OK);
  EXPECT_TRUE(changed);
  char16_t* name = nullptr;
  ASSERT_EQ(enumerator->GetStandardFamilyName(u"HOST family", &name), NS_OK);
  EXPECT_EQ(NS_ToUtf8(std::u16string_view(name)), "Host Family");
  NS_Free(name);
  EXPECT_EQ(fonts.RemoveFontFile(path), NS_OK);
}

}  // namespace
