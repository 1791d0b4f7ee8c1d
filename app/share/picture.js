// vorel [--json] [--watch]: prints the picture of the machine and, with --watch, its changes until it is interrupted.
// The program gives --colours when people read it on a terminal.
"use strict";

const { classes, interfaces } = Components;
const [asJson, watches, inColours] = ["--json", "--watch", "--colours"].map((option) => arguments.includes(option));

// Deep enough for an adapter's connectors and an address's parts; objects that point at each other end here.
const maxDepth = 3;
// The adapter of a binding stands there already. The stored view of an adapter is not what is in force, and to
// ask for it would make the store.
// The rest are places that are kept for their order, and what only the stored view can tell: a live adapter answers the
// same for every machine.
const leftOut = ["adapter", "registered", "reservedCounterA", "reservedCounterB", "isAlwaysFalse", "dhcpv4Server",
  "isDnsDhcpEnabled", "igmpVersion"];
// What a serial port tells while it is open; for a look at the machine none is opened.
const ofOpenPorts = ["BREAK", "DCD", "CTS", "DSR", "DTR", "RING", "RTS", "isTQEmpty", "inputStream", "outputStream"];

// ---- Objects that are written down

/** The interfaces that an object's class information lists; none without class information. */
function listedInterfaces(object) {
  return object instanceof interfaces.nsIClassInfo ? object.getInterfaces() : [];
}

// Loops over indices, here and below: a picture is made once, before anything could be compiled, and an interpreter
// takes ten times as long for `of` and for taking apart.
const attributes = new Map();

/** Names and getters of the attributes of an interface, those of its parents first. Many objects may have it. */
function attributesOf(prototype) {
  if (prototype === Object.prototype) return { names: [], getters: [] };
  let found = attributes.get(prototype);
  if (found) return found;
  const { names, getters } = attributesOf(Object.getPrototypeOf(prototype));
  found = { names: [...names], getters: [...getters] };
  const own = Object.getOwnPropertyDescriptors(prototype);
  for (const name in own) {
    if (!own[name].get || leftOut.includes(name)) continue;
    found.names.push(name);
    found.getters.push(own[name].get);
  }
  attributes.set(prototype, found);
  return found;
}

/** What answers with a failure is left out. */
function addAttributes(out, object, prototype, depth) {
  const { names, getters } = attributesOf(prototype);
  const isPort = object instanceof interfaces.nsISystemAdapterSerial;
  for (let i = 0; i < names.length; ++i) {
    if (isPort && ofOpenPorts.includes(names[i])) continue;
    let value;
    try { value = getters[i].call(object); } catch (error) { continue; }
    out[names[i]] = plain(value, depth + 1);
  }
}

function plain(value, depth) {
  if (value === undefined || typeof value === "function") return null;  // neither is JSON
  if (value === null || typeof value !== "object") return value;
  if (value instanceof interfaces.nsIArray) return elementsOf(value, depth);
  if (value instanceof interfaces.nsIFile) return value.path;
  if (depth > maxDepth) return null;
  const out = {};
  const listed = listedInterfaces(value);
  for (let i = 0; i < listed.length; ++i) if (listed[i].prototype) addAttributes(out, value, listed[i].prototype, depth);
  // A value that has a text form, an address, is shown by it and not byte by byte.
  return out.string ?? out;
}

function elementsOf(list, depth) {
  const out = [];
  for (let i = 0; i < list.length; ++i) out.push(plain(list.queryElementAt(i, interfaces.nsISupports), depth));
  return out;
}

function describeAdapter(adapter) {
  return {
    interfaces: listedInterfaces(adapter).map((listed) => listed.name ?? listed),
    // The order in which an operator looks for things.
    sysPath: "", label: "", device: null, connectors: [],
    ...plain(adapter, 0),
  };
}

/** The adapter is given as `adapter`. */
function describeBinding(binding, adapter) {
  // What a binding class offers of its own.
  const { applicationProfile, ...others } = plain(binding, 0);
  return { profile: binding.applicationProfile?.name ?? null, adapter, ...others };
}

/** Numbers of 64 bits keep all their digits: what holds one is put together here, the rest by the engine. */
function toJson(value) {
  if (typeof value === "bigint") return String(value);
  try {
    return JSON.stringify(value);
  } catch (error) {  // what it says of a number of 64 bits
    if (!(error instanceof TypeError)) throw error;
  }
  if (Array.isArray(value)) return `[${value.map(toJson).join(",")}]`;
  return `{${Object.entries(value).map(([name, part]) => `${JSON.stringify(name)}:${toJson(part)}`).join(",")}}`;
}

// ---- For people

// What devices call themselves is not to steer the terminal.
const steering = /[\x00-\x1f\x7f-\x9f\u061c\u200e\u200f\u2028-\u202e\u2066-\u2069]/g;
const safe = (name) => name.replace(steering, "\ufffd");
const text = (value) => (typeof value === "string" ? safe(value) : value == null ? "" : toJson(value));
const join = (texts) => texts.filter((part) => part !== "").join(", ");

