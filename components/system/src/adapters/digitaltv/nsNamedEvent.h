// An event that threads wait for, known in the whole process by its name.
#pragma once

#include <memory>
#include <string>

/// Stays set until it is reset. All that are made with one name are one event, as long as one of
/// them lives. Any thread.
class nsNamedEvent {
 public:
  /// Not set, when there is none of that name yet.
  explicit nsNamedEvent(const std::string& aName);
  ~nsNamedEvent();

  void Set();
  void Reset();
  /// WAIT_OBJECT_0 when it is or becomes set, WAIT_TIMEOUT when it does not within the time.
  uint32_t Wait(uint32_t aMilliseconds);

 private:
  struct State;
  std::shared_ptr<State> mState;
};
