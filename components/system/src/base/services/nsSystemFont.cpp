#include "nsSystemFont.h"

#include <ft2build.h>
#include FT_FREETYPE_H
#include <plstr.h>

#include <algorithm>
#include <array>
#include <string_view>

#include "nsAscii.h"
#include "nsDebug.h"
#include "nsIFile.h"
#include "nsIFontEnumerator.h"
#include "nsILocalFile.h"
#include "nsISimpleEnumerator.h"
#include "nsPlatformFonts.h"
#include "nsServices.h"
#include "nsString.h"
#include "nsUtf.h"
#include "nsXPCOM.h"

namespace {

constexpr char kFontEnumeratorContractID[] = "@mozilla.org/gfx/fontenumerator;1";
constexpr uint16_t kAnyWeightItalic = 0xFFFF;
constexpr uint16_t kBold = 700;
constexpr uint16_t kNormal = 400;

constexpr std::array<std::string_view, 5> kFontEndings{".ttf", ".ttc", ".otf", ".fon", ".woff"};

// Text of eight bits taken as ASCII: each byte becomes a unit.
std::u16string Inflate(std::string_view aText) {
  std::u16string text;
  for (const char byte : aText) text += static_cast<unsigned char>(byte);
  return text;
}

std::string Deflate(std::u16string_view aText) {
  std::string text;
  for (const char16_t unit : aText) text += static_cast<char>(unit);
  return text;
}

std::string NativePath(nsIFile* aFile) {
  nsCString path;
  (void)aFile->GetNativePath(path);
  return std::string(path.view());
}

// Without links; its own path where that can't be told.
std::string RealPath(nsIFile* aFile) {
  nsCOMPtr<nsIFile> real;
  if (NS_FAILED(aFile->Clone(real.getter_AddRefs()))) return NativePath(aFile);
  (void)real->Normalize();
  return NativePath(real.get());
}

std::u16string LeafName(nsIFile* aFile) {
  nsString name;
  (void)aFile->GetLeafName(name);
  return std::u16string(name.view());
}

std::u16string MakeKey(const std::u16string& aLeafName) {
  return NS_ToUtf16(NS_ToLowerAscii(NS_ToUtf8(aLeafName)));
}

// The next entry of a directory; null, and success, after the last.
nsresult NextEntry(nsISimpleEnumerator* aEntries, nsCOMPtr<nsIFile>* aFile) {
  *aFile = nullptr;
  bool more = false;
  nsresult rv = aEntries->HasMoreElements(&more);
  if (NS_FAILED(rv) || !more) return rv;
  nsCOMPtr<nsISupports> entry;
  rv = aEntries->GetNext(entry.getter_AddRefs());
  if (NS_FAILED(rv)) return rv;
  *aFile = do_QueryInterface<nsIFile>(entry, &rv);
  return rv;
}

// FreeType for the time of one file, with the first face of it.
class FontFile {
 public:
  FontFile() = default;
  FontFile(const FontFile&) = delete;
  FontFile& operator=(const FontFile&) = delete;
  ~FontFile() {
    if (mFace) FT_Done_Face(mFace);
    if (mLibrary) FT_Done_FreeType(mLibrary);
  }
  bool Init() { return FT_Init_FreeType(&mLibrary) == 0; }
  FT_Error Open(const std::string& aPath) {
    return FT_New_Face(mLibrary, aPath.c_str(), 0, &mFace);
  }
  const FT_FaceRec& Face() const { return *mFace; }

 private:
  FT_Library mLibrary = nullptr;
  FT_Face mFace = nullptr;
};

}  // namespace

nsSystemFont::nsSystemFont(nsPlatformRef aPlatform)
    : mPlatform(std::move(aPlatform)), mLogger(NS_GetLogger("system.font")) {
  // The tables are then empty, and the object of use all the same.
  (void)Initialize();
}

nsSystemFont::~nsSystemFont() {
  for (const auto& [key, path] : mLoadedFonts) CleanLoadedFontsEnumerator(path);
}

void nsSystemFont::CleanLoadedFontsEnumerator(const std::string& aPath) {
  if (!aPath.empty() && NS_FAILED(mPlatform->mFonts->RemoveFontFile(aPath)))
    SYSTEM_LOG_WARNING(mLogger, "Error while removing font file " + aPath);
}

