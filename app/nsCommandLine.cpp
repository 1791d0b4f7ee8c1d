#include "nsCommandLine.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <functional>

namespace {

constexpr std::string_view kHelp =
    R"(usage: vorel [OPTIONS]                         print the picture of this machine
       vorel [OPTIONS] FILE.js [ARGUMENTS]     run an application (FILE.mjs: as a module)
       vorel [OPTIONS] -e TEXT [ARGUMENTS]     run a line of script
       vorel [OPTIONS] shell                   run script line by line, as it is entered
       vorel [OPTIONS] watch DIRECTORY...      print the changes of directory trees as they come
       vorel [OPTIONS] tv                      list the receivers of digital television
       vorel [OPTIONS] tv scan COUNTRY [--store]
                                               look for services on a country's frequencies
       vorel [OPTIONS] tv services             list the stored services
       vorel [OPTIONS] tv play NAME [--language fra] [--seconds N] [--info]
                                               write a service's stream to the standard output
       vorel [OPTIONS] tv inspect FILE.ts      print what a transport stream holds and what is broken
       vorel [OPTIONS] tv channels FILE        check a channels file
       vorel [OPTIONS] tv countries            print the countries that a scan knows
       vorel [OPTIONS] serial                  list the serial ports
       vorel [OPTIONS] serial PORT [SETTINGS]  be a terminal on a serial port; Ctrl-] ends it
       vorel [OPTIONS] displays                print the displays and how they are arranged
       vorel [OPTIONS] displays set NAME [--mode 1920x1080@60] [--rotate 90] [--position X,Y]
             [--brightness N] [--contrast N] [--stored]
                                               change one now, or, stored, for the next session
       vorel [OPTIONS] network                 print what is in force on the network beside what is stored
       vorel [OPTIONS] network set NAME [--dhcp on|off] [--address 192.0.2.10/24]
             [--gateway 192.0.2.1] [--metric N] [--dns A,B] [--try SECONDS]
                                               store settings, or, with --try, put them into force too
       vorel [OPTIONS] network apply [SECONDS|--boot]
                                               put into force what is stored, until it is taken back
       vorel [OPTIONS] network confirm|rollback
                                               keep what is on trial, or take it back now

  --baud N --bits 5..8 --parity none|odd|even|mark|space --stop 1|1.5|2 --flow none|hardware|software
                        settings of a serial port (default: 9600 8 none 1 none)
  --hex --lines         show bytes as hexadecimal digits; show the lines when they change
  --wait MS             at the end of a piped input, go on reading for so long (default: 0)
  --json                print JSON: the picture as one object, events one object a line
  --watch               after the picture, print the changes of it until interrupted
  --machine FILE        take the simulated machine of FILE instead of this one
  --app DIR             take manifest, preferences and components of DIR (default: those of the program)
  --profile DIR         keep settings in DIR (default: $XDG_DATA_HOME/vorel or ~/.local/share/vorel)
  --heap MIB            let scripts use so much memory (default: 512, or the preference vorel.script.heap-limit)
  --log LEVEL           log from LEVEL on: debug, warning, error or off (default: warning)
  --log NAME=LEVEL      the same for one logger and those below it: system.manager=debug
  --print-types         print the TypeScript declarations of everything script can see
  --version, --help     print these and stop

Of watch:
  --once                end with the first change
  --timeout SECONDS     end after this time; with --once and without a change, the status is 4
  --exclude PATTERN     leave out what fits, and all below it; may be given several times
  --only PATTERN        tell only what fits one of these: a name, or with "/" a path below the directory;
                        "*" and "?" stand for what is in one name, "**" for any part of a path
  --settle MS           tell a change once nothing more has happened to the same path for this time
  --details             with size and time of what has come or changed
  --since NAME          begin with what differs from what the last watch of this name has left in the profile
  --wait                go on when a directory does not exist, has gone or was replaced (else: status 3)

Exit status: 0, what an application gave to quit(), 1 after a failure, 2 for wrong arguments.
)";

constexpr std::array<std::string_view, 4> kLevels = {"debug", "warning", "error", "off"};

