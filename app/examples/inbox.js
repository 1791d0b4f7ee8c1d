// Watches the directory of its argument and names every file that comes, goes or moves, below it too.
"use strict";

if (arguments.length !== 1) {
  console.error("usage: vorel inbox.js DIRECTORY");
  quit(2);
}
/** @type {nsIFileSystemWatcher} */
const watcher = new FileSystemWatcher({
  rootPath: arguments[0].endsWith("/") ? arguments[0] : arguments[0] + "/",
  recursive: true,
  listener: {
    onWatcherStarted: () => console.log("watching", watcher.watchPath),
    onWatcherStopped: () => console.log("stopped"),
    onWatcherError: (code, text) => {
      console.error("error", code, text);
      quit(1);
    },
    onFileSystemAdded: (path) => console.log("+", path),
    onFileSystemRemoved: (path) => console.log("-", path),
    onFileSystemChanged: (path) => console.log("~", path),
    onFileSystemMoved: (from, to) => console.log(">", from, to),
  },
});
watcher.startWatching();
