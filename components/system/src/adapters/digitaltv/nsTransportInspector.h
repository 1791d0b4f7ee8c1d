// What a recorded stream holds: what a scan would find in it, and what is broken.
#pragma once

#include <string>
#include <vector>

#include "nsBDARecords.h"
#include "nsRecordedTables.h"
#include "nsTransportDemultiplexer.h"

/// One stream, one thread.
class nsTransportInspector final : private nsTransportSink {
 public:
  struct Audio {
    uint16_t mPid;
    uint32_t mKind;  ///< nsIDigitalTvAudioChannel::AUDIO_...
    std::string mLanguage;
  };
  struct Service {
    BDAService mRecord;
    std::string mName, mProvider;  ///< UTF-8
    std::vector<Audio> mAudio;     ///< in the order in which a scan lists them
    bool mIsScrambled = false;     ///< its packets are, whatever the tables say
    std::string mLeftOut;          ///< why a scan leaves it out; empty: it does not
  };
  struct Pid {
    uint16_t mPid;
    nsTransportDemultiplexer::PidStatistics mCounts;
  };
  struct Report {
    bool mHasTransponder = false;  ///< there is a PAT with a service
    BDATransponder mTransponder;   ///< its services have been moved to mServices
    std::vector<Service> mServices;
    std::vector<Pid> mPids;  ///< that have packets
    size_t mStride = 0;      ///< bytes from packet to packet; 0: no stream was found
    nsTransportDemultiplexer::Statistics mTotals;
    std::vector<std::string> mProblems;  ///< one sentence each
  };

  nsTransportInspector();
  void Push(std::span<const uint8_t> aBytes);
  /// The end of the stream. Needs the host's converters for the names.
  Report Finish();

 private:
  void OnSection(uint16_t aPid, std::span<const uint8_t> aSection) override;
  void AddServices(Report* aReport);
  void TellProblems(Report* aReport);
  void TellTable(const std::string& aName, uint16_t aPid, uint8_t aTableId, uint16_t aExtension,
                 Report* aReport);

  const nsCOMPtr<nsRecordedTables> mTables = MakeRefCounted<nsRecordedTables>();
  nsTransportDemultiplexer mDemultiplexer{*this};
  size_t mUnreadMaps = 0;
  size_t mStride = 0;
};