/** "nsISystemAdapterStorage" is "Storage". */
function kindOf(adapter) {
  const kinds = adapter.interfaces.map((name) => /^nsISystemAdapter(.+)/.exec(name)?.[1]);
  return kinds.filter(Boolean).pop() ?? "adapter";
}

const nameOf = (adapter) => text(adapter.label) || text(adapter.sysPath) || text(adapter.directory);

/** What an operator looks at first: the state of a link and its addresses, the mode of a display and its place. */
function stateOf({ operStatus, unicastAddresses = [], displayMode, rotation, position }) {
  if (displayMode)
    return join([text(displayMode.name), rotation ? `turned by ${rotation}` : "", position ? `at ${position.x},${position.y}` : ""]);
  if (operStatus === undefined) return "";
  const state = { 1: "up", 2: "down" }[operStatus] ?? "status " + operStatus;
  return join([state, ...unicastAddresses.map(({ address, prefixLength }) => `${text(address)}/${text(prefixLength)}`)]);
}

/** In JSON what could steer the terminal stands as its number. */
const lineOf = (value) =>
  toJson(value).replace(steering, (unit) => "\\u" + unit.charCodeAt(0).toString(16).padStart(4, "0"));

function table(rows) {
  const widths = rows[0].map((_, i) => Math.max(...rows.map((row) => row[i].length)));
  return rows.map((row, i) => {
    const line = row.map((cell, column) => cell.padEnd(widths[column])).join("  ").trimEnd();
    return i === 0 && inColours ? `\x1b[1m${line}\x1b[0m` : line;
  });
}

function tables({ adapters, bindings }) {
  const adapterRows = adapters.map((adapter, i) => [
    String(i), kindOf(adapter), nameOf(adapter), text(adapter.device?.name),
    join(adapter.connectors.map((connector) => text(connector.name))), stateOf(adapter),
  ]);
  const bindingRows = bindings.map(({ profile, adapter }) =>
    [text(profile), adapter === null ? "" : "#" + adapter, adapter === null ? "" : nameOf(adapters[adapter])]);
  return [
    ...(adapters.length ? table([["#", "ADAPTER", "NAME", "DEVICE", "CONNECTOR", "STATE"], ...adapterRows]) : ["no adapters"]),
    "",
    ...(bindings.length ? table([["PROFILE", "ON", ""], ...bindingRows]) : ["no bindings"]),
  ].join("\n");
}

// ---- The picture and its changes

let isShown = false;

function show() {
  try {
    const adapters = Array.from(systemManager.adapters);
    const indices = new Map(adapters.map((adapter, i) => [adapter, i]));
    const picture = {
      adapters: adapters.map(describeAdapter),
      bindings: Array.from(bindings, (binding) => describeBinding(binding, indices.get(binding.adapter) ?? null)),
    };
    console.log(asJson ? lineOf(picture) : tables(picture));
  } catch (error) {
    Components.utils.reportError(error);
    quit(1);
  }
  if (!watches) quit(0);
  isShown = true;
}

// A volume is published before its directory is known, so what is told of a change is read when the system is done
// with it.
const untold = [];
function tellLater(tell) {
  if (!isShown) return;
  if (untold.push(tell) > 1) return;
  setTimeout(() => { for (const one of untold.splice(0)) one(); }, 0);
}

function tellAdapter(event, adapter) {
  const change = { event, adapter: describeAdapter(adapter) };
  console.log(asJson ? lineOf(change) : `${event}: ${kindOf(change.adapter)} ${nameOf(change.adapter)}`);
}

function tellBinding(event, binding) {
  // An index would mean nothing: the adapter of a binding that goes has gone before it.
  const adapter = binding.adapter && describeAdapter(binding.adapter);
  const change = { event, binding: describeBinding(binding, adapter) };
  console.log(asJson ? lineOf(change)
    : `${event}: ${text(change.binding.profile)}${adapter ? ` on ${kindOf(adapter)} ${nameOf(adapter)}` : ""}`);
}

// The manager keeps no list of bindings that could be asked for, so they are gathered from before the machine is
// looked at.
const bindings = new Set();
systemManager.addAdapterListener({
  onAdapterAdded: (adapter) => tellLater(() => tellAdapter("adapter-added", adapter)),
  onAdapterRemoved: (adapter) => tellLater(() => tellAdapter("adapter-removed", adapter)),
  onAdapterChanged: (adapter) => tellLater(() => tellAdapter("adapter-changed", adapter)),
});
systemManager.addProfileBindingListener({
  onProfileBindingAdded(binding) {
    bindings.add(binding);
    tellLater(() => tellBinding("binding-added", binding));
  },
  onProfileBindingRemoved(binding) {
    bindings.delete(binding);
    tellLater(() => tellBinding("binding-removed", binding));
  },
});
classes["@mozilla.org/observer-service;1"].getService(interfaces.nsIObserverService)
  .addObserver(show, "final-ui-startup", false);
