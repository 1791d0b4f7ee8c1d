// The fonts of this system, on a configuration of fontconfig of the test's own.
#include <fcntl.h>
#include <fontconfig/fontconfig.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

#include "nsIFontEnumerator.h"
#include "nsLinuxFonts.h"
#include "nsMutation.h"
#include "nsSystemTest.h"
#include "nsTestFont.h"

namespace {

// Made before anything of this process has asked fontconfig for anything.
const std::filesystem::path gFolder = NS_TestFontFolder();

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
