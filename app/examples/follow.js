// Says when adapters and bindings come and go. Stops after as many events as its argument tells, else with Ctrl-C.
"use strict";

let left = Number(arguments[0] ?? Infinity);
/** @param {string} text */
function report(text) {
  console.log(text);
  if (--left > 0) return;
  systemManager.removeAdapterListener(adapters);
  systemManager.removeProfileBindingListener(bindings);
  quit(0);
}

/** @type {nsScripted<nsISystemAdapterListener>} */
const adapters = {
  onAdapterAdded: (adapter) => report(`+ ${adapter?.label}`),
  onAdapterRemoved: (adapter) => report(`- ${adapter?.label}`),
  onAdapterChanged: (adapter) => report(`~ ${adapter?.label}`),
};
/** @type {nsScripted<nsISystemProfileBindingListener>} */
const bindings = {
  onProfileBindingAdded: (binding) => report(`+ ${binding?.applicationProfile?.name} on ${binding?.adapter?.label}`),
  onProfileBindingRemoved: (binding) => report(`- ${binding?.applicationProfile?.name} on ${binding?.adapter?.label}`),
};
systemManager.addAdapterListener(adapters);
systemManager.addProfileBindingListener(bindings);
