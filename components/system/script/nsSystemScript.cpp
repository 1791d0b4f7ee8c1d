#include "nsSystemScript.h"

std::vector<const nsScriptInterface*> NS_SystemScriptInterfaces() {
  nsScriptTableList all;
  for (const auto family : {NS_ManagerTables, NS_StorageTables, NS_WatcherTables, NS_AddressTables,
                            NS_NetworkTables, NS_ServiceTables})
    for (const nsScriptInterface* table : family()) all.push_back(table);
  return all;
}
