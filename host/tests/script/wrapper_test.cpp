// Compiled objects as script sees them, and how long they live.
#include "nsIHostDocument.h"
#include "nsScriptTest.h"

namespace {

class ScriptWrapper : public nsScriptTest {};

TEST_F(ScriptWrapper, ObjectHasTwoWrappers) {
  EXPECT_EQ("true", Run("thing.peer = thing; thing.peer === thing && "
                        "thing.as(Components.interfaces.nsITestExtra) === thing"));
  EXPECT_EQ("true", Run("thing.mark = 5; thing.peer.mark === 5"));
  (void)Run("thing.peer = null");
}

TEST_F(ScriptWrapper, InterfaceIsNotSeen) {
  EXPECT_EQ(
      "undefined true",
      Run("`${thing.extra} ${thing.QueryInterface(Components.interfaces.nsITestExtra).extra}`"));
  EXPECT_EQ("true", Run("thing.extra"));  // from then on
  EXPECT_EQ("true", Run("new TestThing() instanceof TestExtra"));
  EXPECT_EQ("false true", Run("`${document instanceof TestThing} ${thing instanceof "
                              "Components.interfaces.nsITestThing}`"));
  EXPECT_EQ("nsISupports.QueryInterface (0x80004002): nsITestListener",
            Thrown("thing.QueryInterface(Components.interfaces.nsITestListener)"));
  EXPECT_EQ("[object TestThing]", Run("String(thing)"));
}

TEST_F(ScriptWrapper, MemberIsNotInheritedFromTheParentInterface) {
  EXPECT_EQ("true",
            Run("const uri = document.baseURIObject; 'spec' in uri && "
                "uri.QueryInterface(Components.interfaces.nsIURL) "
                "=== uri && "
                "Object.getPrototypeOf(Object.getPrototypeOf(uri)).hasOwnProperty('fileName') || "
                "'fileName' in uri"));
}

TEST_F(ScriptWrapper, ObjectsOutliveTheirWrappers) {
  const int before = nsTestThing::sAlive;
  EXPECT_EQ("", Run("for (let i = 0; i < 1000; ++i) new TestThing('x'); undefined"));
  EXPECT_EQ("", Run("Components.utils.forceGC()"));
  EXPECT_EQ(before, nsTestThing::sAlive);
  // A wrapper that is held through another object's attribute only.
  EXPECT_EQ("kept", Run("globalThis.a = new TestThing('a'); a.peer = new TestThing('kept'); "
                        "Components.utils.forceGC(); a.peer.label"));
  EXPECT_EQ(before + 2, nsTestThing::sAlive);
}

TEST_F(ScriptWrapper, CircleLeaksAtTheEnd) {
  EXPECT_EQ("", Run("const t = new TestThing(); t.addListener({ t, onThing() { this.t } }); "
                    "globalThis.t2 = t; undefined"));
  EXPECT_EQ("", Run("(() => { const u = new TestThing(); u.addListener({ u, onThing() {} }) })(); "
                    "undefined"));
  EXPECT_GE(nsTestThing::sAlive, 2);
  Stop();
  EXPECT_EQ(0, nsTestThing::sAlive);
}

TEST_F(ScriptWrapper, ListenerAnswersAfterItsScriptHasEnded) {
  EXPECT_EQ("", Run("thing.addListener({ onThing() {} })"));
  const auto thing = do_GetService<nsITestThing>("@test/thing;1");
  mScripts = nullptr;
  uint32_t failures = 0;
  EXPECT_EQ(NS_OK, thing->Notify(nsDependentString(u"late"), &failures));
  EXPECT_EQ(1u, failures);
}

TEST_F(ScriptWrapper, ConstructorForgetsItsArguments) {
  EXPECT_EQ("hello", Run("new TestThing('hello').label"));
  EXPECT_EQ("42", Run("new TestThing(42).label"));
  EXPECT_EQ("no text", Thrown("new TestThing({ toString() { throw new Error('no text') } })"));
  EXPECT_EQ("TypeError: TestExtra makes no objects: it is the name of an interface",
            Thrown("new TestExtra()"));
  EXPECT_EQ("TypeError: TestThing makes objects with new, and is no function",
            Thrown("TestThing()"));
}

TEST_F(ScriptWrapper, NameWithoutServiceIsUndefinedSomewhereElse) {
  EXPECT_EQ("absent (0x80040154): @test/absent;1 is not to be had", Thrown("absent"));
  EXPECT_TRUE(Thrown("nowhere").starts_with("nowhere is not defined"));
  EXPECT_EQ("Components.classes (0x80040154): no class has the contract ID \"@no;1\"",
            Thrown("Components.classes['@no;1'].getService()"));
  EXPECT_EQ(
      "TypeError: getService of @test/thing;1: argument 1 (iid): an interface of "
      "Components.interfaces is expected, not undefined",
      Thrown("Components.classes['@test/thing;1'].getService(Components.interfaces.nsIMistyped)"));
  EXPECT_EQ("false true",
            Run("`${'@no;1' in Components.classes} ${'@test/thing;1' in Components.classes}`"));
}

TEST_F(ScriptWrapper, InterfaceNobodyAskedForIsMissingFromALook) {
  EXPECT_EQ("true false undefined",
            Run("const all = Components.interfaces; "
                "`${'nsITestExtra' in all} ${'nsIMistyped' in all} ${all.nsIMistyped}`"));
  EXPECT_EQ("0 true true",
            Run("const names = Object.keys(all); `${names.length - Object.entries(all).length} "
                "${names.includes('nsIURL')} ${all.nsIURL === Object.entries(all).find("
                "([name]) => name === 'nsIURL')[1]}`"));
}

TEST_F(ScriptWrapper, ListsAreNotLists) {
  EXPECT_EQ("2 b a,b undefined", Run(R"(
      const list = Components.classes['@vorel/array;1'].createInstance(Components.interfaces.nsIMutableArray);
      for (const name of ['a', 'b']) list.appendElement(new TestThing(name), false);
      `${list.length} ${list[1].label} ${[...list].map((t) => t.label)} ${list[2]}`)"));
  EXPECT_EQ("2", Run("let n = 0; for (const t of list.enumerate()) ++n; n"));
  EXPECT_EQ("true false true false",
            Run("`${0 in list} ${2 in list} ${'length' in list} ${'01' in list}`"));
  EXPECT_EQ("0,1 a false",
            Run("`${Object.keys(list)} ${Object.getOwnPropertyDescriptor(list, 0).value.label} ${"
                "Object.getOwnPropertyDescriptor(list, 1).writable}`"));
  EXPECT_EQ("ab ba 1 b", Run("`${Array.prototype.map.call(list, (t) => t.label).join('')} ${"
                             "Array.prototype.reduceRight.call(list, (s, t) => s + t.label, '')} ${"
                             "Array.prototype.indexOf.call(list, list[1])} "
                             "${Array.prototype.at.call(list, -1).label}`"));
  for (const char* wrong :
       {"list[0] = list[1]", "list[7] = 1", "delete list[0]", "Array.prototype.push.call(list, 1)",
        "Array.prototype.reverse.call(list)", "Object.defineProperty(list, 0, {})"})
    EXPECT_TRUE(Thrown(wrong).starts_with("TypeError: ")) << wrong;
  EXPECT_EQ("a,b 1", Run("list.mark = 1; `${[...list].map((t) => t.label)} ${list.mark}`"));
  // The same object, whichever way it comes, and no other proxy is taken for one.
  EXPECT_EQ("true 3", Run("list.appendElement(list, false); `${list[2] === list} ${list.length}`"));
  EXPECT_TRUE(Thrown("list.appendElement(new Proxy(thing, {}), false); new Proxy(list, {}).length")
                  .starts_with("TypeError"));
  EXPECT_EQ("", Run("list.clear(); undefined"));
}

TEST_F(ScriptWrapper, GlobalNameIsNoClass) {
  EXPECT_EQ("true true", Run("const t = new TestThing(); `${t.constructor === TestThing} ${"
                             "TestThing.prototype.isPrototypeOf(t)}`"));
  EXPECT_EQ("true true 7",
            Run("`${TestThing.number === Components.interfaces.nsITestThing.number} ${"
                "TestThing.prototype === Components.interfaces.nsITestThing.prototype} "
                "${TestThing.LIMIT}`"));
  EXPECT_EQ("true,true,false,false",
            Run("[() => thing.fail(0x80004005), () => { throw new Components.Exception('x', "
                "0x80004004) },"
                " () => { throw new Error('x') }, () => { throw { result: 1 } }].map((f) => {"
                "  try { f() } catch (e) { return e instanceof Components.Exception } }).join()"));
}

// A name that two interfaces of an object have can be reached in one of them only.
TEST_F(ScriptWrapper, HiddenMemberIsNotTold) {
  EXPECT_EQ(
      "twinvorel: TestTwin: nsITestTwin.extra hides the member of this name of nsITestExtra\n",
      Run("twin.extra"));
  EXPECT_EQ("twin", Run("twin.extra")) << "once is enough";
}

// Nothing that a script does with the objects it reaches may end the process.
TEST_F(ScriptWrapper, HostileUseCrashes) {
  EXPECT_EQ("done", Run(R"JS(
    const recursive = { onThing() { thing.notify('deeper') }, ask() { return this.ask() } };
    const odd = [undefined, null, true, -1, 1.5, 2 ** 53, 2n ** 64n, '', 'x'.repeat(1 << 20), '\0\uD800', Symbol('s'),
      {}, [], () => 0, new Proxy({}, { get() { throw 1 } }), new Proxy(() => {}, {}), thing, document, globalThis,
      { get QueryInterface() { throw 2 } }, { QueryInterface() { return this } }, { QueryInterface: 3 },
      { get onThing() { throw 3 } }, recursive, Components.interfaces.nsITestThing, '{a0000000-0000-4000-8000-000000000003}'];
    const objects = [thing, document, document.baseURIObject, document.loadGroup, new TestThing(),
      Components.classes['@vorel/array;1'].createInstance(Components.interfaces.nsIMutableArray),
      Components.classes['@mozilla.org/categorymanager;1'].getService(Components.interfaces.nsICategoryManager)
        .enumerateCategory('JavaScript-DOM-interface')].filter((o) => o);
    let calls = 0;
    const attempt = (f) => { ++calls; try { f(); } catch (e) { String(e); } };
    for (const object of objects) {
      for (let proto = object; proto && proto !== Object.prototype; proto = Object.getPrototypeOf(proto)) {
        for (const name of Object.getOwnPropertyNames(proto)) {
          const { get, set, value } = Object.getOwnPropertyDescriptor(proto, name);
          for (const a of odd) {
            if (get) attempt(() => get.call(a));
            if (set) { attempt(() => set.call(object, a)); attempt(() => set.call(a, a)); }
            if (typeof value !== 'function') continue;
            attempt(() => value.call(object, a));
            attempt(() => value.call(a, a, a));
            for (const b of odd.slice(3, 9)) attempt(() => value.call(object, a, b, a, b));
          }
        }
      }
    }
    for (const object of objects) if ('peer' in object) object.peer = null;  // a circle of compiled objects only
    calls > 1000 ? 'done' : String(calls))JS")
                        .substr(0, 4));
}

TEST_F(ScriptWrapper, TopicOfTheEndTakesTheEngineAwayFromARunningScript) {
  EXPECT_EQ("still here",
            Run("Components.classes['@mozilla.org/observer-service;1']"
                ".getService(Components.interfaces.nsIObserverService)"
                ".notifyObservers(null, 'xpcom-shutdown-threads', null); 'still here'"));
}

// A script finds the observer of the end, and can have it called when no script runs.
TEST_F(ScriptWrapper, ObserverOfTheEndTakesTheEngineAwayFromItsLoop) {
  EXPECT_EQ("", Run(R"(
      const { classes, interfaces } = Components;
      const [observer] = classes['@mozilla.org/observer-service;1'].getService(interfaces.nsIObserverService)
        .enumerateObservers('xpcom-shutdown-threads');
      observer.QueryInterface(interfaces.nsIObserver);
      const timer = classes['@mozilla.org/timer;1'].createInstance(interfaces.nsITimer);
      timer.init(observer, 1, timer.TYPE_ONE_SHOT);
      observer.observe(null, 'xpcom-shutdown-threads', null);
      setTimeout(() => quit(5), 20);
      undefined)"));
  EXPECT_EQ(5, Finish().first);
  EXPECT_EQ("2", Run("1 + 1"));
}

// Compiled objects go only when no compiled code is left on the stack that might hold a lock.
TEST_F(ScriptWrapper, ObjectIsReleasedInsideACallOfCompiledCode) {
  const int before = nsTestThing::sAlive;
  EXPECT_EQ("", Run(R"(globalThis.collect = (n) => {
        for (let i = 0; i < n; ++i) new TestThing('x');
        Components.utils.forceGC();
      };
      thing.addListener({ onThing() { collect(10); thing.label; } }); undefined)"));
  const int listening = nsTestThing::sAlive;
  uint32_t failures = 0;
  EXPECT_EQ(NS_OK, do_GetService<nsITestThing>("@test/thing;1")
                       ->Notify(nsDependentString(u"compiled"), &failures));
  EXPECT_EQ(listening + 10, nsTestThing::sAlive);
  RunEvents();
  EXPECT_EQ(listening, nsTestThing::sAlive);
  EXPECT_EQ("", Run("thing.notify('script'); undefined"));
  EXPECT_EQ(listening, nsTestThing::sAlive) << "at the end of the outermost script";
  EXPECT_LE(before, listening);
}

TEST_F(ScriptWrapper, MemoryLimitEndsTheProcess) {
  Stop();
  Start();
  nsScriptOptions options;
  options.mHeapLimit = 8u << 20;
  StartScripts(options);
  EXPECT_NE("",
            Run("(() => { const all = []; for (;;) all.push('x'.repeat(100) + all.length) })()"));
  EXPECT_EQ("2", Run("1 + 1"));
  // Members when there is no room left for what they answer. Whether a call still gets through is
  // the engine's affair.
  EXPECT_EQ("2", Run(R"JS((() => {
      const members = [];
      for (let level = thing; level !== Object.prototype; level = Object.getPrototypeOf(level))
        for (const property of Object.values(Object.getOwnPropertyDescriptors(level)))
          members.push(property.get ?? property.value);
      const all = [];
      try { for (;;) all.push('x'.repeat(100) + all.length); } catch (error) {}
      for (const member of members) try { member.call(thing, 'x'); } catch (error) {}
    })(); 1 + 1)JS"));
  // Deeper and deeper, through compiled code.
  const std::string deep =
      Run("(() => { const t = new TestThing(); t.addListener({ onThing() { t.notify('x') } });"
          "t.notify('x') })()");
  EXPECT_NE(std::string::npos, deep.find("too much recursion")) << deep;
}

}  // namespace
