#include "nsFdWatch.h"

#include <poll.h>

#include "nsEventPump.h"
#include "nsIEventTarget.h"
#include "nsPollSource.h"

namespace {

/// A descriptor that the function reads: nothing is taken here.
class Source final : public nsPollSource {
 public:
  explicit Source(int aFd) : mFd(aFd) {}

  void Wait() override {
    std::vector<pollfd> watched{{mFd, POLLIN, 0}};
    (void)Poll(watched, -1);
  }
  bool Consume() override {
    pollfd watched{mFd, POLLIN, 0};
    return poll(&watched, 1, 0) > 0;
  }

 private:
  const int mFd;
};

}  // namespace

nsFdWatch::nsFdWatch(std::unique_ptr<nsEventPump> aPump) : mPump(std::move(aPump)) {}
nsFdWatch::~nsFdWatch() = default;

nsresult nsFdWatch::Start(int aFd, nsIEventTarget* aTarget, std::function<void()> aReady,
                          std::unique_ptr<nsFdWatch>* aResult) {
  if (aFd < 0 || !aTarget || !aReady) return NS_ERROR_INVALID_ARG;
  std::unique_ptr<nsEventPump> pump;
  const nsresult rv = nsEventPump::Start("FdWatch", std::make_shared<Source>(aFd), aTarget,
                                         std::move(aReady), &pump);
  if (NS_SUCCEEDED(rv)) aResult->reset(new nsFdWatch(std::move(pump)));
  return rv;
}
