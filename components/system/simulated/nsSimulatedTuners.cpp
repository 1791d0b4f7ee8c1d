#include "nsSimulatedTuners.h"

#include <algorithm>
#include <bitset>
#include <deque>
#include <filesystem>

#include "nsLock.h"
#include "nsLogger.h"
#include "nsTransportDemultiplexer.h"

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr size_t kPacketSize = nsSimulatedStream::kPacketSize;
constexpr uint32_t kCatchRange = 200;  // kHz
constexpr int32_t kNoise = -95000;     // thousandths of a decibel
// Between two looks at a stream that comes at its own rate: half a picture. Each look wakes two
// threads, which costs more than its packets do.
constexpr auto kBatch = 20ms;
constexpr uint64_t kMostOfARead = 512;  // packets
constexpr size_t kFetchedAhead = 16 * kPacketSize;
constexpr uint64_t kBehind = 11000;      // packets that are kept for a slow reader, 2 MB
constexpr uint64_t kPushed = 64;         // packets at a time, where sections are looked for
constexpr size_t kKeptSections = 65536;  // bytes

}  // namespace

// A tuner that is plugged in, or was. Lives as long as somebody uses it.
class nsSimulatedTuners::Device {
 public:
  explicit Device(nsSimulatedTuner aFacts) : mFacts(std::move(aFacts)) {}

  /// What the tuner receives; null: nothing.
  nsSimulatedTransmitter* Received() NS_REQUIRES(mLock) {
    nsSimulatedTransmitter* nearest = nullptr;
    uint32_t distance = kCatchRange + 1;
    for (auto& [frequency, transmitter] : mFacts.mTransmitters) {
      const uint32_t apart =
          frequency > mFrequency ? frequency - mFrequency : mFrequency - frequency;
      const bool fits =
          mBandwidth == 0 || transmitter.mBandwidth == 0 || mBandwidth == transmitter.mBandwidth;
      if (apart >= distance || !fits) continue;
      nearest = &transmitter;
      distance = apart;
    }
    return mIsTuned ? nearest : nullptr;
  }
  /// When it locks, or has; nothing: it doesn't.
  std::optional<Clock::time_point> Lock() NS_REQUIRES(mLock) {
    const nsSimulatedTransmitter* const received = Received();
    if (!received || !received->mLocks) return std::nullopt;
    return mSignalSince + received->mLockDelay;
  }

  /// Reads the file of what is received.
  nsresult Load() NS_REQUIRES(mLock) {
    nsSimulatedTransmitter* const received = Received();
    if (!received || received->mStream || received->mFile.empty()) return NS_OK;
    if (NS_SUCCEEDED(nsSimulatedStream::Load(received->mFile, &received->mStream))) return NS_OK;
    SYSTEM_LOG_ERROR(NS_GetLogger("system.machine"),
                     "the stream \"" + received->mFile + "\" can't be read, or is none");
    return NS_ERROR_FAILURE;
  }

  // Something is different: whoever waits looks again.
  void Changed() NS_REQUIRES(mLock) {
    ++mChanges;
    mChanged.NotifyAll();
  }

  nsMutex mLock;
  nsCondition mChanged;
  nsSimulatedTuner mFacts NS_GUARDED_BY(mLock);
  bool mIsGone NS_GUARDED_BY(mLock) = false;
  bool mIsOpen NS_GUARDED_BY(mLock) = false;
  bool mIsTuned NS_GUARDED_BY(mLock) = false;
  uint32_t mFrequency NS_GUARDED_BY(mLock) = 0, mBandwidth NS_GUARDED_BY(mLock) = 0;
  Clock::time_point mSignalSince NS_GUARDED_BY(mLock);
  uint64_t mTunes NS_GUARDED_BY(mLock) = 0, mChanges NS_GUARDED_BY(mLock) = 0;
};

// What both kinds of readers share: the wait for a stream that comes on.
class nsSimulatedTuners::Reader : protected nsSimulatedPort {
 public:
  Reader(nsSimulatedCallsRef aCalls, DeviceRef aDevice, std::shared_ptr<bool> aClosed)
      : nsSimulatedPort(std::move(aCalls), "Tuners"),
        mDevice(std::move(aDevice)),
        mClosed(std::move(aClosed)) {}

