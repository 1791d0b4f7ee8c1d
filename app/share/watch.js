// vorel watch [OPTIONS] -- DIRECTORY...: prints what changes below directories, until it is interrupted.
"use strict";

const end = arguments.indexOf("--");
const directories = arguments.slice(end + 1);
const options = { exclude: [], only: [], settle: 0, timeout: 0 };
for (const argument of arguments.slice(0, end)) {
  const [, name, value] = /^--([a-z]+)(?:=([^]*))?$/.exec(argument);
  if (Array.isArray(options[name])) options[name].push(pattern(value));
  else options[name] = value === undefined ? true : Number(value);
}

const ROOT_MISSING = 0;
const ROOT_GONE = 3;
const INCOMPLETE = 4;
const STATUS = { failure: 1, gone: 3, timeout: 4 };
const RETRY_MS = 500;

// "*" and "?" stand for what is in one name, "**" for any part of a path. Without "/" it is a name, wherever that is.
function pattern(text) {
  const source = text.replace(/\*\*\/?|[*?]|[^]/g, (part) =>
    part === "**/" ? "(?:.*/)?" : part === "**" ? ".*" : part === "*" ? "[^/]*" : part === "?" ? "[^/]"
      : part.replace(/[\\^$.|+()[\]{}/]/, "\\$&"));
  return { isPath: text.includes("/"), match: new RegExp("^" + source + "$", "s") };
}

function fits(patterns, path) {
  const name = path.slice(path.lastIndexOf("/") + 1);
  return patterns.some(({ isPath, match }) => match.test(isPath ? path : name));
}

// What lies below something left out is left out.
function isWanted(path) {
  const plain = path.endsWith("/") ? path.slice(0, -1) : path;
  for (let at = plain.indexOf("/"); at >= 0; at = plain.indexOf("/", at + 1))
    if (fits(options.exclude, plain.slice(0, at))) return false;
  return !fits(options.exclude, plain) && (options.only.length === 0 || fits(options.only, plain));
}

let hasChange = false;

// Names of files are not to steer the terminal, or to end the line.
const steering = /[\x00-\x1f\x7f-\x9f\u061c\u200e\u200f\u2028-\u202e\u2066-\u2069]/g;
const numbered = (unit) => "\\u" + unit.charCodeAt(0).toString(16).padStart(4, "0");

class Root {
  constructor(directory) {
    this.directory = directory;
    this.pending = new Map(); // by path, with what is to be told of it
    // The root is a URL, relative to the working directory; a name may hold anything that means something there.
    // One that starts with two slashes would be taken for a host.
    const path = directory.replace(/^\/+/, "/").split("/").map(encodeURIComponent).join("/");
    this.watcher = new FileSystemWatcher({ rootPath: path + "/", listener: this });
  }

  start() {
    this.watcher.startWatching();
  }

  print(event, text) {
    if (directories.length > 1) event = { root: this.directory, ...event };
    console.log(options.json ? JSON.stringify(event).replace(steering, numbered) : text.replace(steering, "\ufffd"));
  }

  // Nothing is watched any more. Who reads the changes should not have to look among them for that.
  fail(code, text, message, status) {
    if (options.json) this.print({ event: "error", code, text });
    console.error("vorel: " + message.replace(steering, "\ufffd"));
    quit(status);
  }

  // Of a directory there is no size to tell.
  details(path) {
    if (!options.details) return {};
    try {
      const file = Components.classes["@mozilla.org/file/local;1"].createInstance(Components.interfaces.nsILocalFile);
      file.initWithPath(this.watcher.watchPath + "/" + path.replace(/\/$/, ""));
      const time = new Date(Number(file.lastModifiedTimeOfLink)).toISOString();
      return path.endsWith("/") ? { time } : { size: Number(file.fileSizeOfLink), time };
    } catch {
      return {}; // it has gone again
    }
  }

