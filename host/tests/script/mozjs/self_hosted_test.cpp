// What the script engine has in script itself is taken as the build has parsed it.
#include <gtest/gtest.h>
#include <js/AllocPolicy.h>
#include <js/BuildId.h>
#include <js/Vector.h>
#include <jsapi.h>

#include "nsSelfHosted.h"
#include "nsSelfHostedBytes.h"

namespace {

bool sParsed = false;

bool Parsed(JSContext*, JS::SelfHostedCache) { return sParsed = true; }

// In processes of their own: the engine starts once.
void Start(bool aOtherBuild) {
  if (!JS_Init()) _exit(3);
  JSContext* const cx = JS_NewContext(64 << 20);
  bool done = false;
  if (aOtherBuild) {
    JS::SetProcessBuildIdOp([](JS::BuildIdCharVector* aBuild) { return aBuild->append("x", 1); });
    done = JS::InitSelfHostedCode(cx, {kSelfHostedBytes, kSelfHostedSize}, Parsed);
  } else {
    done = NS_InitSelfHosted(cx, Parsed);
  }
  _exit(!done ? 2 : sParsed);
}

TEST(SelfHostedDeathTest, IsParsedAtEachStartOrTakenFromAnotherEngine) {
  if (kSelfHostedSize == 0) GTEST_SKIP() << "the engine does not tell its build";
  EXPECT_EXIT(Start(false), testing::ExitedWithCode(0), "");
  EXPECT_EXIT(Start(true), testing::ExitedWithCode(1), "");
}

}  // namespace
