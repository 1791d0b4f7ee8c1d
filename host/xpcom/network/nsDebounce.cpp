#include "nsDebounce.h"

#include <algorithm>

#include "nsDebug.h"
#include "nsHostTime.h"
#include "nsServices.h"

nsDebounce::nsDebounce(uint32_t aQuiet, uint32_t aLongest, std::function<void()> aCall)
    : mQuiet(int64_t{aQuiet} * 1000), mLongest(int64_t{aLongest} * 1000), mCall(std::move(aCall)) {}

nsDebounce::~nsDebounce() {
  if (mTimer) (void)mTimer->Cancel();
}

nsresult nsDebounce::OnEvent() {
  mLast = NS_MonotonicNow();
  if (mPending) return NS_OK;
  mLatest = mLast + mLongest;
  return WaitUntil(mLast + mQuiet);
}

nsresult nsDebounce::WaitUntil(int64_t aTime) {
  mPending = false;
  nsresult rv;
  if (!mTimer) mTimer = do_CreateInstance<nsITimer>(NS_TIMER_CONTRACTID, &rv);
  NS_ENSURE_TRUE(mTimer, rv);
  const int64_t microseconds = std::max<int64_t>(aTime - NS_MonotonicNow(), 0);
  rv = mTimer->InitWithFuncCallback(
      [](nsITimer*, void* aSelf) { static_cast<nsDebounce*>(aSelf)->OnTimer(); }, this,
      static_cast<uint32_t>((microseconds + 999) / 1000), nsITimer::TYPE_ONE_SHOT);
  NS_ENSURE_SUCCESS(rv, rv);
  mPending = true;
  return NS_OK;
}

void nsDebounce::OnTimer() {
  const int64_t due = std::min(mLast + mQuiet, mLatest);
  if (due > NS_MonotonicNow() && NS_SUCCEEDED(WaitUntil(due))) return;
  mPending = false;
  mCall();
}
