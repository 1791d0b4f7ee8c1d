// A display server of the test's own.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "nsTemporaryDirectory.h"

/// Runs until the end of the object. DISPLAY names it.
class nsDisplayServer {
 public:
  /// aLine begins with the program; a free display is chosen unless aName, ":57", says which.
  explicit nsDisplayServer(std::vector<std::string> aLine, std::string aName = {}) {
    int number[2];
    if (pipe2(number, O_CLOEXEC) != 0) return;
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_adddup2(&files, number[1], kNumberFile);
    posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&files, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    if (!aName.empty()) aLine.push_back(aName);
    for (const char* word : {"-displayfd", "100", "-noreset", "-nolisten", "tcp"})
      aLine.emplace_back(word);
    std::vector<char*> arguments;
    for (std::string& word : aLine) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    if (posix_spawnp(&mServer, arguments[0], &files, nullptr, arguments.data(), environ) != 0)
      mServer = 0;
    posix_spawn_file_actions_destroy(&files);
    close(number[1]);
    char letter = 0;
    std::string name = ":";
    while (read(number[0], &letter, 1) == 1 && letter != '\n') name += letter;
    close(number[0]);
    if (letter != '\n') return;
    mName = name;
    setenv("DISPLAY", mName.c_str(), 1);
  }
  /// One of memory with one output, "screen", of 1280x1024.
  static std::unique_ptr<nsDisplayServer> StartXvfb(const std::string& aName = {}) {
    return std::make_unique<nsDisplayServer>(
        std::vector<std::string>{"Xvfb", "-screen", "0", "1280x1024x24"}, aName);
  }
  /// One of memory with many outputs, "DUMMY0" and so on, of which the first is on, with 1280x720.
  static std::unique_ptr<nsDisplayServer> StartDummy(const nsTemporaryDirectory& aDirectory) {
    const std::string configuration = aDirectory / "xorg.conf";
    std::ofstream(configuration) << kConfiguration;
    return std::make_unique<nsDisplayServer>(
        std::vector<std::string>{"Xorg", "-config", configuration, "-logfile", aDirectory / "log",
                                 "-novtswitch", "-sharevts", "-keeptty"});
  }
  ~nsDisplayServer() {
    End();
    unsetenv("DISPLAY");
  }
  nsDisplayServer(const nsDisplayServer&) = delete;
  nsDisplayServer& operator=(const nsDisplayServer&) = delete;

  /// ":57"; empty when it does not start here.
  const std::string& Name() const { return mName; }
  void End() {
    if (mServer == 0) return;
    kill(mServer, SIGTERM);  // leaves no socket behind
    EXPECT_EQ(waitpid(mServer, nullptr, 0), mServer);
    mServer = 0;
  }
  void Signal(int aSignal) const { kill(mServer, aSignal); }

 private:
  static constexpr char kConfiguration[] = R"(
Section "ServerFlags"
  Option "AutoAddDevices" "false"
  Option "AutoAddGPU" "false"
  Option "DontVTSwitch" "true"
EndSection
Section "Device"
  Identifier "dummy"
  Driver "dummy"
  VideoRam 65536
EndSection
Section "Monitor"
  Identifier "monitor"
  HorizSync 5-1000
  VertRefresh 5-200
EndSection
Section "Screen"
  Identifier "screen"
  Device "dummy"
  Monitor "monitor"
  DefaultDepth 24
  SubSection "Display"
    Depth 24
    Modes "1280x720" "1024x768" "800x600"
    Virtual 3000 2000
  EndSubSection
EndSection
)";
  static constexpr int kNumberFile = 100;
  pid_t mServer = 0;
  std::string mName;
};
