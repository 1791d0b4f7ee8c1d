// Tuners, and transmitters that send recorded streams.
#pragma once

#include <chrono>
#include <functional>
#include <optional>

#include "nsMachineValue.h"
#include "nsPlatformTuners.h"
#include "nsSimulatedCalls.h"
#include "nsSimulatedStream.h"

/// The facts of one transmitter, as a tuner receives it. It sends its stream again and again.
struct nsSimulatedTransmitter {
  /// What is sent: a file, read when the tuner is first tuned to it, or packets that are there.
  std::string mFile;
  std::shared_ptr<const nsSimulatedStream> mStream;
  uint32_t mBandwidth = 0;  ///< In MHz; 0: any is right.
  std::chrono::milliseconds mLockDelay{0};
  int32_t mStrength = -50000;
  uint32_t mQuality = 90;
  bool mLocks = true;
  bool mStalls = false;  ///< Locked, but nothing comes.
  uint32_t mDamage = 0;  ///< Of so many packets one has a wrong bit; 0: none has.
};

/// The facts of one tuner.
struct nsSimulatedTuner {
  nsTunerInfo mInfo;  ///< The path is the tuner's.
  /// By kHz. Tuned to within 200 kHz of one, it receives the nearest.
  std::map<uint32_t, nsSimulatedTransmitter> mTransmitters;
  /// Whether streams come at their own rate, or as fast as they are read: the first packet is then
  /// the stream's first, and nothing is lost. One without a clock always comes so.
  bool mOwnRate = true;
  bool mTellsSignal = true;  ///< Whether it tells strength and quality.
  std::string mUser;         ///< Who has it open, another program; empty: nobody.
  bool mMayOpen = true;      ///< Whether this process has the right.
};

/// Tuners in the order in which they were plugged in, in which time is real.
class nsSimulatedTuners final : public nsPlatformTuners, public nsSimulatedPort {
 public:
  explicit nsSimulatedTuners(nsSimulatedCallsRef aCalls);
  ~nsSimulatedTuners() override;

  /// The tuner is there from now on, instead of one of that path.
  void Insert(const std::string& aPath, nsSimulatedTuner aTuner = {});
  /// It is pulled out, whoever uses it.
  void Remove(const std::string& aPath);
  /// Changes the transmitters and what else is told of a tuner, also while it is used. What it is
  /// tuned to stays so; it locks anew where it did not before.
  void Change(const std::string& aPath, const std::function<void(nsSimulatedTuner&)>& aChange);

  /// An array of tuners, as docs/machine-file.md tells. Throws nsMachineFileError.
  void ReadFacts(const nsMachineValue& aValue);
  /// An object of "remove", "insert" and "set".
  std::function<void()> ReadChange(const nsMachineValue& aValue);

  nsresult ListTuners(std::vector<nsTunerInfo>* aTuners) override;
  nsresult OpenTuner(const std::string& aPath, nsPlatformTunerRef* aTuner) override;

 private:
  class Device;
  class OpenDevice;
  class Reader;
  class SectionReader;
  class PacketReader;
  using DeviceRef = std::shared_ptr<Device>;
  DeviceRef Find(const std::string& aPath) const;  // under mLock

  const nsSimulatedCallsRef mAllCalls;
  std::vector<std::pair<std::string, DeviceRef>> mDevices;
};
