// Callbacks of streams for another thread.
#pragma once

#include "nsCOMPtr.h"
#include "nsIAsyncInputStream.h"
#include "nsIAsyncOutputStream.h"
#include "nsIEventTarget.h"
#include "nsIInputStreamCallback.h"
#include "nsIOutputStreamCallback.h"
#include "nsIRunnable.h"
#include "nsImplements.h"

/// As the callback it keeps the stream and sends itself to the target; as the runnable it calls the
/// real callback there, and drops it.
template <class Class, class Stream, class Callback>
class nsStreamReadyEvent : public nsImplements<Class, nsIRunnable, Callback> {
 public:
  nsStreamReadyEvent(Callback* aCallback, nsIEventTarget* aTarget)
      : mCallback(aCallback), mTarget(aTarget) {}

  nsresult Run() override {
    const nsCOMPtr<Callback> callback = std::exchange(mCallback, nullptr);
    const nsCOMPtr<Stream> stream = std::exchange(mStream, nullptr);
    return callback && stream ? Class::CallBack(*callback, stream.get()) : NS_OK;
  }

 protected:
  /// The callback belongs to its target's thread: where it was never called, it is let go there.
  ~nsStreamReadyEvent() override {
    if (!mCallback) return;
    bool onTarget = false;
    if (NS_SUCCEEDED(mTarget->IsOnCurrentThread(&onTarget)) && onTarget) return;
    const auto event = MakeRefCounted<Class>(mCallback.get(), mTarget.get());
    mCallback = nullptr;
    if (NS_FAILED(mTarget->Dispatch(event.get(), nsIEventTarget::DISPATCH_NORMAL))) {
      // The target's thread has ended. A callback that is never freed harms less than one that is
      // freed on a thread where it may not be touched.
      Callback* leaked = nullptr;
      event->mCallback.forget(&leaked);
    }
  }

  nsresult Ready(Stream* aStream) {
    mStream = aStream;
    return mTarget->Dispatch(this, nsIEventTarget::DISPATCH_NORMAL);
  }

 private:
  nsCOMPtr<Callback> mCallback;
  const nsCOMPtr<nsIEventTarget> mTarget;
  nsCOMPtr<Stream> mStream;
};

class nsInputStreamReadyEvent final
    : public nsStreamReadyEvent<nsInputStreamReadyEvent, nsIAsyncInputStream,
                                nsIInputStreamCallback> {
 public:
  using nsStreamReadyEvent::nsStreamReadyEvent;
  static nsresult CallBack(nsIInputStreamCallback& aCallback, nsIAsyncInputStream* aStream) {
    return aCallback.OnInputStreamReady(aStream);
  }
  nsresult OnInputStreamReady(nsIAsyncInputStream* aStream) override { return Ready(aStream); }

 private:
  ~nsInputStreamReadyEvent() override = default;
};

class nsOutputStreamReadyEvent final
    : public nsStreamReadyEvent<nsOutputStreamReadyEvent, nsIAsyncOutputStream,
                                nsIOutputStreamCallback> {
 public:
  using nsStreamReadyEvent::nsStreamReadyEvent;
  static nsresult CallBack(nsIOutputStreamCallback& aCallback, nsIAsyncOutputStream* aStream) {
    return aCallback.OnOutputStreamReady(aStream);
  }
  nsresult OnOutputStreamReady(nsIAsyncOutputStream* aStream) override { return Ready(aStream); }

 private:
  ~nsOutputStreamReadyEvent() override = default;
};
