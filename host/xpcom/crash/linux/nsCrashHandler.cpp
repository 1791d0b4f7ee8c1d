#include "nsCrashHandler.h"

#include <dirent.h>
#include <execinfo.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>
#include <ucontext.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string_view>
#include <type_traits>

#include <cxxabi.h>

#include "nsCrashSymbols.h"
#include "nsHostCrash.h"

namespace {

struct CrashSignal {
  int mNumber;
  const char* mName;
};
constexpr std::array<CrashSignal, 6> kSignals{{{SIGSEGV, "SIGSEGV"},
                                               {SIGBUS, "SIGBUS"},
                                               {SIGFPE, "SIGFPE"},
                                               {SIGILL, "SIGILL"},
                                               {SIGABRT, "SIGABRT"},
                                               {SIGTRAP, "SIGTRAP"}}};

constexpr int kMaximumFrames = 128;
constexpr size_t kMaximumAnnotations = 64 * 1024;
constexpr size_t kAlternateStackSize = 128 * 1024;
// How far up a stack is looked through when its frames can't be followed.
constexpr size_t kMaximumScan = 32 * 1024;
constexpr size_t kMaximumScript = 64 * 1024;
constexpr size_t kMaximumName = 512;
constexpr size_t kMaximumNames = 256;
// A script that runs comes by the engine's own looking round much sooner.
constexpr int kScriptTries = 2000;         // of a millisecond
constexpr unsigned kLastResortLimit = 10;  // seconds
// A thread that does not answer for that long has the signal blocked, or can't run.
constexpr int kAnswerTries = 200;      // of a millisecond
constexpr unsigned kReportLimit = 60;  // seconds

// The stack of one thread: first the frames that could be followed, then what looks like a return
// address on the rest of it.
struct Stack {
  void* mFrames[kMaximumFrames] = {};
  int mFollowed = 0;
  int mCount = 0;
  const void* mInstruction = nullptr;  // that the signal has interrupted
};

// What a handler needs is here before it is needed: nothing can be made when things have gone
// wrong.
struct State {
  bool mInstalled = false;
  char mPath[4096] = {};  // up to where time and number of the process come
  std::array<struct sigaction, kSignals.size()> mBefore{};
  struct sigaction mStackBefore {};
  char mAnnotations[2][kMaximumAnnotations] = {};
  std::atomic<int> mAnnotationsInUse{0};
  std::atomic<pid_t> mReporter{0};  // the thread that writes; 0: none yet
  // Asking a thread for its stack: the thread that is asked, its number negative from when it hands
  // its stack over, and whether it has.
  std::atomic<pid_t> mAsked{0};
  std::atomic<bool> mAnswered{false};
  Stack mStack;
  nsCrashMaps mMaps;
  // Names that could not be written as people know them.
  char mNames[kMaximumNames][kMaximumName] = {};
  size_t mNameCount = 0;
  char mOldest[4096] = {};  // the report that this one takes the place of; none when empty
  // Asking for the script's stack: whoever takes the question away answers it.
  const nsCrashScript* mScript = nullptr;
  pid_t mScriptThread = 0;
  std::atomic<bool> mScriptAsked{false};
  std::atomic<bool> mScriptAnswered{false};
  size_t mScriptLength = 0;
  char mScriptText[kMaximumScript] = {};
  void* mAlternateStack = nullptr;
};
// All zero, so that memory is taken for what is used only. Never destroyed: a crash may come last
// of all.
static_assert(std::is_trivially_destructible_v<State>);
constinit State gTheState;
State& GetState() { return gTheState; }
State* gState = nullptr;

int StackSignal() { return SIGRTMIN + 4; }
pid_t ThreadId() { return static_cast<pid_t>(syscall(SYS_gettid)); }

// Writes to a descriptor piece by piece.
class Writer {
 public:
  explicit Writer(int aFile) : mFile(aFile) {}
  Writer& operator<<(std::string_view aText) {
    while (!aText.empty()) {
      const ssize_t written = write(mFile, aText.data(), aText.size());
      if (written > 0)
        aText.remove_prefix(static_cast<size_t>(written));
      else if (errno != EINTR)
        break;
    }
    return *this;
  }
  Writer& Decimal(int64_t aNumber) {
    return Number(aNumber < 0,
                  aNumber < 0 ? -static_cast<uint64_t>(aNumber) : static_cast<uint64_t>(aNumber),
                  10);
  }
  Writer& Hexadecimal(uint64_t aNumber) { return (*this << "0x").Number(false, aNumber, 16); }

