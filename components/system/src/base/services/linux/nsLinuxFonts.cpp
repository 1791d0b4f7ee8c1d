#include "nsLinuxFonts.h"

#include <fontconfig/fontconfig.h>
#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <memory>

namespace {

struct Delete {
  void operator()(FcPattern* aPattern) const { FcPatternDestroy(aPattern); }
  void operator()(FcObjectSet* aSet) const { FcObjectSetDestroy(aSet); }
  void operator()(FcFontSet* aSet) const { FcFontSetDestroy(aSet); }
  void operator()(FcStrList* aList) const { FcStrListDone(aList); }
};
template <class T>
using Owned = std::unique_ptr<T, Delete>;

const FcChar8* Text(const std::string& aText) {
  return reinterpret_cast<const FcChar8*>(aText.c_str());
}

bool IsOf(FcPattern* aPattern, const std::string& aPath) {
  FcChar8* file = nullptr;
  return FcPatternGetString(aPattern, FC_FILE, 0, &file) == FcResultMatch &&
         aPath == reinterpret_cast<const char*>(file);
}

uint32_t CountApplicationFonts(FcConfig* aConfig) {
  const FcFontSet* set = FcConfigGetFonts(aConfig, FcSetApplication);
  return set ? static_cast<uint32_t>(set->nfont) : 0;
}

// Families are matched without regard to case and blanks; what the font is called is one of its
// names.
std::string OwnName(FcPattern* aFont, const std::string& aFamily) {
  std::string first;
  FcChar8* name = nullptr;
  for (int i = 0; FcPatternGetString(aFont, FC_FAMILY, i, &name) == FcResultMatch; ++i) {
    const std::string text(reinterpret_cast<const char*>(name));
    if (text == aFamily) return text;
    if (i == 0) first = text;
  }
  return first;
}

}  // namespace

nsLinuxFonts::nsLinuxFonts(std::chrono::seconds aInterval) : mInterval(aInterval) {}

nsLinuxFonts::~nsLinuxFonts() { Release(); }

// Takes over a reference to the configuration, and adds our fonts to it.
void nsLinuxFonts::Adopt(FcConfig* aConfig) {
  Release();
  mConfig = aConfig;
  mItsInterval = FcConfigGetRescanInterval(mConfig);
  (void)FcConfigSetRescanInterval(mConfig, 0);
  mNextLook = std::chrono::steady_clock::now() + mInterval;
  // A file that has gone meanwhile is one that nobody can draw with.
  for (const std::string& file : mFiles) (void)FcConfigAppFontAddFile(mConfig, Text(file));
}

void nsLinuxFonts::Release() {
  if (!mConfig) return;
  (void)FcConfigSetRescanInterval(mConfig, mItsInterval);
  FcConfigDestroy(mConfig);
  mConfig = nullptr;
}

void nsLinuxFonts::KeepUp() {
  if (!mConfig) return;
  FcConfig* const current = FcConfigReference(nullptr);
  if (current && current != mConfig) {
    Adopt(current);  // somebody in this process had it read anew
    return;
  }
  if (current) FcConfigDestroy(current);
  const auto now = std::chrono::steady_clock::now();
  if (now < mNextLook) return;
  mNextLook = now + mInterval;
  if (FcConfigUptoDate(mConfig)) return;
  if (FcConfig* const fresh = FcInitLoadConfigAndFonts()) {
    Adopt(fresh);
    (void)FcConfigSetCurrent(fresh);
  }
}

nsresult nsLinuxFonts::ReadSystemFolders(std::vector<std::string>* aPaths) {
  const Owned<FcStrList> folders(FcConfigGetFontDirs(nullptr));
  if (!folders) return NS_ERROR_NOT_AVAILABLE;
  std::vector<std::string> paths;
  while (const FcChar8* folder = FcStrListNext(folders.get()))
    paths.emplace_back(reinterpret_cast<const char*>(folder));
  *aPaths = std::move(paths);
  return NS_OK;
}

nsresult nsLinuxFonts::AddFontFile(const std::string& aPath, uint32_t* aCount) {
  struct stat status;
  if (stat(aPath.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return NS_ERROR_FAILURE;
  if (mConfig) {
    KeepUp();
  } else {
    (void)FcInitBringUptoDate();
    FcConfig* const current = FcConfigReference(nullptr);
    if (!current) return NS_ERROR_FAILURE;
    Adopt(current);
  }
  const uint32_t before = CountApplicationFonts(mConfig);
  const bool good = FcConfigAppFontAddFile(mConfig, Text(aPath));
  const uint32_t added = CountApplicationFonts(mConfig) - before;
  if (!good || added == 0) {
    if (mFiles.empty()) Release();
    return NS_ERROR_FAILURE;
  }
  mFiles.push_back(aPath);
  *aCount = added;
  return NS_OK;
}

nsresult nsLinuxFonts::RemoveFontFile(const std::string& aPath) {
  KeepUp();
  if (std::erase(mFiles, aPath) == 0) return NS_ERROR_FAILURE;
  // Fontconfig can only forget all application fonts at once, and reading the others again would
  // take longer with each that there is. The set is a public structure, and belongs to the
  // configuration, which keeps no copy of it.
  if (FcFontSet* const set = FcConfigGetFonts(mConfig, FcSetApplication)) {
    FcPattern** const end = set->fonts + set->nfont;
    FcPattern** const rest = std::stable_partition(
        set->fonts, end, [&](FcPattern* aFont) { return !IsOf(aFont, aPath); });
    std::for_each(rest, end, FcPatternDestroy);
    set->nfont = static_cast<int>(rest - set->fonts);
  }
  if (mFiles.empty()) Release();
  return NS_OK;
}

nsresult nsLinuxFonts::ReadFaces(const std::string& aFamily, std::vector<Face>* aFaces) {
  KeepUp();
  const Owned<FcPattern> family(FcPatternCreate());
  const Owned<FcObjectSet> fields(FcObjectSetBuild(FC_FAMILY, FC_SLANT, FC_WEIGHT, nullptr));
  if (!family || !fields || !FcPatternAddString(family.get(), FC_FAMILY, Text(aFamily)))
    return NS_ERROR_OUT_OF_MEMORY;
  const Owned<FcFontSet> fonts(FcFontList(nullptr, family.get(), fields.get()));
  if (!fonts) return NS_ERROR_FAILURE;
  std::vector<Face> faces;
  for (int i = 0; i < fonts->nfont; ++i) {
    FcPattern* const font = fonts->fonts[i];
    int slant = FC_SLANT_ROMAN;
    (void)FcPatternGetInteger(font, FC_SLANT, 0, &slant);
    double weight = FC_WEIGHT_REGULAR;  // a font of many weights tells a range, and counts as this
    (void)FcPatternGetDouble(font, FC_WEIGHT, 0, &weight);
    const double openType = FcWeightToOpenTypeDouble(weight);
    faces.push_back(
        {.mFamily = OwnName(font, aFamily),
         .mItalic = slant != FC_SLANT_ROMAN,
         .mWeight = static_cast<uint16_t>(std::clamp(std::lround(openType), 1L, 1000L))});
  }
  *aFaces = std::move(faces);
  return NS_OK;
}
