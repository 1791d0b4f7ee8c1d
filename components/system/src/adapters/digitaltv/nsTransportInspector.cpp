#include "nsTransportInspector.h"

#include <algorithm>
#include <cstdio>

#include "nsDvbText.h"
#include "nsIDigitalTvAudioChannel.h"
#include "nsString.h"
#include "nsSystemBDAScanner.h"

namespace {

constexpr uint16_t kPatPid = 0x0000, kNitPid = 0x0010, kSdtPid = 0x0011;
constexpr uint8_t kPat = 0x00, kPmt = 0x02, kNit = 0x40, kSdt = 0x42;

std::string Count(uint64_t aCount, const char* aOne, const char* aMany) {
  return std::to_string(aCount) + " " + (aCount == 1 ? aOne : aMany);
}

std::string Hex(unsigned aNumber) {
  char text[16];
  (void)std::snprintf(text, sizeof text, "0x%04x", aNumber);
  return text;
}

void AppendAudio(const BDAService::Audio& aFrom, uint32_t aKind,
                 std::vector<nsTransportInspector::Audio>* aTo) {
  for (size_t i = 0; i < static_cast<size_t>(aFrom.num); ++i)
    aTo->push_back({aFrom.pid[i], aKind, aFrom.lang[i].data()});
}

}  // namespace

nsTransportInspector::nsTransportInspector() {
  mDemultiplexer.CountAllPids(true);
  for (const uint16_t pid : {kPatPid, kNitPid, kSdtPid})
    (void)mDemultiplexer.AddSectionPid(pid, false);
}

void nsTransportInspector::Push(std::span<const uint8_t> aBytes) {
  mDemultiplexer.Push(aBytes);
  if (mDemultiplexer.IsSynchronised()) mStride = mDemultiplexer.PacketStride();
}

void nsTransportInspector::OnSection(uint16_t aPid, std::span<const uint8_t> aSection) {
  if (!mTables->Add(aPid, aSection) || aPid != kPatPid || aSection[0] != kPat) return;
  const auto programs = aSection.subspan(8, aSection.size() - 12);
  for (size_t at = 0; at + 4 <= programs.size(); at += 4) {
    const bool isService = programs[at] != 0 || programs[at + 1] != 0;
    const auto pid = static_cast<uint16_t>((programs[at + 2] << 8 | programs[at + 3]) & 0x1FFF);
    if (isService && pid != 0 && NS_FAILED(mDemultiplexer.AddSectionPid(pid, false))) ++mUnreadMaps;
  }
}

nsTransportInspector::Report nsTransportInspector::Finish() {
  if (mDemultiplexer.IsSynchronised()) mStride = mDemultiplexer.PacketStride();
  mDemultiplexer.Finish();
  Report report;
  report.mTotals = mDemultiplexer.Totals();
  report.mStride = mStride != 0                  ? mStride
                   : report.mTotals.mPackets > 0 ? nsTransportDemultiplexer::kPacketSize
                                                 : 0;
  for (uint16_t pid = 0; pid < nsTransportDemultiplexer::kPidCount; ++pid)
    if (const auto counts = mDemultiplexer.Of(pid); counts.mPackets > 0)
      report.mPids.push_back({pid, counts});
  AddServices(&report);
  TellProblems(&report);
  return report;
}

