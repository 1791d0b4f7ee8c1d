// The loops of script.py for vorel.
const { classes, interfaces } = Components;
const list = classes["@vorel/array;1"].createInstance(interfaces.nsIMutableArray);
const text = classes["@mozilla.org/supports-string;1"].createInstance(interfaces.nsISupportsString);
const observers = classes["@mozilla.org/observer-service;1"].getService(interfaces.nsIObserverService);
let heard = 0;
const listener = () => { ++heard; };
observers.addObserver(listener, "beside", false);
const loops = {
  number(n) { let sum = 0; for (let i = 0; i < n; ++i) sum += list.length; return sum; },
  "text in"(n) { for (let i = 0; i < n; ++i) text.data = "a name of usual length"; },
  "text out"(n) { let sum = 0; for (let i = 0; i < n; ++i) sum += text.data.length; return sum; },
  event(n) { for (let i = 0; i < n; ++i) observers.notifyObservers(null, "beside", null); },
  object(n) { for (let i = 0; i < n; ++i) classes["@vorel/array;1"].createInstance(); },
};
setTimeout(() => quit(0), 0);
