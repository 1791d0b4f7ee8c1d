// Fonts of facts.
#pragma once

#include <functional>
#include <map>

#include "nsMachineValue.h"
#include "nsPlatformFonts.h"
#include "nsSimulatedCalls.h"

/// The fonts of a machine. Font files are real ones; which faces the platform sees in them is a
/// fact of its own.
class nsSimulatedFonts final : public nsPlatformFonts, public nsSimulatedPort {
 public:
  explicit nsSimulatedFonts(nsSimulatedCallsRef aCalls);

  void AddSystemFolder(std::string aPath);
  /// A face that the platform has from the start.
  void AddFace(Face aFace);
  /// What the platform sees in a file when it is added: nothing is a file that it refuses. A file
  /// that is not told of has one face that no family finds, and has to exist.
  void SetFile(std::string aPath, std::vector<Face> aFaces);
  /// The files that are added, in order, those that were added twice twice.
  std::vector<std::string> AddedFiles() const;

  /// An object, as docs/machine-file.md tells. Throws nsMachineFileError.
  void ReadFacts(const nsMachineValue& aValue);
  /// The same object: what it says is there from then on, beside what was.
  std::function<void()> ReadChange(const nsMachineValue& aValue);

  nsresult ReadSystemFolders(std::vector<std::string>* aPaths) override;
  nsresult AddFontFile(const std::string& aPath, uint32_t* aCount) override;
  nsresult RemoveFontFile(const std::string& aPath) override;
  nsresult ReadFaces(const std::string& aFamily, std::vector<Face>* aFaces) override;

 private:
  std::vector<std::string> mFolders NS_GUARDED_BY(mLock);
  std::vector<Face> mFaces NS_GUARDED_BY(mLock);
  std::map<std::string, std::vector<Face>> mFiles NS_GUARDED_BY(mLock);
  std::vector<std::string> mAdded NS_GUARDED_BY(mLock);
};
