// vorel tv [COMMAND]: digital television, with the receivers of the machine and from files. The program gives --colours when people read
// it on a terminal.
"use strict";

const { classes, interfaces } = Components;
const usage = `usage: vorel tv [--json]                    the receivers of this machine
       vorel tv scan COUNTRY [--store] [--receiver N] [--json]
                                            look for services on a country's frequencies (FR: France)
       vorel tv services [--receiver N] [--json]
                                            the stored services
       vorel tv play NAME [--language fra] [--seconds N] [--info] [--receiver N]
                                            a service's stream on the standard output: ... | mpv -
       vorel tv inspect FILE.ts [--json]     what a transport stream holds and what is broken; "-": standard input
       vorel tv channels FILE [--json]      what a channels file holds, and which line is wrong and why
       vorel tv countries [--json]          the countries that a scan knows, and their frequencies`;

// ---- What was asked for

const withValue = ["--receiver", "--language", "--seconds"];
const options = new Map(), names = [];
let wrong = "";
for (let i = 0; i < arguments.length; ++i) {
  const [name, ...rest] = arguments[i].split("=");
  if (!name.startsWith("--")) names.push(arguments[i]);
  else if (!withValue.includes(name)) options.set(arguments[i], true);
  else if (rest.length || i + 1 < arguments.length) options.set(name, rest.length ? rest.join("=") : arguments[++i]);
  else wrong = name + " needs a value";
}
const [command = "", ...operands] = names;
const asJson = options.has("--json"), inColours = options.has("--colours");

/** A number above least, or undefined when it was not given. */
function number(option, least) {
  const text = options.get(option);
  if (text === undefined) return undefined;
  if (!/^[0-9]+(\.[0-9]+)?$/.test(text) || Number(text) < least || Number(text) > 1e6) wrong = `${option}: '${text}' is no such number`;
  return Number(text);
}
const receiverNumber = number("--receiver", 1), seconds = number("--seconds", 0);

function fail(status, text) {
  console.error("vorel tv: " + text);
  quit(status);
}

// Held to the end: without it reading ends.
const inspector =
  classes["@vorel/tools/digitaltv-inspector;1"].createInstance(interfaces.nsIDigitalTvInspector);

// ---- For people

// What broadcasts call themselves is not to steer the terminal.
const safe = (text) => String(text).replace(/[\x00-\x1f\x7f-\x9f]/g, "\ufffd");

function table(head, rows) {
  const all = [head, ...rows.map((row) => row.map(safe))];
  const widths = head.map((_, i) => Math.max(...all.map((row) => row[i].length)));
  return all.map((row, i) => {
    const line = row.map((cell, column) => cell.padEnd(widths[column])).join("  ").trimEnd();
    return i === 0 && inColours ? `\x1b[1m${line}\x1b[0m` : line;
  }).join("\n");
}

/** A line of its own on a terminal, which the next one replaces. */
const progress = {
  isShown: false,
  show(text) {
    if (!inColours || asJson) return;
    if (!this.isShown) console.error("");
    this.isShown = true;
    console.error("\x1b[A\x1b[2K" + text);
  },
  clear() {
    if (this.isShown) console.error("\x1b[A\x1b[2K\x1b[A");
    this.isShown = false;
  },
};

const pid = (value) => (value ? String(value) : "");
const sounds = (audio) => audio.map(({ pid: of, kind, language }) =>
  [of, language, kind === "MPEG" ? "" : kind].filter(Boolean).join(" ")).join(", ");
const serviceTypes = { 1: "television", 2: "radio", 3: "teletext", 10: "radio", 12: "data", 17: "television", 22: "television",
  25: "television", 31: "television" };
const decibels = (level) => (level / 1000).toFixed(1) + " dB";

// ---- Receivers

const systems = ["satellite", "cable", "terrestrial", "ATSC"];

function receivers() {
  return Array.from(systemManager.getAdaptersByIId(interfaces.nsISystemAdapterDigitalTvReceiver));
}

/** The one that was asked for; the first, unless a number was given. */
function chosenReceiver() {
  const all = receivers();
  const receiver = all[(receiverNumber ?? 1) - 1];
  if (!receiver)
    fail(1, all.length === 0 ? "there is no receiver on this machine"
      : `there is no receiver ${receiverNumber}; vorel tv lists those that there are`);
  return receiver;
}

function listReceivers() {
  const all = receivers().map((receiver, index) => ({
    number: index + 1, name: receiver.label, system: systems[receiver.deliverySystem] ?? "unknown", path: receiver.sysPath,
  }));
  if (asJson) console.log(JSON.stringify(all, null, 2));
  else if (all.length === 0) console.log("no receivers");
  else console.log(table(["", "NAME", "SYSTEM", "PATH"], all.map((one) => [one.number, one.name, one.system, one.path])));
  quit(0);
}

// ---- Services

