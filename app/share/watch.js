// vorel watch DIRECTORY [--json]: prints what changes below a directory, until it is interrupted.
"use strict";

const [directory, ...options] = arguments;
const asJson = options.includes("--json");

// The root is a URL, relative to the working directory; a name may hold anything that means something there.
const rootPath = directory.split("/").map(encodeURIComponent).join("/") + "/";

function report(event, text) {
  console.log(asJson ? JSON.stringify(event) : text);
}

const watcher = new FileSystemWatcher({
  rootPath,
  listener: {
    onWatcherStarted() {
      report({ event: "started" }, "watching " + watcher.watchPath);
    },
    onWatcherStopped() {
      report({ event: "stopped" }, "stopped");
    },
    onWatcherError(code, text) {
      report({ event: "error", code, text }, code === 0 ? text + " does not exist" : "error " + code + " " + text);
      quit(1);
    },
    onFileSystemAdded(path) {
      report({ event: "added", path }, "added    " + path);
    },
    onFileSystemRemoved(path) {
      report({ event: "removed", path }, "removed  " + path);
    },
    onFileSystemChanged(path) {
      report({ event: "changed", path }, "changed  " + path);
    },
    onFileSystemMoved(from, to) {
      report({ event: "moved", from, to }, "moved    " + from + " > " + to);
    },
  },
});
watcher.startWatching();
