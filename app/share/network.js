// vorel network [--json]: prints what is in force on the network interfaces beside what is stored, and the differences.
// vorel network set NAME [OPTIONS] | apply [SECONDS|--boot] | confirm | rollback: changes it.
"use strict";

const { classes, interfaces } = Components;
const asJson = arguments.includes("--json");
const usage = "network set NAME [--dhcp on|off] [--address 192.0.2.10/24] [--gateway 192.0.2.1] [--metric N] [--dns A,B] [--igmp 1|2|3] [--try SECONDS], " +
  "network apply [SECONDS|--boot], network confirm, network rollback";
const stateNames = ["idle", "applying", "waiting", "confirmed", "rolled-back", "failed", "rolling-back", "refused"];
const [APPLYING, WAITING, CONFIRMED, ROLLED_BACK, FAILED, ROLLING_BACK] = [1, 2, 3, 4, 5, 6];

class WrongArguments extends Error {}

const configuration = classes["@vorel/network-configuration;1"].getService(interfaces.nsISystemNetworkConfiguration);
const adapters = () => Array.from(systemManager.getAdaptersByIId(interfaces.nsISystemAdapterIP));

// ---- What there is

/** The lines of settings as an object; null for none. */
function parse(text) {
  if (!text) return null;
  const settings = { dhcp: false, addresses: [], gateways: [], metric: null, servers: [] };
  for (const line of text.trim().split("\n")) {
    const [word, value] = line.split(" ");
    if (word === "dhcp") settings.dhcp = true;
    else if (word === "metric") settings.metric = Number(value);
    else settings[{ address: "addresses", gateway: "gateways", server: "servers" }[word]].push(value);
  }
  return settings;
}

/** What is stored and not so: of what the store leaves open there is no difference. */
function differences(stored, live) {
  if (!stored || (!stored.dhcp && !stored.addresses.length)) return [];
  const family = (list) => (text) => list.some((one) => one.includes(":") === text.includes(":"));
  const same = (a, b) => a.length === b.length && [...a].sort().every((one, i) => one === [...b].sort()[i]);
  const found = [];
  if (stored.dhcp !== live.dhcp) found.push("dhcp");
  // Of IPv6 others have addresses there, too; and its gateways are not told.
  const ipv4 = (list) => list.filter((text) => !text.includes(":"));
  if (!stored.dhcp) {
    const missing = stored.addresses.some((address) => !live.addresses.includes(address));
    const more = ipv4(stored.addresses).length && !same(ipv4(stored.addresses), ipv4(live.addresses));
    if (missing || more) found.push("addresses");
    if (ipv4(stored.addresses).length && !same(ipv4(stored.gateways), ipv4(live.gateways))) found.push("gateways");
  }
  const servers = live.servers.filter(family(stored.servers));
  if (stored.servers.length && stored.servers.some((server, i) => servers[i] !== server)) found.push("servers");
  return found;
}

function describe(adapter) {
  const name = adapter.sysPath;
  const live = parse(configuration.getLiveSettings(name)) ?? { dhcp: false, addresses: [], gateways: [], metric: null, servers: [] };
  const stored = parse(configuration.getStoredSettings(name));
  return { name, live, stored, confirmed: parse(configuration.getConfirmedSettings(name)), differences: differences(stored, live) };
}

/** What the whole machine has of each kind: the version of IGMP. */
function describeMachine() {
  const version = (text) => text ? Number(text.trim().split(" ")[1]) : null;
  const stored = version(configuration.getStoredSettings(""));
  let live = null;
  try {
    live = version(configuration.getLiveSettings(""));
  } catch (error) {
    if (error.name !== "NS_ERROR_FILE_NOT_FOUND") throw error;  // one that can't be held to a version
  }
  return { live: { igmp: live }, stored: { igmp: stored }, confirmed: { igmp: version(configuration.getConfirmedSettings("")) },
    differences: stored !== null && stored !== live ? ["igmp"] : [] };
}

function line(settings) {
  if (!settings) return "nothing";
  const { dhcp, addresses, gateways, metric, servers } = settings;
  const parts = [dhcp ? "dhcp" : "", ...addresses, ...gateways.map((gateway) => "via " + gateway),
    metric === null ? "" : "metric " + metric, ...servers.map((server) => "dns " + server)];
  return parts.filter(Boolean).join(" ") || "nothing";
}

