// Standard names of time zones beside Olson names.
#pragma once

#include <array>

#include "nsPlatformTimeZones.h"

using nsTimeZoneRow = nsPlatformZoneName;

/// Standard names are unique; an Olson name may stand in several rows, and a search takes the
/// first. The first 89 rows are the names that the platform has itself, the others further names on
/// the same pattern; so the order matters.
extern const std::array<nsTimeZoneRow, 253> kTimeZoneTable;