 protected:
  ~Reader() = default;

  void End() {
    const nsAutoLock lock(mDevice->mLock);
    mIsCancelled = true;
    mDevice->mChanged.NotifyAll();
  }

  /// Calls aTake, with the device's lock held, whenever more of the stream may have come: it goes
  /// on with the cursor up to the packet that it is given, and tells whether it has what is wanted.
  template <class Take>
  nsresult Wait(uint32_t aTimeout, Take&& aTake) {
    std::optional<Clock::time_point> deadline;
    if (aTimeout != nsPlatformPacketReader::kNoTimeout)
      deadline = Clock::now() + std::chrono::milliseconds(aTimeout);
    nsAutoLock lock(mDevice->mLock);
    for (;;) {
      if (mIsCancelled || *mClosed) return NS_ERROR_ABORT;
      if (mDevice->mIsGone) return NS_ERROR_NOT_AVAILABLE;
      std::optional<Clock::time_point> next;
      const auto now = Clock::now();
      if (Follow(now, &next)) {
        const double rate = mDevice->mFacts.mOwnRate ? mCursor.Stream()->PacketsPerSecond() : 0;
        const uint64_t live = Live(now, rate);
        if (rate > 0 && live > mCursor.Position() + kBehind) mCursor.Skip(live - kBehind);
        if (aTake(rate > 0 ? live : UINT64_MAX)) return NS_OK;
        if (rate > 0 && !mIsIdle) next = now + kBatch;
      } else if (aTake(mCursor.Position())) {
        return NS_OK;  // what has come before
      }
      if (deadline && now >= *deadline) return NS_ERROR_NET_TIMEOUT;
      if (deadline && (!next || *deadline < *next)) next = deadline;
      mLooksAgain = false;
      const auto changed = [this, changes = mDevice->mChanges]() NS_REQUIRES(mDevice->mLock) {
        return mIsCancelled || *mClosed || mLooksAgain || mDevice->mChanges != changes;
      };
      if (next)
        (void)mDevice->mChanged.WaitUntil(lock, *next, changed);
      else
        mDevice->mChanged.Wait(lock, changed);
    }
  }

  /// What is wanted is different. With the device's lock.
  void Want(bool aAnything) {
    mRejoins = mRejoins || mIsIdle;
    mIsIdle = !aAnything;
    mLooksAgain = true;
    mDevice->mChanged.NotifyAll();
  }

  /// The stream is another one.
  virtual void Restart() = 0;

  const DeviceRef mDevice;
  nsStreamCursor mCursor;

 private:
  uint64_t Live(Clock::time_point aNow, double aRate) const {
    const auto since = std::chrono::duration<double>(aNow - mStart).count();
    return since <= 0 ? 0 : static_cast<uint64_t>(since * aRate);
  }

  /// Puts the cursor to where the tuner receives. False when nothing comes; aNext then tells when
  /// something might.
  bool Follow(Clock::time_point aNow, std::optional<Clock::time_point>* aNext)
      NS_REQUIRES(mDevice->mLock) {
    const auto lock = mDevice->Lock();
    if (!lock) return false;
    const nsSimulatedTransmitter& received = *mDevice->Received();
    if (!received.mStream || received.mStalls) return false;
    if (aNow < *lock) {
      *aNext = *lock;
      return false;
    }
    const bool isAnother =
        mTunes != mDevice->mTunes || mStart != *lock || mCursor.Stream() != received.mStream;
    const bool rejoins = std::exchange(mRejoins, false);
    if (!isAnother && !rejoins && mChanges == mDevice->mChanges) return true;
    mStart = *lock;
    mTunes = mDevice->mTunes;
    mChanges = mDevice->mChanges;
    const double rate = mDevice->mFacts.mOwnRate ? received.mStream->PacketsPerSecond() : 0;
    const uint64_t position = rate > 0 ? Live(aNow, rate) : isAnother ? 0 : mCursor.Position();
    mCursor.Set(received.mStream, position, received.mDamage);
    if (isAnother) Restart();
    return true;
  }

