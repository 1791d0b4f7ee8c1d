#include "nsSystemScript.h"

const char kSystemScriptDeclarations[] = R"TS(
/** The machine: adapters, bindings, and listeners to both. */
declare const systemManager: nsISystemManager;
declare const systemMaintenance: nsISystemMaintenance & nsITimerCallback & nsIObserver;
declare const systemGeneralSettings: nsISystemGeneralSettings;

declare const FileSystemWatcher: nsInterfaceID<nsIFileSystemWatcher> & {
  /** The watch begins with startWatching(). rootPath is a URL, absolute or relative to the document. */
  new (options: {
    rootPath: string;
    listener?: nsISystemFileSystemListener2 | nsScripted<nsISystemFileSystemListener2>;
    recursive?: boolean;
    document?: nsIHostDocument;
  }): nsIFileSystemWatcher;
};

declare const SystemManager: nsInterfaceID<nsISystemManager>;
declare const SystemAdapterIP: nsInterfaceID<nsISystemAdapterIP>;
declare const SystemAdapterLAN: nsInterfaceID<nsISystemAdapterLAN>;
declare const SystemAdapterWLAN: nsInterfaceID<nsISystemAdapterWLAN>;
declare const SystemAdapterWWAN: nsInterfaceID<nsISystemAdapterWWAN>;
declare const SystemAdapterStorage: nsInterfaceID<nsISystemAdapterStorage>;
declare const SystemIPAddress: nsInterfaceID<nsISystemIPAddress>;
declare const SystemIPv4Structure: nsInterfaceID<nsISystemIPv4Structure> & { new (): nsISystemIPv4Structure };
declare const SystemIPv6Structure: nsInterfaceID<nsISystemIPv6Structure> & { new (): nsISystemIPv6Structure };
declare const SystemMACStructure: nsInterfaceID<nsISystemMACStructure> & { new (): nsISystemMACStructure };
)TS";
