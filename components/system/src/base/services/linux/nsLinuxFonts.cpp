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

uint32_t CountApplicationFonts() {
  const FcFontSet* set = FcConfigGetFonts(nullptr, FcSetApplication);
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
  const uint32_t before = CountApplicationFonts();
  if (!FcConfigAppFontAddFile(nullptr, Text(aPath))) return NS_ERROR_FAILURE;
  const uint32_t added = CountApplicationFonts() - before;
  if (added == 0) return NS_ERROR_FAILURE;
  *aCount = added;
  return NS_OK;
}

nsresult nsLinuxFonts::RemoveFontFile(const std::string& aPath) {
  // Fontconfig can only forget all application fonts at once, and reading the others again would
  // take longer with each that there is. The set is a public structure, and belongs to the
  // configuration, which keeps no copy of it.
  FcFontSet* set = FcConfigGetFonts(nullptr, FcSetApplication);
  if (!set) return NS_ERROR_FAILURE;
  FcPattern** const end = set->fonts + set->nfont;
  FcPattern** const rest =
      std::stable_partition(set->fonts, end, [&](FcPattern* aFont) { return !IsOf(aFont, aPath); });
  if (rest == end) return NS_ERROR_FAILURE;
  std::for_each(rest, end, FcPatternDestroy);
  set->nfont = static_cast<int>(rest - set->fonts);
  return NS_OK;
}

nsresult nsLinuxFonts::ReadFaces(const std::string& aFamily, std::vector<Face>* aFaces) {
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
