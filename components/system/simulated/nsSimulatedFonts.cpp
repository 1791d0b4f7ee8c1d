#include "nsSimulatedFonts.h"

#include <algorithm>
#include <filesystem>

nsSimulatedFonts::nsSimulatedFonts(nsSimulatedCallsRef aCalls)
    : nsSimulatedPort(std::move(aCalls), "Fonts") {}

void nsSimulatedFonts::AddSystemFolder(std::string aPath) {
  const nsAutoLock lock(mLock);
  mFolders.push_back(std::move(aPath));
}

void nsSimulatedFonts::AddFace(Face aFace) {
  const nsAutoLock lock(mLock);
  mFaces.push_back(std::move(aFace));
}

void nsSimulatedFonts::SetFile(std::string aPath, std::vector<Face> aFaces) {
  const nsAutoLock lock(mLock);
  mFiles[std::move(aPath)] = std::move(aFaces);
}

std::vector<std::string> nsSimulatedFonts::AddedFiles() const {
  const nsAutoLock lock(mLock);
  return mAdded;
}

std::function<void()> nsSimulatedFonts::ReadChange(const nsMachineValue& aValue) {
  std::vector<std::string> folders;
  std::vector<Face> faces;
  aValue.AsObject([&](nsMachineObject& aObject) {
    if (const auto* values = aObject.Optional("folders"))
      for (const nsMachineValue& folder : values->AsArray()) folders.push_back(folder.AsPath());
    if (const auto* values = aObject.Optional("faces"))
      for (const nsMachineValue& value : values->AsArray())
        value.AsObject([&](nsMachineObject& aFace) {
          Face face;
          face.mFamily = aFace.Required("family").AsString();
          if (const auto* italic = aFace.Optional("italic")) face.mItalic = italic->AsBoolean();
          if (const auto* weight = aFace.Optional("weight"))
            face.mWeight = weight->AsInteger<uint16_t>(1, 1000);
          faces.push_back(std::move(face));
        });
  });
  return [this, folders, faces] {
    for (const std::string& folder : folders) AddSystemFolder(folder);
    for (const Face& face : faces) AddFace(face);
  };
}

void nsSimulatedFonts::ReadFacts(const nsMachineValue& aValue) { ReadChange(aValue)(); }

nsresult nsSimulatedFonts::ReadSystemFolders(std::vector<std::string>* aPaths) {
  if (nsresult rv = Enter("ReadSystemFolders"); NS_FAILED(rv)) return rv;
  const nsAutoLock lock(mLock);
  *aPaths = mFolders;
  return NS_OK;
}

nsresult nsSimulatedFonts::AddFontFile(const std::string& aPath, uint32_t* aCount) {
  if (nsresult rv = Enter("AddFontFile"); NS_FAILED(rv)) return rv;
  const nsAutoLock lock(mLock);
  const auto file = mFiles.find(aPath);
  std::error_code error;
  if (file == mFiles.end() && !std::filesystem::is_regular_file(aPath, error))
    return NS_ERROR_FAILURE;
  const size_t count = file == mFiles.end() ? 1 : file->second.size();
  if (count == 0) return NS_ERROR_FAILURE;
  mAdded.push_back(aPath);
  Record("AddFontFile " + aPath);
  *aCount = static_cast<uint32_t>(count);
  return NS_OK;
}

nsresult nsSimulatedFonts::RemoveFontFile(const std::string& aPath) {
  if (nsresult rv = Enter("RemoveFontFile"); NS_FAILED(rv)) return rv;
  const nsAutoLock lock(mLock);
  if (std::erase(mAdded, aPath) == 0) return NS_ERROR_FAILURE;
  Record("RemoveFontFile " + aPath);
  return NS_OK;
}

nsresult nsSimulatedFonts::ReadFaces(const std::string& aFamily, std::vector<Face>* aFaces) {
  if (nsresult rv = Enter("ReadFaces"); NS_FAILED(rv)) return rv;
  const nsAutoLock lock(mLock);
  std::vector<Face> all = mFaces;
  for (const std::string& path : mAdded)
    if (const auto file = mFiles.find(path); file != mFiles.end())
      all.insert(all.end(), file->second.begin(), file->second.end());
  std::erase_if(all, [&](const Face& aFace) { return aFace.mFamily != aFamily; });
  *aFaces = std::move(all);
  return NS_OK;
}
