// vorel displays [--json]: prints the displays and how they are arranged.
// vorel displays set NAME [OPTIONS]: changes one. The program gives --colours when people read it on a terminal.
"use strict";

const { interfaces } = Components;
const [asJson, inColours] = ["--json", "--colours"].map((option) => arguments.includes(option));
const columns = 60;  // of the picture of the arrangement
const usage = "displays set NAME [--mode 1920x1080@60] [--rotate 90] [--position X,Y] [--brightness N] [--contrast N] [--stored]";

class WrongArguments extends Error {}

// What devices call themselves is not to steer the terminal.
const safe = (name) => name.replace(/[\x00-\x1f\x7f-\x9f]/g, "\ufffd");

/** The adapters of the displays, the primary one first. */
function displayAdapters() {
  return Array.from(systemManager.getAdaptersByIId(interfaces.nsISystemAdapterDisplayOutput));
}

/** "\\.\DISPLAY1" is "DISPLAY1" for people. */
const shortPath = (adapter) => adapter.sysPath.replace(/^\\\\\.\\/, "");

function describe(adapter) {
  const { displayMode: mode, position, rotation, bitsPerPixel, brightness, contrast } = adapter;
  const size = mode ? { width: mode.width, height: mode.height } : { width: 0, height: 0 };
  return {
    name: shortPath(adapter), label: adapter.label, sysPath: adapter.sysPath,
    mode: mode && { name: mode.name, width: mode.width, height: mode.height, frequency: mode.frequency, interlaced: mode.interlaced },
    rotation, position: position && { x: position.x, y: position.y },
    // As it stands on the desktop.
    width: rotation % 180 ? size.height : size.width, height: rotation % 180 ? size.width : size.height,
    bitsPerPixel, brightness, contrast,
    rotations: adapter.getRotationsList(),
    modes: Array.from(adapter.displayModesList, ({ name, interlaced }) => name + (interlaced ? " interlaced" : "")),
  };
}

// ---- For people

function table(rows) {
  const widths = rows[0].map((_, i) => Math.max(...rows.map((row) => row[i].length)));
  return rows.map((row, i) => {
    const line = row.map((cell, column) => cell.padEnd(widths[column])).join("  ").trimEnd();
    return i === 0 && inColours ? `\x1b[1m${line}\x1b[0m` : line;
  });
}

/** Boxes as the displays stand beside each other; a character is twice as high as wide. */
function arrangement(displays) {
  const shown = displays.filter(({ position, width, height }) => position && width && height);
  if (!shown.length) return [];
  const left = Math.min(...shown.map(({ position }) => position.x)), top = Math.min(...shown.map(({ position }) => position.y));
  const right = Math.max(...shown.map(({ position, width }) => position.x + width));
  const perColumn = Math.max((right - left) / columns, 1);
  const place = (x, y) => [Math.round((x - left) / perColumn), Math.round((y - top) / perColumn / 2)];
  const lines = [];
  const put = (column, row, text) => {
    while (lines.length <= row) lines.push([]);
    [...text].forEach((character, i) => { lines[row][column + i] = character; });
  };
  for (const { name, position, width, height } of shown) {
    const [x, y] = place(position.x, position.y);
    const [endX, endY] = place(position.x + width, position.y + height);
    const inner = Math.max(endX - x - 2, 1), rows = Math.max(endY - y - 2, 1);
    put(x, y, `+${"-".repeat(inner)}+`);
    for (let row = 1; row <= rows; row++) put(x, y + row, `|${" ".repeat(inner)}|`);
    put(x, y + rows + 1, `+${"-".repeat(inner)}+`);
    put(x + 1, y + 1, safe(name).slice(0, inner));
  }
  return ["", ...lines.map((line) => Array.from(line, (character) => character ?? " ").join(""))];
}

function show() {
  const displays = displayAdapters().map(describe);
  if (asJson) return console.log(JSON.stringify(displays));
  if (!displays.length) return console.log("no displays");
  const rows = displays.map(({ name, label, mode, rotation, position, brightness }) => [
    name, safe(label), mode ? mode.name : "", String(rotation), position ? `${position.x},${position.y}` : "",
    brightness ? brightness + "%" : "",
  ]);
  console.log([...table([["NAME", "DISPLAY", "MODE", "ROTATION", "POSITION", "BRIGHTNESS"], ...rows]),
    ...arrangement(displays)].join("\n"));
}

