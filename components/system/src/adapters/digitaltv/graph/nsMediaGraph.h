// Media objects for a platform that has none: a small filter graph on the port of tuners.
#pragma once

#include "nsPlatform.h"

/// The machine, with media objects on its tuners where it has none of its own. One that has neither
/// comes back as it is.
nsPlatformRef NS_WithMediaGraph(nsPlatformRef aPlatform);