  const std::shared_ptr<bool> mClosed;
  bool mIsCancelled = false;
  bool mIsIdle = false;  // nothing is wanted
  bool mLooksAgain = false, mRejoins = false;
  uint64_t mTunes = 0, mChanges = 0;
  Clock::time_point mStart;  // of the stream
};

class nsSimulatedTuners::SectionReader final : public nsPlatformSectionReader,
                                               private Reader,
                                               private nsTransportSink {
 public:
  SectionReader(nsSimulatedCallsRef aCalls, DeviceRef aDevice, std::shared_ptr<bool> aClosed,
                const nsSectionFilter& aFilter)
      : Reader(std::move(aCalls), std::move(aDevice), std::move(aClosed)), mFilter(aFilter) {
    (void)mDemultiplexer.AddSectionPid(aFilter.mPid, false);  // it has no other
  }

  nsresult ReadSection(uint32_t aTimeout, std::vector<uint8_t>* aSection) override {
    if (nsresult rv = Enter("ReadSection"); NS_FAILED(rv)) return rv;
    return Wait(aTimeout, [&](uint64_t aEnd) {
      // Where the stream comes as fast as it is read, a section that does not come in two rounds
      // never comes.
      const bool isFast = aEnd == UINT64_MAX;
      const uint64_t rounds = mCursor.Stream() ? mCursor.Stream()->Count() * 2 + kPushed : 0;
      while (mCursor.Position() < aEnd && !(isFast && (!mSections.empty() || mSilent > rounds))) {
        const auto packets = mCursor.Take(std::min(kPushed, aEnd - mCursor.Position()));
        mSilent += packets.size() / kPacketSize;
        mDemultiplexer.Push(packets);
        mCursor.Forget();
      }
      if (mSections.empty()) return false;
      mKept -= mSections.front().size();
      *aSection = std::move(mSections.front());
      mSections.pop_front();
      return true;
    });
  }
  void Cancel() override { End(); }

 private:
  void Restart() override {
    mDemultiplexer.Finish();
    mSilent = 0;
  }
  void OnSection(uint16_t, std::span<const uint8_t> aSection) override {
    if (!mFilter.Matches(aSection) || mKept + aSection.size() > kKeptSections) return;
    mSections.emplace_back(aSection.begin(), aSection.end());
    mKept += aSection.size();
    mSilent = 0;
  }

  const nsSectionFilter mFilter;
  nsTransportDemultiplexer mDemultiplexer{*this};
  std::deque<std::vector<uint8_t>> mSections;
  size_t mKept = 0;      // bytes of them
  uint64_t mSilent = 0;  // packets since the last one
};

class nsSimulatedTuners::PacketReader final : public nsPlatformPacketReader, private Reader {
 public:
  template <class... Args>
  explicit PacketReader(Args&&... aArgs) : Reader(std::forward<Args>(aArgs)...) {
    Want(false);
  }

  nsresult SetPids(std::span<const uint16_t> aPids) override {
    if (nsresult rv = Enter("SetPids"); NS_FAILED(rv)) return rv;
    std::bitset<kWholeStream> pids;
    for (const uint16_t pid : aPids) {
      if (pid > kWholeStream || (pid == kWholeStream && aPids.size() > 1))
        return NS_ERROR_INVALID_ARG;
      if (pid == kWholeStream)
        pids.set();
      else
        pids.set(pid);
    }
    const nsAutoLock lock(mDevice->mLock);
    mPids = pids;
    mSilent = 0;
    Want(pids.any());
    return NS_OK;
  }

  nsresult ReadPackets(uint32_t aTimeout, std::vector<std::span<const uint8_t>>* aRuns) override {
    if (nsresult rv = Enter("ReadPackets"); NS_FAILED(rv)) return rv;
    std::vector<std::span<const uint8_t>> runs;
    std::shared_ptr<const nsSimulatedStream> stream;
    bool isFirst = true;
    const nsresult rv = Wait(aTimeout, [&](uint64_t aEnd) {
      if (std::exchange(isFirst, false)) mCursor.Forget();
      stream = mCursor.Stream();
      uint64_t found = 0;
      while (mPids.any() && found < kMostOfARead && mCursor.Position() < aEnd &&
             mSilent <= mCursor.Stream()->Count())
        found +=
            Choose(mCursor.Take(std::min(kMostOfARead - found, aEnd - mCursor.Position())), &runs);
      return found > 0;
    });
    if (NS_FAILED(rv)) return rv;
    mRead = std::move(stream);
    aRuns->swap(runs);
    return NS_OK;
  }
  void Cancel() override { End(); }

