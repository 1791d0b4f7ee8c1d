// Where the host's log goes, what of it, and how it looks.
//
// Records are written by loggers (nsILog4.h), whose names have parts separated by ".";
// "system.manager" stands below "system". Without any call here, warnings and errors go to standard
// error, as text. All functions may be called from any thread, at any time, also before the host is
// started and after it has stopped; they hold for loggers that exist as well as for later ones.
#pragma once

#include <string_view>

#include "nsError.h"

enum class nsLogFormat {
  /// One line a record: local time, severity, logger, text, and place in the source. Control
  /// characters in the text
  /// are escaped; the severity has a colour where the line goes to a terminal.
  eText,
  /// One JSON object a line, with "time" (ISO 8601, UTC), "severity", "logger", "text" and, where
  /// known, "file",
  /// "function", "line". Any bytes give valid JSON: what is not UTF-8 becomes U+FFFD.
  eJson,
};

#pragma GCC visibility push(default)

/// Takes "LEVEL", the level of all loggers, or "NAME=LEVEL", that of a logger and of those below
/// it, over which the longest such name wins. LEVEL is the lowest severity that is written:
/// "debug", "warning" or "error"; "off" writes nothing. NS_ERROR_INVALID_ARG, and nothing changes,
/// for other texts and for an empty name before "=".
nsresult NS_SetLogLevel(std::string_view aText);

void NS_SetLogFormat(nsLogFormat aFormat);

/// Appends to a file from now on; made if it is not there. An empty path is standard error.
/// NS_ERROR_FILE_ACCESS_DENIED when the file can't be opened: the log goes on where it went before.
/// A record that can't be written to the file goes to standard error.
nsresult NS_SetLogFile(std::string_view aNativePath);

#pragma GCC visibility pop
