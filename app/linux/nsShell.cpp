#include "nsShell.h"

#include <fcntl.h>
#include <histedit.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <string_view>
#include <vector>

#include "nsFdWatch.h"
#include "nsIThread.h"
#include "nsScriptHost.h"
#include "nsVorelMethodCaller.h"

namespace {

constexpr int kHistorySize = 1000;
constexpr size_t kMostNamesShown = 200;

std::string_view CommonStart(const std::vector<std::string>& aNames) {
  std::string_view common = aNames.front();
  for (const std::string& name : aNames)
    common = common.substr(
        0, static_cast<size_t>(std::ranges::mismatch(common, name).in1 - common.begin()));
  return common;
}

bool IsPartOfName(char aChar) {
  const auto c = static_cast<unsigned char>(aChar);
  return c >= 0x80 || std::isalnum(c) || c == '_' || c == '$';
}

}  // namespace

/// The line editor: from one Prompt to the next, it holds the terminal in raw mode.
class nsShell::Terminal {
 public:
  Terminal(nsShell& aShell, std::string aHistoryFile)
      : mShell(aShell), mHistoryFile(std::move(aHistoryFile)) {
    // Script is UTF-8 whatever the terminal's locale says.
    (void)setlocale(LC_CTYPE, "C.UTF-8");
    mEdit = el_init("vorel", stdin, stdout, stderr);
    mHistory = history_init();
    if (!mEdit || !mHistory) return;
    HistEvent event;
    (void)history(mHistory, &event, H_SETSIZE, kHistorySize);
    (void)history(mHistory, &event, H_SETUNIQUE, 1);
    // There is none the first time.
    if (!mHistoryFile.empty()) (void)history(mHistory, &event, H_LOAD, mHistoryFile.c_str());
    (void)el_set(mEdit, EL_CLIENTDATA, this);
    (void)el_set(mEdit, EL_PROMPT, &Terminal::PromptText);
    (void)el_set(mEdit, EL_EDITOR, "emacs");
    (void)el_set(mEdit, EL_SIGNAL, 1);
    (void)el_set(mEdit, EL_HIST, history, mHistory);
    (void)el_set(mEdit, EL_ADDFN, "vorel-complete", "Complete the name", &Terminal::Complete);
    (void)el_set(mEdit, EL_BIND, "^I", "vorel-complete", nullptr);
    (void)el_source(mEdit, nullptr);  // the user's own .editrc
  }
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;
  ~Terminal() {
    if (mEdit) {
      Leave();
      el_end(mEdit);
    }
    if (mHistory) history_end(mHistory);
  }

  bool IsReady() const { return mEdit && mHistory; }

  /// Begins an empty line.
  void Prompt() {
    (void)el_set(mEdit, EL_UNBUFFERED, 1);
    mIsEditing = true;
  }
  /// Ends the line; the terminal is as scripts and other programs expect it.
  void Leave() {
    (void)el_set(mEdit, EL_UNBUFFERED, 0);
    mIsEditing = false;
  }

  /// Makes room for what a timer or a listener prints, and shows the line again behind it.
  void AroundOutput(bool aBegins) {
    if (!mIsEditing) return;
    if (!aBegins) {
      (void)el_set(mEdit, EL_REFRESH);
      return;
    }
    // The cursor may stand in a lower row of a long line.
    winsize size{};
    const LineInfo* const line = el_line(mEdit);
    const auto column =
        strlen(PromptText(mEdit)) + static_cast<size_t>(line->cursor - line->buffer);
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 && column >= size.ws_col)
      std::cout << "\033[" << column / size.ws_col << 'A';
    std::cout << "\r\033[J" << std::flush;
  }

  enum class Input { eMore, eLine, eEnd };
  /// Takes one key.
  Input ReadKey(std::string* aLine) {
    int count = 0;
    const char* const text = el_gets(mEdit, &count);
    if (!text || count <= 0) {
      // An empty line and a terminal that is gone look the same here.
      pollfd input{STDIN_FILENO, POLLIN, 0};
      (void)poll(&input, 1, 0);
      return input.revents & (POLLHUP | POLLERR) ? Input::eEnd : Input::eMore;
    }
    if (count == 1 && *text == '\4') return Input::eEnd;
    const std::string_view line(text, static_cast<size_t>(count));
    if (line.back() != '\n' && line.back() != '\r') return Input::eMore;
    *aLine = line.substr(0, line.size() - 1);
    return Input::eLine;
  }

  void Remember(const std::string& aLine) {
    HistEvent event;
    if (aLine.find_first_not_of(" \t") == aLine.npos ||
        history(mHistory, &event, H_ENTER, aLine.c_str()) < 0 || mHistoryFile.empty())
      return;
    const std::string fresh = mHistoryFile + ".new";
    (void)unlink(fresh.c_str());  // left by a process that was cut short
    const int fd = open(fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    FILE* const file = fd >= 0 ? fdopen(fd, "w") : nullptr;
    const bool saved = file && history(mHistory, &event, H_SAVE_FP, file) >= 0;
    if (file && fclose(file) == 0 && saved && rename(fresh.c_str(), mHistoryFile.c_str()) == 0)
      return;
    std::cerr << "vorel: " << mHistoryFile << ": the history can't be kept: " << strerror(errno)
              << '\n';
    if (fd >= 0) (void)unlink(fresh.c_str());
    mHistoryFile.clear();
  }

 private:
  static Terminal* Of(EditLine* aEdit) {
    Terminal* self = nullptr;
    (void)el_get(aEdit, EL_CLIENTDATA, &self);
    return self;
  }

  static char* PromptText(EditLine* aEdit) {
    static char sFirst[] = "vorel> ", sMore[] = "   ... ";
    return Of(aEdit)->mShell.mText.empty() ? sFirst : sMore;
  }

  static unsigned char Complete(EditLine* aEdit, int) {
    nsShell& shell = Of(aEdit)->mShell;
    const LineInfo* const line = el_line(aEdit);
    const std::string_view before(line->buffer, static_cast<size_t>(line->cursor - line->buffer));
    size_t start = before.size();
    while (start > 0 && IsPartOfName(before[start - 1])) --start;
    const std::string_view begun = before.substr(start);
    size_t nameStart = 0;  // counted in the units of script
    const std::vector<std::string> names =
        shell.mScript.Complete(shell.mText + std::string(before), &nameStart);
    if (names.empty()) return CC_REFRESH_BEEP;
    const std::string_view common = CommonStart(names);
    if (!common.starts_with(begun)) return CC_REFRESH_BEEP;
    const std::string more(common.substr(begun.size()));
    if (!more.empty()) return el_insertstr(aEdit, more.c_str()) == 0 ? CC_REFRESH : CC_ERROR;
    if (names.size() == 1) return CC_NORM;
    std::cout << '\n';
    for (size_t i = 0; i < std::min(names.size(), kMostNamesShown); ++i)
      std::cout << names[i] << "  ";
    if (names.size() > kMostNamesShown)
      std::cout << "and " << names.size() - kMostNamesShown << " more";
    std::cout << std::endl;
    return CC_REDISPLAY;
  }

  nsShell& mShell;
  std::string mHistoryFile;
  EditLine* mEdit = nullptr;
  History* mHistory = nullptr;
  bool mIsEditing = false;
};

