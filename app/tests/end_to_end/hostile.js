// Calls every member of every object that can be reached, with values that no application gives. Whatever is thrown is
// right; the process has to live. Arguments: the seed of the choice of values, and how often each member is called.
"use strict";

const { classes, interfaces, utils } = Components;
let seed = Number(arguments[0]);
const rounds = Number(arguments[1]);

function random(limit) {
  seed = (Math.imul(seed, 1664525) + 1013904223) >>> 0;
  return Math.floor((seed / 2 ** 32) * limit);
}
const oneOf = (list) => list[random(list.length)];

// They do what they say: end or stop this process, run a command, or change the disk.
const spared = new Set(["crashProcess", "hangMainThread", "runCommand", "processNextEvent", "append",
  "appendRelativePath", "normalize", "create", "createUnique", "copyTo", "copyToFollowingLinks", "moveTo", "remove",
  "initWithPath", "initWithFile", "savePrefFile"]);
const isSpared = (object, name, isSetter) => spared.has(name) || (isSetter && object instanceof interfaces.nsIFile);

const services = ["@vorel/system/clock;1", "@vorel/system/systemfont;1", "@vorel/system/filesystemwatcherservice;1",
  "@vorel/systemdisplayposition;1", "@vorel/ipc/prefs;1", "@vorel/log4service;1", "@vorel/vorelthreadpool;1",
  "@mozilla.org/preferences-service;1", "@mozilla.org/observer-service;1", "@mozilla.org/categorymanager;1",
  "@mozilla.org/network/io-service;1", "@mozilla.org/thread-manager;1", "@mozilla.org/uuid-generator;1",
  "@mozilla.org/charset-converter-manager;1", "@mozilla.org/file/directory_service;1"];
const instances = ["@vorel/system/ipv4structure;1", "@vorel/system/ipv6structure;1", "@vorel/system/macstructure;1",
  "@vorel/isocountry;1", "@vorel/digitaltvservice;1", "@vorel/digitaltvaudiochannel;1", "@vorel/array;1",
  "@vorel/system/filesystemwatcherprivate;1", "@vorel/system/apb/displayoutput;1", "@vorel/app/directory-binding;1",
  "@vorel/bdascanresultdigitaltvservice;1", "@vorel/log4locationinfo;1", "@mozilla.org/timer;1",
  "@mozilla.org/pipe;1", "@mozilla.org/io/string-input-stream;1", "@mozilla.org/binaryinputstream;1",
  "@mozilla.org/network/standard-url;1", "@mozilla.org/network/load-group;1", "@mozilla.org/supports-string;1",
  "@mozilla.org/supports-cstring;1", "@mozilla.org/supports-id;1", "@mozilla.org/supports-interface-pointer;1"];

let calls = 0;
/** What a call answers; nothing when it throws. */
function attempt(call) {
  ++calls;
  try { return call(); } catch (error) { String(error); return undefined; }
}

// ---- What can be reached

const objects = [];
const ofName = new Map();
function reach(value) {
  if (value === null || typeof value !== "object" || objects.includes(value)) return;
  const name = String(Object.prototype.toString.call(value));
  const count = ofName.get(name) ?? 0;
  if (count >= 4 || typeof value.QueryInterface !== "function") return;
  ofName.set(name, count + 1);
  objects.push(value);
}

/** [name, call] of all members; a call takes this and arguments. */
function membersOf(object) {
  const members = [];
  for (let level = object; level && level !== Object.prototype; level = Object.getPrototypeOf(level))
    for (const name of Object.getOwnPropertyNames(level)) {
      const { get, set, value } = Object.getOwnPropertyDescriptor(level, name);
      if (get) members.push([name, get]);
      if (set && !isSpared(object, name, true)) members.push([name, set]);
      if (typeof value === "function" && !isSpared(object, name, false)) members.push([name, value]);
    }
  return members;
}

// ---- What is given

