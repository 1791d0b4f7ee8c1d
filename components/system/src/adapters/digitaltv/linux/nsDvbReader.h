// Readers of sections and packets from a demultiplexer of the kernel.
#pragma once

#include <array>
#include <bitset>
#include <deque>

#include "nsDvbTuner.h"
#include "nsEventFd.h"
#include "nsTransportDemultiplexer.h"

/// A descriptor that is waited for together with the end of its tuner. The session calls its
/// readers with its lock, which the compiler does not know to be the one of the reader's session:
/// what it calls is not checked.
class nsDvbReader {
 public:
  /// Ends the read that waits, for it to look again. With the session's lock.
  void Wake() { mWake.Set(); }
  /// The session knows it from now on.
  void Enlist() NS_REQUIRES(mSession->mLock);
  /// What has been received so far is thrown away. With the session's lock.
  void Restart() NS_NOT_CHECKED;
  /// Gives the device back; nobody reads. With the session's lock.
  void Drop() { mFd.Close(); }

 protected:
  explicit nsDvbReader(std::shared_ptr<nsDvbSession> aSession) : mSession(std::move(aSession)) {}
  nsDvbReader(const nsDvbReader&) = delete;
  nsDvbReader& operator=(const nsDvbReader&) = delete;
  ~nsDvbReader();

  nsresult OpenWake() { return mWake.Open(); }
  /// A descriptor of the demultiplexer with a buffer of that size.
  nsresult OpenDemux(size_t aBuffer) NS_REQUIRES(mSession->mLock);
  void End();
  /// Reads once something can be read, or the time is up. aPrepare is called with the session's
  /// lock before each wait; aTake, without it, gets the descriptor, and tells what came of it:
  /// NS_ERROR_IN_PROGRESS waits on.
  template <class Prepare, class Take>
  nsresult Read(uint32_t aTimeout, Prepare&& aPrepare, Take&& aTake);

  const std::shared_ptr<nsDvbSession> mSession;
  nsUniqueFd mFd;
  bool mIsReading NS_GUARDED_BY(mSession->mLock) = false;
  bool mIsCancelled NS_GUARDED_BY(mSession->mLock) = false;
  bool mIsRestarted NS_GUARDED_BY(mSession->mLock) = false;

 private:
  nsEventFd mWake;
  bool mIsEnlisted = false;
};

class nsDvbSectionReader final : public nsPlatformSectionReader, private nsDvbReader {
 public:
  /// With the session's lock.
  static nsresult Make(std::shared_ptr<nsDvbSession> aSession, const nsSectionFilter& aFilter,
                       std::shared_ptr<nsPlatformSectionReader>* aReader) NS_NOT_CHECKED;
  nsDvbSectionReader(std::shared_ptr<nsDvbSession> aSession, const nsSectionFilter& aFilter)
      : nsDvbReader(std::move(aSession)), mFilter(aFilter) {}

  nsresult ReadSection(uint32_t aTimeout, std::vector<uint8_t>* aSection) override;
  void Cancel() override { End(); }

 private:
  const nsSectionFilter mFilter;
};

class nsDvbPacketReader final : public nsPlatformPacketReader,
                                private nsDvbReader,
                                private nsTransportSink {
 public:
  /// With the session's lock.
  static nsresult Make(std::shared_ptr<nsDvbSession> aSession,
                       std::shared_ptr<nsPlatformPacketReader>* aReader) NS_NOT_CHECKED;
  explicit nsDvbPacketReader(std::shared_ptr<nsDvbSession> aSession)
      : nsDvbReader(std::move(aSession)), mBuffer(kBuffer) {}

  nsresult SetPids(std::span<const uint16_t> aPids) override;
  nsresult ReadPackets(uint32_t aTimeout, std::vector<std::span<const uint8_t>>* aRuns) override;
  void Cancel() override { End(); }

 private:
  static constexpr size_t kPacketSize = nsTransportDemultiplexer::kPacketSize;
  static constexpr size_t kBuffer = 512 * kPacketSize;
  using Pids = std::bitset<kWholeStream + 1>;

  nsresult Apply() NS_REQUIRES(mSession->mLock);
  nsresult Take(int aFd, std::vector<std::span<const uint8_t>>* aRuns);
  void OnPackets(std::span<const uint8_t> aPackets) override;

  Pids mWanted NS_GUARDED_BY(mSession->mLock);
  Pids mFiltered NS_GUARDED_BY(mSession->mLock);  // by the kernel
  bool mIsChanged NS_GUARDED_BY(mSession->mLock) = false;
  bool mSortsItself = false;  // the kernel gives the whole stream
  std::vector<uint8_t> mBuffer;
  size_t mHeld = 0;  // bytes of a packet in part, behind what was handed out
  size_t mHeldAt = 0;
  // Of the whole stream.
  Pids mSorted;
  nsTransportDemultiplexer mDemultiplexer{*this};
  std::vector<std::span<const uint8_t>>* mRuns = nullptr;
  std::deque<std::vector<uint8_t>> mCopies;
};