nsresult nsSystemFont::Initialize() {
  std::vector<std::string> folders;
  if (NS_FAILED(mPlatform->mFonts->ReadSystemFolders(&folders))) return NS_ERROR_FAILURE;
  // A folder that can't be listed does not hide the others.
  nsresult result = NS_OK;
  for (const std::string& folder : folders)
    if (const nsresult rv = LoadSystemFolder(folder); NS_FAILED(rv)) result = rv;
  return result;
}

nsresult nsSystemFont::LoadSystemFolder(const std::string& aFolder) {
  nsCOMPtr<nsILocalFile> directory;
  nsresult rv =
      NS_NewNativeLocalFile(nsDependentCString(aFolder), true, directory.getter_AddRefs());
  if (NS_FAILED(rv)) return rv;
  nsCOMPtr<nsISimpleEnumerator> entries;
  rv = directory->GetDirectoryEntries(entries.getter_AddRefs());
  if (NS_FAILED(rv)) return rv;
  nsCOMPtr<nsIFile> file;
  while (NS_SUCCEEDED(rv = NextEntry(entries.get(), &file)) && file) LoadSystemFont(file.get());
  return rv;
}

void nsSystemFont::LoadSystemFont(nsIFile* aFile) {
  bool isFont = false;
  if (NS_FAILED(IsFontFile(aFile, &isFont)) || !isFont) return;
  const std::u16string name = LeafName(aFile);
  SYSTEM_LOG_DEBUG(mLogger, "Adding Fonts" + NS_ToUtf8(name));
  mSystemFonts.insert_or_assign(MakeKey(name), NativePath(aFile));
  FaceKey face;
  std::u16string path;
  if (NS_SUCCEEDED(DescribeFile(aFile, &face, &path))) mFaces.emplace(std::move(face), path);
}

nsresult nsSystemFont::DescribeFile(nsIFile* aFile, FaceKey* aFace, std::u16string* aPath) {
  nsString path;
  (void)aFile->GetPath(path);
  *aPath = path.view();
  // What is no plain file, a pipe for one, may never come to an end.
  bool isFile = false;
  (void)aFile->IsFile(&isFile);
  nsresult rv = NS_ERROR_FILE_NOT_FOUND;
  if (isFile) rv = GetFaceInfo(*aPath, &aFace->mFamily, &aFace->mStyle, &aFace->mWeight);
  if (NS_FAILED(rv))
    SYSTEM_LOG_WARNING(mLogger, "Can't retrieve font information for file " + NS_ToUtf8(*aPath));
  return rv;
}

nsresult nsSystemFont::GetFaceInfo(const std::u16string& aPath, std::u16string* aFamily,
                                   uint16_t* aStyle, uint16_t* aWeight) {
  FontFile file;
  if (!file.Init()) {
    SYSTEM_LOG_WARNING(mLogger, "failed to init FreeType");
    return NS_ERROR_FAILURE;
  }
  const FT_Error error = file.Open(vorel::Utf16ToName(aPath));
  if (error == FT_Err_Unknown_File_Format) return NS_ERROR_FAILURE;
  if (error != 0) return NS_ERROR_FILE_NOT_FOUND;
  const FT_FaceRec& face = file.Face();

  // A damaged file may come without either name.
  std::string family = face.family_name ? face.family_name : "";
  std::string style = face.style_name ? face.style_name : "Regular";
  if (PL_strcasecmp(style.c_str(), "Regular") != 0) {
    if (const size_t blank = style.find(' '); blank != style.npos && blank > 0) style.resize(blank);
    if (PL_strcasecmp(style.c_str(), "bold") != 0 && PL_strcasecmp(style.c_str(), "italic") != 0)
      family += " " + style;
  }
  *aFamily = Inflate(family);
  *aStyle = (face.style_flags & FT_STYLE_FLAG_ITALIC) != 0 ? 1 : 0;
  *aWeight = (face.style_flags & FT_STYLE_FLAG_BOLD) != 0 ? kBold : kNormal;
  return NS_OK;
}

nsresult nsSystemFont::IsFontFile(nsIFile* aFile, bool* aIsFontFile) {
  if (!aFile) return NS_ERROR_NULL_POINTER;
  nsString leafName;
  const nsresult rv = aFile->GetLeafName(leafName);
  if (NS_FAILED(rv)) return rv;
  const std::string name = NS_ToLowerAscii(NS_ToUtf8(leafName));
  *aIsFontFile = std::ranges::any_of(
      kFontEndings, [&](std::string_view aEnding) { return name.ends_with(aEnding); });
  return NS_OK;
}