 private:
  Writer& Number(bool aNegative, uint64_t aNumber, unsigned aBase) {
    char digits[32];
    size_t at = sizeof digits;
    do {
      digits[--at] = "0123456789abcdef"[aNumber % aBase];
      aNumber /= aBase;
    } while (aNumber != 0);
    if (aNegative) digits[--at] = '-';
    return *this << std::string_view(digits + at, sizeof digits - at);
  }

  const int mFile;
};

// Whether the instruction before an address is a call, so that this may be where it returns to.
bool FollowsCall(uintptr_t aAddress) {
#if defined(__x86_64__)
  const auto* code = reinterpret_cast<const unsigned char*>(aAddress);
  if (code[-5] == 0xE8) return true;
  for (int length = 2; length <= 7; ++length)
    if (code[-length] == 0xFF && (code[-length + 1] & 0x38) == 0x10) return true;
  return false;
#else
  return true;
#endif
}

// The stack of this thread from a point on which a signal has interrupted. Frames that were made by
// a script engine at run time can't be followed: beyond them the stack is looked through.
__attribute__((no_sanitize("address"))) void TakeStack(const ucontext_t& aContext, Stack* aStack) {
  aStack->mFollowed = aStack->mCount = backtrace(aStack->mFrames, kMaximumFrames);
#if defined(__x86_64__)
  aStack->mInstruction = reinterpret_cast<const void*>(aContext.uc_mcontext.gregs[REG_RIP]);
  const auto stackPointer = static_cast<uintptr_t>(aContext.uc_mcontext.gregs[REG_RSP]);
  const nsCrashMaps& maps = gState->mMaps;
  const nsCrashMaps::Mapping* stack = maps.Find(stackPointer);
  const auto last = reinterpret_cast<uintptr_t>(aStack->mFrames[std::max(aStack->mCount - 1, 0)]);
  const nsCrashMaps::Mapping* lastCode = maps.Find(last);
  const bool atEnd = lastCode && !lastCode->mPath.empty();  // in _start or the thread's beginning
  if (!stack || !stack->mWritable || atEnd) return;
  const uintptr_t end = std::min(stack->mEnd, stackPointer + kMaximumScan);
  for (uintptr_t at = stackPointer;
       at + sizeof(uintptr_t) <= end && aStack->mCount < kMaximumFrames; at += sizeof(uintptr_t)) {
    const uintptr_t word = *reinterpret_cast<const uintptr_t*>(at);
    const nsCrashMaps::Mapping* code = maps.Find(word);
    if (code && code->mExecutable && !code->mPath.empty() && word - code->mStart > 8 &&
        FollowsCall(word))
      aStack->mFrames[aStack->mCount++] = reinterpret_cast<void*>(word);
  }
#else
  (void)aContext;
#endif
}

// Keeps a name that is still the linker's; what it means can only be found out by means that a
// handler should not use, when all else is written.
const char* Note(const char* aName) {
  State& state = *gState;
  if (std::strncmp(aName, "_Z", 2) != 0 || state.mNameCount == kMaximumNames) return aName;
  for (size_t i = 0; i < state.mNameCount; ++i)
    if (std::strcmp(state.mNames[i], aName) == 0) return aName;
  const size_t length = std::min(std::strlen(aName), kMaximumName - 1);
  std::memcpy(state.mNames[state.mNameCount++], aName, length);
  return aName;
}

void WriteStack(Writer& aOut, const Stack& aStack) {
  // What lies above the interrupted instruction is our own.
  int first = 0;
  for (int i = 0; i < aStack.mFollowed; ++i)
    if (aStack.mFrames[i] == aStack.mInstruction) first = i;
  for (int i = first; i < aStack.mCount; ++i) {
    const auto address = reinterpret_cast<uintptr_t>(aStack.mFrames[i]);
    (aOut << (i < aStack.mFollowed ? "  " : "  ? ")).Hexadecimal(address);
    const nsCrashMaps::Mapping* mapping = gState->mMaps.Find(address);
    if (mapping && !mapping->mPath.empty()) {
      // A return address may be that of the next function, after a call that does not return.
      const uint64_t into = address - mapping->mStart + mapping->mOffset - (i > first ? 1 : 0);
      const size_t slash = mapping->mPath.rfind('/');
      aOut << " " << mapping->mPath.substr(slash + 1);
      char name[512];
      uint64_t offset = 0;
      if (NS_FindFunction(mapping->mPath.data(), into, name, sizeof name, &offset))
        (aOut << " " << Note(name) << "+").Hexadecimal(offset);
      else
        (aOut << "+").Hexadecimal(into);
    }
    aOut << "\n";
  }
}

void WriteThreadName(Writer& aOut, pid_t aThread) {
  // "/proc/self/task/N/comm"
  char path[64] = "/proc/self/task/";
  size_t at = std::strlen(path);
  char digits[16];
  size_t count = 0;
  for (pid_t rest = aThread; rest > 0; rest /= 10)
    digits[count++] = static_cast<char>('0' + rest % 10);
  while (count > 0) path[at++] = digits[--count];
  std::memcpy(path + at, "/comm", 6);
  char name[32];
  ssize_t length = 0;
  if (const int file = open(path, O_RDONLY | O_CLOEXEC); file >= 0) {
    length = read(file, name, sizeof name);
    close(file);
  }
  if (length > 0 && name[length - 1] == '\n') --length;
  (aOut << "Thread ").Decimal(aThread)
      << " \"" << std::string_view(name, length > 0 ? static_cast<size_t>(length) : 0) << "\"";
}

void AskThread(Writer& aOut, pid_t aThread) {
  State& state = *gState;
  state.mAnswered = false;
  state.mAsked = aThread;
  WriteThreadName(aOut << "\n", aThread);
  aOut << "\n";
  if (syscall(SYS_tgkill, getpid(), aThread, StackSignal()) == 0) {
    for (int i = 0; i < kAnswerTries && !state.mAnswered; ++i) {
      const timespec pause{.tv_sec = 0, .tv_nsec = 1'000'000};
      nanosleep(&pause, nullptr);
    }
  }
  // Whoever answers from now on comes too late, but one that is at it is let finish.
  pid_t asked = aThread;
  if (state.mAsked.compare_exchange_strong(asked, 0)) {
    aOut << "  gives no answer\n";
    return;
  }
  while (!state.mAnswered) {
  }
  WriteStack(aOut, state.mStack);
}

void AskOtherThreads(Writer& aOut, pid_t aSelf) {
  const int folder = open("/proc/self/task", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (folder < 0) return;
  struct Entry {  // of getdents64
    uint64_t mInode;
    int64_t mOffset;
    uint16_t mLength;
    uint8_t mType;
    char mName[1];
  };
  alignas(Entry) char buffer[4096];
  for (long got; (got = syscall(SYS_getdents64, folder, buffer, sizeof buffer)) > 0;)
    for (long at = 0; at < got;) {
      const auto* entry = reinterpret_cast<const Entry*>(buffer + at);
      pid_t thread = 0;
      for (const char* digit = entry->mName; *digit >= '0' && *digit <= '9'; ++digit)
        thread = thread * 10 + (*digit - '0');
      if (thread != 0 && thread != aSelf) AskThread(aOut, thread);
      at += entry->mLength;
    }
  close(folder);
}

void WriteRegisters(Writer& aOut, const ucontext_t& aContext) {
  auto write = [&, count = 0](const char* aName, auto aValue) mutable {
    aOut << (count++ % 4 == 0 ? "\n  " : "  ") << aName << "=";
    aOut.Hexadecimal(static_cast<uint64_t>(aValue));
  };
  aOut << "\nRegisters";
#if defined(__x86_64__)
  constexpr const char* kNames[] = {"r8",  "r9",  "r10", "r11", "r12", "r13",
                                    "r14", "r15", "rdi", "rsi", "rbp", "rbx",
                                    "rdx", "rax", "rcx", "rsp", "rip", "eflags"};
  static_assert(REG_R8 == 0 && REG_RIP == 16 && REG_EFL == 17);
  for (size_t i = 0; i < std::size(kNames); ++i) write(kNames[i], aContext.uc_mcontext.gregs[i]);
#elif defined(__aarch64__)
  char name[] = "x00";
  for (unsigned i = 0; i < 31; ++i) {
    name[1] = static_cast<char>('0' + i / 10);
    name[2] = static_cast<char>('0' + i % 10);
    write(name, aContext.uc_mcontext.regs[i]);
  }
  write("sp", aContext.uc_mcontext.sp);
  write("pc", aContext.uc_mcontext.pc);
#else
  (void)aContext;
#endif
  aOut << "\n";
}

// Every file that code comes from, by which the same build can be found again.
void WriteModules(Writer& aOut) {
  const nsCrashMaps& maps = gState->mMaps;
  aOut << "\nModules\n";
  for (size_t i = 0; i < maps.Count(); ++i) {
    const nsCrashMaps::Mapping& first = maps[i];
    if (first.mPath.empty() || (i > 0 && maps[i - 1].mPath == first.mPath)) continue;
    uintptr_t end = first.mEnd;
    bool hasCode = first.mExecutable;
    for (size_t j = i + 1; j < maps.Count() && maps[j].mPath == first.mPath; ++j) {
      end = maps[j].mEnd;
      hasCode = hasCode || maps[j].mExecutable;
    }
    if (!hasCode) continue;
    aOut << "  ";
    aOut.Hexadecimal(first.mStart) << "-";
    aOut.Hexadecimal(end) << " " << first.mPath << " ";
    uint8_t id[64];
    const size_t length = NS_FindBuildId(first.mPath.data(), id, sizeof id);
    if (length == 0) aOut << "no identifier";
    for (size_t byte = 0; byte < length; ++byte) {
      const char digits[] = {"0123456789abcdef"[id[byte] >> 4], "0123456789abcdef"[id[byte] & 15]};
      aOut << std::string_view(digits, 2);
    }
    aOut << "\n";
  }
}

bool WaitForScript() {
  for (int i = 0; i < kScriptTries && !gState->mScriptAnswered; ++i) {
    const timespec pause{.tv_sec = 0, .tv_nsec = 1'000'000};
    nanosleep(&pause, nullptr);
  }
  return gState->mScriptAnswered;
}

// The engine is asked to come by of itself, which it does wherever script loops. A script that is
// in native code does not come by; it is described where it stands, which may go wrong.
void WriteScript(Writer& aOut, pid_t aSelf) {
  State& state = *gState;
  if (!state.mScript) return;
  aOut << "\nScript\n";
  state.mScriptAnswered = false;
  state.mScriptAsked = true;
  bool answered = false;
  if (aSelf == state.mScriptThread) {
    NS_AnswerCrash();
    answered = true;
  } else {
    state.mScript->mInterrupt();
    answered = WaitForScript();
    if (!answered && syscall(SYS_tgkill, getpid(), state.mScriptThread, StackSignal()) == 0)
      answered = WaitForScript();
  }
  if (!answered)
    aOut << "  gives no answer\n";
  else if (state.mScriptLength == 0)
    aOut << "  none runs\n";
  else
    aOut << std::string_view(state.mScriptText, state.mScriptLength);
}

void WriteNames(Writer& aOut) {
  const State& state = *gState;
  if (state.mNameCount > 0) aOut << "\nNames\n";
  for (size_t i = 0; i < state.mNameCount; ++i) {
    int status = 0;
    if (char* const name = abi::__cxa_demangle(state.mNames[i], nullptr, nullptr, &status)) {
      aOut << "  " << state.mNames[i] << " = " << name << "\n";
      std::free(name);
    }
  }
}

void OnStackSignal(int, siginfo_t*, void* aContext) {
  State& state = *gState;
  const int error = errno;
  pid_t self = ThreadId();
  if (self == state.mScriptThread) NS_AnswerCrash();
  if (state.mAsked == self) {
    Stack stack;
    TakeStack(*static_cast<const ucontext_t*>(aContext), &stack);
    if (state.mAsked.compare_exchange_strong(self, -self)) {
      state.mStack = stack;
      state.mAnswered = true;
    }
  }
  errno = error;
}

int OpenReport() {
  State& state = *gState;
  char path[sizeof state.mPath + 64];
  const size_t length = std::strlen(state.mPath);
  std::memcpy(path, state.mPath, length);
  timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  size_t at = length;
  const auto addNumber = [&](int64_t aNumber) {
    char digits[24];
    size_t count = 0;
    do {
      digits[count++] = static_cast<char>('0' + aNumber % 10);
      aNumber /= 10;
    } while (aNumber > 0);
    while (count > 0) path[at++] = digits[--count];
  };
  addNumber(now.tv_sec);
  path[at++] = '-';
  addNumber(getpid());
  std::memcpy(path + at, ".txt", 5);
  return open(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
}

void WriteReport(int aSignal, const siginfo_t& aInfo, const ucontext_t& aContext, pid_t aSelf) {
  State& state = *gState;
  const int file = OpenReport();
  if (file < 0) return;
  Writer out(file);
  const auto signal = std::ranges::find(kSignals, aSignal, &CrashSignal::mNumber);
  out << "Crash report\n" << state.mAnnotations[state.mAnnotationsInUse] << "Signal=";
  out.Decimal(aSignal) << " " << (signal != kSignals.end() ? signal->mName : "") << "\nCode=";
  out.Decimal(aInfo.si_code) << "\nAddress=";
  out.Hexadecimal(reinterpret_cast<uintptr_t>(aInfo.si_addr)) << "\nTime=";
  timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  out.Decimal(now.tv_sec) << "\n\n";
  // From here on things may go wrong once more; what is written is written.
  state.mMaps.Read();
  WriteThreadName(out, aSelf);
  out << " crashed\n";
  TakeStack(aContext, &state.mStack);
  WriteStack(out, state.mStack);
  WriteRegisters(out, aContext);
  AskOtherThreads(out, aSelf);
  WriteModules(out);
  if (state.mOldest[0] != '\0') unlink(state.mOldest);
  fsync(file);
  // What may go wrong comes last, and has little time.
  alarm(kLastResortLimit);
  WriteScript(out, aSelf);
  fsync(file);
  WriteNames(out);
  fsync(file);
  close(file);
}

// Memory may be damaged in any way, and the disk may hang: a report that does not come to its end
// must not keep a process that has to end. What ends it then needs nothing of this process.
void LimitReport() {
  struct sigaction action {};
  action.sa_handler = SIG_DFL;
  sigaction(SIGALRM, &action, nullptr);
  sigset_t taken;
  sigemptyset(&taken);
  sigaddset(&taken, SIGALRM);
  pthread_sigmask(SIG_UNBLOCK, &taken, nullptr);
  alarm(kReportLimit);
}

void OnCrash(int aSignal, siginfo_t* aInfo, void* aContext) {
  State& state = *gState;
  const pid_t self = ThreadId();
  pid_t reporter = 0;
  if (state.mReporter.compare_exchange_strong(reporter, self)) {
    LimitReport();
    WriteReport(aSignal, *aInfo, *static_cast<const ucontext_t*>(aContext), self);
  } else if (reporter != self) {
    // Another thread goes wrong while this one's report is written; the process is about to end.
    for (;;) pause();
  }
  // A crash within the report comes here at once. What had the signal before has its way now: the
  // same happens again when this returns, or is made to; a trap goes on behind its instruction.
  for (size_t i = 0; i < kSignals.size(); ++i)
    if (kSignals[i].mNumber == aSignal) sigaction(aSignal, &state.mBefore[i], nullptr);
  if (aInfo->si_code <= 0 || aSignal == SIGTRAP) syscall(SYS_tgkill, getpid(), self, aSignal);
}

// "crash-TIME-PROCESS.txt"; nothing for another name.
std::string_view TimeOf(std::string_view aName) {
  if (!aName.starts_with("crash-") || !aName.ends_with(".txt")) return {};
  aName.remove_prefix(6);
  return aName.substr(0, aName.find('-'));
}

// Leaves the newest reports, and has the oldest of them go when there is another one.
void KeepLastReports(const std::string& aDirectory) {
  std::vector<std::string> names = nsCrashHandler::ListReports(aDirectory);
  size_t extra =
      names.size() > nsCrashHandler::kReportsKept ? names.size() - nsCrashHandler::kReportsKept : 0;
  for (size_t i = 0; i < extra; ++i) (void)unlink((aDirectory + "/" + names[i]).c_str());
  State& state = GetState();
  state.mOldest[0] = '\0';
  if (names.size() < nsCrashHandler::kReportsKept) return;
  const std::string oldest = aDirectory + "/" + names[extra];
  if (oldest.size() < sizeof state.mOldest)
    std::memcpy(state.mOldest, oldest.c_str(), oldest.size() + 1);
}

}  // namespace

void NS_SetCrashScript(const nsCrashScript* aScript) {
  State& state = GetState();
  state.mScriptThread = ThreadId();
  state.mScript = aScript;
}

void NS_AnswerCrash() {
  State& state = GetState();
  if (!state.mScriptAsked.exchange(false)) return;
  state.mScriptLength =
      state.mScript ? state.mScript->mDescribe(state.mScriptText, sizeof state.mScriptText) : 0;
  state.mScriptAnswered = true;
}

std::vector<std::string> nsCrashHandler::ListReports(const std::string& aDirectory) {
  std::vector<std::string> names;
  std::error_code error;
  for (std::filesystem::directory_iterator entry(aDirectory, error), end; !error && entry != end;
       entry.increment(error))
    if (!TimeOf(entry->path().filename().native()).empty())
      names.push_back(entry->path().filename().native());
  const auto key = [](const std::string& aName) {
    const std::string_view digits = TimeOf(aName);
    uint64_t time = 0;
    (void)std::from_chars(digits.data(), digits.data() + digits.size(), time);
    return std::pair(time, aName);
  };
  std::ranges::sort(names, {}, key);
  return names;
}

bool nsCrashHandler::IsInstalled() { return gState && gState->mInstalled; }

bool nsCrashHandler::Install(const std::string& aDirectory) {
  State& state = GetState();
  const std::string path = aDirectory + "/crash-";
  if (path.size() >= sizeof state.mPath) return false;
  if (mkdir(aDirectory.c_str(), 0700) != 0 && errno != EEXIST) return false;
  // Not where somebody else has it lead to.
  struct stat facts;
  if (lstat(aDirectory.c_str(), &facts) != 0 || !S_ISDIR(facts.st_mode) ||
      (facts.st_uid != geteuid() && geteuid() != 0))
    return false;
  std::memcpy(state.mPath, path.c_str(), path.size() + 1);
  KeepLastReports(aDirectory);
  if (state.mInstalled) return true;
  gState = &state;

  // The first stack that is taken loads a library, and allocates.
  void* frame;
  (void)backtrace(&frame, 1);
  // So that an overflow of the main thread's stack leaves room for the handler.
  if (!state.mAlternateStack) {
    void* memory = mmap(nullptr, kAlternateStackSize, PROT_READ | PROT_WRITE,
                        MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) return false;
    state.mAlternateStack = memory;
  }
  const stack_t stack{
      .ss_sp = state.mAlternateStack, .ss_flags = 0, .ss_size = kAlternateStackSize};
  sigaltstack(&stack, nullptr);

  struct sigaction action {};
  action.sa_flags = SA_SIGINFO | SA_RESTART;
  sigemptyset(&action.sa_mask);
  action.sa_sigaction = OnStackSignal;
  if (sigaction(StackSignal(), &action, &state.mStackBefore) != 0) return false;
  // Not deferred: a crash within the report ends it.
  action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_NODEFER;
  action.sa_sigaction = OnCrash;
  for (size_t i = 0; i < kSignals.size(); ++i)
    if (sigaction(kSignals[i].mNumber, &action, &state.mBefore[i]) != 0) return false;
  state.mInstalled = true;
  return true;
}

void nsCrashHandler::Uninstall() {
  State& state = GetState();
  if (!state.mInstalled) return;
  for (size_t i = 0; i < kSignals.size(); ++i)
    sigaction(kSignals[i].mNumber, &state.mBefore[i], nullptr);
  sigaction(StackSignal(), &state.mStackBefore, nullptr);
  state.mInstalled = false;
}

void nsCrashHandler::SetAnnotations(const std::string& aLines) {
  State& state = GetState();
  // The one in use is left alone, so that a report can be written at any time.
  const int next = 1 - state.mAnnotationsInUse;
  const size_t length = std::min(aLines.size(), kMaximumAnnotations - 1);
  std::memcpy(state.mAnnotations[next], aLines.data(), length);
  state.mAnnotations[next][length] = '\0';
  state.mAnnotationsInUse = next;
}
