// The fonts of this system, by fontconfig.
#pragma once

#include <chrono>

#include "nsPlatformFonts.h"

struct _FcConfig;  // fontconfig's

/// Fontconfig: its directories, its families, and its application fonts, which everything in this
/// process that draws text by it then has.
///
/// When a folder of fonts changes, fontconfig reads everything anew some time later, whoever asks
/// it for what, and application fonts are gone then. While there are any it is therefore kept from
/// that; this reads anew in its place, and adds them before the new configuration is the current
/// one. It does so in calls of the port, at most once in aInterval.
class nsLinuxFonts final : public nsPlatformFonts {
 public:
  explicit nsLinuxFonts(std::chrono::seconds aInterval = std::chrono::seconds(30));
  ~nsLinuxFonts() override;
  nsLinuxFonts(const nsLinuxFonts&) = delete;
  nsLinuxFonts& operator=(const nsLinuxFonts&) = delete;

  nsresult ReadSystemFolders(std::vector<std::string>* aPaths) override;
  nsresult AddFontFile(const std::string& aPath, uint32_t* aCount) override;
  nsresult RemoveFontFile(const std::string& aPath) override;
  nsresult ReadFaces(const std::string& aFamily, std::vector<Face>* aFaces) override;

 private:
  void KeepUp();
  void Adopt(_FcConfig* aConfig);
  void Release();

  const std::chrono::seconds mInterval;
  std::vector<std::string> mFiles;  // in the order of adding, as often as added
  _FcConfig* mConfig = nullptr;     // the one that has them, ours as long as there are any
  int mItsInterval = 0;             // how often it would look by itself, in seconds
  std::chrono::steady_clock::time_point mNextLook;
};
