// The thread that waits for an event source.
#pragma once

#include <functional>
#include <memory>

#include "nsError.h"
#include "nsEventSource.h"

class nsIEventTarget;

/// Has a source consumed on a thread's event loop whenever there is something to consume. Its own
/// thread waits and does nothing else.
class nsEventPump {
 public:
  /// Called after a Consume that was true, on the same thread.
  using Consumed = std::function<void()>;

  /// Starts to wait; what has come before is consumed, too. aName, a literal of up to 15 letters,
  /// names the thread. Without a target the source is consumed on the pump's own thread, which is
  /// for sources that hand their events on by themselves. aConsumed may be empty. While Consume and
  /// aConsumed run, nobody waits, so that they are never entered twice at a time.
  ///
  /// NS_ERROR_INVALID_ARG without a source; NS_ERROR_OUT_OF_MEMORY when the system gives no more
  /// threads. Any thread. When the target takes no more events, the pump silently does nothing.
  static nsresult Start(const char* aName, std::shared_ptr<nsEventSource> aSource,
                        nsIEventTarget* aTarget, Consumed aConsumed,
                        std::unique_ptr<nsEventPump>* aResult);

  /// Ends it, and waits for its thread, which must be able to end: a Consume on it is waited for,
  /// so that this must not come from there. Destroyed on the target's thread, where it may be done
  /// from Consume or aConsumed themselves, nothing is called after this; on another one, a call
  /// that is under way may still be running. The source is let go when the last of these is over.
  ~nsEventPump();
  nsEventPump(const nsEventPump&) = delete;
  nsEventPump& operator=(const nsEventPump&) = delete;

 private:
  struct State;
  explicit nsEventPump(std::shared_ptr<State> aState);
  const std::shared_ptr<State> mState;
};
