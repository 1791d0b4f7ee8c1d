// What the contract suite of fonts runs on: a machine of each backend.
#pragma once

#include <string>
#include <vector>

#include "nsContract.h"
#include "nsPlatformFonts.h"
#include "nsTemporaryDirectory.h"
#include "nsTestFont.h"

/// Fonts of the test's own are all that it has.
class nsFontMachine {
 public:
  virtual ~nsFontMachine() = default;
  /// Why the test can't run here; empty when it can.
  virtual std::string Lacks() const { return {}; }
  virtual nsPlatformFonts& Fonts() = 0;
  /// A file has these faces, or none: it is no font.
  virtual void Expect(const std::string& aPath, std::vector<nsPlatformFonts::Face> aFaces) = 0;
};
class FontContract : public nsContractTest<nsFontMachine> {
 protected:
  using Faces = std::vector<nsPlatformFonts::Face>;

  /// The path of a file with a font.
  std::string Make(const char* aName, const nsTestFont& aFont) {
    mDirectory.Put(aName, aFont.Bytes());
    const std::string path = (mDirectory / aName).string();
    mMachine->Expect(
        path, {{aFont.mFamily, aFont.mItalic, static_cast<uint16_t>(aFont.mBold ? 700 : 400)}});
    return path;
  }
  Faces Read(const char* aFamily) {
    Faces faces{{"of the time before", false, 1}};
    EXPECT_EQ(mMachine->Fonts().ReadFaces(aFamily, &faces), NS_OK);
    return faces;
  }

  nsTemporaryDirectory mDirectory;
};