bool nsSystemFont::HasPlatformFace(const std::string& aFamily, uint16_t aStyle, uint16_t aWeight) {
  std::vector<nsPlatformFonts::Face> faces;
  if (NS_FAILED(mPlatform->mFonts->ReadFaces(aFamily, &faces))) return false;
  const bool wantsItalic = aStyle == kAnyWeightItalic || aStyle == 1;
  return std::ranges::any_of(faces, [&](const nsPlatformFonts::Face& aFace) {
    return aFace.mFamily == aFamily && aFace.mItalic == wantsItalic &&
           (aStyle == kAnyWeightItalic || aFace.mWeight == aWeight);
  });
}

nsresult nsSystemFont::FindFontFace(const nsACString& aFamily, uint16_t aStyle, uint16_t aWeight,
                                    bool* aFound, nsIFile** aFile) {
  const std::string family(NS_View(aFamily));
  *aFound = HasPlatformFace(family, aStyle, aWeight);
  if (!aFile) return NS_OK;

  *aFile = nullptr;
  const auto known = mFaces.find({Inflate(family), aStyle, aWeight});
  if (known == mFaces.end()) return NS_OK;
  nsresult rv;
  const auto file = do_CreateInstance<nsILocalFile>(NS_LOCALFILE_CONTRACTID, &rv);
  if (NS_FAILED(rv)) return rv;
  rv = file->InitWithPath(nsDependentString(known->second));
  if (NS_FAILED(rv)) return rv;
  nsCOMPtr<nsIFile>(file).forget(aFile);
  *aFound = true;
  return NS_OK;
}

nsresult nsSystemFont::AddFont(nsISupports* aFile) {
  nsresult rv;
  const auto file = do_QueryInterface<nsIFile>(aFile, &rv);
  if (NS_FAILED(rv)) return rv;
  const std::u16string name = LeafName(file.get());
  const std::u16string key = MakeKey(name);
  if (mSystemFonts.contains(key) || mLoadedFonts.contains(key)) {
    SYSTEM_LOG_WARNING(mLogger, "Try to add already loaded font " + NS_ToUtf8(name));
    return NS_OK;
  }
  const std::string nativePath = NativePath(file.get());
  SYSTEM_LOG_DEBUG(mLogger, "Loading font " + nativePath);
  uint32_t count = 0;
  if (NS_FAILED(mPlatform->mFonts->AddFontFile(nativePath, &count)) || count == 0) {
    SYSTEM_LOG_WARNING(mLogger, "Error while loading font file " + nativePath);
    return NS_ERROR_FAILURE;
  }
  mLoadedFonts.emplace(key, nativePath);

  FaceKey face;
  std::u16string path;
  rv = DescribeFile(file.get(), &face, &path);
  if (NS_SUCCEEDED(rv)) mFaces.emplace(std::move(face), path);
  return rv;
}

nsresult nsSystemFont::RemoveFont(nsISupports* aFile) {
  SYSTEM_LOG_DEBUG(mLogger, "BEGIN");
  nsresult rv;
  const auto file = do_QueryInterface<nsIFile>(aFile, &rv);
  if (NS_FAILED(rv)) return rv;
  const std::u16string name = LeafName(file.get());
  const auto loaded = mLoadedFonts.find(MakeKey(name));
  if (loaded == mLoadedFonts.end()) {
    SYSTEM_LOG_WARNING(mLogger, "Try to removing unloaded font file = " + NS_ToUtf8(name));
    return NS_OK;
  }
  const std::string nativePath = NativePath(file.get());
  if (PL_strcasecmp(nativePath.c_str(), loaded->second.c_str()) != 0) {
    SYSTEM_LOG_WARNING(mLogger, "Try to removing font but path is not the same");
    return NS_OK;
  }
  // By the spelling under which it was added.
  nsCOMPtr<nsILocalFile> added;
  rv = NS_NewNativeLocalFile(nsDependentCString(loaded->second), true, added.getter_AddRefs());
  if (NS_FAILED(rv)) return rv;
  FaceKey face;
  std::u16string path;
  rv = DescribeFile(added.get(), &face, &path);
  if (NS_FAILED(rv)) return rv;
  // All of that face go, those of other files too.
  mFaces.erase(face);
  if (NS_FAILED(mPlatform->mFonts->RemoveFontFile(loaded->second))) {
    SYSTEM_LOG_WARNING(mLogger, "Error while removing font file " + loaded->second);
    rv = NS_ERROR_FAILURE;
  }
  mLoadedFonts.erase(loaded);
  return rv;
}

