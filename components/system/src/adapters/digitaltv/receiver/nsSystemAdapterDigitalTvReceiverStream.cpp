// The receiver's selection of a service, and the stream to the player.
#include <chrono>
#include <string>
#include <thread>

#include "ITuneRequest.h"
#include "ITuner.h"
#include "nsAscii.h"
#include "nsIAsyncInputStream.h"
#include "nsIAsyncOutputStream.h"
#include "nsIBDAScanResultDigitalTvService.h"
#include "nsIDigitalTvAudioChannel.h"
#include "nsIPipe.h"
#include "nsLogger.h"
#include "nsServices.h"
#include "nsSystemAdapterDigitalTvReceiver.h"
#include "nsSystemBDAGraph.h"

namespace {

constexpr int kLockRounds = 10;
// Room for 64 packets, and a segment for each.
constexpr uint32_t kPacketSize = 188;
constexpr uint32_t kPackets = 64;

/// The channel of the language, the last one of several: kept as it stands, selections that are
/// stored by language count on it. The first of all without a language; 0 for none.
uint32_t AudioPidOf(nsIDigitalTvService* aService, std::string_view aLanguage) {
  nsCOMPtr<nsIArray> channels;
  uint32_t length = 0;
  if (NS_FAILED(aService->GetAudioChannels(channels.getter_AddRefs())) || !channels ||
      NS_FAILED(channels->GetLength(&length)))
    return 0;
  const std::string wanted = NS_ToLowerAscii(aLanguage);
  uint32_t pid = 0;
  for (uint32_t i = 0; i < length; ++i) {
    nsCOMPtr<nsIDigitalTvAudioChannel> channel;
    if (NS_FAILED(channels->QueryElementAt(i, nsIDigitalTvAudioChannel::kIID, NS_OutVoid(channel))))
      continue;
    nsCString language;
    (void)channel->GetLanguage(language);
    if (!wanted.empty() && NS_ToLowerAscii(language.view()) != wanted) continue;
    (void)channel->GetPid(&pid);
    if (wanted.empty()) break;
  }
  return pid;
}

}  // namespace

nsresult nsSystemAdapterDigitalTvReceiver::SelectChannelByName(const nsACString& aName,
                                                               const nsACString& aLanguage,
                                                               uint32_t) {
  (void)mGraph->StopGraph();
  Selection selection;
  nsresult rv;
  if (mTvServices) {
    rv = mChannelsFile.Refresh(mTvServices.get());
    if (NS_FAILED(rv)) return rv;
    rv = FindService(NS_View(aName), NS_View(aLanguage), &selection);
    if (NS_FAILED(rv)) return rv;
  } else {
    // And goes on with nothing to tune to: kept as it stands.
    SYSTEM_LOG_ERROR(mLog, "mTvServices uninitialized");
  }
  rv = ReplacePipe();
  if (NS_FAILED(rv)) return rv;
  if (!mGraph->StartGraph()) {
    mScanState = -1;
    SYSTEM_LOG_ERROR(mLog, "Failed to run graph");
    return NS_ERROR_FAILURE;
  }
  bool goesOn = true;
  rv = Tune(selection, &goesOn);
  if (!goesOn) return rv;
  // Whatever came of the tuning, with the graph stopped even: kept as it stands, the next signal
  // then streams the service that was asked for last.
  if (NS_FAILED(mGraph->MapStreams(selection.mVideoPid, selection.mPmtPid, selection.mAudioPid))) {
    mScanState = -1;
    SYSTEM_LOG_ERROR(mLog, "Failed to map streams " + std::to_string(selection.mVideoPid) + ", " +
                               std::to_string(selection.mPmtPid) + " & " +
                               std::to_string(selection.mAudioPid));
    return NS_ERROR_FAILURE;
  }
  return rv;
}

nsresult nsSystemAdapterDigitalTvReceiver::FindService(std::string_view aName,
                                                       std::string_view aLanguage,
                                                       Selection* aSelection) {
  const std::string wanted = NS_ToLowerAscii(aName);
  uint32_t length = 0;
  (void)mTvServices->GetLength(&length);
  for (uint32_t i = 0; i < length; ++i) {
    nsCOMPtr<nsIBDAScanResultDigitalTvService> service;
    if (NS_FAILED(mTvServices->QueryElementAt(i, nsIBDAScanResultDigitalTvService::kIID,
                                              NS_OutVoid(service))))
      continue;
    nsCString name;
    (void)service->GetName(name);
    if (NS_ToLowerAscii(name.view()) != wanted) continue;
    uint16_t video = 0, pmt = 0;
    (void)service->GetFrequency(&aSelection->mFrequency);
    (void)service->GetVideoPid(&video);
    (void)service->GetBandwidth(&aSelection->mBandwidth);
    (void)service->GetPmtPid(&pmt);
    aSelection->mVideoPid = video;
    aSelection->mPmtPid = pmt;
    aSelection->mAudioPid = AudioPidOf(service.get(), aLanguage);
    return NS_OK;
  }
  SYSTEM_LOG_ERROR(mLog, "Service not found in service list");
  return NS_ERROR_FAILURE;
}