/// An option of a watch with its value; *aError when the value is wrong.
bool ReadWatchOption(std::string_view aName, const std::string& aValue, nsWatchOptions* aOut,
                     std::string* aError) {
  double number = 0;
  const auto isNumber = [&](double aMost) {
    const char* const end = aValue.data() + aValue.size();
    const auto [stop, error] =
        std::from_chars(aValue.data(), end, number, std::chars_format::fixed);
    return error == std::errc() && stop == end && number > 0 && number <= aMost;
  };
  constexpr double kMostSeconds = 2'000'000, kMostSettle = 3'600'000;
  constexpr size_t kLongestName = 64;
  if (aName == "--exclude") {
    aOut->mExclude.push_back(aValue);
  } else if (aName == "--only") {
    aOut->mOnly.push_back(aValue);
  } else if (aName == "--timeout") {
    if (!isNumber(kMostSeconds))
      *aError = "--timeout: '" + aValue + "' is no number of seconds from 0 to 2000000";
    aOut->mTimeout = number;
  } else if (aName == "--settle") {
    if (!isNumber(kMostSettle))
      *aError = "--settle: '" + aValue + "' is no number of milliseconds from 0 to 3600000";
    else
      aOut->mSettle = static_cast<uint32_t>(std::ceil(number));
  } else {
    const bool isName = aValue.size() <= kLongestName && aValue[0] != '.' &&
                        std::ranges::all_of(aValue, [](char aUnit) {
                          return (aUnit >= '0' && aUnit <= '9') || (aUnit >= 'a' && aUnit <= 'z') ||
                                 (aUnit >= 'A' && aUnit <= 'Z') || aUnit == '.' || aUnit == '_' ||
                                 aUnit == '-';
                        });
    if (!isName)
      *aError =
          "--since: '" + aValue + "' is no name of up to 64 letters, digits, '-', '_' and '.'";
    aOut->mSince = aValue;
  }
  return aError->empty();
}

bool ReadLogLevel(const std::string& aValue, nsCommandLine* aOut, std::string* aError) {
  const size_t equals = aValue.find('=');
  const std::string name = equals == aValue.npos ? "" : aValue.substr(0, equals);
  const std::string level = equals == aValue.npos ? aValue : aValue.substr(equals + 1);
  for (const std::string_view known : kLevels) {
    if (level != known) continue;
    aOut->mLogLevels.emplace_back(name, level);
    return true;
  }
  *aError = "--log: '" + level + "' is no level: take debug, warning, error or off";
  return false;
}

bool ReadHeapLimit(const std::string& aValue, nsCommandLine* aOut, std::string* aError) {
  uint32_t limit = 0;
  const char* const end = aValue.data() + aValue.size();
  const auto [stop, error] = std::from_chars(aValue.data(), end, limit);
  if (error != std::errc() || stop != end || limit < nsCommandLine::kLeastHeap ||
      limit > nsCommandLine::kMostHeap) {
    *aError = "--heap: a number of MiB from " + std::to_string(nsCommandLine::kLeastHeap) + " to " +
              std::to_string(nsCommandLine::kMostHeap) + " is expected, not '" + aValue + "'";
    return false;
  }
  aOut->mHeapLimit = limit;
  return true;
}

}  // namespace

std::string_view nsCommandLine::Help() { return kHelp; }