let depth = 0;
/** Comes back in from wherever compiled code calls script. */
function enterAgain() {
  if (depth >= 3) return null;
  ++depth;
  const object = oneOf(objects);
  const member = oneOf(membersOf(object));
  const answer = member && attempt(() => member[1].call(object, odd(), odd()));
  --depth;
  return answer;
}
const answers = new Proxy({}, { get: (_, name) => (typeof name === "symbol" ? undefined : enterAgain), has: () => true });
const throws = new Proxy({}, { get() { throw new Error("get"); }, has() { throw { toString() { throw 1; } }; } });
const abyss = new Proxy({}, { get() { return abyss.deeper; }, has() { return "deeper" in abyss; } });
const changes = { get onAdapterAdded() { utils.forceGC(); return enterAgain; }, get length() { return enterAgain(); } };
const values = [undefined, null, true, false, 0, -0, -1, 1, 255, 256, 1.5, NaN, Infinity, 2 ** 31, 2 ** 32, 2 ** 53,
  -(2n ** 63n), 2n ** 64n, "", "a", "127.0.0.1", "\0", "\uD800", "%s%n", "../..", "x".repeat(1 << 20), Symbol("s"),
  {}, [], [[]], new Array(1000), [1, "a", null], Object.create(null), () => 0, function () { return this; }, class {},
  enterAgain, answers, throws, abyss, changes, new Proxy(() => 0, {}), globalThis, Object.prototype, new Date(NaN),
  { QueryInterface() { return this; } }, { QueryInterface() { throw 1; } }, { get QueryInterface() { return enterAgain(); } },
  interfaces.nsISupports, interfaces.nsIObserver, "{00000000-0000-0000-c000-000000000046}"];
const odd = () => (random(4) === 0 && objects.length ? oneOf(objects) : oneOf(values));

// ---- The calls

for (const object of [systemManager, systemMaintenance, systemGeneralSettings, document]) reach(object);
for (const contract of services) reach(attempt(() => classes[contract].getService()));
for (const contract of instances) reach(attempt(() => classes[contract].createInstance()));
for (const options of [{ rootPath: "file:///nowhere/", listener: answers }, { rootPath: "", listener: throws }, abyss, null])
  reach(attempt(() => new FileSystemWatcher(options)));
for (const type of [SystemIPv4Structure, SystemIPv6Structure, SystemMACStructure])
  for (const value of values) reach(attempt(() => new type(value)));

for (let i = 0; i < objects.length; ++i) {
  const object = objects[i];
  for (const name in interfaces) attempt(() => object instanceof interfaces[name]);
  for (const [, member] of membersOf(object)) {
    reach(attempt(() => member.call(object)));
    for (let round = 0; round < rounds; ++round) {
      const self = random(8) === 0 ? odd() : object;
      const given = Array.from({ length: random(6) }, odd);
      const answer = attempt(() => member.apply(self, given));
      reach(answer);
      if (Array.isArray(answer)) answer.forEach(reach);
      else attempt(() => { for (const element of answer ?? []) reach(element); });
    }
  }
}
// The host's own steps, told out of their order and more than once.
const steps = ["xpcom-shutdown-loaders", "xpcom-shutdown-threads", "xpcom-shutdown", "app-startup", "profile-do-change",
  "profile-before-change", "profile-after-change", "final-ui-startup", "xul-window-registered", "network:link-status-changed"];
const observers = classes["@mozilla.org/observer-service;1"].getService(interfaces.nsIObserverService);
for (const step of [...steps, ...steps]) {
  const told = attempt(() => [...observers.enumerateObservers(step)]) ?? [];
  for (const observer of told) for (const other of steps) attempt(() => observer.observe(oneOf(objects), other, null));
  attempt(() => observers.notifyObservers(null, step, null));
}

setTimeout(() => {
  console.log(`alive after ${calls} calls of ${objects.length} objects`);
  quit(0);
}, 100);