 private:
  void Restart() override { mSilent = 0; }

  // Adds the chosen packets, and tells how many.
  uint64_t Choose(std::span<const uint8_t> aPackets, std::vector<std::span<const uint8_t>>* aRuns) {
    uint64_t found = 0;
    for (size_t at = 0; at < aPackets.size(); at += kPacketSize) {
      // Nothing between the heads is looked at: left to itself the processor waits for each.
      if (at + kFetchedAhead < aPackets.size()) __builtin_prefetch(&aPackets[at + kFetchedAhead]);
      const size_t pid = (aPackets[at + 1] & 0x1Fu) << 8 | aPackets[at + 2];
      ++mSilent;
      if (!mPids[pid]) continue;
      const auto packet = aPackets.subspan(at, kPacketSize);
      if (!aRuns->empty() && aRuns->back().data() + aRuns->back().size() == packet.data())
        aRuns->back() = {aRuns->back().data(), aRuns->back().size() + kPacketSize};
      else
        aRuns->push_back(packet);
      ++found;
    }
    if (found > 0) mSilent = 0;
    return found;
  }

  std::bitset<kWholeStream> mPids;
  uint64_t mSilent = 0;                            // packets since the last one that was chosen
  std::shared_ptr<const nsSimulatedStream> mRead;  // whose views have been handed out
};

// An open tuner.
class nsSimulatedTuners::OpenDevice final : public nsPlatformTuner, private nsSimulatedPort {
 public:
  OpenDevice(nsSimulatedCallsRef aCalls, DeviceRef aDevice)
      : nsSimulatedPort(aCalls, "Tuners"),
        mAllCalls(std::move(aCalls)),
        mDevice(std::move(aDevice)) {}
  ~OpenDevice() override { (void)End(); }

  nsresult Tune(uint32_t aFrequency, uint32_t aBandwidth) override {
    return With("Tune", [&]() NS_REQUIRES(mDevice->mLock) {
      mDevice->mFrequency = aFrequency;
      mDevice->mBandwidth = aBandwidth;
      mDevice->mIsTuned = true;
      mDevice->mSignalSince = Clock::now();
      ++mDevice->mTunes;
      mDevice->Changed();
      Record("Tune " + mDevice->mFacts.mInfo.mPath + " " + std::to_string(aFrequency) + " " +
             std::to_string(aBandwidth));
      return mDevice->Load();
    });
  }
  nsresult ReadLocked(bool* aLocked) override {
    return With("ReadLocked", [&]() NS_REQUIRES(mDevice->mLock) {
      const auto lock = mDevice->Lock();
      *aLocked = lock && Clock::now() >= *lock;
      return NS_OK;
    });
  }
  nsresult ReadStrength(int32_t* aStrength) override {
    return With("ReadStrength", [&]() NS_REQUIRES(mDevice->mLock) {
      if (!mDevice->mFacts.mTellsSignal) return NS_ERROR_NO_CONTENT;
      const nsSimulatedTransmitter* const received = mDevice->Received();
      *aStrength = received ? received->mStrength : kNoise;
      return NS_OK;
    });
  }
  nsresult ReadQuality(uint32_t* aQuality) override {
    return With("ReadQuality", [&]() NS_REQUIRES(mDevice->mLock) {
      if (!mDevice->mFacts.mTellsSignal) return NS_ERROR_NO_CONTENT;
      const auto lock = mDevice->Lock();
      *aQuality = lock && Clock::now() >= *lock ? mDevice->Received()->mQuality : 0;
      return NS_OK;
    });
  }
  nsresult OpenSections(const nsSectionFilter& aFilter,
                        std::shared_ptr<nsPlatformSectionReader>* aReader) override {
    return With("OpenSections", [&] {
      if (aFilter.mPid >= nsPlatformPacketReader::kWholeStream) return NS_ERROR_INVALID_ARG;
      *aReader = std::make_shared<SectionReader>(mAllCalls, mDevice, mClosed, aFilter);
      return NS_OK;
    });
  }
  nsresult OpenPackets(std::shared_ptr<nsPlatformPacketReader>* aReader) override {
    return With("OpenPackets", [&] {
      *aReader = std::make_shared<PacketReader>(mAllCalls, mDevice, mClosed);
      return NS_OK;
    });
  }
  nsresult Close() override {
    if (nsresult rv = Enter("Close"); NS_FAILED(rv)) return rv;
    return End();
  }