nsresult nsSystemAdapterDigitalTvReceiver::Tune(const Selection& aSelection, bool* aGoesOn) {
  nsCOMPtr<ITuneRequest> request;
  if (NS_FAILED(mGraph->CreateDVBTTuneRequest(mGraph->mTuningSpace.get(), request.getter_AddRefs(),
                                              static_cast<int32_t>(aSelection.mFrequency),
                                              static_cast<int32_t>(aSelection.mBandwidth)))) {
    // A success all the same: kept as it stands.
    SYSTEM_LOG_ERROR(mLog, "Failed to create DVBT Tune request__");
    return NS_OK;
  }
  const auto tuner = do_QueryInterface<ITuner>(mGraph->mNetworkProvider);
  if (!tuner) {
    SYSTEM_LOG_ERROR(mLog, "Failed while interfacing Tuner with Network Provider.");
    return NS_ERROR_FAILURE;
  }
  if (NS_FAILED(tuner->put_TuneRequest(request.get()))) {
    SYSTEM_LOG_ERROR(mLog, "Failed to submit the Tune Request to the Network Provider.");
    *aGoesOn = false;
    return NS_ERROR_FAILURE;
  }
  for (int round = 0; round < kLockRounds; ++round) {
    bool locked = false;
    int32_t level = 0;
    const nsresult lockResult = GetLocked(&locked), levelResult = GetLevel(&level);
    // The rounds go on, other than in a scan, whose frequency ends there.
    if (NS_FAILED(lockResult) || NS_FAILED(levelResult))
      SYSTEM_LOG_ERROR(mLog, "Failed : did not getlocked or not getlevel.");
    if (locked) return NS_OK;
    std::this_thread::sleep_for(std::chrono::milliseconds(mTimes.mLockRound));
  }
  SYSTEM_LOG_ERROR(mLog,
                   "Unable to lock channel on frequency " + std::to_string(aSelection.mFrequency));
  (void)mGraph->StopGraph();
  return NS_ERROR_FAILURE;
}

// ---- The pipe

nsresult nsSystemAdapterDigitalTvReceiver::ReplacePipe() {
  nsCOMPtr<nsIOutputStream> oldOutput;
  nsCOMPtr<nsIInputStream> oldInput;
  {
    const nsAutoLock lock(mPipeLock);
    oldOutput.swap(mPipeOutput);
    oldInput.swap(mPipeInput);
  }
  oldOutput = nullptr;
  oldInput = nullptr;

  nsresult rv;
  const auto pipe = do_CreateInstance<nsIPipe>("@mozilla.org/pipe;1", &rv);
  nsCOMPtr<nsIAsyncInputStream> input;
  nsCOMPtr<nsIAsyncOutputStream> output;
  if (pipe) rv = pipe->Init(false, false, kPacketSize, kPackets, nullptr);
  if (NS_SUCCEEDED(rv)) rv = pipe->GetInputStream(input.getter_AddRefs());
  if (NS_SUCCEEDED(rv)) rv = pipe->GetOutputStream(output.getter_AddRefs());
  if (NS_FAILED(rv)) {
    SYSTEM_LOG_ERROR(mLog, "Unable to create pipe");
    return rv;
  }
  const nsAutoLock lock(mPipeLock);
  mPipeOutput = output;
  mPipeInput = input;
  return NS_OK;
}

nsresult nsSystemAdapterDigitalTvReceiver::GetStream(nsIInputStream** aStream) {
  PipeInput().forget(aStream);
  return NS_OK;
}

nsCOMPtr<nsIOutputStream> nsSystemAdapterDigitalTvReceiver::PipeOutput() {
  const nsAutoLock lock(mPipeLock);
  return mPipeOutput;
}

nsCOMPtr<nsIInputStream> nsSystemAdapterDigitalTvReceiver::PipeInput() {
  const nsAutoLock lock(mPipeLock);
  return mPipeInput;
}

void nsSystemAdapterDigitalTvReceiver::ClosePipe(nsIOutputStream* aOutput) {
  nsCOMPtr<nsIOutputStream> output;
  nsCOMPtr<nsIInputStream> input;
  {
    const nsAutoLock lock(mPipeLock);
    if (mPipeOutput != aOutput) return;
    output = mPipeOutput;
    input = mPipeInput;
  }
  if (output) (void)output->Close();
  if (input) (void)input->Close();
}
