// The loops of script.py for gjs.
const { Gio } = imports.gi;
const action = new Gio.SimpleAction({ name: "beside" });
const info = new Gio.FileInfo();
let heard = 0;
action.connect("activate", () => { ++heard; });
const loops = {
  number(n) { let sum = 0; for (let i = 0; i < n; ++i) sum += action.enabled; return sum; },
  "text in"(n) { for (let i = 0; i < n; ++i) info.set_name("a name of usual length"); },
  "text out"(n) { let sum = 0; for (let i = 0; i < n; ++i) sum += info.get_name().length; return sum; },
  event(n) { for (let i = 0; i < n; ++i) action.activate(null); },
  object(n) { for (let i = 0; i < n; ++i) new Gio.FileInfo(); },
};