function show() {
  const all = adapters().map(describe);
  const machine = describeMachine();
  const problems = configuration.check().split("\n").filter(Boolean);
  if (asJson) return console.log(JSON.stringify({ interfaces: all, machine, problems }));
  if (!all.length) console.log("no network interfaces");
  for (const one of all) {
    console.log(one.name.padEnd(12) + "in force  " + line(one.live));
    if (one.stored) console.log("".padEnd(12) + "stored    " + line(one.stored));
    if (one.differences.length) console.log("".padEnd(12) + "differs   " + one.differences.join(", "));
  }
  if (machine.stored.igmp !== null) {
    console.log("machine".padEnd(12) + "in force  igmp " + (machine.live.igmp ?? "of its own"));
    console.log("".padEnd(12) + "stored    igmp " + machine.stored.igmp);
    if (machine.differences.length) console.log("".padEnd(12) + "differs   igmp");
  }
  for (const problem of problems) console.log("wrong: " + problem);
}

// ---- Changes

const observers = classes["@mozilla.org/observer-service;1"].getService(interfaces.nsIObserverService);

function tell() {
  const { state, reason } = configuration;
  if (asJson) console.log(JSON.stringify({ state: stateNames[state], reason }));
  else console.log(stateNames[state] + (reason ? ": " + reason.replaceAll("\n", "\n  ") : ""));
}

/** Begins a call and tells each state, until one that lasts. */
function follow(call, seconds) {
  let hasBegun = false, lastFailure = null;
  function begin() {
    try {
      call();
      hasBegun = true;
    } catch (error) {
      // What a process that died has left is taken back first.
      if (error.name === "NS_ERROR_IN_PROGRESS" && configuration.state === ROLLING_BACK) return void setTimeout(begin, 50);
      console.error("vorel: " + (configuration.reason.replaceAll("\n", "\nvorel: ") || error.name));
      quit(1);
    }
  }
  observers.addObserver({
    observe() {
      const { state } = configuration;
      if (!hasBegun || state === ROLLING_BACK || state === APPLYING) return;
      // What could not be taken back is tried again, as long as this process is there; why comes behind the first line.
      const failure = state === FAILED ? configuration.reason.split("\n").slice(1).join() : null;
      if (failure !== null && failure === lastFailure) return;
      lastFailure = failure;
      if (state === CONFIRMED || state === WAITING || asJson) tell();
      else console.error("vorel: " + stateNames[state] + ": " + configuration.reason.replaceAll("\n", "\nvorel: "));
      if (state === WAITING) {
        if (!asJson) console.log(`taken back in ${seconds} seconds, or with this process, unless "vorel network confirm" comes`);
      } else if (state !== FAILED || seconds === 0) {
        quit(state === CONFIRMED || (state === ROLLED_BACK && call === rollback) ? 0 : 1);
      }
    },
  }, "network-configuration-changed", false);
  begin();
}

const confirm = () => configuration.confirm();
const rollback = () => configuration.rollback();

function number(option, text, lowest, highest) {
  const value = Number(text);
  if (!/^\d+$/.test(text) || value < lowest || value > highest)
    throw new WrongArguments(`${option}: '${text}' is no number from ${lowest} to ${highest}`);
  return value;
}

function structure(text) {
  const value = text.includes(":") ? new SystemIPv6Structure() : new SystemIPv4Structure();
  value.string = text;
  return value;
}

/** "24" as a mask; a mask as it is. */
function mask(text, isIPv6) {
  if (!/^\d+$/.test(text)) return structure(text);
  const value = structure(isIPv6 ? "::" : "0.0.0.0");
  for (let bit = 0; bit < Number(text); bit++) value["byte" + (bit >> 3)] |= 0x80 >> (bit & 7);
  return value;
}

