// Events of the main thread.
#pragma once

#include <functional>

/// Runs them until there are none.
void NS_RunEvents();

/// Runs them until a condition holds, also one that another thread makes true, and on virtual time;
/// false after a time of the clock's in which it should.
bool NS_RunEventsUntil(const std::function<bool()>& aCondition, int aSeconds = 30);
