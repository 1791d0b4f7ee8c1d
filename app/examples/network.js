// network.js NAME ADDRESS/LENGTH GATEWAY: gives an interface an address, and keeps it only when the way out is there. With
// vorel --machine app/machines/kiosk.json it works without a network.
"use strict";

const { classes, interfaces } = Components;
const [name = "eth0", address = "192.168.1.40/24", gateway = "192.168.1.1"] = arguments;
const trial = 30;  // seconds
const configuration = classes["@vorel/network-configuration;1"].getService(interfaces.nsISystemNetworkConfiguration);
const observers = classes["@mozilla.org/observer-service;1"].getService(interfaces.nsIObserverService);

/** @param {string} text */
function structure(text) {
  const value = new SystemIPv4Structure();
  value.string = text;
  return value;
}

/** @param {number} length */
function mask(length) {
  const bits = length === 0 ? 0 : (0xffffffff << (32 - length)) >>> 0;
  return structure([24, 16, 8, 0].map((shift) => (bits >>> shift) & 0xff).join("."));
}

function findAdapter() {
  for (const one of systemManager.getAdaptersByIId(interfaces.nsISystemAdapterIP) ?? []) {
    const adapter = one?.QueryInterface(interfaces.nsISystemAdapterIP);
    if (adapter?.sysPath === name) return adapter;
  }
  return null;
}

/** Whether the way out is there: an application would ask its own server here. */
function isReached() {
  const adapter = findAdapter();
  return adapter?.operStatus === 1 && adapter.firstIpv4Gateway?.string === gateway;
}

const adapter = findAdapter();
const view = adapter?.registered?.QueryInterface(interfaces.nsISystemAdapterIP);
if (!view) {
  console.error("there is no interface", name);
  quit(1);
} else {
  const [host, length] = address.split("/");
  const problems = configuration.checkSettings(name, false, address, gateway, "");
  if (problems) {
    console.error(problems);
    quit(1);
  } else {
    view.setIpv4Address(structure(host), mask(Number(length)), structure(gateway), -1);
    view.isDhcpv4Enabled = false;
    observers.addObserver({
      observe() {
        const { state, reason } = configuration;
        if (state === configuration.STATE_WAITING)
          // The adapters follow the machine's changes, some time later.
          setTimeout(() => (isReached() ? configuration.confirm() : configuration.rollback()), 1000);
        else if (state === configuration.STATE_CONFIRMED) console.log(name, "has", address), quit(0);
        else if (state === configuration.STATE_ROLLED_BACK || state === configuration.STATE_REFUSED) console.error(reason), quit(1);
      },
    }, "network-configuration-changed", false);
    configuration.apply(trial);
  }
}