  tell(kind, path, from) {
    const there = kind === "removed" ? {} : this.details(path);
    const event = kind === "moved" ? { event: kind, from, to: path, ...there } : { event: kind, path, ...there };
    const full = (name) => (directories.length > 1 ? this.directory.replace(/\/*$/, "/") + name : name);
    const more = Object.entries(there).map(([, value]) => "  " + value).join("");
    this.print(event, kind.padEnd(9) + (from === undefined ? "" : full(from) + " > ") + full(path) + more);
    hasChange = true;
    if (options.once) quit(0);
  }

  // Told at once, or when nothing has happened to the path for the time asked for.
  hear(kind, path, from) {
    if (options.settle === 0) {
      this.tell(kind, path, from);
      return;
    }
    const before = this.pending.get(path);
    if (before) clearTimeout(before.timer);
    this.pending.delete(path);
    if (before && kind === "changed") [kind, from] = [before.kind, before.from];
    else if (before && kind === "removed" && before.kind === "added") return;
    else if (before && kind === "removed" && before.kind === "moved") path = before.from;
    else if (before && kind === "added" && before.kind === "removed") kind = "changed";
    const timer = setTimeout(() => {
      this.pending.delete(path);
      this.tell(kind, path, from);
    }, options.settle);
    this.pending.set(path, { kind, from, timer });
  }

  onWatcherStarted() {
    this.print({ event: "started" }, "watching " + this.watcher.watchPath);
  }

  onWatcherStopped() {
    this.print({ event: "stopped" }, "stopped");
  }

  onWatcherError(code, text) {
    if (code === INCOMPLETE) {
      this.print({ event: "error", code, text }, "error".padEnd(9) + text);
      return;
    }
    const texts = { [ROOT_MISSING]: " does not exist", [ROOT_GONE]: " was deleted, moved, replaced or unmounted" };
    const message = texts[code] ? text + texts[code] : "error " + code + " " + text;
    if (!options.wait || !texts[code]) {
      this.fail(code, text, message, code === ROOT_GONE ? STATUS.gone : STATUS.failure);
      return;
    }
    if (!(code === ROOT_MISSING && this.isWaiting)) this.print({ event: "error", code, text }, message);
    this.isWaiting = true;
    setTimeout(() => {
      this.watcher.stopWatching();
      setTimeout(() => this.start(), code === ROOT_GONE ? 0 : RETRY_MS);
    }, 0);
  }

  onFileSystemAdded(path) {
    if (isWanted(path)) this.hear("added", path);
  }

  onFileSystemRemoved(path) {
    if (isWanted(path)) this.hear("removed", path);
  }

  onFileSystemChanged(path) {
    if (isWanted(path)) this.hear("changed", path);
  }

  onFileSystemMoved(from, to) {
    if (!isWanted(to)) {
      this.onFileSystemRemoved(from);
    } else if (!isWanted(from)) {
      this.hear("added", to);
    } else {
      const before = this.pending.get(from);
      if (!before) {
        this.hear("moved", to, from);
        return;
      }
      clearTimeout(before.timer);
      this.pending.delete(from);
      if (before.kind === "added") this.hear("added", to);
      else this.hear("moved", to, before.from ?? from);
    }
  }
}

// A root that is there but can't be watched is not the listener's to hear of.
const unwatched = {
  observe(subject, topic, path) {
    for (const root of globalThis.roots)
      if (root.watcher.watchPath === path) root.fail(1, path, path + " can't be watched", STATUS.failure);
  },
};
Components.classes["@mozilla.org/observer-service;1"].getService(Components.interfaces.nsIObserverService)
  .addObserver(unwatched, "filesystemwatcher-unwatched", false);

for (const root of directories.map((directory) => new Root(directory))) {
  (globalThis.roots ??= []).push(root); // it watches for as long as somebody holds it
  root.start();
}
if (options.timeout > 0) setTimeout(() => quit(options.once && !hasChange ? STATUS.timeout : 0), options.timeout * 1000);
