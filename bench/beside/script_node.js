// The loops of script.py for node, with the addon that it puts in front.
const thing = new addon.Thing();
let heard = 0;
thing.listen(() => { ++heard; });
const loops = {
  number(n) { let sum = 0; for (let i = 0; i < n; ++i) sum += thing.number; return sum; },
  "text in"(n) { for (let i = 0; i < n; ++i) thing.text = "a name of usual length"; },
  "text out"(n) { let sum = 0; for (let i = 0; i < n; ++i) sum += thing.text.length; return sum; },
  event(n) { for (let i = 0; i < n; ++i) thing.notify(); },
  object(n) { for (let i = 0; i < n; ++i) new addon.Thing(); },
};
