// vorel tv COMMAND: digital television, from files. The program gives --colours when people read it on a terminal.
"use strict";

const { classes, interfaces } = Components;
const options = new Set(arguments.filter((argument) => argument.startsWith("--")));
const [command, ...names] = arguments.filter((argument) => !argument.startsWith("--"));
const asJson = options.has("--json"), inColours = options.has("--colours");

const usage = `usage: vorel tv inspect FILE.ts [--json]     what a transport stream holds and what is broken; "-": standard input
       vorel tv channels FILE [--json]      what a channels file holds, and which line is wrong and why
       vorel tv countries [--json]          the countries that a scan knows, and their frequencies`;

// Held to the end: without it reading ends.
const inspector =
  classes["@vorel/tools/digitaltv-inspector;1"].createInstance(interfaces.nsIDigitalTvInspector);

function fail(status, text) {
  console.error("vorel tv: " + text);
  quit(status);
}

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

const pid = (number) => (number ? String(number) : "");
const sounds = (audio) => audio.map(({ pid, kind, language }) =>
  [pid, language, kind === "MPEG" ? "" : kind].filter(Boolean).join(" ")).join(", ");
const serviceTypes = { 1: "television", 2: "radio", 3: "teletext", 10: "radio", 12: "data", 17: "television", 22: "television",
  25: "television", 31: "television" };

// ---- Commands

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

/** A line of its own on a terminal, which the next one replaces. */
function showProgress(done, total) {
  const size = (bytes) => (Number(bytes) / 1048576).toFixed(0) + " MiB";
  const of = total > 0n ? ` of ${size(total)}, ${(Number(done) * 100 / Number(total)).toFixed(0)} %` : "";
  console.error(`\x1b[A\x1b[2K${size(done)}${of}`);
}

function inspect(file) {
  let shown = false;
  inspector.inspectStream(file, {
    onProgress(done, total) {
      if (!inColours || asJson) return;
      if (!shown) console.error("");
      shown = true;
      showProgress(BigInt(done), BigInt(total));
    },
    onInspected(status, report) {
      if (status !== 0) return fail(1, report);
      if (shown) console.error("\x1b[A\x1b[2K\x1b[A");
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
    console.log(services.length
      ? table(["NAME", "PROVIDER", "MHZ", "ID", "PMT", "VIDEO", "SOUND"], services.map((service) => [
        service.name, service.provider, service.frequency / 1000, service.serviceId, pid(service.pmtPid), pid(service.videoPid),
        sounds(service.audio)]))
      : "no services");
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

const commands = { inspect: [1, inspect], channels: [1, checkChannels], countries: [0, listCountries] };
const unknown = [...options].find((option) => !["--json", "--colours"].includes(option));
const [count, run] = commands[command] ?? [];
if (command === undefined || !run || names.length !== count || unknown) {
  if (unknown) console.error(`vorel tv: unknown option '${unknown}'`);
  console.error(usage);
  quit(2);
} else {
  run(...names);
}