const kinds = { 4: "MPEG", 106: "AC-3", 122: "E-AC-3" };

function describe(service) {
  return {
    name: service.name, provider: service.provider, frequency: service.frequency, bandwidth: service.bandwidth,
    serviceId: service.serviceId, pmtPid: service.pmtPid, videoPid: service.videoPid,
    audio: Array.from(service.audioChannels, (channel) => ({ pid: channel.pid, kind: kinds[channel.type] ?? String(channel.type),
      language: channel.language })),
    level: service.level, quality: service.quality,
  };
}

function showServices(services, withSignal) {
  if (asJson) return console.log(JSON.stringify(services, null, 2));
  if (services.length === 0) return console.log("no services");
  console.log(table(["NAME", "PROVIDER", "MHZ", "ID", "PMT", "VIDEO", "SOUND", ...(withSignal ? ["LEVEL", "QUALITY"] : [])],
    services.map((one) => [one.name, one.provider, one.frequency / 1000, one.serviceId, pid(one.pmtPid), pid(one.videoPid),
      sounds(one.audio), ...(withSignal ? [decibels(one.level), one.quality + " %"] : [])])));
}

/** Of those with the same name the one that is received best: the store takes each name once. */
function bestOfEachName(services) {
  const best = new Map();
  for (const service of services) {
    const key = service.name.toLowerCase(), known = best.get(key);
    const isBetter = !known || service.quality > known.quality || (service.quality === known.quality && service.level > known.level);
    if (known) {
      const left = isBetter ? known : service;
      console.error(`vorel tv: '${safe(left.name)}' of ${left.frequency / 1000} MHz is not stored: it is received better elsewhere`);
    }
    if (isBetter) best.set(key, service);
  }
  return [...best.values()];
}

function store(receiver, services) {
  const list = classes["@vorel/array;1"].createInstance(interfaces.nsIMutableArray);
  for (const service of bestOfEachName(services)) list.appendElement(service, false);
  try {
    receiver.services = list;
    console.error(list.length + " services stored");
  } catch (error) {
    fail(1, "the services can't be stored: " + error.name);
    return false;
  }
  return true;
}

// ---- The scan

function frequenciesOf(code) {
  return JSON.parse(inspector.listCountries()).find((country) => country.code === code)?.frequencies ?? [];
}

function showScan({ total, done, locked, found }, frequencies, begin) {
  const left = done > 0 ? Math.ceil((Date.now() - begin) / done * (total - done) / 1000) : NaN;
  const frequency = frequencies[done];
  progress.show([`${Math.min(done + 1, total)} of ${total}`, frequency ? frequency / 1000 + " MHz" : "",
    `${locked} with a signal`, `${found} services`, left >= 0 ? `${left} s left` : ""].filter(Boolean).join(", "));
}

function scan(text) {
  const receiver = chosenReceiver();
  if (!receiver) return;
  const code = text.toUpperCase();
  let countries;
  try { countries = Array.from(receiver.supportedCountries); } catch (error) {
    return fail(1, `${receiver.label || receiver.sysPath} can't be used; another program may have it`);
  }
  const country = countries.find((one) => one.code === code);
  if (!country) return fail(2, `no country '${text}'; vorel tv countries lists those that there are`);
  try { receiver.startScan(country); } catch (error) {
    return fail(1, `${receiver.label || receiver.sysPath} can't be started (${error.name}); another program may have it`);
  }
  const frequencies = frequenciesOf(code), begin = Date.now();
  const look = () => {
    const state = receiver.getScanProgress();
    if (state.state === 0) {
      showScan(state, frequencies, begin);
      setTimeout(look, 100);
      return;
    }
    progress.clear();
    if (state.state === -1) return fail(1, "the scan failed");
    const found = Array.from(receiver.servicesFoundByScan);
    showServices(found.map(describe), true);
    if (!asJson) console.error(`${state.done} frequencies, ${state.locked} with a signal, ${Math.round((Date.now() - begin) / 1000)} s`);
    if (options.has("--store") && !store(receiver, found)) return;
    quit(0);
  };
  look();
}

/** The stored services, or null after a failure. */
function stored(receiver) {
  try { return Array.from(receiver.services); } catch (error) {
    fail(1, "the stored services can't be read: " + error.name);
    return null;
  }
}

function listServices() {
  const receiver = chosenReceiver();
  const services = receiver && stored(receiver);
  if (!services) return;
  if (services.length === 0 && !asJson) console.error("nothing is stored yet: vorel tv scan COUNTRY --store");
  showServices(services.map(describe), false);
  quit(0);
}

// ---- Playing

function showSignal(receiver, output) {
  let text;
  try { text = receiver.locked ? "" : "no signal, "; } catch (error) { return fail(1, "the receiver has gone"); }
  try { text += `level ${decibels(receiver.level)}, quality ${receiver.quality} %, `; } catch (error) { /* it does not tell */ }
  if (options.has("--info")) console.error(text + (Number(output.written) / 1e6).toFixed(2) + " MB");
}

