#include "nsRunEvents.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "nsCOMPtr.h"
#include "nsIThread.h"
#include "nsVorelMethodCaller.h"

void NS_RunEvents() {
  nsCOMPtr<nsIThread> thread;
  ASSERT_EQ(NS_GetMainThread(thread.getter_AddRefs()), NS_OK);
  bool more = true;
  while (more) ASSERT_EQ(thread->ProcessNextEvent(false, &more), NS_OK);
}

bool NS_RunEventsUntil(const std::function<bool()>& aCondition, int aSeconds) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(aSeconds);
  while (!aCondition()) {
    if (std::chrono::steady_clock::now() >= end) return false;
    NS_RunEvents();
    // Not a wait for the next event: what is waited for need not come with one.
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}
