#include "nsStreamOutput.h"

#include <atomic>
#include <vector>

#include "nsIInputStream.h"
#include "nsIRunnable.h"
#include "nsStreamWriter.h"
#include "nsVorelMethodCaller.h"

/// What the thread and the object share.
struct nsStreamOutput::Copy {
  nsCOMPtr<nsIInputStream> mStream;
  nsStreamWriter mWriter;
  std::atomic<uint64_t> mWritten = 0;
  nsStreamOutput* mOutput = nullptr;  ///< main thread; null: it has gone
};

/// The end, told on the main thread.
class nsStreamOutput::Ended final : public nsImplements<Ended, nsIRunnable> {
 public:
  Ended(std::shared_ptr<Copy> aCopy, nsresult aStatus)
      : mCopy(std::move(aCopy)), mStatus(aStatus) {}
  nsresult Run() override {
    const nsCOMPtr<nsStreamOutput> output(mCopy->mOutput);
    if (!output) return NS_OK;
    return std::exchange(output->mListener, nullptr)->OnEnded(mStatus);
  }

 private:
  ~Ended() override = default;
  const std::shared_ptr<Copy> mCopy;
  const nsresult mStatus;
};

nsStreamOutput::~nsStreamOutput() {
  if (!mCopy) return;
  mCopy->mOutput = nullptr;
  mCopy->mWriter.Stop();
  (void)mCopy->mStream->Close();  // ends a read that waits
  mThread.Join();
}

nsresult nsStreamOutput::Start(nsIInputStream* aStream, nsIStreamOutputListener* aListener) {
  if (!aStream || !aListener) return NS_ERROR_NULL_POINTER;
  if (mCopy) return NS_ERROR_IN_PROGRESS;
  auto copy = std::make_shared<Copy>();
  nsresult rv = copy->mWriter.Open();
  if (NS_FAILED(rv)) return rv;
  copy->mStream = aStream;
  copy->mOutput = this;
  mListener = aListener;
  mCopy = copy;
  rv = mThread.Start("StreamOutput", [copy] {
    (void)NS_DispatchToMainThread(MakeRefCounted<Ended>(copy, Run(*copy)).get(),
                                  NS_DISPATCH_NORMAL);
  });
  if (NS_FAILED(rv)) {
    mCopy = nullptr;
    mListener = nullptr;
  }
  return rv;
}

nsresult nsStreamOutput::Run(Copy& aCopy) {
  std::vector<char> buffer(size_t{64} * 1024);
  for (;;) {
    // What is there at once goes into one write; what is not is not waited for.
    uint32_t size = 0, available = 0;
    nsresult rv = NS_OK;
    do {
      uint32_t count = 0;
      rv = aCopy.mStream->Read(buffer.data() + size, static_cast<uint32_t>(buffer.size()) - size,
                               &count);
      if (NS_FAILED(rv) || count == 0) break;
      size += count;
    } while (size < buffer.size() && NS_SUCCEEDED(aCopy.mStream->Available(&available)) &&
             available > 0);
    if (size > 0)
      if (const nsresult written = aCopy.mWriter.Write({buffer.data(), size}); NS_FAILED(written))
        return written;
    aCopy.mWritten += size;
    if (NS_FAILED(rv)) return rv == NS_BASE_STREAM_CLOSED ? NS_OK : rv;
    if (size == 0) return NS_OK;
  }
}

nsresult nsStreamOutput::GetWritten(uint64_t* aWritten) {
  *aWritten = mCopy ? mCopy->mWritten.load() : 0;
  return NS_OK;
}