nsresult nsSystemFont::HasFont(const nsAString& aKey, bool* aFound) {
  const std::u16string key(NS_View(aKey));
  // Both, though AddFont sees to it that none is in both; kept as it stands.
  *aFound = mSystemFonts.contains(key) && mLoadedFonts.contains(key);
  SYSTEM_LOG_DEBUG(mLogger, NS_ToUtf8(key) + (*aFound ? " FOUND" : " NOT FOUND"));
  return NS_OK;
}

nsresult nsSystemFont::Synchronize(nsIFile* aDirectory) {
  if (!aDirectory) return NS_ERROR_NULL_POINTER;
  SYSTEM_LOG_DEBUG(mLogger, "aFontDir = " + NativePath(aDirectory));
  bool exists = false, isDirectory = false;
  (void)aDirectory->Exists(&exists);
  (void)aDirectory->IsDirectory(&isDirectory);
  if (!exists || !isDirectory) {
    SYSTEM_LOG_WARNING(mLogger, "Bad directory");
    return NS_ERROR_FAILURE;
  }
  nsresult rv = LoadDirFonts(aDirectory);
  if (NS_FAILED(rv)) return rv;
  const auto enumerator = do_GetService<nsIFontEnumerator>(kFontEnumeratorContractID, &rv);
  if (NS_FAILED(rv)) return rv;
  SYSTEM_LOG_DEBUG(mLogger, "UpdateFontList");
  bool changed = false;
  return enumerator->UpdateFontList(&changed);
}

nsresult nsSystemFont::LoadDirFonts(nsIFile* aDirectory) {
  std::unordered_set<std::string> visited;
  return LoadDirFonts(aDirectory, RealPath(aDirectory), &visited);
}

nsresult nsSystemFont::LoadDirFonts(nsIFile* aDirectory, const std::string& aRealPath,
                                    std::unordered_set<std::string>* aVisited) {
  // Links may lead round in circles, and many at a time: each directory is walked once.
  if (!aVisited->insert(aRealPath).second) return NS_OK;

  nsCOMPtr<nsISimpleEnumerator> entries;
  nsresult rv = aDirectory->GetDirectoryEntries(entries.getter_AddRefs());
  if (NS_FAILED(rv)) return rv;
  nsCOMPtr<nsIFile> file;
  while (NS_SUCCEEDED(rv = NextEntry(entries.get(), &file)) && file) {
    bool isDirectory = false, isLink = false;
    (void)file->IsDirectory(&isDirectory);
    if (!isDirectory) {
      LoadDirFont(file.get());
      continue;
    }
    // Only a link has to be followed to know where it leads: in a deep tree that takes long.
    (void)file->IsSymlink(&isLink);
    nsCString name;
    (void)file->GetNativeLeafName(name);
    (void)LoadDirFonts(file.get(),
                       isLink ? RealPath(file.get()) : aRealPath + "/" + std::string(name.view()),
                       aVisited);
  }
  return rv;
}

void nsSystemFont::LoadDirFont(nsIFile* aFile) {
  bool isFont = false;
  if (NS_FAILED(IsFontFile(aFile, &isFont)) || !isFont) return;
  SYSTEM_LOG_DEBUG(mLogger, "Testing fonts file = " + NativePath(aFile));
  FaceKey face;
  std::u16string path;
  if (NS_FAILED(DescribeFile(aFile, &face, &path))) return;
  SYSTEM_LOG_DEBUG(mLogger, "fontFamily:  " + NS_ToUtf8(face.mFamily) +
                                " fontStyle:  " + (face.mStyle == 1 ? "italic" : "normal") +
                                " fontWeight: " + (face.mWeight == kBold ? "bold" : "normal"));
  bool found = false;
  if (NS_FAILED(FindFontFace(nsDependentCString(Deflate(face.mFamily)), face.mStyle, face.mWeight,
                             &found, nullptr)) ||
      found)
    return;
  (void)AddFont(aFile);
  // HasFont says no of every added font, so this tries again, which does nothing but warn; kept as
  // it stands.
  bool has = false;
  if (NS_SUCCEEDED(HasFont(nsDependentString(MakeKey(LeafName(aFile))), &has)) && !has)
    (void)AddFont(aFile);
}