// ---- Changes

/** By name, system path, label, or the connector in it: "HDMI-1" of "DELL U2412M (HDMI-1)". */
function findDisplay(name) {
  const adapters = displayAdapters();
  const found = adapters.filter((adapter) =>
    [shortPath(adapter), adapter.sysPath, adapter.label, /\(([^()]*)\)$/.exec(adapter.label)?.[1]].includes(name));
  if (found.length === 1) return found[0];
  const known = adapters.map((adapter) => `${shortPath(adapter)} (${safe(adapter.label)})`).join(", ");
  throw new WrongArguments(found.length ? `'${name}' is the name of several displays: ${known}`
    : `there is no display '${name}'${known && ": there are " + known}`);
}

function number(option, text, lowest, highest) {
  const value = Number(text);
  if (!/^-?\d+$/.test(text) || value < lowest || value > highest)
    throw new WrongArguments(`${option}: '${text}' is no number from ${lowest} to ${highest}`);
  return value;
}

/** What each option does to an adapter, or to its view. */
const setters = {
  "--mode"(text) {
    const parts = /^(\d+)x(\d+)(?:@(\d+))?$/.exec(text);
    if (!parts) throw new WrongArguments(`--mode: '${text}' is no mode such as 1920x1080@60`);
    const [width, height, frequency] = parts.slice(1).map(Number);
    return (target, live) => {
      const mode = Array.from(live.displayModesList).find((one) =>
        one.width === width && one.height === height && (!frequency || one.frequency === frequency));
      if (!mode) throw new Error(`it has no mode ${text}: vorel displays --json lists them`);
      target.displayMode = mode;
    };
  },
  "--rotate"(text) {
    const degrees = number("--rotate", text, 0, 270);
    if (degrees % 90) throw new WrongArguments(`--rotate: '${text}' is none of 0, 90, 180, 270`);
    return (target) => { target.rotation = degrees; };
  },
  "--position"(text) {
    const parts = /^(-?\d+),(-?\d+)$/.exec(text);
    if (!parts) throw new WrongArguments(`--position: '${text}' is no place such as 1920,0`);
    const [x, y] = parts.slice(1).map((part) => number("--position", part, -32768, 32767));
    return (target) => {
      const position = target.position;
      [position.x, position.y] = [x, y];
      target.position = position;
    };
  },
  "--brightness"(text) {
    const percent = number("--brightness", text, 0, 100);
    return (target) => { target.brightness = percent; };
  },
  "--contrast"(text) {
    const percent = number("--contrast", text, 0, 100);
    return (target) => { target.contrast = percent; };
  },
};

function set([name, ...options]) {
  if (name === undefined || name.startsWith("--")) throw new WrongArguments(`which display? ${usage}`);
  const changes = [];
  let stored = false;
  for (let i = 0; i < options.length; i++) {
    const [option, ...rest] = options[i].split("=");
    if (option === "--stored" && !rest.length) { stored = true; continue; }
    if (!Object.hasOwn(setters, option)) throw new WrongArguments(`unknown option '${options[i]}': ${usage}`);
    const value = rest.length ? rest.join("=") : options[++i];
    if (value === undefined) throw new WrongArguments(`${option} needs a value`);
    changes.push([option, setters[option](value)]);
  }
  if (!changes.length) throw new WrongArguments(`what is to change? ${usage}`);
  const live = findDisplay(name);
  const target = stored ? live.registered : live;
  for (const [option, change] of changes) {
    try {
      change(target, live);
    } catch (error) {
      const reason = error instanceof Error && !("result" in error) ? error.message : "the display does not take it";
      throw new Error(`${option} of ${shortPath(live)}: ${reason}`);
    }
  }
}

try {
  // They may take their time to tell their brightness, and this program ends soon.
  Components.classes["@mozilla.org/observer-service;1"].getService(interfaces.nsIObserverService)
    .notifyObservers(null, "vorel-await-displays", "");
  const given = arguments.filter((argument) => !["--json", "--colours"].includes(argument));
  if (given[0] === "set") set(given.slice(1));
  else if (given.length) throw new WrongArguments(`unknown argument '${given[0]}': ${usage}`);
  else show();
  quit(0);
} catch (error) {
  console.error("vorel: " + error.message);
  quit(error instanceof WrongArguments ? 2 : 1);
}