nsShell::nsShell(nsScriptHost& aScript, std::string aHistoryFile) : mScript(aScript) {
  if (!isatty(STDIN_FILENO) || !isatty(STDOUT_FILENO)) return;
  mTerminal = std::make_unique<Terminal>(*this, std::move(aHistoryFile));
  // A terminal without an editor is read like any other input.
  if (!mTerminal->IsReady()) mTerminal.reset();
}

nsShell::~nsShell() = default;

int nsShell::Run() {
  nsCOMPtr<nsIThread> main;
  (void)NS_GetMainThread(main.getter_AddRefs());
  std::unique_ptr<nsFdWatch> watch;
  const nsresult rv = nsFdWatch::Start(
      STDIN_FILENO, main.get(), [this] { mTerminal ? ReadTerminal() : ReadStream(); }, &watch);
  if (NS_FAILED(rv)) {
    std::cerr << "vorel: the input can't be read: " << NS_ResultName(rv) << '\n';
    return 1;
  }
  if (mTerminal) {
    mScript.SetAroundOutput([this](bool aBegins) { mTerminal->AroundOutput(aBegins); });
    mTerminal->Prompt();
  }
  while (!mEnded && !mScript.HasQuit()) {
    bool ran = false;
    if (NS_FAILED(main->ProcessNextEvent(true, &ran))) break;
  }
  watch.reset();
  if (mTerminal) {
    mScript.SetAroundOutput({});
    mTerminal->Leave();
    if (!mScript.HasQuit()) mScript.Quit(0);
  }
  return mScript.RunUntilDone();
}

bool nsShell::ClearLine() {
  if (!mTerminal) return false;
  mText.clear();
  mTerminal->Leave();
  std::cout << "^C" << std::endl;
  mTerminal->Prompt();
  return true;
}

void nsShell::ReadTerminal() {
  std::string line;
  switch (mTerminal->ReadKey(&line)) {
    case Terminal::Input::eMore:
      return;
    case Terminal::Input::eEnd:
      mEnded = true;
      std::cout << std::endl;
      return;
    case Terminal::Input::eLine:
      break;
  }
  mTerminal->Leave();
  mTerminal->Remember(line);
  TakeLine(line);
  if (!mScript.HasQuit()) mTerminal->Prompt();
}

void nsShell::ReadStream() {
  char buffer[4096];
  const ssize_t size = read(STDIN_FILENO, buffer, sizeof buffer);
  if (size < 0 && (errno == EINTR || errno == EAGAIN)) return;
  if (size > 0) {
    mRest.append(buffer, static_cast<size_t>(size));
  } else {
    mEnded = true;
    if (size < 0) std::cerr << "vorel: the input can't be read: " << strerror(errno) << '\n';
    if (!mRest.empty()) mRest += '\n';
  }
  size_t start = 0;
  for (size_t end; (end = mRest.find('\n', start)) != mRest.npos && !mScript.HasQuit();
       start = end + 1)
    TakeLine(mRest.substr(start, end - start));
  mRest.erase(0, start);
  // Incomplete to the end: running it tells what is missing.
  if (mEnded && !mText.empty() && !mScript.HasQuit()) RunText();
}

void nsShell::TakeLine(const std::string& aLine) {
  mText += aLine + '\n';
  if (!mScript.IsIncomplete(mText)) RunText();
}

void nsShell::RunText() {
  const std::string text = std::move(mText);
  mText.clear();
  std::string result;
  // An error has been reported, and the shell goes on.
  if (NS_SUCCEEDED(mScript.Evaluate(text, "shell", &result)) && !result.empty())
    std::cout << result << std::endl;
}
