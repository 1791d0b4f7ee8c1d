// The machine that the library runs on.
#pragma once

#include "nsError.h"
#include "nsPlatform.h"

/// The simulated machine of the file that the directory service has under "VorelMachine"; without
/// that, the machine that the process runs on. An unreadable file fails with the reader's result,
/// after an error line that tells file, line and reason. The script of changes that a file may
/// bring starts here, and is applied on the main thread.
nsresult NS_OpenMachine(nsPlatformRef* aPlatform);
