// The end of the stream: samples of the demultiplexer become packets in the pipe to the player.
#pragma once

#include <cstdint>
#include <span>

#include "ISampleGrabberCB.h"
#include "nsBriefWait.h"
#include "nsCOMPtr.h"
#include "nsILog4.h"

class nsIOutputStream;
class nsSystemBDAGraph;
class nsSystemBDAReceiver;

/// Lives until the process ends, since whoever calls it holds it on terms of his own: its counts
/// count nothing. Graph and receiver may go once the graph has been stopped.
class nsSystemBDASampleGrabberCB final : public ISampleGrabberCB {
 public:
  /// The one way to make one: it is what the list of intended leaks names.
  static nsSystemBDASampleGrabberCB* Create(nsSystemBDAGraph& aGraph,
                                            nsSystemBDAReceiver& aAdapter);

  /// E_NOINTERFACE for all but ISampleGrabberCB.
  nsresult QueryInterface(const nsIID& aIID, void** aResult) override;
  nsrefcnt AddRef() override { return 1; }
  nsrefcnt Release() override { return 1; }

  /// Writes the whole packets of a sample to the receiver's pipe, one write for each, and keeps
  /// what is left for the next one. Waits while the pipe is full, until the graph is stopped. S_OK
  /// always. On the streaming thread.
  nsresult SampleCB(double aTime, IMediaSample* aSample) override;
  /// S_FALSE: it is not how samples come.
  nsresult BufferCB(double aTime, uint8_t* aBuffer, int32_t aLength) override;
  virtual ~nsSystemBDASampleGrabberCB();

 private:
  class PipeEnd;

  nsSystemBDASampleGrabberCB(nsSystemBDAGraph& aGraph, nsSystemBDAReceiver& aAdapter);
  /// The packet that the sample before has begun. Where the sample goes on behind it, or nothing
  /// when that is all.
  size_t WriteRemainder(PipeEnd& aPipe, std::span<const uint8_t> aData);
  void KeepRemainder(std::span<const uint8_t> aRest);
  void FreeRemainder();
  void FailWriting(PipeEnd& aPipe, const char* aText);

  const nsCOMPtr<nsILog4Logger> mLog;
  nsSystemBDAGraph& mGraph;
  nsSystemBDAReceiver& mAdapter;
  nsBriefWait mBriefly;                      ///< for room in the pipe
  const nsIOutputStream* mRoomOf = nullptr;  ///< only compared: it may have gone
  uint32_t mRoom = 0;                        ///< packets that certainly fit there
  uint8_t mRemainderLength = 0;
  uint8_t* mRemainder = nullptr;  ///< the beginning of a packet whose rest is in the next sample
};