function read(options) {
  const given = {};
  for (let i = 0; i < options.length; i++) {
    const [option, ...rest] = options[i].split("=");
    if (!["--dhcp", "--address", "--gateway", "--metric", "--dns", "--igmp", "--try"].includes(option))
      throw new WrongArguments(`unknown option '${options[i]}': ${usage}`);
    const value = rest.length ? rest.join("=") : options[++i];
    if (value === undefined) throw new WrongArguments(`${option} needs a value`);
    given[option.slice(2)] = value;
  }
  if (!Object.keys(given).some((option) => option !== "try")) throw new WrongArguments(`what is to change? ${usage}`);
  if (given.dhcp !== undefined && !["on", "off"].includes(given.dhcp)) throw new WrongArguments(`--dhcp: '${given.dhcp}' is neither on nor off`);
  if (given.dhcp === "on" && (given.address || given.gateway)) throw new WrongArguments("--dhcp on goes with neither --address nor --gateway");
  if (given.gateway && !given.address) throw new WrongArguments("--gateway goes with --address");
  if (given.dns && given.dns.split(",").length > 2) throw new WrongArguments("--dns: there is room for two");
  if (given.metric) given.metric = number("--metric", given.metric, 0, 0x7fffffff);
  if (given.igmp) given.igmp = number("--igmp", given.igmp, 1, 3);
  if (given.try) given.try = number("--try", given.try, 1, 86400);
  return given;
}

function set([name, ...options]) {
  if (name === undefined || name.startsWith("--")) throw new WrongArguments(`which interface? ${usage}`);
  const given = read(options);
  const adapter = adapters().find((one) => one.sysPath === name);
  if (!adapter) throw new WrongArguments(`there is no interface '${name}': there are ${adapters().map((one) => one.sysPath).join(", ")}`);
  const view = adapter.registered.QueryInterface(interfaces.nsISystemAdapterIP);
  if (Object.keys(given).some((option) => option !== "igmp" && option !== "try")) setInterface(name, view, given);
  if (given.igmp) view.igmpVersion = given.igmp;
  if (given.try) follow(() => configuration.apply(given.try), given.try);
  else quit(0);
}

function setInterface(name, view, given) {
  const now = parse(configuration.getStoredSettings(name)) ?? parse(configuration.getLiveSettings(name)) ??
    { dhcp: false, addresses: [], gateways: [], servers: [] };
  const dhcp = given.dhcp ? given.dhcp === "on" : given.address ? false : now.dhcp;
  const address = given.address ?? (dhcp ? "" : now.addresses[0] ?? "");
  const gateway = given.gateway ?? (dhcp || given.address ? "" : now.gateways[0] ?? "");
  const servers = given.dns ?? (dhcp ? "" : now.servers.join(","));
  const problems = configuration.checkSettings(name, dhcp, address, gateway, servers);
  if (problems) throw new Error(problems.replaceAll("\n", "\nvorel: "));
  if (!dhcp) {
    const [host, length] = address.split("/"), isIPv6 = host.includes(":");
    view.setIpv4Address(structure(host), mask(length, isIPv6), structure(gateway || (isIPv6 ? "::" : "0.0.0.0")), given.metric ?? -1);
  }
  view.isDhcpv4Enabled = dhcp;
  if (servers && given.dns) view.setDns(...[...servers.split(",").map(structure), null, null].slice(0, 2));
  else if (dhcp && !given.dns) view.isDnsDhcpEnabled = true;
}

function apply(options) {
  if (options.length > 1) throw new WrongArguments(`unknown argument '${options[1]}': ${usage}`);
  if (options[0] === "--boot") return follow(() => configuration.applyConfirmed(), 0);
  const seconds = number("apply", options[0] ?? "60", 1, 86400);
  follow(() => configuration.apply(seconds), seconds);
}

try {
  const [command, ...rest] = arguments.filter((argument) => !["--json", "--colours"].includes(argument));
  if (command === "set") set(rest);
  else if (command === "apply") apply(rest);
  else if ((command === "confirm" || command === "rollback") && !rest.length) follow(command === "confirm" ? confirm : rollback, 0);
  else if (command !== undefined) throw new WrongArguments(`unknown argument '${command}': ${usage}`);
  else { show(); quit(0); }
} catch (error) {
  console.error("vorel: " + error.message);
  quit(error instanceof WrongArguments ? 2 : 1);
}