 private:
  template <class Do>
  nsresult With(const char* aMethod, Do&& aDo) {
    if (nsresult rv = Enter(aMethod); NS_FAILED(rv)) return rv;
    const nsAutoLock lock(mDevice->mLock);
    if (*mClosed) return NS_ERROR_ABORT;
    if (mDevice->mIsGone) return NS_ERROR_NOT_AVAILABLE;
    return aDo();
  }

  nsresult End() {
    const nsAutoLock lock(mDevice->mLock);
    if (std::exchange(*mClosed, true)) return NS_ERROR_ABORT;
    mDevice->mIsOpen = mDevice->mIsTuned = false;
    mDevice->Changed();
    Record("Close " + mDevice->mFacts.mInfo.mPath);
    return NS_OK;
  }

  const nsSimulatedCallsRef mAllCalls;
  const DeviceRef mDevice;
  const std::shared_ptr<bool> mClosed = std::make_shared<bool>(false);  // under the device's lock
};

// ---- The tuners of the machine

nsSimulatedTuners::nsSimulatedTuners(nsSimulatedCallsRef aCalls)
    : nsSimulatedPort(aCalls, "Tuners"), mAllCalls(std::move(aCalls)) {}
nsSimulatedTuners::~nsSimulatedTuners() = default;

nsSimulatedTuners::DeviceRef nsSimulatedTuners::Find(const std::string& aPath) const {
  for (const auto& [path, device] : mDevices)
    if (path == aPath) return device;
  return nullptr;
}

void nsSimulatedTuners::Insert(const std::string& aPath, nsSimulatedTuner aTuner) {
  Remove(aPath);
  aTuner.mInfo.mPath = aPath;
  if (aTuner.mInfo.mName.empty()) aTuner.mInfo.mName = aPath;
  const nsAutoLock lock(mLock);
  mDevices.emplace_back(aPath, std::make_shared<Device>(std::move(aTuner)));
}

void nsSimulatedTuners::Remove(const std::string& aPath) {
  DeviceRef device;
  {
    const nsAutoLock lock(mLock);
    device = Find(aPath);
    std::erase_if(mDevices, [&](const auto& aDevice) { return aDevice.first == aPath; });
  }
  if (!device) return;
  const nsAutoLock lock(device->mLock);
  device->mIsGone = true;
  device->Changed();
}

void nsSimulatedTuners::Change(const std::string& aPath,
                               const std::function<void(nsSimulatedTuner&)>& aChange) {
  DeviceRef device;
  {
    const nsAutoLock lock(mLock);
    device = Find(aPath);
  }
  if (!device) return;
  const nsAutoLock lock(device->mLock);
  const bool locked = device->Lock().has_value();
  aChange(device->mFacts);
  if (!locked) device->mSignalSince = Clock::now();
  (void)device->Load();  // which logs why not: nothing comes then
  device->Changed();
}

nsresult nsSimulatedTuners::ListTuners(std::vector<nsTunerInfo>* aTuners) {
  if (nsresult rv = Enter("ListTuners"); NS_FAILED(rv)) return rv;
  const nsAutoLock lock(mLock);
  std::vector<nsTunerInfo> tuners;
  for (const auto& [path, device] : mDevices) {
    const nsAutoLock deviceLock(device->mLock);
    tuners.push_back(device->mFacts.mInfo);
  }
  aTuners->swap(tuners);
  return NS_OK;
}

