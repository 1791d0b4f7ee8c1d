// What the host has to say: on the logger "host", and, while there is no logging, on standard
// error.
#pragma once

#include <string_view>

enum nsHostSeverity { eHostDebug, eHostWarning, eHostError };

/// Any thread.
void NS_HostMessage(nsHostSeverity aSeverity, std::string_view aText);
