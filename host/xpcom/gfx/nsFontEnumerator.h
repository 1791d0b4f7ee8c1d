// The fonts that script may ask for.
#pragma once

#include <string>
#include <vector>

#include "nsIFontEnumerator.h"
#include "nsImplements.h"

/// "@mozilla.org/gfx/fontenumerator;1": the families that fontconfig has for this process,
/// application fonts included. Main thread.
class nsFontEnumerator final : public nsImplements<nsFontEnumerator, nsIFontEnumerator> {
 public:
  /// All families, sorted; those of the last UpdateFontList, or of the first call of anything.
  nsresult EnumerateAllFonts(uint32_t* aCount, char16_t*** aResult) override;
  /// Families for a language ("ja", "x-western", which is any) and a generic family ("serif",
  /// "sans-serif", "monospace"); an empty or null one does not narrow the choice.
  nsresult EnumerateFonts(const char* aLangGroup, const char* aGeneric, uint32_t* aCount,
                          char16_t*** aResult) override;
  nsresult HaveFontFor(const char* aLangGroup, bool* aResult) override;
  /// The family that stands for a generic one; null when there is no font at all.
  nsresult GetDefaultFont(const char* aLangGroup, const char* aGeneric,
                          char16_t** aResult) override;
  /// Looks again; whether the list of families has changed.
  nsresult UpdateFontList(bool* aResult) override;
  /// The name under which a family is listed; NS_ERROR_NOT_AVAILABLE when it is not.
  nsresult GetStandardFamilyName(const char16_t* aName, char16_t** aResult) override;

 private:
  ~nsFontEnumerator() override = default;

  const std::vector<std::string>& Families();

  bool mListed = false;
  std::vector<std::string> mFamilies;
};