nsresult nsSimulatedTuners::OpenTuner(const std::string& aPath, nsPlatformTunerRef* aTuner) {
  if (nsresult rv = Enter("OpenTuner"); NS_FAILED(rv)) return rv;
  DeviceRef device;
  {
    const nsAutoLock lock(mLock);
    device = Find(aPath);
  }
  if (!device) return NS_ERROR_FILE_NOT_FOUND;
  nsPlatformTunerRef tuner;
  {
    const nsAutoLock lock(device->mLock);
    const std::string& user = device->mFacts.mUser;
    if (device->mIsOpen || !user.empty()) {
      SYSTEM_LOG_WARNING(NS_GetLogger("system.machine"),
                         aPath + " is used by " + (user.empty() ? "this program" : user));
      return NS_ERROR_FILE_IS_LOCKED;
    }
    if (!device->mFacts.mMayOpen) return NS_ERROR_FILE_ACCESS_DENIED;
    device->mIsOpen = true;
    tuner = std::make_shared<OpenDevice>(mAllCalls, device);
  }
  Record("OpenTuner " + aPath);
  *aTuner = std::move(tuner);
  return NS_OK;
}

// ---- Machine files

namespace {

// What is left out stays as it is in aTransmitter.
void ReadTransmitter(nsMachineObject& aObject, nsSimulatedTransmitter* aTransmitter) {
  if (const auto* stream = aObject.Optional("stream")) {
    aTransmitter->mFile = stream->AsPath();
    aTransmitter->mStream = nullptr;
    std::error_code error;
    if (!std::filesystem::is_regular_file(aTransmitter->mFile, error))
      stream->Fail("the file \"" + aTransmitter->mFile + "\" can't be read");
  }
  if (const auto* bandwidth = aObject.Optional("bandwidth"))
    aTransmitter->mBandwidth = bandwidth->AsInteger<uint32_t>(1, 10);
  if (const auto* delay = aObject.Optional("lockDelay"))
    aTransmitter->mLockDelay = std::chrono::milliseconds(delay->AsInteger<uint32_t>(0, 3'600'000));
  if (const auto* strength = aObject.Optional("strength"))
    aTransmitter->mStrength = strength->AsInteger<int32_t>();
  if (const auto* quality = aObject.Optional("quality"))
    aTransmitter->mQuality = quality->AsInteger<uint32_t>(0, 100);
  if (const auto* locks = aObject.Optional("locks")) aTransmitter->mLocks = locks->AsBoolean();
  if (const auto* stalls = aObject.Optional("stalls")) aTransmitter->mStalls = stalls->AsBoolean();
  if (const auto* damage = aObject.Optional("wrongBitEvery"))
    aTransmitter->mDamage = damage->AsInteger<uint32_t>();
}

// Calls aRead with each frequency and what is told of it.
template <class Read>
void ReadFrequencies(nsMachineObject& aTuner, Read&& aRead) {
  const auto* frequencies = aTuner.Optional("frequencies");
  if (!frequencies) return;
  std::vector<uint32_t> seen;
  for (const nsMachineValue& element : frequencies->AsArray())
    element.AsObject([&](nsMachineObject& aObject) {
      const auto frequency = aObject.Required("frequency").AsInteger<uint32_t>(1, 30'000'000);
      if (std::ranges::find(seen, frequency) != seen.end())
        element.FailRepeated("frequency", std::to_string(frequency));
      seen.push_back(frequency);
      aRead(frequency, aObject);
    });
}

std::string ReadPath(nsMachineObject& aObject) {
  const nsMachineValue& path = aObject.Required("path");
  if (path.AsString().empty()) path.Fail("must not be empty");
  return path.AsString();
}

std::vector<nsSimulatedTuner> ReadTuners(const nsMachineValue& aValue) {
  std::vector<nsSimulatedTuner> tuners;
  for (const nsMachineValue& element : aValue.AsArray())
    element.AsObject([&](nsMachineObject& aObject) {
      nsSimulatedTuner tuner;
      tuner.mInfo.mPath = ReadPath(aObject);
      for (const nsSimulatedTuner& other : tuners)
        if (other.mInfo.mPath == tuner.mInfo.mPath)
          element.FailRepeated("tuner", tuner.mInfo.mPath);
      if (const auto* name = aObject.Optional("name")) tuner.mInfo.mName = name->AsString();
      tuner.mInfo.mSystems = {nsTunerSystem::eTerrestrial};
      if (const auto* systems = aObject.Optional("systems")) {
        tuner.mInfo.mSystems.clear();
        for (const nsMachineValue& system : systems->AsArray())
          tuner.mInfo.mSystems.push_back(
              system.AsOneOf<nsTunerSystem>({{"terrestrial", nsTunerSystem::eTerrestrial},
                                             {"satellite", nsTunerSystem::eSatellite},
                                             {"cable", nsTunerSystem::eCable},
                                             {"atsc", nsTunerSystem::eATSC}}));
      }
      if (const auto* parts = aObject.Optional("parts")) {
        if (parts->AsArray().size() > 2) parts->Fail("a tuner has two parts at most");
        for (const nsMachineValue& name : parts->AsArray())
          tuner.mInfo.mParts.push_back(
              {tuner.mInfo.mPath + "/part" + std::to_string(tuner.mInfo.mParts.size()),
               name.AsString()});
      }
      if (const auto* rate = aObject.Optional("rate"))
        tuner.mOwnRate = rate->AsOneOf<bool>({{"own", true}, {"fast", false}});
      if (const auto* tells = aObject.Optional("tellsSignal"))
        tuner.mTellsSignal = tells->AsBoolean();
      if (const auto* user = aObject.Optional("usedBy")) tuner.mUser = user->AsString();
      if (const auto* mayOpen = aObject.Optional("mayOpen")) tuner.mMayOpen = mayOpen->AsBoolean();
      ReadFrequencies(aObject, [&](uint32_t aFrequency, nsMachineObject& aTransmitter) {
        (void)aTransmitter.Required("stream");
        ReadTransmitter(aTransmitter, &tuner.mTransmitters[aFrequency]);
      });
      tuners.push_back(std::move(tuner));
    });
  return tuners;
}

}  // namespace

