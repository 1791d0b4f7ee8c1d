// Who may use a device.
#pragma once

#include <sys/types.h>

#include <string>

/// " (members of the group "dialout" may)", for the line that tells that a file can't be opened;
/// the empty text where its group has not the right (S_IRGRP, S_IWGRP) either, or the file can't be
/// looked at. A group without a name is told by its number. Any thread.
std::string NS_GroupThatMay(const std::string& aPath, mode_t aRight);
