// The module record by which a component library tells the host what it brings (version 14).
#pragma once

#include "nsCore.h"

class nsIFactory;

namespace vorel {

struct Module {
  static constexpr unsigned int kVersion = 14;

  struct CIDEntry;
  using GetFactoryProcPtr = nsIFactory* (*)(const Module& aModule, const CIDEntry& aEntry);
  using ConstructorProcPtr = nsresult (*)(nsISupports* aOuter, const nsIID& aIID, void** aResult);
  using LoadFuncPtr = nsresult (*)();
  using UnloadFuncPtr = void (*)();

  struct CIDEntry {
    const nsCID* cid;
    bool service;
    GetFactoryProcPtr getFactoryProc;
    ConstructorProcPtr constructorProc;
  };
  struct ContractIDEntry {
    const char* contractid;
    const nsID* cid;
  };
  struct CategoryEntry {
    const char* category;
    const char* entry;
    const char* value;
  };

  unsigned int mVersion;
  const CIDEntry* mCIDs;                  ///< closed by a null cid; may be null
  const ContractIDEntry* mContractIDs;    ///< closed by a null contractid; may be null
  const CategoryEntry* mCategoryEntries;  ///< closed by a null category; may be null
  GetFactoryProcPtr getFactoryProc;       ///< asked before a row's own procedures; may be null
  /// Runs once, on the main thread, before the first object is made. NS_ERROR_ABORT, and a line of
  /// the log that says why: without this module the host shall not start.
  LoadFuncPtr loadProc;
  UnloadFuncPtr unloadProc;  ///< runs once, after all services are released
};
static_assert(sizeof(void*) != 8 || (sizeof(Module) == 56 && sizeof(Module::CIDEntry) == 32));

}  // namespace vorel
