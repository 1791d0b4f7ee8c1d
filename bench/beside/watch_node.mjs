// Prints what one of node's watchers reports, an object a line, the way "vorel watch --json" does.
const [name, root] = process.argv.slice(1);

function print(event, path, to) {
  process.stdout.write(JSON.stringify(to ? { event, from: path, to } : { event, path }) + "\n");
}

const watchers = {
  async "@parcel/watcher"() {
    const kinds = { create: "added", update: "changed", delete: "removed" };
    const report = (error, events) => {
      if (error) print("error", String(error));
      for (const { type, path } of events ?? []) print(kinds[type], path);
    };
    await (await import(name)).default.subscribe(root, report, { backend: "inotify" });
  },

  async chokidar() {
    const kinds = { add: "added", addDir: "added", change: "changed", unlink: "removed", unlinkDir: "removed" };
    const watcher = (await import(name)).watch(root, { ignoreInitial: true });
    watcher.on("all", (kind, path) => print(kinds[kind], path));
    watcher.on("error", (error) => print("error", String(error)));
    await new Promise((done) => watcher.on("ready", done));
  },

  async nsfw() {
    const nsfw = (await import(name)).default;
    const kinds = ["added", "removed", "changed"];
    const report = (events) => {
      for (const { action, directory, file, oldFile, newDirectory, newFile } of events)
        if (action === nsfw.actions.RENAMED) print("moved", directory + "/" + oldFile, newDirectory + "/" + newFile);
        else print(kinds[action], directory + "/" + file);
    };
    const watcher = await nsfw(root, report, { debounceMS: 10, errorCallback: (e) => print("error", String(e)) });
    await watcher.start();
    globalThis.kept = watcher;
  },
};

await watchers[name]();
print("started");
setInterval(() => {}, 1 << 30);
