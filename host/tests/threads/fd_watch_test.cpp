// Descriptors watched from the main thread's event loop.
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "nsFdWatch.h"
#include "nsHost.h"
#include "nsTestThreads.h"

namespace {

class FdWatch : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(NS_OK, mHost.Start({}));
    mMain = NS_TestMainThread();
    ASSERT_EQ(0, pipe(mFds));
  }
  void TearDown() override {
    mHost.Stop();
    close(mFds[0]);
    if (mFds[1] >= 0) close(mFds[1]);
  }
  void RunOne() {
    bool ran = false;
    ASSERT_EQ(NS_OK, mMain->ProcessNextEvent(true, &ran));
  }
  nsHost mHost;
  nsCOMPtr<nsIThread> mMain;
  int mFds[2] = {-1, -1};
};

TEST_F(FdWatch, WhatIsLeftUnreadIsForgotten) {
  std::string seen;
  std::unique_ptr<nsFdWatch> watch;
  ASSERT_EQ(NS_OK, nsFdWatch::Start(
                       mFds[0], mMain.get(),
                       [&] {
                         char c = 0;
                         if (read(mFds[0], &c, 1) == 1) {
                           seen += c;
                         } else {
                           seen += " end";
                           watch = nullptr;  // from its own call
                         }
                       },
                       &watch));
  ASSERT_EQ(3, write(mFds[1], "abc", 3));
  while (seen.size() < 3) RunOne();
  EXPECT_EQ("abc", seen);
  close(mFds[1]);
  mFds[1] = -1;
  while (watch) RunOne();
  EXPECT_EQ("abc end", seen);
}

TEST_F(FdWatch, AWatchThatIsGoneIsCalled) {
  std::unique_ptr<nsFdWatch> watch;
  ASSERT_EQ(NS_OK, nsFdWatch::Start(
                       mFds[0], mMain.get(), [] { ADD_FAILURE(); }, &watch));
  ASSERT_EQ(1, write(mFds[1], "x", 1));
  bool pending = false;
  while (!pending) ASSERT_EQ(NS_OK, mMain->HasPendingEvents(&pending));
  watch = nullptr;
  RunOne();
  EXPECT_EQ(NS_ERROR_INVALID_ARG, nsFdWatch::Start(
                                      -1, mMain.get(), [] {}, &watch));
}

}  // namespace
