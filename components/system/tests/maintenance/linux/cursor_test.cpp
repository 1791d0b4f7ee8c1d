// The cursor on a display: a server of the test's own, of which the very pixels are looked at.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <xcb/xcb.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <iterator>
#include <thread>
#include <vector>

#include "nsLinuxHost.h"
#include "nsTemporaryDirectory.h"

namespace {

/// A small black screen with a red cursor in its middle. DISPLAY names it.
class Display {
 public:
  Display() {
    int number[2];
    if (pipe2(number, O_CLOEXEC) != 0) return;
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_adddup2(&files, number[1], kNumberFile);
    posix_spawn_file_actions_addopen(&files, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    // It ends by itself with its last connection, should this test not come to its end.
    std::vector<std::string> line = {
        "Xvfb",     "-displayfd", std::to_string(kNumberFile), "-terminate", "-br", "-screen", "0",
        "64x64x24", "-fbdir",     mPixels.Path().string()};
    std::vector<char*> arguments;
    for (std::string& word : line) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    const int error = posix_spawnp(&mServer, "Xvfb", &files, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&files);
    close(number[1]);
    if (error != 0) mServer = 0;
    mName = ":";
    char letter = 0;
    while (read(number[0], &letter, 1) == 1 && letter != '\n') mName += letter;
    close(number[0]);
    if (letter != '\n') return;
    mLacks.clear();
    setenv("DISPLAY", mName.c_str(), 1);
    ShowRedCursor();
  }
  ~Display() {
    End();
    xcb_disconnect(mObserver);
  }
  Display(const Display&) = delete;
  Display& operator=(const Display&) = delete;

  /// Why there is none; empty when there is one.
  const std::string& Lacks() const { return mLacks; }

  void End() {
    if (mServer == 0) return;
    kill(mServer, SIGTERM);  // leaves no socket behind
    EXPECT_EQ(waitpid(mServer, nullptr, 0), mServer);
    mServer = 0;
  }

  /// Whether the cursor comes to be on the screen, or goes: a server draws when it gets to it.
  bool Becomes(bool aShown) const {
    const auto patience = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (HasRed() != aShown) {
      if (std::chrono::steady_clock::now() > patience) return false;
      std::this_thread::yield();
    }
    return true;
  }

 private:
  static constexpr int kNumberFile = 100;
  static constexpr size_t kScreenBytes = 64 * 64 * 4;

  void ShowRedCursor() {
    mObserver = xcb_connect(mName.c_str(), nullptr);
    ASSERT_EQ(xcb_connection_has_error(mObserver), 0);
    const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(mObserver)).data;
    const uint32_t bits = xcb_generate_id(mObserver), gc = xcb_generate_id(mObserver),
                   cursor = xcb_generate_id(mObserver), one = 1;
    const xcb_rectangle_t all = {0, 0, 8, 8};
    xcb_create_pixmap(mObserver, 1, bits, screen->root, 8, 8);
    xcb_create_gc(mObserver, gc, bits, XCB_GC_FOREGROUND, &one);
    xcb_poly_fill_rectangle(mObserver, bits, gc, 1, &all);
    xcb_create_cursor(mObserver, cursor, bits, bits, 0xffff, 0, 0, 0xffff, 0, 0, 4, 4);
    xcb_change_window_attributes(mObserver, screen->root, XCB_CW_CURSOR, &cursor);
    xcb_warp_pointer(mObserver, XCB_NONE, screen->root, 0, 0, 0, 0, 32, 32);
    ASSERT_GT(xcb_flush(mObserver), 0);
  }
  bool HasRed() const {
    std::ifstream file(mPixels / "Xvfb_screen0", std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(file), {}};
    if (bytes.size() < kScreenBytes) return false;
    std::vector<uint32_t> pixels(kScreenBytes / 4);
    std::memcpy(pixels.data(), bytes.data() + bytes.size() - kScreenBytes, kScreenBytes);
    return std::any_of(pixels.begin(), pixels.end(),
                       [](uint32_t aPixel) { return (aPixel & 0xffffff) == 0xff0000; });
  }

  nsTemporaryDirectory mPixels;
  pid_t mServer = 0;
  std::string mName, mLacks = "no Xvfb that starts here";
  xcb_connection_t* mObserver = nullptr;
};

class CursorTest : public testing::Test {
 protected:
  void SetUp() override {
    mPipeBefore = signal(SIGPIPE, SIG_DFL);
    if (const char* name = getenv("DISPLAY")) mDisplayBefore = name;
    unsetenv("DISPLAY");
  }
  void TearDown() override {
    (void)signal(SIGPIPE, mPipeBefore);
    if (mDisplayBefore.empty())
      unsetenv("DISPLAY");
    else
      setenv("DISPLAY", mDisplayBefore.c_str(), 1);
  }
  int32_t Step(bool aShow) {
    int32_t counter = INT32_MIN;
    EXPECT_EQ(mHost->StepCursorCounter(aShow, &counter), NS_OK);
    return counter;
  }

  std::unique_ptr<nsLinuxHost> mHost = std::make_unique<nsLinuxHost>();
  std::string mDisplayBefore;
  void (*mPipeBefore)(int) = SIG_DFL;
};

TEST_F(CursorTest, TheCounterIsNotKeptWithoutADisplay) {
  EXPECT_EQ(Step(false), -1);
  EXPECT_EQ(Step(true), 0);
  setenv("DISPLAY", ":60000", 1);  // where nobody answers
  EXPECT_EQ(Step(false), -1);
  EXPECT_EQ(Step(false), -2);
  EXPECT_EQ(Step(true), -1);
}

TEST_F(CursorTest, TheDisplayDoesNotFollowTheCounter) {
  const Display display;
  if (!display.Lacks().empty()) GTEST_SKIP() << display.Lacks();
  ASSERT_TRUE(display.Becomes(true));
  EXPECT_EQ(Step(true), 1);
  EXPECT_EQ(Step(false), 0);
  EXPECT_EQ(Step(false), -1);
  EXPECT_TRUE(display.Becomes(false));
  // Hidden twice, it would have to be shown twice.
  EXPECT_EQ(Step(false), -2);
  EXPECT_EQ(Step(true), -1);
  EXPECT_EQ(Step(true), 0);
  EXPECT_TRUE(display.Becomes(true));
  EXPECT_EQ(Step(false), -1);
  EXPECT_TRUE(display.Becomes(false));
  mHost = nullptr;
  EXPECT_TRUE(display.Becomes(true)) << "still hidden by what has ended";
}

TEST_F(CursorTest, ADisplayThatDiesTakesTheProcessAlongOrIsNeverLeft) {
  for (const bool endsHidden : {true, false}) {
    Display dead;
    if (!dead.Lacks().empty()) GTEST_SKIP() << dead.Lacks();
    ASSERT_TRUE(dead.Becomes(true));
    EXPECT_EQ(Step(false), -1);
    ASSERT_TRUE(dead.Becomes(false));
    if (endsHidden) dead.End();
    EXPECT_EQ(Step(true), 0);
    dead.End();
    EXPECT_EQ(Step(false), -1);
    EXPECT_EQ(Step(true), 0);
    const Display next;
    ASSERT_TRUE(next.Becomes(true));
    EXPECT_EQ(Step(false), -1);
    EXPECT_TRUE(next.Becomes(false)) << endsHidden;
    EXPECT_EQ(Step(true), 0);
    EXPECT_TRUE(next.Becomes(true)) << endsHidden;
  }
}

}  // namespace
