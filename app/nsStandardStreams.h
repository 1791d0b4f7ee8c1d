// Standard input and output as streams that a script can use without waiting.
#pragma once

#include <functional>
#include <memory>

#include "nsError.h"

/// From Start to its end: a thread reads standard input into a pipe, and a terminal is set to give
/// every key as it is pressed. Main thread.
class nsStandardStreams {
 public:
  /// Tells observers of "vorel-standard-input" and of "vorel-standard-output" of the two streams:
  /// an nsIAsyncInputStream, and an nsIOutputStream that takes all it is given. aRaw: keys as they
  /// are pressed, where standard input is a terminal.
  static nsresult Start(bool aRaw, std::unique_ptr<nsStandardStreams>* aStreams);
  nsStandardStreams(const nsStandardStreams&) = delete;
  nsStandardStreams& operator=(const nsStandardStreams&) = delete;
  /// Sets the terminal back.
  ~nsStandardStreams();

 private:
  nsStandardStreams();
  struct State;
  const std::unique_ptr<State> mState;
};
