// What script finds around it: timers, promises, modules, files, the end.
#include <filesystem>

#include "nsScriptEngine.h"
#include "nsScriptTest.h"

namespace {

class ScriptEnvironment : public nsScriptTest {};

TEST_F(ScriptEnvironment, ApplicationEndsBeforeItsTimers) {
  EXPECT_EQ("", Run("globalThis.order = []; setTimeout((x) => order.push('late', x), 20, 5); "
                    "setTimeout(() => order.push('soon'));"
                    "const i = setInterval(() => { order.push('i'); if (order.length > 5) "
                    "clearInterval(i) }, 1);"
                    "const never = setTimeout(() => order.push('never'), 10); clearTimeout(never); "
                    "clearTimeout(never); undefined"));
  EXPECT_EQ(0, Finish().first);
  EXPECT_EQ("true true false", Run("`${order.includes('soon')} ${order.indexOf(5) === "
                                   "order.indexOf('late') + 1} ${order.includes('never')}`"));
}

TEST_F(ScriptEnvironment, ApplicationEndsThoughItListens) {
  EXPECT_EQ("", Run("thing.addListener(globalThis.l = { onThing() {} }); setTimeout(() => "
                    "setTimeout(() => quit(3), 5), 5); undefined"));
  EXPECT_EQ(3, Finish().first);
}

TEST_F(ScriptEnvironment, ApplicationHangsOnWhatNobodyHolds) {
  EXPECT_EQ("", Run("new TestThing().addListener({ onThing() {} })"));
  EXPECT_EQ(0, Finish().first);
}

TEST_F(ScriptEnvironment, ErrorIsNotSeen) {
  EXPECT_EQ("", Run("setTimeout(() => { throw new Error('in a timer') })").substr(1));
  auto [status, text] = Finish();
  EXPECT_EQ(1, status);
  EXPECT_TRUE(text.starts_with("vorel: test.js:1:26: Error: in a timer\n")) << text;
  EXPECT_EQ("vorel: unhandled rejection: 5\n", Run("Promise.reject(5); undefined"));
  EXPECT_EQ("vorel: unhandled rejection: 1\nvorel: unhandled rejection: 2\n",
            Run("Promise.reject(1); Promise.reject(2); undefined"));
  EXPECT_EQ("", Run("Promise.reject(6).catch(() => {}); undefined"));
  EXPECT_TRUE(Run("\n\nlet x = ;").starts_with("vorel: test.js:3:9: SyntaxError"));
  EXPECT_TRUE(Run("throw null").starts_with("vorel: null"));
  EXPECT_TRUE(
      Run("throw { toString() { throw 1 } }").starts_with("vorel: a value that has no text"));
}

TEST_F(ScriptEnvironment, JobsWaitForAnEvent) {
  EXPECT_EQ("", Run("globalThis.n = 0; Promise.resolve().then(() => { n = 1 }); undefined"));
  EXPECT_EQ("1", Run("n"));
  EXPECT_EQ("", Run("(async () => { await null; n = 2; await new Promise((r) => setTimeout(r, 1)); "
                    "n = 3 })(); undefined"));
  EXPECT_EQ(0, Finish().first);
  EXPECT_EQ("3", Run("n"));
}

TEST_F(ScriptEnvironment, FileIsRunFromTheWrongPlace) {
  Write("lib/b.mjs", "export const b = import.meta.url.split('/').pop();\n");
  Write("lib/c.mjs", "export default 'c';\n");
  const std::string app = Write("app.mjs",
                                "import { b } from './lib/b.mjs';\nglobalThis.r = b;\nglobalThis.r "
                                "+= (await import('./lib/c.mjs')).default;\n");
  EXPECT_EQ(NS_OK, mScripts->RunFile(app));
  EXPECT_EQ("b.mjsc", Run("r"));
  const std::string script = Write("app.js", "#!/usr/bin/env vorel\nvar q = 2;\n");
  EXPECT_EQ(NS_OK, mScripts->RunFile(script));
  EXPECT_EQ("2", Run("q"));
  testing::internal::CaptureStderr();
  EXPECT_EQ(NS_ERROR_FAILURE, mScripts->RunFile(Write("bad.js", "\nfoo bar\n")));
  EXPECT_EQ(NS_ERROR_FAILURE, mScripts->RunFile(Write("bad.mjs", "import './lib/none.mjs';\n")));
  EXPECT_EQ(NS_ERROR_FAILURE,
            mScripts->RunFile(Write("throws.mjs", "\n\nthrow new Error('top');\n")));
  EXPECT_EQ(NS_ERROR_FAILURE, mScripts->RunFile(Path("none.js")));
  EXPECT_EQ(NS_ERROR_FAILURE, mScripts->RunFile(Path("lib")));  // a directory
  const std::string text = testing::internal::GetCapturedStderr();
  for (const char* part : {"bad.js:2:5: SyntaxError", "lib/none.mjs can't be read",
                           "throws.mjs:3:7: Error: top", "none.js can't be read"})
    EXPECT_NE(std::string::npos, text.find(part)) << part << " in " << text;
}

TEST_F(ScriptEnvironment, ModuleIsNotFoundOrRunsTwice) {
  const std::string odd = Write("lib/odd %41#?.mjs",
                                "globalThis.loads = (globalThis.loads ?? 0) + 1;\n"
                                "export const url = import.meta.url;\n");
  std::filesystem::create_symlink(odd, Path("lib/link.mjs"));
  EXPECT_EQ(NS_OK, mScripts->RunFile(Write("apps/classic.js", R"((async () => {
    const one = await import("../lib/odd %41#?.mjs");
    const others = await Promise.all([one.url, "../lib/link.mjs", "../apps/../lib//odd %41#?.mjs"].map((name) => import(name)));
    globalThis.r = [others.every((other) => other === one), loads, one.url.split("/").pop()].join();
  })())")));
  EXPECT_EQ(0, Finish().first);
  EXPECT_EQ("true,1,odd%20%2541%23%3F.mjs", Run("r"));
  for (const char* wrong : {"file://elsewhere/a.mjs", "file:///a%00.mjs", "bare"}) {
    EXPECT_NE("", Run(std::string("import('") + wrong + "'); undefined")) << wrong;
  }
}

TEST_F(ScriptEnvironment, DocumentStandsSomewhereElse) {
  mScripts = nullptr;
  nsScriptOptions options;
  options.mFile = Path("apps/app.js");
  options.mArguments = {"one", "t\u00fc"};
  StartScripts(options);
  EXPECT_EQ("file://" + Path("apps/app.js"), Run("document.baseURI"));
  EXPECT_EQ("[ \"one\", \"t\u00fc\" ]", Run("arguments"));
  EXPECT_EQ("true", Run("window === globalThis"));
}

TEST_F(ScriptEnvironment, StatusIsCut) {
  EXPECT_EQ(
      "TypeError: quit: argument 1 (status): a whole number from 0 to 255 is expected, not the "
      "number 256",
      Thrown("quit(256)"));
  EXPECT_EQ("", Run("Promise.resolve().then(() => quit(9)).finally(() => { globalThis.went = 1 }); "
                    "undefined"));
  EXPECT_EQ(9, Finish().first);
  EXPECT_EQ("undefined", Run("typeof went"));
}

// After quit() nothing runs, and what has run can't catch it.
TEST_F(ScriptEnvironment, ScriptRunsAfterItsEnd) {
  for (const std::string end : {
           "setTimeout(() => quit(4)); setTimeout(went); setInterval(went, 1)",
           "Promise.resolve().then(() => quit(4)); Promise.resolve().then(went)",
           "Promise.resolve().then(went); quit(4)",
           "new TestThing({ toString() { quit(4) } })",
           "thing.addListener({ get onThing() { quit(4) }, ask() {} }); thing.notify('x')",
           "thing.addListener(new Proxy({}, { has() { quit(4) } }))",
           "thing.addListener({ QueryInterface() { quit(4) }, get ask() { went() } })",
           "thing.addListener({ onThing() { quit(4) } });"
           "thing.addListener({ get onThing() { went() }, ask() {} }); thing.notify('x')",
           "Components.Exception({ toString() { quit(4) } })",
           "new Components.Exception({ toString() { quit(4) } })",
           "console.log({ get a() { quit(4) } })",
           "setTimeout(went, { valueOf() { quit(4) } })",
           "String(Components.classes[{ toString() { quit(4) } }])",
           "const s = Components.classes['@mozilla.org/toolkit/app-startup;1'].getService("
           "Components.interfaces.nsIAppStartup); setTimeout(() => { s.run(); went() });"
           "setTimeout(() => quit(4), 5)",
       }) {
    EXPECT_EQ("", Run("globalThis.runs = 0; globalThis.went = () => { ++runs };"
                      "setTimeout(() => quit(99), 500); try { " +
                      end + "; (async () => {})() } catch (e) { went() } finally { } undefined"))
        << end;
    EXPECT_EQ(4, Finish().first) << end;
    EXPECT_EQ("0", Run("runs")) << end;
    RunEvents();
    EXPECT_EQ("0", Run("runs")) << end;
    Stop();
    SetUp();
  }
}

TEST_F(ScriptEnvironment, ValueIsShownAsNothing) {
  EXPECT_EQ("{ a: 1, b: [ \"x\", null ], c: [function f] }",
            Run("({ a: 1, b: ['x', null], c: function f() {} })"));
  EXPECT_EQ("TestThing { label: \"l\", count: 3, peer: null }",
            Run("const t = new TestThing('l'); t.count = 3; t"));
  EXPECT_EQ("{ self: [circular] }", Run("const o = {}; o.self = o; o"));
  EXPECT_EQ("{ bad: <NS_ERROR_FAILURE> }", Run("({ get bad() { thing.fail(0x80004005) } })"));
}

TEST_F(ScriptEnvironment, CompletionCallsOrMissesMembers) {
  size_t start = 0;
  EXPECT_EQ(std::vector<std::string>({"label"}), mScripts->Complete("x = thing.la", &start));
  EXPECT_EQ(10u, start);
  EXPECT_EQ(std::vector<std::string>({"setInterval", "setTimeout"}),
            mScripts->Complete("set", &start));
  EXPECT_TRUE(mScripts->Complete("nowhere.x", &start).empty());
  // Names that are looked up when they are used, and those that are no properties.
  EXPECT_EQ(std::vector<std::string>({"TestExtra", "TestThing"}),
            mScripts->Complete("new Test", &start));
  (void)Run("let later = 1; class Later {}");
  EXPECT_EQ(std::vector<std::string>({"later"}), mScripts->Complete("late", &start));
  EXPECT_EQ(std::vector<std::string>({"Later"}), mScripts->Complete("Late", &start));
  EXPECT_TRUE(mScripts->IsIncomplete("function f() {"));
  EXPECT_FALSE(mScripts->IsIncomplete("1 +* 2"));
}

TEST_F(ScriptEnvironment, TimeZoneIsTheOldOne) {
  const std::string old = getenv("TZ") ? getenv("TZ") : "";
  setenv("TZ", "Asia/Tokyo", 1);
  JS_ClearDateCaches(nullptr);
  EXPECT_EQ("-540", Run("new Date(0).getTimezoneOffset()"));
  setenv("TZ", "America/Bogota", 1);
  JS_ClearDateCaches(nullptr);
  EXPECT_EQ("300", Run("new Date(0).getTimezoneOffset()"));
  old.empty() ? unsetenv("TZ") : setenv("TZ", old.c_str(), 1);
  JS_ClearDateCaches(nullptr);
}

TEST_F(ScriptEnvironment, SecondStartFindsTheFirst) {
  EXPECT_EQ("", Run("globalThis.left = 1; undefined"));
  mScripts = nullptr;
  StartScripts({});
  EXPECT_EQ("undefined", Run("typeof left"));
  EXPECT_EQ("", Run("thing.label"));
}

}  // namespace
