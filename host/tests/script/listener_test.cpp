// Objects of script in the hands of compiled code.
#include <thread>

#include "nsScriptTest.h"

namespace {

class ScriptListener : public nsScriptTest {
 protected:
  uint32_t Notify(std::u16string_view aText) {
    uint32_t failures = 99;
    EXPECT_EQ(NS_OK, Thing()->Notify(nsDependentString(aText), &failures));
    return failures;
  }
  static nsCOMPtr<nsITestThing> Thing() { return do_GetService<nsITestThing>("@test/thing;1"); }
};

TEST_F(ScriptListener, ListenerIsNotFoundAgain) {
  EXPECT_EQ("", Run("globalThis.heard = []; globalThis.l = { onThing(t, text) { heard.push(t === "
                    "thing, this === l, text) } };"
                    "thing.addListener(l); undefined"));
  EXPECT_EQ(0u, Notify(u"one"));
  EXPECT_EQ("[ true, true, \"one\" ]", Run("heard"));
  EXPECT_EQ("", Run("thing.removeListener(l)"));
  EXPECT_EQ("nsITestThing.removeListener (0x80070057)", Thrown("thing.removeListener(l)"));
  EXPECT_EQ(0u, Notify(u"two"));
  EXPECT_EQ("3", Run("heard.length"));
}

TEST_F(ScriptListener, ExceptionDisturbsTheNextListener) {
  EXPECT_EQ(
      "",
      Run("globalThis.heard = 0;\nthing.addListener({ onThing() { throw new Error('broken') } });\n"
          "thing.addListener({ onThing() { ++heard } }); undefined"));
  testing::internal::CaptureStderr();
  EXPECT_EQ(1u, Notify(u"x"));
  EXPECT_TRUE(
      testing::internal::GetCapturedStderr().starts_with("vorel: test.js:2:39: Error: broken\n"));
  EXPECT_EQ("1", Run("heard"));
}

TEST_F(ScriptListener, ResultThatScriptThrowsIsReplaced) {
  EXPECT_EQ("",
            Run("thing.addListener({ ask(n) { throw Components.results.NS_ERROR_NOT_AVAILABLE } });"
                "thing.addListener({ ask(n) { return { double: n * 2, text: '\\u20AC' } } });"
                "thing.addListener({ onThing() {} });"));
  EXPECT_EQ("NS_ERROR_NOT_AVAILABLE;42\u20AC;NS_ERROR_NOT_IMPLEMENTED;", Run("thing.askAll(21)"));
}

TEST_F(ScriptListener, AnswerOfTheWrongKindIsUsed) {
  EXPECT_EQ("", Run("thing.addListener({ ask(n) { return { double: 'many', text: '' } } });"
                    "thing.addListener({ ask(n) { return 3 } });"));
  const std::string text = Run("thing.askAll(1)");
  for (const char* part :
       {"NS_ERROR_FAILURE;NS_ERROR_FAILURE;",
        "TypeError: nsITestListener.ask: what script answered (double): a whole number or BigInt "
        "of "
        "64 bits is expected, not the string \"many\"\n",
        "TypeError: nsITestListener.ask: what script answered (double): an object with it is "
        "expected, not the number 3\n"})
    EXPECT_NE(std::string::npos, text.find(part)) << part << " in " << text;
}

TEST_F(ScriptListener, DerivedListenerHearsNothingMore) {
  EXPECT_EQ(
      "",
      Run("globalThis.heard = []; const say = (w) => () => { heard.push(w) };"
          "thing.addListener({ onThing: say('plain') });"
          "thing.addListener({ onThing: say('both'), ask() {}, onMore: say('more') });"
          "thing.addListener({ onThing: say('asked'), onMore: say('never'), QueryInterface(iid) {"
          "  if (iid === Components.interfaces.nsITestListener) return this;"
          "  throw Components.results.NS_ERROR_NO_INTERFACE } }); undefined"));
  EXPECT_EQ(0u, Notify(u"x"));
  EXPECT_EQ("[ \"plain\", \"both\", \"more\", \"asked\" ]", Run("heard"));
}

TEST_F(ScriptListener, ObjectOfNoUseIsTaken) {
  EXPECT_EQ(
      "TypeError: nsITestThing.addListener: argument 1 (listener): an object that implements "
      "nsITestListener is "
      "expected, one with onThing, ask",
      Thrown("thing.addListener({ onThings() {} })"));
  EXPECT_TRUE(Thrown("thing.addListener(() => {})").starts_with("TypeError"));
}

TEST_F(ScriptListener, FunctionIsNotTakenForOneMethod) {
  EXPECT_EQ("true text topic",
            Run("let told; const o = Components.classes['@mozilla.org/observer-service;1']"
                ".getService(Components.interfaces.nsIObserverService);"
                "const f = (s, t, d) => { told = `${s === thing} ${d} ${t}` };"
                "o.addObserver(f, 'topic', false); o.notifyObservers(thing, 'topic', 'text');"
                "o.removeObserver(f, 'topic'); o.notifyObservers(null, 'topic', null); told"));
}

TEST_F(ScriptListener, OtherThreadRunsScript) {
  EXPECT_EQ("", Run("globalThis.heard = 0; thing.addListener({ onThing() { ++heard } })"));
  testing::internal::CaptureStderr();
  const auto thing = Thing();
  uint32_t failures = 0;
  std::thread([&] { EXPECT_EQ(NS_OK, thing->Notify(nsDependentString(u"x"), &failures)); }).join();
  EXPECT_EQ(1u, failures);
  EXPECT_EQ(
      "vorel: nsITestListener.onThing of a script's object was called on another thread than the "
      "main one; refused\n",
      testing::internal::GetCapturedStderr());
  EXPECT_EQ("0", Run("heard"));
}

TEST_F(ScriptListener, LastReferenceOnAnotherThreadIsForgotten) {
  EXPECT_EQ("", Run("thing.addListener({ onThing() {} })"));
  nsCOMPtr<nsITestListener> last;
  static_cast<nsTestThing*>(Thing().get())->TakeListeners().back().swap(last);
  std::thread([&] { last = nullptr; }).join();
  // Nothing keeps the application any more, so that it ends.
  EXPECT_EQ(0, Finish().first);
}

TEST_F(ScriptListener, QuitInAListenerGoesOn) {
  EXPECT_EQ("", Run("globalThis.after = 0; thing.addListener({ onThing() { try { quit(7) } catch "
                    "(e) { after = 1 } finally { } } });"
                    "thing.notify('x'); after = 2"));
  EXPECT_EQ("0", Run("after"));
  EXPECT_EQ(7, Finish().first);
}

// A weakly held observer lives as long as script keeps it, and no longer.
TEST_F(ScriptListener, WeakObserverIsRefusedLostOrKept) {
  EXPECT_EQ("", Run(R"(
      globalThis.observers = Components.classes['@mozilla.org/observer-service;1']
        .getService(Components.interfaces.nsIObserverService);
      globalThis.heard = [];
      globalThis.kept = { observe(subject, topic) { heard.push('kept') } };
      observers.addObserver(kept, 'weak', true);
      globalThis.dropped = { observe() { heard.push('dropped') } };
      observers.addObserver(dropped, 'weak', true);
      undefined)"));
  EXPECT_EQ("dropped,kept", Run("observers.notifyObservers(null, 'weak', null); `${heard}`"));
  EXPECT_EQ("kept", Run("dropped = null; Components.utils.forceGC(); heard = [];"
                        "observers.notifyObservers(null, 'weak', null); `${heard}`"));
  // An empty reference meets the next collections.
  EXPECT_EQ("2", Run("Components.utils.forceGC(); Components.utils.forceGC(); 1 + 1"));
  EXPECT_EQ("1", Run("[...observers.enumerateObservers('weak')].length"));
  EXPECT_EQ(0, Finish().first) << "a weak observer keeps no application running";
  EXPECT_EQ("", Run("observers.removeObserver(kept, 'weak'); heard = [];"
                    "observers.notifyObservers(null, 'weak', null); `${heard}`"));
  EXPECT_EQ("", Run("observers.addObserver(kept, 'weak', true); undefined"));
  mScripts = nullptr;  // a reference that is left over is empty
  EXPECT_EQ(NS_OK, do_GetService<nsIObserverService>(NS_OBSERVERSERVICE_CONTRACTID)
                       ->NotifyObservers(nullptr, "weak", nullptr));
}

class ScriptComponent : public nsScriptTest {
 protected:
  void SetUp() override {
    mOptions.mManifests.push_back(
        Write("test.manifest",
              "component {c0000000-0000-4000-8000-000000000001} listener.js\n"
              "contract @test/listener;1 {c0000000-0000-4000-8000-000000000001}\n"
              "component {c0000000-0000-4000-8000-000000000002} listener.js\n"
              "contract @test/nothing;1 {c0000000-0000-4000-8000-000000000002}\n"
              "component {c0000000-0000-4000-8000-000000000003} broken.js\n"
              "contract @test/broken;1 {c0000000-0000-4000-8000-000000000003}\n"
              "component {c0000000-0000-4000-8000-000000000004} module.mjs\n"
              "contract @test/module;1 {c0000000-0000-4000-8000-000000000004}\n"
              "component {c0000000-0000-4000-8000-000000000005} lacking.js\n"
              "contract @test/lacking;1 {c0000000-0000-4000-8000-000000000005}\n"
              "component {c0000000-0000-4000-8000-000000000006} throws.mjs\n"
              "contract @test/throws;1 {c0000000-0000-4000-8000-000000000006}\n"
              "component {c0000000-0000-4000-8000-000000000007} awaits.mjs\n"
              "contract @test/awaits;1 {c0000000-0000-4000-8000-000000000007}\n"));
    Write("throws.mjs",
          "export const NSGetFactory = () => class {};\nthrow new Error('at the top');\n");
    Write("awaits.mjs", "await 0;\nexport const NSGetFactory = () => class {};\n");
    Write("listener.js",
          "let made = 0;\n"
          "class Listener { constructor() { this.n = ++made } onThing() {} ask(n) { return { "
          "double: this.n, text: 'c' } } }\n"
          "const NSGetFactory = (cid) => cid === '{c0000000-0000-4000-8000-000000000001}' ? "
          "Listener : null;\n");
    Write("broken.js", "const NSGetFactory = 1;\nlet = ;\n");
    Write("lacking.js", "const NSGetFactory = () => class { onThing() {} };\n");
    Write("module.mjs",
          "import { n } from './n.mjs';\nexport const NSGetFactory = () => class { onThing() {} "
          "ask() { return { double: n, text: 'm' } } };\n");
    Write("n.mjs", "export const n = 17;\n");
    nsScriptTest::SetUp();
  }
};

TEST_F(ScriptComponent, ClassOfAManifestIsNotMade) {
  nsCOMPtr<nsITestListener> first = do_CreateInstance<nsITestListener>("@test/listener;1");
  const auto second = do_CreateInstance<nsITestListener>("@test/listener;1");
  ASSERT_TRUE(first && second);
  int64_t number = 0;
  nsCString text;
  EXPECT_EQ(NS_OK, second->Ask(0, &number, text));
  EXPECT_EQ(2, number);
  const auto module = do_CreateInstance<nsITestListener>("@test/module;1");
  ASSERT_TRUE(module);
  EXPECT_EQ(NS_OK, module->Ask(0, &number, text));
  EXPECT_EQ(17, number);
  // What it holds does not keep an application running.
  EXPECT_EQ(0, Finish().first);
}

TEST_F(ScriptComponent, NobodyLearnsWhatAClassLacks) {
  nsresult rv;
  testing::internal::CaptureStderr();
  EXPECT_FALSE(do_CreateInstance<nsITestListener>("@test/lacking;1", &rv));
  EXPECT_EQ(NS_ERROR_NO_INTERFACE, rv);
  const std::string text = testing::internal::GetCapturedStderr();
  EXPECT_NE(std::string::npos,
            text.find("lacking.js: an object that implements nsITestListener is expected, one "
                      "with onThing, ask; it lacks ask\n"))
      << text;
}

TEST_F(ScriptComponent, ClassOfABrokenFileIsMade) {
  nsresult rv;
  EXPECT_FALSE(do_CreateInstance<nsITestListener>("@test/nothing;1", &rv));
  EXPECT_EQ(NS_ERROR_FACTORY_NOT_REGISTERED, rv);
  testing::internal::CaptureStderr();
  EXPECT_FALSE(do_CreateInstance<nsITestListener>("@test/broken;1", &rv));
  const std::string text = testing::internal::GetCapturedStderr();
  EXPECT_NE(std::string::npos, text.find("broken.js:2:")) << text;
  testing::internal::CaptureStderr();
  EXPECT_FALSE(do_CreateInstance<nsITestListener>("@test/throws;1", &rv));
  EXPECT_FALSE(do_CreateInstance<nsITestListener>("@test/awaits;1", &rv));
  const std::string modules = testing::internal::GetCapturedStderr();
  EXPECT_NE(std::string::npos, modules.find("throws.mjs:2:7: Error: at the top\n")) << modules;
  EXPECT_NE(std::string::npos,
            modules.find("awaits.mjs: a component is asked for its classes at once"))
      << modules;
}

}  // namespace
