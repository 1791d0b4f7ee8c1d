// Copies the files of each stick that is plugged in to the directory of its argument; what is there already stays.
"use strict";

const { classes, interfaces } = Components;
if (arguments.length !== 1) {
  console.error("usage: vorel stick.js DIRECTORY");
  quit(2);
}
const inbox = classes["@mozilla.org/file/local;1"].createInstance(interfaces.nsILocalFile);
inbox.initWithPath(arguments[0]);

/** @param {nsIFile} directory */
function copyFrom(directory) {
  const entries = directory.directoryEntries;
  while (entries?.hasMoreElements()) {
    const file = entries.getNext()?.QueryInterface(interfaces.nsIFile);
    if (!file?.isFile()) continue;
    try {
      file.copyTo(inbox, "");
      console.log("+", file.leafName);
    } catch (error) {
      console.log("=", file.leafName);  // it is there already, or the stick has gone
    }
  }
}

/** @param {nsISystemApplicationProfileBinding | null} binding */
function look(binding) {
  if (binding?.applicationProfile?.name !== "storage-external-medias-reader") return;
  const directory = binding.adapter?.QueryInterface(interfaces.nsISystemAdapterStorage).directory;
  if (directory) copyFrom(directory);
}

// Those that are there, and those that come.
for (const binding of systemManager.getApplicationProfileBindingsByProfileUri("storage-external-medias-reader") ?? [])
  look(binding?.QueryInterface(interfaces.nsISystemApplicationProfileBinding) ?? null);
systemManager.addProfileBindingListener({ onProfileBindingAdded: look, onProfileBindingRemoved() {} });
