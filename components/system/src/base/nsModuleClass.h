// What the module's tables say of a class, told once: where the class is declared.
#pragma once

#include "nsClassInfo.h"

/// A class that the host makes by its identifier has, in a header of src,
///
///   static constexpr nsModuleClass kModuleClass{
///       .mRow = 14, .mCID = "..."_iid, .mContractID = "@vorel/system/thing;1", .mIsService =
///       true};
///
/// The build gathers the tables of classes, contracts and categories from these (script/generate.py
/// reads the text: literals only, and only the fields that differ from the values here).
struct nsModuleClass {
  int mRow;  ///< the place in the class table, whose order others rely on; gaps do no harm
  nsCID mCID;
  const char* mContractID;
  /// One object, made on the first request, which the module owns until it is unloaded. When the
  /// class has an `nsresult InitSingleton()`, that follows; its failure makes the request fail.
  bool mIsService = false;
  /// A class that script knows by the name that its class info has: its place among those.
  int mDOMRow = -1;
  const char* mGlobal = nullptr;  ///< the property of script's global that is this service
  bool mAtStartup = false;        ///< made with the application, and told of "app-startup"
};
