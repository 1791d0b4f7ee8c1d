// The receiver that a graph works for: one with a tuner and no components, and a pipe.
#pragma once

#include <algorithm>
#include <vector>

#include "IBaseFilter.h"
#include "IGraphBuilder.h"
#include "IPin.h"
#include "nsIAsyncInputStream.h"
#include "nsIAsyncOutputStream.h"
#include "nsIPipe.h"
#include "nsServices.h"
#include "nsSystemBDAGraph.h"
#include "nsSystemBDAReceiver.h"

/// What it tells is set by its members.
class nsTestReceiver final : public nsSystemBDAReceiver {
 public:
  static constexpr uint32_t kPipePackets = 64;

  nsresult AddFilters(IGraphBuilder* aGraph) override {
    return mGraph->AddFilterByDevicePath(aGraph, mTuner.getter_AddRefs(), mPath, u"Tuner");
  }
  nsresult Connect(IBaseFilter* aProvider) override {
    nsresult rv = mGraph->ConnectFilters(mGraph->mGraphBuilder.get(), aProvider, mTuner.get());
    if (NS_SUCCEEDED(rv))
      rv = mGraph->FindPinByMediaType(mTuner.get(), MEDIATYPE_Stream,
                                      KSDATAFORMAT_SUBTYPE_BDA_MPEG2_TRANSPORT,
                                      mPin.getter_AddRefs(), PINDIR_OUTPUT);
    return rv;
  }
  nsresult GetTransportStreamPin(IPin** aPin) override {
    if (!mPin) return NS_ERROR_FAILURE;
    nsCOMPtr(mPin).forget(aPin);
    return NS_OK;
  }
  void RemoveFilters() override {
    if (mTuner) (void)mGraph->mGraphBuilder->RemoveFilter(mTuner.get());
    mTuner = nullptr;
    mPin = nullptr;
  }
  nsresult GetLocked(bool* aLocked) override {
    *aLocked = ++mLooks > mLooksUntilLock;
    return mFailsToTell ? NS_ERROR_FAILURE : NS_OK;
  }
  nsresult GetLevel(int32_t* aLevel) override {
    *aLevel = 1;
    return NS_OK;
  }
  bool IsScanStopped() override { return mIsStopped; }
  nsCOMPtr<nsIOutputStream> PipeOutput() override { return mOutput; }
  nsCOMPtr<nsIInputStream> PipeInput() override { return mInput; }
  void ClosePipe(nsIOutputStream* aOutput) override {
    (void)aOutput->Close();
    if (mInput) (void)mInput->Close();
  }

  nsresult OpenPipe() {
    const auto pipe = do_CreateInstance<nsIPipe>("@mozilla.org/pipe;1");
    nsCOMPtr<nsIAsyncInputStream> input;
    nsCOMPtr<nsIAsyncOutputStream> output;
    nsresult rv = pipe->Init(false, false, 188, kPipePackets, nullptr);
    if (NS_SUCCEEDED(rv)) rv = pipe->GetInputStream(input.getter_AddRefs());
    if (NS_SUCCEEDED(rv)) rv = pipe->GetOutputStream(output.getter_AddRefs());
    if (NS_FAILED(rv)) return rv;
    mInput = input;
    mOutput = output;
    return rv;
  }
  /// So many bytes, or what there is until the end.
  std::vector<uint8_t> Read(size_t aSize, uint32_t aAtATime = 4096) {
    std::vector<uint8_t> bytes;
    std::vector<char> buffer(aAtATime);
    while (bytes.size() < aSize) {
      uint32_t count = 0;
      const auto wanted = std::min<size_t>(aAtATime, aSize - bytes.size());
      if (NS_FAILED(mInput->Read(buffer.data(), static_cast<uint32_t>(wanted), &count)) ||
          count == 0)
        break;
      bytes.insert(bytes.end(), buffer.begin(), buffer.begin() + count);
    }
    return bytes;
  }

  const char16_t* mPath = u"tuner";
  nsSystemBDAGraph* mGraph = nullptr;
  nsCOMPtr<IBaseFilter> mTuner;
  nsCOMPtr<IPin> mPin;
  nsCOMPtr<nsIOutputStream> mOutput;
  nsCOMPtr<nsIInputStream> mInput;
  int mLooks = 0, mLooksUntilLock = 0;
  bool mFailsToTell = false;
  bool mIsStopped = false;
};
