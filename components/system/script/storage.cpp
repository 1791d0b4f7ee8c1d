// Storage.
#include "nsIFile.h"
#include "nsISystemAdapterStorage.h"
#include "nsSystemScript.h"

namespace {

constexpr auto kAdapterStorage =
    nsBind<nsISystemAdapterStorage,
           nsAttribute<"directory", &nsISystemAdapterStorage::GetDirectory>>();

}  // namespace

nsScriptTableList NS_StorageTables() { return {kAdapterStorage}; }
