// The watcher that script constructs: new FileSystemWatcher({rootPath, listener}).
#pragma once

#include "nsISystemFileSystemWatcher.h"

/// What script sees of a watcher; adds nothing to it. The constructor takes one object:
///
///   rootPath   string, required: the root, a URL, absolute or relative to the document
///   listener   object: implements nsISystemFileSystemListener, and ...2 if it wants moves
///   recursive  boolean: taken and without effect, all watchers are recursive
///   document   object: a document in place of the script's own
///   exclude    text or array of texts: patterns; what fits, and all below it, is not told
///   only       text or array of texts: patterns; nothing else is told
///   settle     number, whole milliseconds: a change is told once nothing more has happened to the
///              same path for this time
///   since      text: what differs from what the last watch of the root with this name has left in
///              the profile is told first
///
/// of which nsFileSystemWatcherOptions tells more. NS_ERROR_INVALID_ARG when one of the last four
/// is there and wrong; other keys are ignored.
///
/// Without a listener StartWatching succeeds and does nothing. The watch ends with the document.
/// Main thread only.
// script: new (options: {
//   rootPath: string;
//   listener?: nsISystemFileSystemListener2 | nsScripted<nsISystemFileSystemListener2>;
//   recursive?: boolean;
//   document?: nsIHostDocument;
//   exclude?: string | string[];
//   only?: string | string[];
//   settle?: number;
//   since?: string;
// })
class nsIFileSystemWatcher : public nsISystemFileSystemWatcher {
 public:
  using Self = nsIFileSystemWatcher;
  using Base = nsISystemFileSystemWatcher;
  static constexpr std::string_view kName = "nsIFileSystemWatcher";
  static constexpr nsIID kIID = "8caca6ae-20f1-4a0a-bdc6-109160a991cb"_iid;

 protected:
  ~nsIFileSystemWatcher() = default;
};
