// vorel serial [--json]: lists the serial ports. vorel serial PORT [SETTINGS]: a terminal on one of them; its settings are
// those of the program's help. The program gives --colours when people read it on a terminal.
"use strict";

const { classes, interfaces } = Components;
const names = arguments.filter((argument) => !argument.startsWith("-"));
const has = (option) => arguments.includes(option);
const setting = (option, standard) =>
  arguments.find((argument) => argument.startsWith(option + "="))?.slice(option.length + 1) ?? standard;

function complain(text) {
  console.error("vorel: " + text);
  quit(2);
}

const ports = Array.from(systemManager.getAdaptersByIId(interfaces.nsISystemAdapterSerial));

// ---- The list

function describe(port) {
  const info = port.QueryInterface(interfaces.nsISystemSerialPortInfo);
  const known = { name: port.sysPath, device: "", driver: "", maker: "", product: "", identity: "" };
  for (const [key, attribute] of Object.entries({
    device: "devicePath", driver: "driver", maker: "maker", product: "product", identity: "identity",
  })) {
    try { known[key] = info[attribute]; } catch (error) { /* it has gone since */ }
  }
  return known;
}

function list() {
  const all = ports.map(describe);
  if (has("--json")) return console.log(JSON.stringify(all, null, 2));
  if (all.length === 0) return console.log("no serial ports");
  for (const port of all) {
    const device = [port.maker, port.product].filter(Boolean).join(" ");
    console.log([port.name.padEnd(6), port.device.padEnd(14), port.driver.padEnd(12), device.padEnd(32), port.identity]
      .join("  ").trimEnd());
  }
}

// ---- The terminal

const parities = { none: 256, odd: 512, even: 1024, mark: 2048, space: 4096 };
const stops = { 1: 0, 1.5: 1, 2: 2 };
const flows = { none: 0, hardware: 1, software: 2 };

function chosen(option, standard, known) {
  const value = setting(option, standard);
  if (!Object.hasOwn(known, value)) complain(option + ": '" + value + "' is none of " + Object.keys(known).join(", "));
  return known[value];
}

function number(option, standard, least, most) {
  const value = setting(option, standard);
  if (!/^[0-9]+$/.test(value) || Number(value) < least || Number(value) > most)
    complain(option + ": '" + value + "' is no number from " + least + " to " + most);
  return Number(value);
}

function hexadecimal(bytes) {
  return Array.from(bytes, (byte) => byte.charCodeAt(0).toString(16).padStart(2, "0") + " ").join("");
}

function terminal(port) {
  const endKey = "\x1d"; // Ctrl-]
  const observers = classes["@mozilla.org/observer-service;1"].getService(interfaces.nsIObserverService);
  const mainThread = classes["@mozilla.org/thread-manager;1"].getService(interfaces.nsIThreadManager).mainThread;
  const wait = number("--wait", "0", 0, 3600000);
  port.mode = 2;
  port.setParameters(3, number("--baud", "9600", 1, 4000000), number("--bits", "8", 5, 8),
    chosen("--parity", "none", parities), chosen("--stop", "1", stops), chosen("--flow", "none", flows));
  try {
    port.open();
  } catch (error) {
    console.error("vorel: " + port.sysPath + " can't be opened: " + error.name);
    quit(1);
  }
  // Held as long as the port is used: a stream closes with its last user.
  const input = port.inputStream.QueryInterface(interfaces.nsIBinaryInputStream);
  const output = port.outputStream.QueryInterface(interfaces.nsIBinaryOutputStream);
  let screen, keys, lastLines = "";

  function end(status) {
    port.close();
    quit(status);
  }

  function send(bytes) {
    // A write of this mode reports no count: what is not refused is taken, at once or later.
    try { output.write(bytes, bytes.length); } catch (error) {
      if (error.name !== "NS_BASE_STREAM_WOULD_BLOCK") {
        console.error("vorel: " + port.sysPath + ": " + error.name);
        end(1);
      }
    }
  }

  function show() {
    let bytes = "";
    try {
      for (let count; (count = input.available()) > 0;) bytes += input.readBytes(count);
    } catch (error) {
      console.error("vorel: " + port.sysPath + " has gone");
      end(1);
    }
    if (!bytes || !screen) return;
    const text = has("--hex") ? hexadecimal(bytes) : bytes;
    screen.write(text, text.length);
  }

  function showLines() {
    const lines = ["CTS", "DSR", "DCD", "RING"].map((name) => name + "=" + (port[name] ? 1 : 0)).join(" ");
    if (has("--lines") && lines !== lastLines) console.error((lastLines = lines));
  }

  port.addListener({
    onData: show,
    onCTS: showLines, onDSR: showLines, onDCD: showLines, onRING: showLines,
  });
  // Called when the device has been pulled out.
  input.QueryInterface(interfaces.nsIAsyncInputStream).asyncWait({
    onInputStreamReady() { show(); },
  }, interfaces.nsIAsyncInputStream.WAIT_CLOSURE_ONLY, 0, mainThread);

  const reader = classes["@mozilla.org/binaryinputstream;1"].createInstance(interfaces.nsIBinaryInputStream);
  const typed = {
    onInputStreamReady(stream) {
      let bytes;
      try { bytes = reader.readBytes(stream.available()); } catch (error) {
        // The input has ended: what still comes within the time is shown.
        setTimeout(() => { show(); end(0); }, wait);
        return;
      }
      const stop = has("--interactive") ? bytes.indexOf(endKey) : -1;
      send(stop < 0 ? bytes : bytes.slice(0, stop));
      if (stop >= 0) return end(0);
      stream.asyncWait(typed, 0, 0, mainThread);
    },
  };
  observers.addObserver({
    observe(subject) { screen = subject.QueryInterface(interfaces.nsIOutputStream); },
  }, "vorel-standard-output", false);
  observers.addObserver({
    observe(subject) {
      keys = subject.QueryInterface(interfaces.nsIAsyncInputStream);
      reader.setInputStream(keys);
      keys.asyncWait(typed, 0, 0, mainThread);
      show();
    },
  }, "vorel-standard-input", false);
  if (has("--interactive"))
    console.error(port.sysPath + " is open; Ctrl-] ends");
}

if (names.length === 0) {
  list();
  quit(0);
} else if (names.length > 1) {
  complain("serial takes one port; '" + names[1] + "' is one too many");
} else {
  const port = ports.find((candidate) => candidate.sysPath.toUpperCase() === names[0].toUpperCase());
  if (!port) {
    console.error("vorel: there is no port '" + names[0] + "'; vorel serial lists those that there are");
    quit(1);
  }
  terminal(port);
}
