// The stack that scripts may use.
#pragma once

#include <cstddef>

/// In bytes; to be asked on the thread that scripts will run on.
size_t NS_ScriptStackSize();
