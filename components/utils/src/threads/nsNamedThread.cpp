#include "nsNamedThread.h"

#include <memory>

namespace {

struct Work {
  const char* mName;
  std::function<void()> mMain;
};

void Run(void* aWork) {
  const std::unique_ptr<Work> work(static_cast<Work*>(aWork));
  (void)PR_SetCurrentThreadName(work->mName);
  work->mMain();
}

}  // namespace

nsresult nsNamedThread::Start(const char* aName, std::function<void()> aMain) {
  if (mThread) return NS_ERROR_ALREADY_INITIALIZED;
  auto work = std::make_unique<Work>(Work{aName, std::move(aMain)});
  mThread = PR_CreateThread(PR_USER_THREAD, Run, work.get(), PR_PRIORITY_NORMAL, PR_GLOBAL_THREAD,
                            PR_JOINABLE_THREAD, 0);
  if (!mThread) return NS_ERROR_OUT_OF_MEMORY;
  (void)work.release();  // Run has it
  return NS_OK;
}

void nsNamedThread::Join() {
  if (mThread) (void)PR_JoinThread(std::exchange(mThread, nullptr));
}
