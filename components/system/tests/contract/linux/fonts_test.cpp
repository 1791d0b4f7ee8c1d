// The fonts of this system, for their contract suite.
#include "../nsFontContract.h"
#include "nsLinuxFonts.h"

namespace {

class NativeFonts final : public nsFontMachine {
 public:
  std::string Lacks() const override { return mFolder.empty() ? "no place for fonts" : ""; }
  nsPlatformFonts& Fonts() override { return mFonts; }
  void Expect(const std::string&, std::vector<nsPlatformFonts::Face>) override {}  // it reads them

 private:
  const std::filesystem::path mFolder = NS_TestFontFolder();
  nsLinuxFonts mFonts;
};

INSTANTIATE_TEST_SUITE_P(
    Linux, FontContract,
    testing::Values(NS_ContractBackend<nsFontMachine, NativeFonts>("machine")));

}  // namespace
