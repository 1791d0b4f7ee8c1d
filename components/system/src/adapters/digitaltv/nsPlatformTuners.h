// The port of tuners for digital television: those that the machine has, and what can be done with
// an open one.
//
// Frequencies are in kHz and bandwidths in MHz, as those who tune count them.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "nsError.h"

/// What a tuner can receive.
enum class nsTunerSystem {
  eTerrestrial,  ///< DVB-T, DVB-T2, ISDB-T and their kin: COFDM.
  eSatellite,    ///< DVB-S, DVB-S2: QPSK.
  eCable,        ///< DVB-C: QAM.
  eATSC,         ///< ATSC: 8-VSB.
};

/// A component behind the tuner, which the signal passes on its way into the machine.
struct nsTunerPart {
  std::string mPath;  ///< As that of a tuner.
  std::string mName;  ///< For people. UTF-8.

  friend bool operator==(const nsTunerPart&, const nsTunerPart&) = default;
};

/// What is known of a tuner.
struct nsTunerInfo {
  /// What it is opened by. Never empty, its own in the whole machine, and the same after a restart
  /// and whatever else is plugged in, as far as the device can be told from others.
  std::string mPath;
  std::string mName;  ///< For people. UTF-8, not empty; two tuners may have the same.
  /// In the order in which the device tells them, each once. None: not known.
  std::vector<nsTunerSystem> mSystems;
  /// In the order in which the signal passes them: at most a demodulator and what captures the
  /// stream. Where there is one part, it captures; with none, the tuner does so itself.
  std::vector<nsTunerPart> mParts;
};

/// Which sections are wanted. Of a short section, whose syntax indicator is not set, only the
/// identifier of the table is compared.
struct nsSectionFilter {
  uint16_t mPid = 0;            ///< Below 0x2000.
  uint8_t mTableId = 0;         ///< Compared in the bits of the mask.
  uint8_t mTableIdMask = 0xFF;  ///< 0: any table.
  uint16_t mExtension = 0;      ///< The table's extension, likewise.
  uint16_t mExtensionMask = 0;

  /// Whether a whole section of the PID is wanted.
  bool Matches(std::span<const uint8_t> aSection) const {
    if (aSection.size() < 3 || ((aSection[0] ^ mTableId) & mTableIdMask) != 0) return false;
    if ((aSection[1] & 0x80) == 0 || aSection.size() < 8) return true;
    return (((aSection[3] << 8 | aSection[4]) ^ mExtension) & mExtensionMask) == 0;
  }
};

/// Reads sections of one filter, in the order in which they come, repeats included. Whole ones,
/// from the table's identifier to the checksum, which has been checked where the section has one.
///
/// Reads are for one thread at a time, all else for any. It has no need of the tuner object, but
/// answers NS_ERROR_ABORT when the tuner has been closed.
class nsPlatformSectionReader {
 public:
  static constexpr uint32_t kNoTimeout = 0xFFFFFFFF;

  virtual ~nsPlatformSectionReader() = default;

  /// Waits for the next section up to that many ms; 0 takes what is there. What comes between two
  /// reads is kept, some tens of kilobytes of it; of more the oldest or the newest is lost.
  /// NS_ERROR_NET_TIMEOUT when none has come, NS_ERROR_ABORT after Cancel or a Close of the tuner,
  /// NS_ERROR_NOT_AVAILABLE when the device has gone, NS_ERROR_FAILURE when it does not work.
  /// Windows: IMpeg2Data::GetSection.
  virtual nsresult ReadSection(uint32_t aTimeout, std::vector<uint8_t>* aSection) = 0;
  /// Ends the read that waits, and all to come.
  /// Windows: none: a read there ends by its time-out.
  virtual void Cancel() = 0;
};

/// Reads whole packets of 188 bytes, those of a set of PIDs, in the order of the stream. With no
/// PID, as at the beginning, none come.
///
/// Reads are for one thread at a time, all else for any. It has no need of the tuner object, but
/// answers NS_ERROR_ABORT when the tuner has been closed.
class nsPlatformPacketReader {
 public:
  static constexpr uint32_t kNoTimeout = 0xFFFFFFFF;
  /// As the only PID: the whole stream.
  static constexpr uint16_t kWholeStream = 0x2000;

  virtual ~nsPlatformPacketReader() = default;