bool nsCommandLine::Parse(const std::vector<std::string>& aArguments, nsCommandLine* aOut,
                          std::string* aError) {
  nsCommandLine out;
  const auto file = [](std::string nsCommandLine::*aField) {
    return [aField](const std::string& aValue, nsCommandLine* aLine, std::string*) {
      aLine->*aField = aValue;
      return true;
    };
  };
  using ReadValue = std::function<bool(const std::string&, nsCommandLine*, std::string*)>;
  const std::array<std::pair<std::string_view, ReadValue>, 5> withValue = {{
      {"--machine", file(&nsCommandLine::mMachineFile)},
      {"--app", file(&nsCommandLine::mApplicationDirectory)},
      {"--profile", file(&nsCommandLine::mProfileDirectory)},
      {"--heap", ReadHeapLimit},
      {"--log", ReadLogLevel},
  }};
  const std::array<std::pair<std::string_view, std::function<void()>>, 6> plain = {{
      {"--json", [&] { out.mJson = true; }},
      {"--watch", [&] { out.mFollow = true; }},
      {"--print-types", [&] { out.mTask = Task::ePrintTypes; }},
      {"--version", [&] { out.mTask = Task::eVersion; }},
      {"--help", [&] { out.mTask = Task::eHelp; }},
      {"-h", [&] { out.mTask = Task::eHelp; }},
  }};

  size_t i = 0;
  // Takes the option at i, wherever options may stand.
  const auto option = [&]() -> bool {
    const std::string& text = aArguments[i];
    for (const auto& [name, act] : plain) {
      if (text != name) continue;
      act();
      return true;
    }
    const size_t equals = text.find('=');
    for (const auto& [name, read] : withValue) {
      std::string value;
      if (text == name) {
        if (++i == aArguments.size() || aArguments[i].empty()) {
          *aError = std::string(name) + " needs a value";
          return false;
        }
        value = aArguments[i];
      } else if (equals != text.npos && text.substr(0, equals) == name) {
        value = text.substr(equals + 1);
        if (value.empty()) {
          *aError = std::string(name) + " needs a value";
          return false;
        }
      } else {
        continue;
      }
      return read(value, &out, aError);
    }
    *aError = "unknown option '" + text + "': vorel --help lists them";
    return false;
  };

  // Takes what follows a command: options and nothing else.
  const auto options = [&](const char* aRule) {
    for (; i < aArguments.size(); ++i) {
      if (!aArguments[i].starts_with("-")) {
        *aError = std::string(aRule) + "; '" + aArguments[i] + "' is one too many";
        return false;
      }
      if (!option()) return false;
    }
    return true;
  };

  for (; i < aArguments.size(); ++i) {
    const std::string& text = aArguments[i];
    if (text == "-e") {
      if (++i == aArguments.size()) {
        *aError = "-e needs a script text";
        return false;
      }
      out.mTask = Task::eEvaluate;
      out.mScript = aArguments[i++];
      break;
    }
    if (text.starts_with("-")) {
      if (!option()) return false;
      continue;
    }
    if (text == "watch") {
      out.mTask = Task::eWatch;
      bool hasOptions = true;  // up to "--"
      for (++i; i < aArguments.size(); ++i) {
        const std::string& argument = aArguments[i];
        const std::string name = argument.substr(0, argument.find('='));
        if (!hasOptions || !argument.starts_with("-")) {
          out.mArguments.push_back(argument);
        } else if (argument == "--") {
          hasOptions = false;
        } else if (argument == "--once") {
          out.mWatchOptions.mOnce = true;
        } else if (argument == "--details") {
          out.mWatchOptions.mDetails = true;
        } else if (argument == "--wait") {
          out.mWatchOptions.mWait = true;
        } else if (name == "--timeout" || name == "--exclude" || name == "--only" ||
                   name == "--settle" || name == "--since") {
          const bool isApart = name.size() == argument.size();
          if (isApart ? ++i == aArguments.size() || aArguments[i].empty()
                      : name.size() + 1 == argument.size()) {
            *aError = name + " needs a value";
            return false;
          }
          if (!ReadWatchOption(name, isApart ? aArguments[i] : argument.substr(name.size() + 1),
                               &out.mWatchOptions, aError))
            return false;
        } else if (!option()) {
          return false;
        }
      }
      if (out.mArguments.empty() || std::ranges::find(out.mArguments, "") != out.mArguments.end()) {
        *aError = "watch needs a directory";
        return false;
      }
      break;
    }
    if (text == "tv") {  // the rest is the command's
      out.mTask = Task::eTv;
      ++i;
      break;
    }
    if (text == "serial") {
      // The script of it knows its own settings.
      static constexpr std::array<std::string_view, 6> kSettings = {"--baud", "--bits", "--parity",
                                                                    "--stop", "--flow", "--wait"};
      out.mTask = Task::eSerial;
      for (++i; i < aArguments.size(); ++i) {
        const std::string& setting = aArguments[i];
        if (setting == "--hex" || setting == "--lines" || !setting.starts_with("-")) {
          out.mArguments.push_back(setting);
        } else if (std::ranges::find(kSettings, setting) != kSettings.end()) {
          if (i + 1 == aArguments.size()) {
            *aError = setting + " needs a value";
            return false;
          }
          out.mArguments.push_back(setting + "=" + aArguments[++i]);
        } else if (std::ranges::find(kSettings, setting.substr(0, setting.find('='))) !=
                   kSettings.end()) {
          out.mArguments.push_back(setting);
        } else if (!option()) {
          return false;
        }
      }
      break;
    }
    if (text == "displays" || text == "network") {
      out.mTask = text == "displays" ? Task::eDisplays : Task::eNetwork;
      // What is not an option of the program's own is for the command.
      for (++i; i < aArguments.size(); ++i) {
        const std::string name = aArguments[i].substr(0, aArguments[i].find('='));
        const auto isName = [&](const auto& aOption) { return aOption.first == name; };
        if (!std::ranges::any_of(withValue, isName) && !std::ranges::any_of(plain, isName))
          out.mArguments.push_back(aArguments[i]);
        else if (!option())
          return false;
      }
      break;
    }
    if (text == "shell") {
      out.mTask = Task::eShell;
      ++i;
      if (!options("shell takes options only")) return false;
      break;
    }
    if (text.ends_with(".js") || text.ends_with(".mjs")) {
      out.mTask = Task::eApplication;
      out.mScript = aArguments[i++];
      break;
    }
    *aError = "'" + text + "' is neither an option nor an application (FILE.js or FILE.mjs)";
    return false;
  }
  // Everything behind the script belongs to it, options too.
  for (; i < aArguments.size(); ++i) out.mArguments.push_back(aArguments[i]);
  if (out.mFollow && out.mTask != Task::ePicture) {
    *aError = "--watch goes with the picture only";
    return false;
  }
  *aOut = std::move(out);
  return true;
}
