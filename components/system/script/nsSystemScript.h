// What script sees of the library's interfaces. Made by the build of the headers: generate.py.
#pragma once

#include <vector>

#include "nsScriptTable.h"

/// All tables, parents first. They live for ever.
std::vector<const nsScriptInterface*> NS_SystemScriptInterfaces();

/// The contract comments of the headers.
extern const nsScriptComment kSystemScriptComments[];
extern const size_t kSystemScriptCommentCount;

/// TypeScript declarations of the global names that the module's categories bring, and of those
/// that script makes with new.
extern const char kSystemScriptDeclarations[];
