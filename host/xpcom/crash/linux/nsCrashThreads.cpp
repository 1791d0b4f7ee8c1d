// A stack for the crash report on every thread: one whose own is spent has no room for a handler.
#include <dlfcn.h>
#include <pthread.h>
#include <signal.h>
#include <sys/mman.h>

#include <memory>
#include <new>

#include "nsCrashHandler.h"

#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define VOREL_THREAD_SANITIZER 1
#endif
#elif defined(__SANITIZE_THREAD__)
#define VOREL_THREAD_SANITIZER 1
#endif

// ThreadSanitizer makes a thread known in a beginning of its own, within ours, so that nothing of
// ours may run before it.
#ifndef VOREL_THREAD_SANITIZER

namespace {

constexpr size_t kStackSize = 128 * 1024;

class AlternateStack {
 public:
  AlternateStack() {
    void* const memory = mmap(nullptr, kStackSize, PROT_READ | PROT_WRITE,
                              MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (memory == MAP_FAILED) return;
    mMemory = memory;
    const stack_t stack{.ss_sp = mMemory, .ss_flags = 0, .ss_size = kStackSize};
    (void)sigaltstack(&stack, &mBefore);
  }
  AlternateStack(const AlternateStack&) = delete;
  AlternateStack& operator=(const AlternateStack&) = delete;
  ~AlternateStack() {
    if (!mMemory) return;
    (void)sigaltstack(&mBefore, nullptr);
    (void)munmap(mMemory, kStackSize);
  }

 private:
  void* mMemory = nullptr;
  stack_t mBefore{};
};

struct Work {
  void* (*mMain)(void*);
  void* mArgument;
};

void* Run(void* aWork) {
  const Work work = *std::unique_ptr<Work>(static_cast<Work*>(aWork));
  const AlternateStack stack;
  return work.mMain(work.mArgument);
}

}  // namespace

// Stands before the C library's in the process: threads are made by NSPR, by the engine, and by
// whatever library an application brings along, and none of them asks us.
extern "C" __attribute__((visibility("default"))) int pthread_create(pthread_t* aThread,
                                                                     const pthread_attr_t* aOptions,
                                                                     void* (*aMain)(void*),
                                                                     void* aArgument) noexcept {
  using Create = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
  static const auto sCreate = reinterpret_cast<Create>(dlsym(RTLD_NEXT, "pthread_create"));
  Work* const work =
      nsCrashHandler::IsInstalled() ? new (std::nothrow) Work{aMain, aArgument} : nullptr;
  if (!work) return sCreate(aThread, aOptions, aMain, aArgument);
  const int error = sCreate(aThread, aOptions, Run, work);
  if (error != 0) delete work;
  return error;
}

#endif
