// The service of the fonts of the running system.
#pragma once

#include <compare>
#include <map>
#include <string>
#include <unordered_map>
#include <unordered_set>

#include "nsCOMPtr.h"
#include "nsClassInfoOfAll.h"
#include "nsISystemFont.h"
#include "nsLogger.h"
#include "nsModuleClass.h"
#include "nsPlatform.h"

class nsSystemFont final : public nsImplements<nsSystemFont, nsISystemFont> {
 public:
  static constexpr nsModuleClass kModuleClass{.mRow = 15,
                                              .mCID = "33386123-8c43-4153-90d7-e632e801179c"_iid,
                                              .mContractID = "@vorel/system/systemfont;1",
                                              .mIsService = true};
  static constexpr nsClassInfoRecord kClassInfo =
      NS_ClassInfoOfAll<"SystemFont", nsImplementsWith>(kModuleClass.mCID);

  /// Looks through the folders of the system's fonts.
  explicit nsSystemFont(nsPlatformRef aPlatform);

  nsresult Synchronize(nsIFile* aDirectory) override;
  nsresult AddFont(nsISupports* aFile) override;
  nsresult RemoveFont(nsISupports* aFile) override;
  nsresult HasFont(const nsAString& aKey, bool* aFound) override;
  nsresult FindFontFace(const nsACString& aFamily, uint16_t aStyle, uint16_t aWeight, bool* aFound,
                        nsIFile** aFile) override;
  nsresult IsFontFile(nsIFile* aFile, bool* aIsFontFile) override;

  /// What a font file says of itself. The family takes up such words of the style name as are
  /// neither bold nor italic. NS_ERROR_FAILURE for a file that is no font, NS_ERROR_FILE_NOT_FOUND
  /// for one that can't be opened or read through.
  nsresult GetFaceInfo(const std::u16string& aPath, std::u16string* aFamily, uint16_t* aStyle,
                       uint16_t* aWeight);
  /// Adds the fonts below a directory. A failed step of its listing ends it with that failure.
  nsresult LoadDirFonts(nsIFile* aDirectory);

 private:
  /// By key: the leaf name with its ASCII letters made small.
  using Table = std::unordered_map<std::u16string, std::string>;
  struct FaceKey {
    std::u16string mFamily;
    uint16_t mStyle;
    uint16_t mWeight;
    friend auto operator<=>(const FaceKey&, const FaceKey&) = default;
  };

  ~nsSystemFont() override;

  nsresult Initialize();
  nsresult LoadSystemFolder(const std::string& aFolder);
  void LoadSystemFont(nsIFile* aFile);
  nsresult LoadDirFonts(nsIFile* aDirectory, const std::string& aRealPath,
                        std::unordered_set<std::string>* aVisited);
  void LoadDirFont(nsIFile* aFile);
  bool HasPlatformFace(const std::string& aFamily, uint16_t aStyle, uint16_t aWeight);
  nsresult DescribeFile(nsIFile* aFile, FaceKey* aFace, std::u16string* aPath);
  void CleanLoadedFontsEnumerator(const std::string& aPath);

  const nsPlatformRef mPlatform;
  const nsCOMPtr<nsILog4Logger> mLogger;
  Table mSystemFonts;  // native paths
  Table mLoadedFonts;  // native paths
  std::multimap<FaceKey, std::u16string> mFaces;
};
