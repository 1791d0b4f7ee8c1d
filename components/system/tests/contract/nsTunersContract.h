// What the contract suite of tuners runs on.
#pragma once

#include <future>

#include "nsContract.h"
#include "nsPlatformTuners.h"
#include "nsTestStream.h"

// A machine with one tuner, and a transmitter where there is to be one.
class nsTunersMachine {
 public:
  static constexpr uint32_t kFrequency = 506000, kSilent = 514000;

  virtual ~nsTunersMachine() = default;
  /// Why this machine can't be had here; empty when it can.
  virtual std::string Lacks() { return ""; }
  virtual nsPlatformTuners& Port() = 0;
  /// kFrequency sends that from now on, again and again.
  virtual void Send(const vorel::test::Bytes& aStream) = 0;
  virtual void Unplug() = 0;
};

class TunersContract : public nsContractTest<nsTunersMachine> {
 protected:
  using Runs = std::vector<std::span<const uint8_t>>;
  static constexpr uint32_t kLong = 20000;  // ms; what should come has come long before

  nsPlatformTuners& Port() { return mMachine->Port(); }
  std::string Path() {
    std::vector<nsTunerInfo> tuners;
    EXPECT_EQ(Port().ListTuners(&tuners), NS_OK);
    return tuners.empty() ? "" : tuners.front().mPath;
  }
  nsPlatformTunerRef Open() {
    nsPlatformTunerRef tuner;
    EXPECT_EQ(Port().OpenTuner(Path(), &tuner), NS_OK);
    return tuner;
  }
  static bool AwaitLock(nsPlatformTuner& aTuner) {
    bool locked = false;
    for (int i = 0; i < 2000 && !locked; ++i) {
      EXPECT_EQ(aTuner.ReadLocked(&locked), NS_OK);
      if (!locked) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return locked;
  }
  /// An open tuner that receives what is sent.
  nsPlatformTunerRef Receive(const vorel::test::Bytes& aStream) {
    mMachine->Send(aStream);
    nsPlatformTunerRef tuner = Open();
    EXPECT_EQ(tuner->Tune(nsTunersMachine::kFrequency, 8), NS_OK);
    EXPECT_TRUE(AwaitLock(*tuner));
    return tuner;
  }
  static std::shared_ptr<nsPlatformSectionReader> Sections(nsPlatformTuner& aTuner,
                                                           const nsSectionFilter& aFilter) {
    std::shared_ptr<nsPlatformSectionReader> reader;
    EXPECT_EQ(aTuner.OpenSections(aFilter, &reader), NS_OK);
    return reader;
  }
  static std::shared_ptr<nsPlatformPacketReader> Packets(nsPlatformTuner& aTuner,
                                                         const std::vector<uint16_t>& aPids) {
    std::shared_ptr<nsPlatformPacketReader> reader;
    EXPECT_EQ(aTuner.OpenPackets(&reader), NS_OK);
    EXPECT_EQ(reader->SetPids(aPids), NS_OK);
    return reader;
  }
};