// The scanner itself says what a scan would find.
void nsTransportInspector::AddServices(Report* aReport) {
  nsSystemBDAScanner scanner;
  scanner.ResetScanner();
  scanner.SetData(nsCOMPtr<IMpeg2Data>(mTables));
  scanner.StartScanning();
  (void)scanner.WaitScanningDone();
  std::unique_ptr<BDATransponder> transponder = scanner.TakeCurrentTransponder();
  if (!transponder) return;
  aReport->mHasTransponder = true;
  for (auto& record : transponder->services) {
    Service service;
    service.mRecord = std::move(*record);
    const BDAService& from = service.mRecord;
    const auto decode = [&](const std::string& aText, const char* aWhat, std::string* aResult) {
      nsCString text;
      if (!aText.empty() && NS_SUCCEEDED(decodeDvbText(aText, text)))
        *aResult = text.view();
      else if (service.mLeftOut.empty())
        service.mLeftOut = std::string(aText.empty() ? "no " : "unreadable ") + aWhat;
    };
    decode(from.service_name, "name", &service.mName);
    decode(from.provider_name, "provider", &service.mProvider);
    AppendAudio(from.audio, nsIDigitalTvAudioChannel::AUDIO_MPEG, &service.mAudio);
    AppendAudio(from.ac3, nsIDigitalTvAudioChannel::AUDIO_AC3, &service.mAudio);
    AppendAudio(from.eac3, nsIDigitalTvAudioChannel::AUDIO_EAC3, &service.mAudio);
    service.mIsScrambled = mDemultiplexer.Of(from.video_pid).mScrambledPackets > 0;
    for (const Audio& audio : service.mAudio)
      if (mDemultiplexer.Of(audio.mPid).mScrambledPackets > 0) service.mIsScrambled = true;
    aReport->mServices.push_back(std::move(service));
  }
  transponder->services.clear();
  aReport->mTransponder = std::move(*transponder);
}

void nsTransportInspector::TellTable(const std::string& aName, uint16_t aPid, uint8_t aTableId,
                                     uint16_t aExtension, Report* aReport) {
  const auto* const table = mTables->Find(aPid, aTableId, aExtension);
  if (!table)
    aReport->mProblems.push_back(aName + " is missing");
  else if (!table->IsComplete())
    aReport->mProblems.push_back(aName + " has " + std::to_string(table->mSections.size()) +
                                 " of " + Count(table->mLast + 1u, "section", "sections"));
}

void nsTransportInspector::TellProblems(Report* aReport) {
  auto& problems = aReport->mProblems;
  const auto& totals = aReport->mTotals;
  if (aReport->mStride == 0) {
    problems.push_back("this is no transport stream");
    return;
  }
  if (totals.mSkippedBytes > 0)
    problems.push_back(Count(totals.mSkippedBytes, "byte is", "bytes are") +
                       " in no packet; synchronisation was lost " +
                       Count(totals.mSyncLosses, "time", "times"));
  if (totals.mTransportErrors > 0)
    problems.push_back(Count(totals.mTransportErrors, "packet was", "packets were") +
                       " received with errors");
  for (const Pid& pid : aReport->mPids) {
    const auto tell = [&](uint64_t aCount, const char* aOne, const char* aMany) {
      if (aCount > 0)
        problems.push_back("PID " + Hex(pid.mPid) + ": " + Count(aCount, aOne, aMany));
    };
    tell(pid.mCounts.mDiscontinuities, "discontinuity", "discontinuities");
    tell(pid.mCounts.mCrcErrors, "section with a wrong CRC", "sections with a wrong CRC");
    tell(pid.mCounts.mBrokenSections, "broken section", "broken sections");
  }
  if (mUnreadMaps > 0)
    problems.push_back(Count(mUnreadMaps, "program map was", "program maps were") +
                       " not read: there are more than can be followed at a time");
  if (!mTables->Has(kPatPid, kPat)) {
    problems.push_back("the PAT is missing");
    return;
  }
  if (!mTables->Has(kNitPid, kNit)) problems.push_back("the NIT is missing");
  if (!aReport->mHasTransponder) {
    problems.push_back("the PAT names no service");
    return;
  }
  const auto stream = static_cast<uint16_t>(aReport->mTransponder.transport_stream_id);
  TellTable("the PAT", kPatPid, kPat, stream, aReport);
  TellTable("the SDT", kSdtPid, kSdt, stream, aReport);
  for (const Service& service : aReport->mServices) {
    const std::string name = "service " + std::to_string(service.mRecord.service_id);
    if (service.mRecord.pmt_pid != 0)
      TellTable("the PMT of " + name, service.mRecord.pmt_pid, kPmt,
                static_cast<uint16_t>(service.mRecord.service_id), aReport);
    if (!service.mLeftOut.empty())
      problems.push_back(name + " has " + service.mLeftOut + ": a scan leaves it out");
  }
}
