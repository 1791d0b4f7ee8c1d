// Connections to a display server are made one at a time.
#pragma once

#include "nsLock.h"

/// Held around each xcb_connect: the library finds the server's key in a buffer that all threads
/// share. The greeting of a server that has been stopped is waited for with it.
inline nsMutex gDisplayConnects;
