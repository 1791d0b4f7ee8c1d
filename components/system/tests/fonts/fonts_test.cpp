// Fonts on a simulated machine, with files that are made for the tests and read by FreeType.
#include <dlfcn.h>
#include <sys/stat.h>

#include "nsIClassInfo.h"
#include "nsIFile.h"
#include "nsILocalFile.h"
#include "nsMutation.h"
#include "nsSystemFont.h"
#include "nsSystemTest.h"
#include "nsTestFont.h"
#include "nsXPCOM.h"

/// How often a path was resolved, which looks at each of its directories; in whichever library.
static int gResolvedPaths = 0;
extern "C" char* realpath(const char* aPath, char* aResolved) noexcept {
  ++gResolvedPaths;
  static const auto real = reinterpret_cast<decltype(&realpath)>(dlsym(RTLD_NEXT, "realpath"));
  return real(aPath, aResolved);
}

namespace {

// Counts and offsets that are too large.
constexpr std::string_view kMarks("\xFF\x7F\x80\0", 4);

class FontTest : public nsSystemTest {
 protected:
  void SetUp() override { StartHost(); }

  nsCOMPtr<nsSystemFont> NewFonts() { return MakeRefCounted<nsSystemFont>(mMachine.Platform()); }
  std::string WriteFont(const std::string& aName, const nsTestFont& aFont = {}) {
    std::filesystem::create_directories((Directory() / aName).parent_path());
    return WriteFile(aName, aFont.Bytes());
  }
  static nsCOMPtr<nsIFile> File(const std::string& aPath) {
    nsCOMPtr<nsILocalFile> file;
    EXPECT_EQ(NS_NewNativeLocalFile(nsCString(aPath), true, file.getter_AddRefs()), NS_OK);
    return file;
  }
  /// The path of the file in which a face is known to lie; "" for one that is not.
  static std::string Find(nsISystemFont& aFonts, const char* aFamily, uint16_t aStyle = 0,
                          uint16_t aWeight = 400) {
    bool found = false;
    nsCOMPtr<nsIFile> file;
    EXPECT_EQ(
        aFonts.FindFontFace(nsCString(aFamily), aStyle, aWeight, &found, file.getter_AddRefs()),
        NS_OK);
    nsCString path;
    if (file) (void)file->GetNativePath(path);
    return std::string(path.view());
  }
  size_t Added() const { return mMachine.mFonts->AddedFiles().size(); }
};

TEST_F(FontTest, AFileIsTakenForAFontByAnythingButItsEnding) {
  const auto fonts = NewFonts();
  for (const auto& [name, expected] :
       std::initializer_list<std::pair<const char*, bool>>{{"a.ttf", true},
                                                           {"a.TtC", true},
                                                           {"a.otf", true},
                                                           {"a.FON", true},
                                                           {"a.woff", true},
                                                           {".ttf", true},
                                                           {"a.ttf.txt", false},
                                                           {"ttf", false},
                                                           {"a.woff2", false}}) {
    bool isFont = !expected;
    EXPECT_EQ(fonts->IsFontFile(File("/nowhere/" + std::string(name)).get(), &isFont), NS_OK);
    EXPECT_EQ(isFont, expected) << name;
  }
}

TEST_F(FontTest, AStyleNameIsLostOrMistakenForAFamily) {
  const auto fonts = NewFonts();
  struct Case {
    nsTestFont mFont;
    std::u16string mFamily;
    uint16_t mStyle, mWeight;
  };
  for (const Case& c :
       {Case{{"Sans", "Regular"}, u"Sans", 0, 400}, Case{{"Sans", "rEGULAR"}, u"Sans", 0, 400},
        Case{{"Sans", "Bold", true}, u"Sans", 0, 700},
        Case{{"Sans", "Bold Italic", true, true}, u"Sans", 1, 700},
        Case{{"Sans", "italic", false, true}, u"Sans", 1, 400},
        Case{{"Sans", "Narrow Bold", true}, u"Sans Narrow", 0, 700},
        Case{{"Sans", "Oblique", false, true}, u"Sans Oblique", 1, 400},
        Case{{"Sans", "Bolder"}, u"Sans Bolder", 0, 400}}) {
    const std::string path = WriteFont("case.ttf", c.mFont);
    std::u16string family;
    uint16_t style = 9, weight = 9;
    ASSERT_EQ(fonts->GetFaceInfo(NS_ToUtf16(path), &family, &style, &weight), NS_OK)
        << c.mFont.mStyle;
    EXPECT_EQ(NS_ToUtf8(family), NS_ToUtf8(c.mFamily));
    EXPECT_EQ(style, c.mStyle) << c.mFont.mStyle;
    EXPECT_EQ(weight, c.mWeight) << c.mFont.mStyle;
  }
  std::u16string family;
  uint16_t style, weight;
  EXPECT_EQ(fonts->GetFaceInfo(u"/nowhere/a.ttf", &family, &style, &weight),
            NS_ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(fonts->GetFaceInfo(NS_ToUtf16(WriteFile("no.ttf", std::string(999, 'x'))), &family,
                               &style, &weight),
            NS_ERROR_FAILURE);
}

TEST_F(FontTest, AnAddedFontIsNotFoundOrStaysWhenItIsRemoved) {
  const auto fonts = NewFonts();
  const std::string path = WriteFont("one.ttf", {"One", "Bold", true});
  EXPECT_EQ(Find(*fonts, "One", 0, 700), "");
  ASSERT_EQ(fonts->AddFont(File(path).get()), NS_OK);
  EXPECT_EQ(Find(*fonts, "One", 0, 700), path);
  EXPECT_EQ(Find(*fonts, "One", 0, 400), "");
  EXPECT_EQ(Find(*fonts, "one", 0, 700), "");
  (void)TakeLog("");
  ASSERT_EQ(fonts->AddFont(File(path).get()), NS_OK);
  EXPECT_EQ(TakeLog("warning"), std::vector<std::string>{
                                    "warning system.font: Try to add already loaded font one.ttf"});
  EXPECT_EQ(Added(), 1u);
  bool has = true;
  EXPECT_EQ(fonts->HasFont(nsString(u"one.ttf"), &has), NS_OK);
  EXPECT_FALSE(has) << "kept as it is, odd as it is";

  // The same name at another path.
  const std::string other = WriteFont("other/ONE.TTF", {"Two"});
  EXPECT_EQ(fonts->AddFont(File(other).get()), NS_OK);
  EXPECT_EQ(fonts->RemoveFont(File(other).get()), NS_OK);
  EXPECT_EQ(Added(), 1u);
  EXPECT_EQ(Find(*fonts, "One", 0, 700), path);

  ASSERT_EQ(fonts->RemoveFont(File(path).get()), NS_OK);
  EXPECT_EQ(Find(*fonts, "One", 0, 700), "");
  EXPECT_EQ(Added(), 0u);
  EXPECT_EQ(fonts->RemoveFont(File(path).get()), NS_OK);
}

TEST_F(FontTest, AFontThatCannotBeDescribedIsLostHalfway) {
  const auto fonts = NewFonts();
  const std::string path = WriteFile("bad.ttf", "no font at all, though the platform takes it");
  EXPECT_EQ(fonts->AddFont(File(path).get()), NS_ERROR_FAILURE);
  EXPECT_EQ(Added(), 1u) << "it stays installed";
  EXPECT_EQ(fonts->RemoveFont(File(path).get()), NS_ERROR_FAILURE) << "and can't be removed";
  EXPECT_EQ(Added(), 1u);
  mMachine.mFonts->SetFile(path, {});
  const std::string refused = WriteFont("refused.ttf");
  mMachine.mFonts->SetFile(refused, {});
  EXPECT_EQ(fonts->AddFont(File(refused).get()), NS_ERROR_FAILURE);
  EXPECT_EQ(Find(*fonts, "Test"), "");
  EXPECT_EQ(fonts->AddFont(fonts.get()), NS_ERROR_NO_INTERFACE);
}

TEST_F(FontTest, AddedFontsOutliveTheirObject) {
  auto fonts = NewFonts();
  ASSERT_EQ(fonts->AddFont(File(WriteFont("a.ttf")).get()), NS_OK);
  ASSERT_EQ(fonts->AddFont(File(WriteFont("b.ttf", {"B"})).get()), NS_OK);
  EXPECT_EQ(Added(), 2u);
  fonts = nullptr;
  EXPECT_EQ(Added(), 0u);
}

TEST_F(FontTest, AFontOfTheSystemIsOverlaid) {
  const std::string path = WriteFont("system/Base.ttf", {"Base"});
  WriteFont("system/below/deep.ttf", {"Deep"});
  WriteFile("system/broken.ttf", "x");
  mMachine.mFonts->AddSystemFolder("/nowhere/fonts");
  mMachine.mFonts->AddSystemFolder((Directory() / "system").string());
  const auto fonts = NewFonts();
  EXPECT_EQ(Find(*fonts, "Base"), path);
  EXPECT_EQ(Find(*fonts, "Deep"), "") << "folders of the system are not searched below";
  EXPECT_EQ(fonts->AddFont(File(WriteFont("mine/BASE.ttf", {"Mine"})).get()), NS_OK);
  EXPECT_EQ(Added(), 0u);
  EXPECT_EQ(Find(*fonts, "Mine"), "");
}

TEST_F(FontTest, APlatformFaceIsNotSeen) {
  mMachine.mFonts->AddFace({"Arial", false, 400});
  mMachine.mFonts->AddFace({"Arial", true, 300});
  const auto fonts = NewFonts();
  const auto found = [&](const char* aFamily, uint16_t aStyle, uint16_t aWeight) {
    bool result = false;
    EXPECT_EQ(fonts->FindFontFace(nsCString(aFamily), aStyle, aWeight, &result, nullptr), NS_OK);
    return result;
  };
  EXPECT_TRUE(found("Arial", 0, 400));
  EXPECT_TRUE(found("Arial", 7, 400)) << "any other style is upright";
  EXPECT_FALSE(found("Arial", 0, 700));
  EXPECT_FALSE(found("Arial", 1, 400));
  EXPECT_TRUE(found("Arial", 1, 300));
  EXPECT_TRUE(found("Arial", 0xFFFF, 900)) << "italic at any weight";
  EXPECT_FALSE(found("arial", 0, 400));
}

TEST_F(FontTest, ADirectoryIsNotWalkedOrWalkedForEver) {
  mMachine.mFonts->AddFace({"Known", false, 400});
  WriteFont("d/a.ttf", {"A"});
  WriteFont("d/e/f/b.TTF", {"B"});
  WriteFont("d/known.ttf", {"Known"});
  WriteFile("d/e/readme.txt", "x");
  WriteFile("d/e/broken.otf", "x");
  // Links in circles, two at a time; and a pipe that nobody writes to.
  std::filesystem::create_directory_symlink(Directory() / "d", Directory() / "d/e/up1");
  std::filesystem::create_directory_symlink(Directory() / "d", Directory() / "d/e/up2");
  ASSERT_EQ(mkfifo((Directory() / "d/pipe.ttf").c_str(), 0600), 0);
  const auto fonts = NewFonts();
  EXPECT_EQ(fonts->Synchronize(File((Directory() / "d").string()).get()), NS_OK);
  EXPECT_NE(Find(*fonts, "A"), "");
  EXPECT_NE(Find(*fonts, "B"), "");
  EXPECT_EQ(Added(), 2u);
  EXPECT_EQ(fonts->Synchronize(File((Directory() / "d").string()).get()), NS_OK);
  EXPECT_EQ(Added(), 2u);
  EXPECT_EQ(fonts->Synchronize(File(WriteFile("file", "")).get()), NS_ERROR_FAILURE);
  EXPECT_EQ(fonts->Synchronize(File("/nowhere").get()), NS_ERROR_FAILURE);
  EXPECT_EQ(fonts->Synchronize(nullptr), NS_ERROR_NULL_POINTER);
}

TEST_F(FontTest, ADeepTreeTakesAsLongAsItsDepthSquared) {
  WriteFont("d/a.ttf", {"A"});
  std::string deep = "d";
  for (int depth = 0; depth < 200; ++depth) deep += "/below";
  WriteFont(deep + "/b.ttf", {"B"});
  const auto fonts = NewFonts();
  gResolvedPaths = 0;
  EXPECT_EQ(fonts->Synchronize(File((Directory() / "d").string()).get()), NS_OK);
  EXPECT_EQ(Added(), 2u);
  EXPECT_LE(gResolvedPaths, 3) << "each looks at every directory above";
}

TEST_F(FontTest, ADamagedFileDoesHarm) {
  const auto fonts = NewFonts();
  const std::string good = nsTestFont{"Damaged", "Narrow"}.Bytes();
  nsMutation mutation;
  size_t read = 0;
  for (int round = 0; round < 1500; ++round) {
    const std::string bytes = mutation.Damage(good, kMarks);
    const std::string path = WriteFile("damaged.ttf", bytes);
    std::u16string family;
    uint16_t style, weight;
    read += NS_SUCCEEDED(fonts->GetFaceInfo(NS_ToUtf16(path), &family, &style, &weight));
  }
  EXPECT_GT(read, 100u) << "the damage is such that hardly anything is read";
}

TEST_F(FontTest, AnotherSpellingOfItsPathLeavesAFontInstalled) {
  const auto fonts = NewFonts();
  const std::string path = WriteFont("Spelling.TTF", {.mFamily = "Spelt"});
  mMachine.mFonts->SetFile(path, {{"Spelt", false, 400}});
  ASSERT_EQ(fonts->AddFont(File(path).get()), NS_OK);
  EXPECT_EQ(fonts->RemoveFont(File((Directory() / "spelling.ttf").string()).get()), NS_OK);
  EXPECT_EQ(Added(), 0u);
  EXPECT_EQ(Find(*fonts, "Spelt"), "");
}

TEST_F(FontTest, ScriptHasToAskForTheInterface) {
  const auto fonts = NewFonts();
  const auto info = do_QueryInterface<nsIClassInfo>(fonts);
  ASSERT_TRUE(info);
  uint32_t count = 0;
  nsIID** interfaces = nullptr;
  ASSERT_EQ(info->GetInterfaces(&count, &interfaces), NS_OK);
  ASSERT_EQ(count, 1u);
  EXPECT_EQ(*interfaces[0], nsISystemFont::kIID);
  NS_Free(interfaces[0]);
  NS_Free(interfaces);
}

}  // namespace
