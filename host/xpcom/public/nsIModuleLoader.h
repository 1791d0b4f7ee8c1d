// How classes that no library brings come into being: those of a manifest's `component` lines.
#pragma once

#include "nsXPCOMTypes.h"

class nsIFactory;

/// A service that turns files of one ending into factories. It is found through the category
/// "module-loader": entry the ending without its point ("js"), value the contract ID.
class nsIModuleLoader : public nsISupports {
 public:
  using Self = nsIModuleLoader;
  using Base = nsISupports;
  static constexpr std::string_view kName = "nsIModuleLoader";
  static constexpr nsIID kIID = "0c7b3d0e-5f5d-4b43-8f0a-6f2f6b1f8a57"_iid;

  /// The factory of a class that the manifest says is in the file; aPath is absolute, UTF-8. Asked
  /// on the main thread, when the first object of the class is wanted, and again only if it failed.
  /// A file that brings several classes is asked for each of them. NS_ERROR_FACTORY_NOT_REGISTERED
  /// when the class is not in the file.
  virtual nsresult GetFactory(const nsACString& aPath, const nsCID& aCID, nsIFactory** aResult) = 0;

 protected:
  ~nsIModuleLoader() = default;
};
