// A channel picker: looks for services once, keeps them, and then shows one after the other for two seconds each.
// vorel [--machine app/machines/tv.json] channels.js COUNTRY [NAME...]: all services, or these.
"use strict";

const { classes, interfaces } = Components;
const [wanted, ...chosen] = arguments;
const receiver = systemManager.getAdaptersByIId(interfaces.nsISystemAdapterDigitalTvReceiver)?.[0]
  ?.QueryInterface(interfaces.nsISystemAdapterDigitalTvReceiver);
const showFor = 2000;

/** @param {nsIArray} list */
const servicesOf = (list) => Array.from(list, (one) => one?.QueryInterface(interfaces.nsIDigitalTvService))
  .filter((one) => one !== undefined);

/** @param {nsISystemAdapterDigitalTvReceiver} tuner @param {() => void} then */
function scan(tuner, then) {
  const country = Array.from(tuner.supportedCountries, (one) => one?.QueryInterface(interfaces.nsIIsoCountry))
    .find((one) => one?.code === wanted);
  if (!country) {
    console.error(`no frequencies are known of '${wanted}'`);
    return quit(2);
  }
  tuner.startScan(country);
  let shown = -1;
  const timer = setInterval(() => {
    const { state, total, done, found } = tuner.getScanProgress();
    if (found !== shown) console.log(`${done} of ${total} frequencies, ${shown = found} services`);
    if (state === 0) return;
    clearInterval(timer);
    // The store takes each name once.
    const list = classes["@vorel/array;1"].createInstance(interfaces.nsIMutableArray);
    const names = new Set();
    for (const service of servicesOf(tuner.servicesFoundByScan)) {
      if (!names.has(service.name.toLowerCase())) list.appendElement(service, false);
      names.add(service.name.toLowerCase());
    }
    tuner.services = list;
    then();
  }, 100);
}

/** @param {nsISystemAdapterDigitalTvReceiver} tuner @param {string[]} names @returns {void} */
function show(tuner, names) {
  const name = names.shift();
  if (name === undefined) return quit(0);
  try {
    tuner.selectChannelByName(name, "fra", 0);
  } catch (error) {
    console.log(name, "can't be received");
    return show(tuner, names);
  }
  // Here a player would be given the stream.
  const input = tuner.stream?.QueryInterface(interfaces.nsIAsyncInputStream);
  const reader = classes["@mozilla.org/binaryinputstream;1"].createInstance(interfaces.nsIBinaryInputStream);
  const main = classes["@mozilla.org/thread-manager;1"].getService(interfaces.nsIThreadManager).mainThread;
  if (!input) return quit(1);
  reader.setInputStream(input);
  let bytes = 0;
  const read = () => {
    try { bytes += reader.readBytes(input.available()).length; } catch (error) { return; } // the next one is on
    input.asyncWait({ onInputStreamReady: read }, 0, 0, main);
  };
  input.asyncWait({ onInputStreamReady: read }, 0, 0, main);
  setTimeout(() => {
    console.log(`${name}: ${Math.floor(bytes / 188)} packets, quality ${tuner.quality} %`);
    input.close();
    show(tuner, names);
  }, showFor);
}

if (!receiver || !wanted) {
  console.error(wanted ? "there is no receiver" : "usage: vorel channels.js COUNTRY [NAME...]");
  quit(wanted ? 1 : 2);
} else {
  const showAll = () => show(receiver, chosen.length ? chosen : servicesOf(receiver.services).map((one) => one.name));
  if (receiver.services.length > 0) showAll(); else scan(receiver, showAll);
}
