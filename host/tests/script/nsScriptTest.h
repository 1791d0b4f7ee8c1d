// A host with scripts and a test object under the global names `thing` and `TestThing`.
#pragma once

#include "nsIThread.h"
#include "nsScriptHost.h"
#include "nsTestHost.h"
#include "nsTestThing.h"
#include "nsVorelMethodCaller.h"

class nsScriptTest : public nsHostTest {
 protected:
  nsScriptTest() {
    nsScriptHost::AddInterfaces(kTestTables);
    mModule
        .Class("b0000000-0000-4000-8000-000000000001"_iid, "@test/thing;1",
               [](const nsIID& aIID, void** aResult) {
                 return MakeRefCounted<nsTestThing>()->QueryInterface(aIID, aResult);
               })
        .Class("b0000000-0000-4000-8000-000000000002"_iid, "@test/twin;1",
               [](const nsIID& aIID, void** aResult) {
                 return MakeRefCounted<nsTestTwin>()->QueryInterface(aIID, aResult);
               })
        .Category("JavaScript-global-property", "twin", "@test/twin;1")
        .Category("JavaScript-global-property", "thing", "@test/thing;1")
        .Category("JavaScript-global-property", "absent", "@test/absent;1")
        .Category("JavaScript-global-constructor", "TestThing", "@test/thing;1")
        .Category("JavaScript-DOM-interface", "TestThing", "a0000000-0000-4000-8000-000000000003")
        .Category("JavaScript-DOM-interface", "TestExtra", "a0000000-0000-4000-8000-000000000004");
    for (const vorel::Module* module : {&nsScriptHost::Module(), &std::as_const(mModule.Record())})
      mOptions.mModules.push_back(module);
  }
  ~nsScriptTest() override { Stop(); }

  void SetUp() override {
    Start();
    StartScripts({});
  }
  void StartScripts(nsScriptOptions aOptions) {
    std::string error;
    mScripts = nsScriptHost::Create(aOptions, &error);
    ASSERT_TRUE(mScripts) << error;
  }
  void Stop() {
    mHost.Stop();
    mScripts = nullptr;
  }

  /// What a text evaluates to, or what is reported.
  std::string Run(std::string_view aText) {
    std::string result;
    testing::internal::CaptureStderr();
    const nsresult rv = mScripts->Evaluate(aText, "test.js", &result);
    const std::string reported = testing::internal::GetCapturedStderr();
    return NS_FAILED(rv) || !reported.empty() ? result + reported : result;
  }
  /// The message of what a text throws.
  std::string Thrown(const std::string& aText) {
    return Run(
        "try { " + aText +
        "; 'nothing' } catch (e) { (e instanceof TypeError ? 'TypeError: ' : '') + e.message }");
  }
  /// Runs scripts until they are done, and gives the status and what was reported.
  std::pair<int, std::string> Finish() {
    testing::internal::CaptureStderr();
    const int status = mScripts->RunUntilDone();
    return {status, testing::internal::GetCapturedStderr()};
  }

  /// Runs what is due on the main thread.
  void RunEvents() {
    nsCOMPtr<nsIThread> thread;
    ASSERT_EQ(NS_OK, NS_GetMainThread(thread.getter_AddRefs()));
    for (bool ran = true; ran;) ASSERT_EQ(NS_OK, thread->ProcessNextEvent(false, &ran));
  }

  nsTestModule mModule;
  std::unique_ptr<nsScriptHost> mScripts;
};
