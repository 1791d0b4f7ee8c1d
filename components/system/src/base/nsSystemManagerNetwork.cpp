// Discovery of network interfaces.
#include "nsSystemManager.h"

nsresult nsSystemManager::InitNetwork() { return NS_OK; }