  /// The PIDs from now on, in place of those before; also while a read waits. Packets of the former
  /// PIDs that have come already may still be read. NS_ERROR_INVALID_ARG for a number above
  /// kWholeStream, or kWholeStream among others.
  /// Windows: IMPEG2PIDMap::MapPID, UnmapPID.
  virtual nsresult SetPids(std::span<const uint16_t> aPids) = 0;
  /// Waits for packets up to that many ms, and takes as many as are there, or as are worth one call
  /// (some hundred). Each run has one packet or more, one behind the other; runs too are in the
  /// order of the stream. They are views, of the stream itself where it lies in memory, and valid
  /// until the next ReadPackets or the end of this object, also after Cancel and a Close of the
  /// tuner. Results as those of ReadSection. When the reader is slower than the tuner, packets are
  /// lost; what has been read is then still in order and whole.
  /// Windows: ISampleGrabberCB::SampleCB, where the system calls.
  virtual nsresult ReadPackets(uint32_t aTimeout, std::vector<std::span<const uint8_t>>* aRuns) = 0;
  /// Ends the read that waits, and all to come.
  /// Windows: IMediaControl::Stop.
  virtual void Cancel() = 0;
};

/// An open tuner. All methods may be called from any thread, at any time, also after Close: they
/// answer NS_ERROR_ABORT then. NS_ERROR_NOT_AVAILABLE when the device has gone, for good.
/// Everything else that goes wrong is NS_ERROR_FAILURE, if it is not named.
class nsPlatformTuner {
 public:
  virtual ~nsPlatformTuner() = default;

  /// Begins to tune and returns; whether it has found a signal is asked by ReadLocked. All but
  /// frequency and bandwidth are left to the tuner; so is the bandwidth with 0. Readers stay: they
  /// get what is received from now on. NS_ERROR_INVALID_ARG for what the tuner can't do, which then
  /// stays where it was.
  /// Windows: ITuner::put_TuneRequest.
  virtual nsresult Tune(uint32_t aFrequency, uint32_t aBandwidth) = 0;
  /// Whether there is a signal that can be decoded. False before the first Tune.
  /// Windows: IBDA_SignalStatistics::get_SignalLocked.
  virtual nsresult ReadLocked(bool* aLocked) = 0;
  /// The signal's strength in thousandths of a decibel; more is stronger. Over one milliwatt
  /// (-50000 is a common one) where the device measures that; of a device that has a scale of its
  /// own, from -100000 for its lower end to 0 for its upper one. NS_ERROR_NO_CONTENT when the
  /// device does not tell, or not yet.
  /// Windows: IBDA_SignalStatistics::get_SignalStrength.
  virtual nsresult ReadStrength(int32_t* aStrength) = 0;
  /// The signal's quality in percent, 0 to 100: of a device that tells how far the signal is above
  /// the noise, 30 dB and more are 100. NS_ERROR_NO_CONTENT as above.
  /// Windows: IBDA_SignalStatistics::get_SignalQuality.
  virtual nsresult ReadQuality(uint32_t* aQuality) = 0;
  /// Begins to collect sections. NS_ERROR_INVALID_ARG for a PID that does not exist,
  /// NS_ERROR_OUT_OF_MEMORY when the device has no filter left. Several at a time, also of the same
  /// PID. The filter is given back with the last reference.
  /// Windows: IMpeg2Data::GetTable.
  virtual nsresult OpenSections(const nsSectionFilter& aFilter,
                                std::shared_ptr<nsPlatformSectionReader>* aReader) = 0;
  /// A reader with no PID yet. Several at a time, each with its own PIDs. NS_ERROR_OUT_OF_MEMORY
  /// as above.
  /// Windows: IMpeg2Demultiplexer::CreateOutputPin.
  virtual nsresult OpenPackets(std::shared_ptr<nsPlatformPacketReader>* aReader) = 0;
  /// Ends all reads with NS_ERROR_ABORT and gives the device back; done when it returns. The second
  /// time: NS_ERROR_ABORT. The last reference does the same.
  /// Windows: IUnknown::Release.
  virtual nsresult Close() = 0;
};
using nsPlatformTunerRef = std::shared_ptr<nsPlatformTuner>;

/// All methods may be called from any thread. None keeps a device from being used by others but
/// OpenTuner.
class nsPlatformTuners {
 public:
  virtual ~nsPlatformTuners() = default;

  /// Looks at the machine anew: all tuners, also those that somebody uses, in an order that stays
  /// while nothing is plugged.
  /// Windows: ICreateDevEnum::CreateClassEnumerator, IPropertyBag::Read.
  virtual nsresult ListTuners(std::vector<nsTunerInfo>* aTuners) = 0;
  /// Nobody else can use the tuner until it is closed. NS_ERROR_FILE_NOT_FOUND when there is no
  /// such tuner, NS_ERROR_FILE_IS_LOCKED when somebody uses it, also this process;
  /// NS_ERROR_FILE_ACCESS_DENIED when the right is missing; the log says who, and what to do.
  /// Windows: IMoniker::BindToObject.
  virtual nsresult OpenTuner(const std::string& aPath, nsPlatformTunerRef* aTuner) = 0;
};
