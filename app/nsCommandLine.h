// What the program was asked to do.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "nsWatch.h"

struct nsCommandLine {
  enum class Task {
    ePicture,      ///< print the picture of the machine
    eApplication,  ///< run a script file
    eEvaluate,     ///< run a script text
    eShell,        ///< read script line by line and run it
    eWatch,        ///< print the changes of a directory tree
    eTv,           ///< a command of digital television
    eSerial,       ///< list the serial ports, or be a terminal on one
    eDisplays,     ///< print the displays, or change one
    eNetwork,      ///< print the network's settings, or change them
    ePrintTypes,   ///< print the TypeScript declarations
    eHelp,
    eVersion,
  };

  static constexpr uint32_t kLeastHeap = 8, kMostHeap = 3072;

  Task mTask = Task::ePicture;
  bool mJson = false;    ///< machine-readable output
  bool mFollow = false;  ///< after the picture, print its changes as they come
  std::string mMachineFile;
  std::string mApplicationDirectory;  ///< empty: the one that comes with the program
  std::string mProfileDirectory;      ///< empty: the user's own
  uint32_t mHeapLimit = 0;            ///< of scripts, in MiB; 0: by the preference
  /// Logger name (empty: all loggers) and level name, in the order given.
  std::vector<std::pair<std::string, std::string>> mLogLevels;
  std::string mScript;                  ///< file name or text
  std::vector<std::string> mArguments;  ///< the application's own; of a watch, the directories
  nsWatchOptions mWatchOptions;

  /// Reads everything behind the program's name. False, with one clear line in *aError, for what it
  /// does not understand.
  static bool Parse(const std::vector<std::string>& aArguments, nsCommandLine* aOut,
                    std::string* aError);
  static std::string_view Help();
};
