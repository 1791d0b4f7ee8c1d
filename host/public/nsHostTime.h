// The clock that the host's timers run on, and time by hand for tests.
//
// Timers (nsITimer) run on a clock that never goes back and that nobody can set. A test may take it
// over: from NS_UseVirtualTime(true) on the clock stands still and moves only by NS_AdvanceTime, so
// that a test of what happens after an hour takes no time, and two runs of it do the same things in
// the same order.
#pragma once

#include <cstdint>

#pragma GCC visibility push(default)

/// Microseconds since some moment before the process started. Any thread. Virtual while virtual
/// time is on.
int64_t NS_MonotonicNow();

/// Stops the clock, or lets it run on from where it stands: timers that are armed keep what is left
/// of their time. Main thread; a second call with the same value does nothing. Timers that were due
/// before the call may still be under way to their threads.
void NS_UseVirtualTime(bool aVirtual);

/// Moves the virtual clock on. Timers that fall due fire in the order of their times, each at its
/// time, on its own target thread, and the next one only when the one before has returned. Before
/// each, and at the end, what is queued for the calling thread is run, so that what it starts
/// counts from the right moment. 0 fires what is due now. The thread of a target must not be
/// waiting for the caller. Does nothing while virtual time is off.
void NS_AdvanceTime(uint32_t aMilliseconds);

#pragma GCC visibility pop
