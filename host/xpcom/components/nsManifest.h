// Manifest files: which components an application has.
#pragma once

#include <string>

#include "nsError.h"

class nsComponentManager;

/// Reads a manifest and those that it includes, and registers what they name. What is wrong with a
/// line is a message with file and line, and the rest still counts. A file that is being read, or
/// has been, is not read again. NS_ERROR_FILE_NOT_FOUND when there is no such file,
/// NS_ERROR_FILE_ACCESS_DENIED when it can't be read.
nsresult NS_RegisterManifest(nsComponentManager& aManager, const std::string& aPath);
