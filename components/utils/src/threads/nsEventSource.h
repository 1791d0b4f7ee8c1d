// Something that events come from: the kernel's, a service's, or those of a simulated machine.
#pragma once

/// A source only waits and takes: what its events mean, how many of them make one, and how often
/// they are acted on is the business of the logic above. It is driven by an nsEventPump, which has
/// the one thread that waits.
class nsEventSource {
 public:
  virtual ~nsEventSource() = default;

  /// Blocks until there may be something to consume, or Wake was called. It takes nothing: as long
  /// as something is left to consume, it returns at once. A source whose events have come to an end
  /// blocks until Wake. One thread at a time.
  virtual void Wait() = 0;
  /// Takes what there is and acts on it, without waiting; under a flood it comes back in between,
  /// and Wait then returns at once. True when there was something. Losing events is something, too:
  /// all is to be looked at again then. Not while Wait runs on another thread.
  virtual bool Consume() = 0;
  /// Ends one Wait, this one or the next; further calls before that have no effect. Any thread.
  virtual void Wake() = 0;
};
