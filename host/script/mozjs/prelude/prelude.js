// The part of the environment that is best said in script itself. Run once for each global object.
(function (global, host) {
  "use strict";

  const define = (object, name, value) =>
    Object.defineProperty(object, name, { value, writable: true, configurable: true, enumerable: false });

  // ---- Text for people

  const identifier = /^[A-Za-z_$][A-Za-z0-9_$]*$/;
  const maxDepth = 2, maxItems = 100, maxLine = 76;

  function inspect(value, depth, seen) {
    switch (typeof value) {
      case "string": return depth === undefined ? value : JSON.stringify(value);
      case "bigint": return `${value}n`;
      case "symbol": return value.toString();
      case "function": return `[${/^class\b/.test(Function.prototype.toString.call(value)) ? "class" : "function"}` +
        `${value.name ? " " + value.name : ""}]`;
      case "object": break;
      default: return Object.is(value, -0) ? "-0" : String(value);
    }
    if (value === null) return "null";
    depth = depth ?? 0;
    seen = seen ?? new Set();
    if (seen.has(value)) return "[circular]";
    if (value instanceof Error)
      return `${value}${value.stack ? "\n" + value.stack.trimEnd().replace(/^/gm, "    at ") : ""}`;
    if (value instanceof Date) return isNaN(value) ? "Invalid Date" : value.toISOString();
    if (value instanceof RegExp) return String(value);
    if (value instanceof Promise) return "[promise]";
    const wrapper = host.wrapperName(value);
    const isArray = Array.isArray(value);
    if (depth > maxDepth) return isArray ? "[array]" : `[${wrapper ?? "object"}]`;
    seen.add(value);
    const item = (inner) => inspect(inner, depth + 1, seen);
    const property = (name, read) => {
      let text;
      try { text = read(); } catch (error) { text = `<${error.name ?? "error"}>`; }
      return `${identifier.test(name) ? name : JSON.stringify(name)}: ${text}`;
    };
    let parts, open = "{", close = "}", prefix = "";
    if (isArray) {
      parts = value.slice(0, maxItems).map(item);
      if (value.length > maxItems) parts.push(`... ${value.length - maxItems} more`);
      open = "["; close = "]";
    } else if (wrapper !== undefined) {
      prefix = wrapper + " ";
      parts = [];
      // Attributes of compiled objects; objects among them by name only, or one adapter would show the whole machine.
      for (const name of memberNames(value)) {
        const found = findProperty(value, name);
        if (found?.get)
          parts.push(property(name, () => {
            const inner = value[name];
            return inner !== null && typeof inner === "object" ? `[${host.wrapperName(inner) ?? "object"}]` : item(inner);
          }));
      }
    } else if (value instanceof Map) {
      prefix = "Map ";
      parts = [...value].map(([key, inner]) => `${item(key)} => ${item(inner)}`);
    } else if (value instanceof Set) {
      prefix = "Set ";
      parts = [...value].map(item);
    } else {
      const name = Object.getPrototypeOf(value)?.constructor?.name;
      prefix = name && name !== "Object" ? name + " " : "";
      parts = Object.keys(value).map((key) => property(key, () => item(value[key])));
    }
    seen.delete(value);
    if (parts.length === 0) return `${prefix}${open}${close}`;
    const line = parts.join(", ");
    if (line.length + depth * 2 <= maxLine && !line.includes("\n"))
      return `${prefix}${open} ${line} ${close}`;
    const indent = "  ".repeat(depth + 1);
    return `${prefix}${open}\n${parts.map((part) => indent + part).join(",\n")}\n${"  ".repeat(depth)}${close}`;
  }

  function findProperty(object, name) {
    for (; object; object = Object.getPrototypeOf(object)) {
      const found = Object.getOwnPropertyDescriptor(object, name);
      if (found) return found;
    }
    return undefined;
  }

  function memberNames(object) {
    const names = new Set();
    for (; object && object !== Object.prototype; object = Object.getPrototypeOf(object))
      for (const name of Object.getOwnPropertyNames(object)) names.add(name);
    return [...names];
  }

  // ---- console

  const format = (values) => values.map((value) => inspect(value)).join(" ");
  const groups = [];
  const write = (isError) => (...values) =>
    host.print(isError, groups.length ? format(values).replace(/^/gm, "  ".repeat(groups.length)) : format(values));
  const times = new Map();
  define(global, "console", {
    log: write(false), info: write(false), debug: write(false), dir: write(false),
    warn: write(true), error: write(true),
    assert(condition, ...values) { if (!condition) write(true)("assertion failed", ...values); },
    trace(...values) { write(true)("trace:", ...values, "\n" + new Error().stack); },
    group(...values) { if (values.length) this.log(...values); groups.push(1); },
    groupEnd() { groups.pop(); },
    time(name = "default") { times.set(name, Date.now()); },
    timeEnd(name = "default") { if (times.has(name)) this.log(`${name}: ${Date.now() - times.get(name)} ms`); times.delete(name); },
  });

  // ---- Components

  const { interfaces } = host;

  const classes = new Proxy(Object.create(null), {
    get(target, contract) {
      if (typeof contract !== "string") return undefined;
      if (!host.isRegistered(contract))
        throw host.makeError(host.results.NS_ERROR_FACTORY_NOT_REGISTERED, `no class has the contract ID "${contract}"`,
          "Components.classes");
      return Object.freeze({
        contractID: contract,
        // No argument means any interface; undefined, a name mistyped, is a mistake.
        getService: (...iid) => host.getService(contract, ...iid),
        createInstance: (...iid) => host.createInstance(contract, ...iid),
      });
    },
    has: (target, contract) => typeof contract === "string" && host.isRegistered(contract),
  });

  function Exception(message, result) {
    return host.makeError(result ?? host.results.NS_ERROR_FAILURE, message);
  }
  // What compiled code answers is thrown as an Error that has its result.
  Object.defineProperty(Exception, "prototype", { value: Error.prototype, writable: false });
  Object.defineProperty(Exception, Symbol.hasInstance, {
    value: (error) => error instanceof Error && Object.hasOwn(error, "result") && typeof error.result === "number",
  });

  define(global, "Components", Object.freeze({
    classes,
    interfaces: interfaces,
    results: Object.freeze(host.results),
    utils: Object.freeze({ reportError: host.reportError, forceGC: host.collectGarbage }),
    Exception,
    ID: (text) => String(text),
    isSuccessCode: (result) => (result & 0x80000000) === 0,
  }));

  // ---- Lists

  const iterable = (name, iterate) => define(host.prototypeOf(name), Symbol.iterator, iterate);
  const unknown = interfaces.nsISupports;
  const element = (array, index) => array.queryElementAt(index, unknown);

  // An index that is no member is looked for here, behind all members.
  const arrays = host.prototypeOf("nsIArray");
  Object.setPrototypeOf(arrays, new Proxy(Object.getPrototypeOf(arrays), {
    get(target, name, receiver) {
      if (typeof name === "string" && /^(0|[1-9][0-9]*)$/.test(name)) {
        const index = Number(name);
        return index < receiver.length ? element(receiver, index) : undefined;
      }
      return Reflect.get(target, name, receiver);
    },
  }));

  // Script sees an array of compiled code through this, so that its elements are properties of their own: `0 in list`,
  // Object.keys(list) and Array.prototype.map.call(list, ...) find them. They are read as above.
  const indexOf = (name) => (typeof name === "string" && /^(0|[1-9][0-9]*)$/.test(name) ? Number(name) : -1);
  const refuse = (name) => {
    throw new TypeError(`[${String(name)}]: elements of a list of compiled code are not assigned or deleted; ` +
      "nsIMutableArray has operations for that");
  };
  const has = (list, index) => index >= 0 && index < list.length;
  const arrayHandler = {
    has: (target, name) => has(target, indexOf(name)) || Reflect.has(target, name),
    getOwnPropertyDescriptor(target, name) {
      const index = indexOf(name);
      return has(target, index) ? { value: element(target, index), writable: false, enumerable: true, configurable: true }
        : Reflect.getOwnPropertyDescriptor(target, name);
    },
    ownKeys: (target) => [...Array.from({ length: target.length }, (_, i) => String(i)), ...Reflect.ownKeys(target)],
    set: (target, name, value, receiver) => (indexOf(name) >= 0 ? refuse(name) : Reflect.set(target, name, value, receiver)),
    defineProperty: (target, name, descriptor) =>
      (indexOf(name) >= 0 ? refuse(name) : Reflect.defineProperty(target, name, descriptor)),
    deleteProperty: (target, name) => (indexOf(name) >= 0 ? refuse(name) : Reflect.deleteProperty(target, name)),
    preventExtensions: () => false,
  };
  const showArray = (array) => new Proxy(array, arrayHandler);

  iterable("nsIArray", function* () {
    // The length is asked each time: the array may change between two steps.
    for (let i = 0; i < this.length; ++i) yield element(this, i);
  });
  iterable("nsISimpleEnumerator", function* () { while (this.hasMoreElements()) yield this.getNext(); });
  for (const name of ["nsIStringEnumerator", "nsIUTF8StringEnumerator"])
    iterable(name, function* () { while (this.hasMore()) yield this.getNext(); });

  // ---- Documents

  Object.defineProperty(host.prototypeOf("nsIHostDocument"), "baseURI", {
    configurable: true, enumerable: true,
    get() { return this.baseURIObject?.spec ?? null; },
  });

  // ---- Completion

  // [start, names] for a text whose end is a name to be completed. Attributes on the way are read, as whoever
  // evaluates the text would; what the name could be is not.
  function complete(text) {
    const match = /(?:[A-Za-z_$][A-Za-z0-9_$]*(?:\.|\[[0-9]+\]\.))*[A-Za-z0-9_$]*$/.exec(text);
    const path = match[0].split(/\.|(?=\[)/);
    const prefix = path.pop();
    let object = global;
    for (const part of path) {
      if (part === "") continue;
      try {
        object = part.startsWith("[") ? object[part.slice(1, -1)]
          : object === global && !(part in global) ? (0, eval)(part) : object[part];
      } catch (error) {
        return [text.length, []];
      }
      if (object === null || object === undefined) return [text.length, []];
    }
    const names = [...memberNames(Object(object)), ...(path.length === 0 ? host.lexicalNames() : [])];
    const fitting = names.filter((name) => name.startsWith(prefix) && identifier.test(name));
    return [text.length - prefix.length, [...new Set(fitting)].sort()];
  }

  return { inspect, complete, showArray, arrayHandler };
})