void nsSimulatedTuners::ReadFacts(const nsMachineValue& aValue) {
  for (const nsSimulatedTuner& tuner : ReadTuners(aValue)) Insert(tuner.mInfo.mPath, tuner);
}

std::function<void()> nsSimulatedTuners::ReadChange(const nsMachineValue& aValue) {
  std::vector<std::function<void()>> steps;
  aValue.AsObject([&](nsMachineObject& aObject) {
    if (const auto* removed = aObject.Optional("remove"))
      for (const nsMachineValue& path : removed->AsArray())
        steps.push_back([this, text = path.AsString()] { Remove(text); });
    if (const auto* inserted = aObject.Optional("insert"))
      for (const nsSimulatedTuner& tuner : ReadTuners(*inserted))
        steps.push_back([this, tuner] { Insert(tuner.mInfo.mPath, tuner); });
    if (const auto* set = aObject.Optional("set"))
      for (const nsMachineValue& element : set->AsArray())
        element.AsObject([&](nsMachineObject& aTuner) {
          const std::string path = ReadPath(aTuner);
          // A value is read twice: now, so that what is wrong with it is told, and when it is due.
          ReadFrequencies(aTuner, [&](uint32_t aFrequency, nsMachineObject& aTransmitter) {
            nsSimulatedTransmitter checked;
            ReadTransmitter(aTransmitter, &checked);
            (void)aFrequency;
          });
          steps.push_back([this, path, element] {
            element.AsObject([&](nsMachineObject& aAgain) {
              (void)ReadPath(aAgain);
              Change(path, [&](nsSimulatedTuner& aFacts) {
                ReadFrequencies(aAgain, [&](uint32_t aFrequency, nsMachineObject& aTransmitter) {
                  ReadTransmitter(aTransmitter, &aFacts.mTransmitters[aFrequency]);
                });
              });
            });
          });
        });
  });
  return [steps] {
    for (const auto& step : steps) step();
  };
}
