// Turns every display to portrait that can be turned: now, or with --stored for the next session.
"use strict";

const stored = arguments.includes("--stored");
for (const adapter of systemManager.getAdaptersByIId(Components.interfaces.nsISystemAdapterDisplayOutput) ?? []) {
  const display = adapter?.QueryInterface(Components.interfaces.nsISystemAdapterDisplayOutput);
  if (!display) continue;
  if (!display.getRotationsList().includes(90)) {
    console.log(display.label, "can't be turned");
    continue;
  }
  const target = stored ? display.registered : display;
  try {
    if (target) target.rotation = 90;
    console.log(display.label, stored ? "is portrait from the next session on" : "is portrait");
  } catch (error) {
    console.error(display.label, "stays as it is:", error);
  }
}
quit(0);
