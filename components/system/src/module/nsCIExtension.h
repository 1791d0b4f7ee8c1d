// Tells the host's script bridge of the classes that script knows by name.
#pragma once

#include "nsIDOMCIExtension.h"
#include "nsImplements.h"
#include "nsModuleClass.h"

class kCIExtension final : public nsImplementsOnOneThread<kCIExtension, nsIDOMCIExtension> {
 public:
  static constexpr nsModuleClass kModuleClass{.mRow = 18,
                                              .mCID = "4dd67d9e-6c07-4b21-83fd-3069c1bded0e"_iid,
                                              .mContractID = "@vorel/system/ciextension;1"};

  /// Registers the class of that name. NS_ERROR_FAILURE for another name, and when the interfaces
  /// of the class could not be had.
  nsresult RegisterDOMCI(const char* aName, nsIDOMScriptObjectFactory* aFactory) override;

 private:
  ~kCIExtension() override = default;
};