function play(name) {
  const receiver = chosenReceiver();
  const services = receiver && stored(receiver);
  if (!services) return;
  if (!services.some((service) => service.name.toLowerCase() === name.toLowerCase()))
    return fail(1, `'${name}' is not stored; vorel tv services lists what is`);
  try { receiver.selectChannelByName(name, options.get("--language") ?? "", 0); } catch (error) {
    return fail(1, `'${name}' can't be received (${error.name}): no signal, or another program has the receiver`);
  }
  const output = classes["@vorel/tools/stream-output;1"].createInstance(interfaces.nsIStreamOutput);
  output.start(receiver.stream, {
    onEnded(status) {
      // The player has gone: that is how playing ends.
      if (status === 0 || status === Components.results.NS_BASE_STREAM_CLOSED) quit(0);
      else fail(1, "the stream has ended");
    },
  });
  setInterval(() => showSignal(receiver, output), 1000);
  if (seconds !== undefined) setTimeout(() => quit(0), seconds * 1000);
}

// ---- Files

function showStream({ transponder, services, totals, problems }) {
  if (transponder) {
    const { transportStreamId, networkId, networkName, frequency, bandwidth } = transponder;
    const parts = [`transport stream ${transportStreamId}`];
    if (networkId) parts.push(`network ${networkId}${networkName ? ` "${safe(networkName)}"` : ""}`);
    if (frequency > 0) parts.push(`${frequency / 1000} MHz, ${bandwidth} MHz wide`);
    console.log(parts.join(", "));
  }
  console.log(`${totals.packets} packets of ${totals.packetSize} bytes\n`);
  const rows = services.map((service) => [
    service.serviceId, service.name, service.provider, serviceTypes[service.type] ?? pid(service.type),
    pid(service.channelNumber), pid(service.pmtPid), pid(service.videoPid), sounds(service.audio),
    [service.scrambled || service.conditionalAccess ? "scrambled" : "", service.leftOut ? "not in a scan" : ""].filter(Boolean).join(", "),
  ]);
  console.log(rows.length
    ? table(["ID", "NAME", "PROVIDER", "TYPE", "NUMBER", "PMT", "VIDEO", "SOUND", ""], rows) : "no services");
  console.log(problems.length ? "\n" + problems.map((problem) => "! " + safe(problem)).join("\n") : "\nnothing is broken");
}

function inspect(file) {
  const size = (bytes) => (Number(bytes) / 1048576).toFixed(0) + " MiB";
  inspector.inspectStream(file, {
    onProgress(done, total) {
      progress.show(size(done) +
        (BigInt(total) > 0n ? ` of ${size(total)}, ${(Number(done) * 100 / Number(total)).toFixed(0)} %` : ""));
    },
    onInspected(status, report) {
      if (status !== 0) return fail(1, report);
      progress.clear();
      const found = JSON.parse(report);
      if (asJson) console.log(report); else showStream(found);
      quit(found.problems.length ? 1 : 0);
    },
  });
}

function checkChannels(file) {
  let report;
  try { report = inspector.checkChannels(file); } catch (error) { return fail(1, `${file}: ${error.name}`); }
  const { services, problems } = JSON.parse(report);
  if (asJson) {
    console.log(report);
  } else {
    showServices(services, false);
    for (const { line, text } of problems) console.log(`${safe(file)}:${line}: ${safe(text)}`);
  }
  quit(problems.length ? 1 : 0);
}

function listCountries() {
  const report = inspector.listCountries();
  if (asJson) {
    console.log(report);
  } else {
    console.log(table(["CODE", "COUNTRY", "CALLING CODE", "FREQUENCIES", "MHZ"], JSON.parse(report).map((country) => [
      country.code, country.name, country.callingCode, country.frequencies.length || "",
      country.frequencies.length ? `${country.frequencies[0] / 1000} to ${country.frequencies.at(-1) / 1000}` : ""])));
  }
  quit(0);
}

// ---- Commands: how many operands each takes, and which options

const commands = {
  "": [0, listReceivers], scan: [1, scan, "--store", "--receiver"], services: [0, listServices, "--receiver"],
  play: [1, play, "--language", "--seconds", "--info", "--receiver"],
  inspect: [1, inspect], channels: [1, checkChannels], countries: [0, listCountries],
};
const [count, run, ...own] = Object.hasOwn(commands, command) ? commands[command] : [];
const unknown = run && [...options.keys()].find((option) => ![...own, "--json", "--colours"].includes(option));
if (unknown) wrong = `unknown option '${unknown}'`;
if (!run || operands.length !== count || wrong) {
  if (wrong) console.error("vorel tv: " + wrong);
  console.error(usage);
  quit(2);
} else {
  run(...operands);
}
