#include "nsFontEnumerator.h"

#include <fontconfig/fontconfig.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <set>
#include <string_view>

#include "nsString.h"
#include "nsXPCOM.h"

namespace {

struct Delete {
  void operator()(FcPattern* aPattern) const { FcPatternDestroy(aPattern); }
  void operator()(FcObjectSet* aSet) const { FcObjectSetDestroy(aSet); }
  void operator()(FcFontSet* aSet) const { FcFontSetDestroy(aSet); }
};
template <class T>
using Owned = std::unique_ptr<T, Delete>;

std::string Family(FcPattern* aFont) {
  FcChar8* name = nullptr;
  return FcPatternGetString(aFont, FC_FAMILY, 0, &name) == FcResultMatch
             ? std::string(reinterpret_cast<const char*>(name))
             : std::string();
}

const FcChar8* Text(const char* aText) { return reinterpret_cast<const FcChar8*>(aText); }

// Groups of languages that have no language's name ("x-western") are any language.
bool IsLanguage(const char* aLangGroup) {
  return aLangGroup && *aLangGroup && std::strncmp(aLangGroup, "x-", 2) != 0;
}

std::vector<std::string> ListFamilies(const char* aLangGroup, const char* aGeneric) {
  const Owned<FcPattern> wanted(FcPatternCreate());
  const Owned<FcObjectSet> fields(FcObjectSetBuild(FC_FAMILY, nullptr));
  if (!wanted || !fields) return {};
  if (IsLanguage(aLangGroup)) {
    FcLangSet* languages = FcLangSetCreate();
    FcLangSetAdd(languages, Text(aLangGroup));
    FcPatternAddLangSet(wanted.get(), FC_LANG, languages);
    FcLangSetDestroy(languages);
  }
  if (aGeneric && std::strcmp(aGeneric, "monospace") == 0)
    FcPatternAddInteger(wanted.get(), FC_SPACING, FC_MONO);
  const Owned<FcFontSet> fonts(FcFontList(nullptr, wanted.get(), fields.get()));
  std::set<std::string> families;
  for (int i = 0; fonts && i < fonts->nfont; ++i) families.insert(Family(fonts->fonts[i]));
  families.erase(std::string());
  return {families.begin(), families.end()};
}

char16_t* NewString(const std::string& aUtf8) {
  const std::u16string text = NS_ToUtf16(aUtf8);
  auto* copy = static_cast<char16_t*>(NS_Alloc((text.size() + 1) * sizeof(char16_t)));
  std::copy_n(text.c_str(), text.size() + 1, copy);
  return copy;
}

nsresult HandOut(const std::vector<std::string>& aNames, uint32_t* aCount, char16_t*** aResult) {
  auto** array =
      static_cast<char16_t**>(NS_Alloc(std::max<size_t>(aNames.size(), 1) * sizeof(char16_t*)));
  std::ranges::transform(aNames, array, NewString);
  *aCount = static_cast<uint32_t>(aNames.size());
  *aResult = array;
  return NS_OK;
}

}  // namespace

const std::vector<std::string>& nsFontEnumerator::Families() {
  if (!mListed) {
    mFamilies = ListFamilies(nullptr, nullptr);
    mListed = true;
  }
  return mFamilies;
}

nsresult nsFontEnumerator::EnumerateAllFonts(uint32_t* aCount, char16_t*** aResult) {
  return HandOut(Families(), aCount, aResult);
}

nsresult nsFontEnumerator::EnumerateFonts(const char* aLangGroup, const char* aGeneric,
                                          uint32_t* aCount, char16_t*** aResult) {
  return HandOut(ListFamilies(aLangGroup, aGeneric), aCount, aResult);
}

nsresult nsFontEnumerator::HaveFontFor(const char* aLangGroup, bool* aResult) {
  *aResult = !ListFamilies(aLangGroup, nullptr).empty();
  return NS_OK;
}

nsresult nsFontEnumerator::GetDefaultFont(const char* aLangGroup, const char* aGeneric,
                                          char16_t** aResult) {
  const Owned<FcPattern> wanted(FcPatternCreate());
  if (!wanted) return NS_ERROR_OUT_OF_MEMORY;
  if (aGeneric && *aGeneric) FcPatternAddString(wanted.get(), FC_FAMILY, Text(aGeneric));
  if (IsLanguage(aLangGroup)) FcPatternAddString(wanted.get(), FC_LANG, Text(aLangGroup));
  FcConfigSubstitute(nullptr, wanted.get(), FcMatchPattern);
  FcDefaultSubstitute(wanted.get());
  FcResult result = FcResultMatch;
  const Owned<FcPattern> font(FcFontMatch(nullptr, wanted.get(), &result));
  *aResult = font ? NewString(Family(font.get())) : nullptr;
  return NS_OK;
}

nsresult nsFontEnumerator::UpdateFontList(bool* aResult) {
  std::vector<std::string> families = ListFamilies(nullptr, nullptr);
  *aResult = !mListed || families != mFamilies;
  mFamilies = std::move(families);
  mListed = true;
  return NS_OK;
}

nsresult nsFontEnumerator::GetStandardFamilyName(const char16_t* aName, char16_t** aResult) {
  if (!aName) return NS_ERROR_NULL_POINTER;
  const std::string name = NS_ToUtf8(std::u16string_view(aName));
  for (const std::string& family : Families())
    if (FcStrCmpIgnoreCase(Text(family.c_str()), Text(name.c_str())) == 0) {
      *aResult = NewString(family);
      return NS_OK;
    }
  return NS_ERROR_NOT_AVAILABLE;
}
