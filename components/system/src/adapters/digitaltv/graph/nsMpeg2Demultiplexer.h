// Takes the transport stream apart: packets of chosen PIDs for its stream pins, and a way to the
// sections for the filters that read tables.
#pragma once

#include <atomic>
#include <bitset>

#include "IMPEG2PIDMap.h"
#include "IMpeg2Demultiplexer.h"
#include "nsLock.h"
#include "nsMediaFilter.h"
#include "nsNamedThread.h"

class nsPlatformPacketReader;

/// Input "MPEG-2 Stream", outputs "SI" and "Sections", and what CreateOutputPin makes. A pin made
/// so answers IMPEG2PIDMap; as long as the filter runs and any PID is mapped, a thread reads the
/// packets of all of them and hands each pin its own, in the order of the stream, as samples of
/// packets that lie side by side. A sample's memory is the tuner's, valid for the time of the call.
class nsMpeg2Demultiplexer final
    : public nsImplements<nsMpeg2Demultiplexer, nsMediaFilter, IMpeg2Demultiplexer> {
 public:
  nsMpeg2Demultiplexer();

  /// VFW_E_DUPLICATE_NAME for a name that a pin has; VFW_E_NOT_STOPPED while it runs.
  nsresult CreateOutputPin(AM_MEDIA_TYPE* aMediaType, char16_t* aName, IPin** aPin) override;
  /// These two: VFW_E_NOT_FOUND for a name that no made pin has, VFW_E_ALREADY_CONNECTED for one
  /// that is connected.
  nsresult SetOutputPinMediaType(char16_t* aName, AM_MEDIA_TYPE* aMediaType) override;
  nsresult DeleteOutputPin(char16_t* aName) override;

 private:
  class SectionsPin;
  class StreamPin;
  struct Outlet;
  using Pids = std::bitset<8192>;

  ~nsMpeg2Demultiplexer() override;
  nsresult OnRun() override;
  void OnStop() override;
  nsresult FindMadePin(const char16_t* aName, StreamPin** aPin)
      NS_REQUIRES(NS_MediaStructureLock());
  std::shared_ptr<nsMediaTuner> SourceTuner() const;
  nsresult ChangePids(StreamPin& aPin, const Pids& aPids) NS_REQUIRES(mLock);
  nsresult UpdateReader() NS_REQUIRES(mLock);
  void Stream(nsPlatformPacketReader& aReader, std::vector<Outlet>& aOutlets);

  nsMediaPin& mInput;
  /// In order of making.
  std::vector<StreamPin*> mStreamPins NS_GUARDED_BY(NS_MediaStructureLock());
  nsMutex mLock;                                   ///< of all that follows, and of the pins' PIDs
  bool mIsStreaming NS_GUARDED_BY(mLock) = false;  ///< from OnRun to OnStop
  std::shared_ptr<nsPlatformPacketReader> mReader NS_GUARDED_BY(mLock);
  nsNamedThread mThread;
  std::atomic<uint64_t> mPidsVersion = 0;
};
