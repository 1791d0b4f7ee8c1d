// The kernel's messages of links, addresses and routes.
#pragma once

#include <cstdint>
#include <span>

/// Whether one of the messages in a buffer of rtnetlink tells of a change. Any bytes are safe: what
/// is no whole message tells nothing, nor does what follows it.
bool NS_TellsOfNetworkChange(std::span<const uint8_t> aMessages);
