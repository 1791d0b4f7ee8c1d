// What script sees of the library's interfaces.
#pragma once

#include <vector>

#include "nsScriptTable.h"

/// All tables, parents first. They live for ever.
std::vector<const nsScriptInterface*> NS_SystemScriptInterfaces();

/// The contract comments of the headers, made at build time.
extern const nsScriptComment kSystemScriptComments[];
extern const size_t kSystemScriptCommentCount;

/// TypeScript declarations of the global names that the module's categories and the default
/// application's manifest bring.
extern const char kSystemScriptDeclarations[];

// One file a family of interfaces; each is named in nsSystemScript.cpp.
using nsScriptTableList = std::vector<const nsScriptInterface*>;
nsScriptTableList NS_ManagerTables();
nsScriptTableList NS_StorageTables();
nsScriptTableList NS_WatcherTables();
nsScriptTableList NS_AddressTables();
nsScriptTableList NS_NetworkTables();
nsScriptTableList NS_ServiceTables();
