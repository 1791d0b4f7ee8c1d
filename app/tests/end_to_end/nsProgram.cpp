#include "nsProgram.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

namespace {
constexpr auto kLimit = std::chrono::seconds(60);
}  // namespace

nsProgram::nsProgram() {
  std::string name = (std::filesystem::temp_directory_path() / "vorel-XXXXXX").string();
  mDirectory = mkdtemp(name.data());
}

nsProgram::~nsProgram() {
  if (mPid > 0) (void)Finish(SIGKILL);
  std::filesystem::remove_all(mDirectory);
}

std::string nsProgram::Write(const std::string& aName, const std::string& aText) {
  const std::filesystem::path path = std::filesystem::path(mDirectory) / aName;
  std::filesystem::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << aText;
  return path.string();
}

void nsProgram::Become(const std::vector<std::string>& aArguments) {
  const std::string program = VOREL_BINARY_DIR "/bin/vorel";
  std::vector<std::string> arguments = {program};
  arguments.insert(arguments.end(), aArguments.begin(), aArguments.end());
  std::vector<char*> argv;
  for (auto& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);
  setenv("HOME", mDirectory.c_str(), 1);
  unsetenv("DISPLAY");  // which is somebody's
  unsetenv("XDG_DATA_HOME");
  unsetenv("XDG_STATE_HOME");
  if (chdir(mDirectory.c_str()) == 0) execv(program.c_str(), argv.data());
  _exit(127);
}

void nsProgram::Start(const std::vector<std::string>& aArguments) {
  int out[2], err[2];
  ASSERT_EQ(pipe2(out, O_CLOEXEC), 0);
  ASSERT_EQ(pipe2(err, O_CLOEXEC), 0);
  mOutcome = {};
  mPid = fork();
  ASSERT_GE(mPid, 0);
  if (mPid == 0) {
    dup2(open(mInput.c_str(), O_RDONLY | O_CLOEXEC), STDIN_FILENO);
    dup2(out[1], STDOUT_FILENO);
    dup2(err[1], STDERR_FILENO);
    Become(aArguments);
  }
  close(out[1]);
  close(err[1]);
  mOut = out[0];
  mErr = err[0];
}

void nsProgram::StartOnTerminal(const std::vector<std::string>& aArguments) {
  const winsize size = {24, 80, 0, 0};
  mOutcome = {};
  mPid = forkpty(&mOut, nullptr, nullptr, &size);
  ASSERT_GE(mPid, 0);
  if (mPid == 0) {
    setenv("TERM", "xterm", 1);
    Become(aArguments);
  }
}

void nsProgram::Type(const std::string& aText) {
  ASSERT_EQ(write(mOut, aText.data(), aText.size()), static_cast<ssize_t>(aText.size()));
}

void nsProgram::Read(int aFd, std::string* aInto) {
  char buffer[4096];
  const ssize_t size = read(aFd, buffer, sizeof buffer);
  if (size > 0) {
    aInto->append(buffer, static_cast<size_t>(size));
  } else if (aFd == mOut) {
    CloseOutput();
  } else {
    close(mErr);
    mErr = -1;
  }
}

void nsProgram::CloseOutput() {
  close(mOut);
  mOut = -1;
}

// Reads what is there, waiting for it; false when both ends are closed or the time is up.
bool nsProgram::Pump(std::chrono::steady_clock::time_point aUntil) {
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
      aUntil - std::chrono::steady_clock::now());
  pollfd fds[] = {{mOut, POLLIN, 0}, {mErr, POLLIN, 0}};
  if ((mOut < 0 && mErr < 0) || left.count() <= 0 ||
      poll(fds, 2, static_cast<int>(left.count())) <= 0)
    return false;
  if (fds[0].revents) Read(mOut, &mOutcome.mOutput);
  if (fds[1].revents) Read(mErr, &mOutcome.mErrors);
  return true;
}

bool nsProgram::WaitFor(const std::string& aText) {
  const auto until = std::chrono::steady_clock::now() + kLimit;
  while (mOutcome.mOutput.find(aText) == std::string::npos)
    if (!Pump(until)) return false;
  return true;
}

nsOutcome nsProgram::Finish(int aSignal) {
  if (aSignal) kill(mPid, aSignal);
  const auto until = std::chrono::steady_clock::now() + kLimit;
  while (Pump(until)) continue;
  if (mOut >= 0 || mErr >= 0) {
    ADD_FAILURE() << "the program did not end";
    kill(mPid, SIGKILL);
  }
  int status = 0;
  waitpid(mPid, &status, 0);
  mPid = -1;
  for (int* fd : {&mOut, &mErr}) {
    if (*fd >= 0) close(*fd);
    *fd = -1;
  }
  mOutcome.mStatus = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return mOutcome;
}

nsOutcome nsProgram::Run(const std::vector<std::string>& aArguments) {
  Start(aArguments);
  return Finish(0);
}

std::string SourceFile(const std::string& aPath) { return VOREL_SOURCE_DIR "/" + aPath; }
