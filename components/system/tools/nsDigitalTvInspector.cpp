#include "nsDigitalTvInspector.h"

#include <atomic>
#include <chrono>
#include <nlohmann/json.hpp>
#include <set>
#include <vector>

#include "nsChannelsFormat.h"
#include "nsCountryTable.h"
#include "nsDvbText.h"
#include "nsIDigitalTvAudioChannel.h"
#include "nsIRunnable.h"
#include "nsStreamReader.h"
#include "nsString.h"
#include "nsTransportInspector.h"
#include "nsVorelMethodCaller.h"

using nlohmann::ordered_json;

namespace {

constexpr size_t kPiece = size_t{1} << 20;
constexpr size_t kMostChannels = size_t{16} << 20;  // bytes of a channels file
constexpr auto kProgressTime = std::chrono::milliseconds(100);

// What broadcasts hold need not be UTF-8.
std::string Text(const ordered_json& aValue) {
  return aValue.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
}

const char* KindName(uint32_t aKind) {
  return aKind == nsIDigitalTvAudioChannel::AUDIO_MPEG  ? "MPEG"
         : aKind == nsIDigitalTvAudioChannel::AUDIO_AC3 ? "AC-3"
                                                        : "E-AC-3";
}

// ---- Streams

ordered_json ToJson(const nsTransportInspector::Service& aService) {
  const BDAService& record = aService.mRecord;
  ordered_json audio = ordered_json::array();
  for (const auto& channel : aService.mAudio)
    audio.push_back({{"pid", channel.mPid},
                     {"kind", KindName(channel.mKind)},
                     {"language", channel.mLanguage}});
  return {
      {"serviceId", record.service_id},
      {"name", aService.mName},
      {"provider", aService.mProvider},
      {"type", record.service_type},
      {"channelNumber", record.channel_number},
      {"runningStatus", record.running_status},
      {"pmtPid", record.pmt_pid},
      {"pcrPid", record.pcr_pid},
      {"videoPid", record.video_pid},
      {"audio", audio},
      {"teletextPid", record.teletext_pid},
      {"subtitlingPid", record.subtitling_pid},
      {"conditionalAccess", record.scrambled},
      {"scrambled", aService.mIsScrambled},
      {"leftOut", aService.mLeftOut.empty() ? ordered_json() : ordered_json(aService.mLeftOut)}};
}

ordered_json ToJson(const nsTransportInspector::Report& aReport) {
  ordered_json json;
  const BDATransponder& from = aReport.mTransponder;
  if (aReport.mHasTransponder)
    json["transponder"] = {{"transportStreamId", from.transport_stream_id},
                           {"networkId", from.network_id},
                           {"originalNetworkId", from.original_network_id},
                           {"networkName", from.network_name},
                           {"frequency", from.frequency},
                           {"bandwidth", from.bandwidth},
                           {"constellation", from.constellation},
                           {"codeRateHP", from.code_rate_hp},
                           {"codeRateLP", from.code_rate_lp},
                           {"guardInterval", from.guard_interval},
                           {"transmissionMode", from.transmission_mode},
                           {"priority", from.priority},
                           {"alternativeFrequencies", from.alternative_frequencies}};
  else
    json["transponder"] = nullptr;
  json["services"] = ordered_json::array();
  for (const auto& service : aReport.mServices) json["services"].push_back(ToJson(service));
  json["pids"] = ordered_json::array();
  for (const auto& [pid, counts] : aReport.mPids)
    json["pids"].push_back({{"pid", pid},
                            {"packets", counts.mPackets},
                            {"scrambledPackets", counts.mScrambledPackets},
                            {"discontinuities", counts.mDiscontinuities},
                            {"crcErrors", counts.mCrcErrors},
                            {"brokenSections", counts.mBrokenSections}});
  const auto& totals = aReport.mTotals;
  json["totals"] = {{"packetSize", aReport.mStride},
                    {"bytes", totals.mBytes},
                    {"packets", totals.mPackets},
                    {"skippedBytes", totals.mSkippedBytes},
                    {"syncLosses", totals.mSyncLosses},
                    {"transportErrors", totals.mTransportErrors},
                    {"discontinuities", totals.mDiscontinuities},
                    {"sections", totals.mSections},
                    {"crcErrors", totals.mCrcErrors},
                    {"brokenSections", totals.mBrokenSections}};
  json["problems"] = aReport.mProblems;
  return json;
}

// ---- Channels files

/// What the reader takes for something else, or for nothing, and does not say.
std::vector<std::string> Doubts(const nsChannelsWords& aWords, const nsChannelsRecord& aRecord,
                                bool aIsAudioWhole) {
  std::vector<std::string> doubts;
  const auto oneOf = [&](const char* aWhat, const std::string& aWord,
                         std::initializer_list<const char*> aKnown) {
    for (const char* const known : aKnown)
      if (aWord == known) return;
    doubts.push_back(aWord.empty() ? std::string("the ") + aWhat + " is missing"
                                   : std::string("unknown ") + aWhat + " '" + aWord + "'");
  };
  const auto isNumber = [](const std::string& aWord) {
    return !aWord.empty() && aWord.find_first_not_of("0123456789") == aWord.npos;
  };
  if (!isNumber(aWords.mFrequency))
    doubts.emplace_back("the frequency is not a number of Hz: nothing behind it is read");
  else if (aRecord.mFrequency < 40000 || aRecord.mFrequency > 1000000)
    doubts.push_back("no broadcast is at " + aWords.mFrequency + " Hz");
  oneOf("bandwidth", aWords.mBandwidth, {"BANDWIDTH_8_MHZ", "BANDWIDTH_7_MHZ", "BANDWIDTH_6_MHZ"});
  for (const std::string* rate : {&aWords.mCodeRateHP, &aWords.mCodeRateLP})
    oneOf("code rate", *rate, {"FEC_1_2", "FEC_2_3", "FEC_3_4", "FEC_5_6", "FEC_7_8", "FEC_AUTO"});
  oneOf("modulation", aWords.mConstellation, {"QPSK", "QAM_16", "QAM_64", "QAM_AUTO"});
  oneOf("transmission mode", aWords.mTransmissionMode,
        {"TRANSMISSION_MODE_2K", "TRANSMISSION_MODE_8K", "TRANSMISSION_MODE_AUTO"});
  oneOf("guard interval", aWords.mGuard,
        {"GUARD_INTERVAL_1_32", "GUARD_INTERVAL_1_16", "GUARD_INTERVAL_1_8", "GUARD_INTERVAL_1_4",
         "GUARD_INTERVAL_AUTO"});
  oneOf("hierarchy", aWords.mHierarchy, {"HIERARCHY_NONE", "HIERARCHY_AUTO"});
  const auto pid = [&](const char* aWhat, uint32_t aPid) {
    if (aPid > 0x1FFF)
      doubts.push_back(std::string(aWhat) + " PID " + std::to_string(aPid) + " is above 8191");
  };
  if (aWords.mPids.empty()) doubts.emplace_back("the PIDs are missing");
  pid("video", aRecord.mVideoPid);
  pid("program map", aRecord.mPmtPid);
  if (!aIsAudioWhole) doubts.push_back("the sound is not understood: '" + aWords.mAudio + "'");
  for (const auto& audio : aRecord.mAudio) {
    if (audio.mPid == 0) doubts.emplace_back("a sound channel without a PID");
    pid("sound", audio.mPid);
  }
  if (!isNumber(aWords.mServiceId) || aRecord.mServiceId > 0xFFFF)
    doubts.emplace_back("the service identifier is not a number up to 65535");
  return doubts;
}

ordered_json ToJson(const nsChannelsRecord& aRecord) {
  ordered_json audio = ordered_json::array();
  for (const auto& channel : aRecord.mAudio)
    audio.push_back({{"pid", channel.mPid},
                     {"kind", KindName(channel.mKind)},
                     {"language", channel.mLanguage}});
  return {{"name", aRecord.mName},           {"provider", aRecord.mProvider},
          {"frequency", aRecord.mFrequency}, {"bandwidth", aRecord.mBandwidth},
          {"serviceId", aRecord.mServiceId}, {"videoPid", aRecord.mVideoPid},
          {"pmtPid", aRecord.mPmtPid},       {"audio", audio}};
}

/// Line by line as the reader goes, but told what it finds.
ordered_json CheckText(std::string_view aText) {
  ordered_json services = ordered_json::array(), problems = ordered_json::array();
  std::set<std::string> names;
  const auto tell = [&](size_t aLine, const std::string& aWhat) {
    problems.push_back({{"line", aLine}, {"text", aWhat}});
  };
  for (size_t number = 1; !aText.empty(); ++number) {
    const size_t end = aText.find('\n');
    const std::string_view line = aText.substr(0, end);
    aText.remove_prefix(end == aText.npos ? aText.size() : end + 1);
    if (line.size() > kMaxChannelsLine - 1)
      tell(number, "longer than 510 bytes: the rest is read as a line of its own");
    nsChannelsRecord record;
    nsChannelsWords words;
    if (NS_FAILED(NS_SplitChannelsLine(line, &record.mName, &record.mProvider, &words))) {
      tell(number, line.empty() || line == "\r"
                       ? "an empty line: reading ends here"
                       : "not NAME(PROVIDER) with at most 99 bytes each: reading ends here");
      break;
    }
    const bool isAudioWhole = NS_ReadChannelsWords(words, &record);
    bool isLeftOut = false;
    for (std::string* text : {&record.mName, &record.mProvider}) {
      nsCString decoded;
      if (NS_SUCCEEDED(decodeDvbText(*text, decoded))) {
        *text = decoded.view();
        continue;
      }
      isLeftOut = true;
      tell(number, std::string(text == &record.mName ? "the name" : "the provider") +
                       (text->empty() ? " is empty" : " can't be decoded") + ": left out");
    }
    for (const std::string& doubt : Doubts(words, record, isAudioWhole)) tell(number, doubt);
    if (isLeftOut) continue;
    if (!names.insert(record.mName).second)
      tell(number, "'" + record.mName + "' is there already: only the first can be selected");
    services.push_back(ToJson(record));
  }
  return {{"services", services}, {"problems", problems}};
}

}  // namespace

// ---- Streams

/// What the reading thread and the inspector share. Whoever drops the inspector ends the reading.
struct nsDigitalTvInspector::Reading {
  std::atomic<bool> mStops = false;
  nsDigitalTvInspector* mInspector = nullptr;  ///< main thread; null: it has gone
};

/// What the reading thread has to say, on the main thread.
class nsDigitalTvInspector::Message final : public nsImplements<Message, nsIRunnable> {
 public:
  Message(std::shared_ptr<Reading> aReading, uint64_t aDone, uint64_t aTotal)
      : mReading(std::move(aReading)), mDone(aDone), mTotal(aTotal) {}
  Message(std::shared_ptr<Reading> aReading, nsresult aStatus, std::string aReport)
      : mReading(std::move(aReading)),
        mIsEnd(true),
        mStatus(aStatus),
        mReport(std::move(aReport)) {}

  nsresult Run() override {
    const nsCOMPtr<nsDigitalTvInspector> inspector(mReading->mInspector);
    if (!inspector) return NS_OK;
    const nsCOMPtr<nsIDigitalTvInspectorListener> listener = inspector->mListener;
    if (!mIsEnd) return listener->OnProgress(mDone, mTotal);
    inspector->End();
    return listener->OnInspected(mStatus, nsDependentCString(mReport));
  }

 private:
  ~Message() override = default;
  const std::shared_ptr<Reading> mReading;
  const uint64_t mDone = 0, mTotal = 0;
  const bool mIsEnd = false;
  const nsresult mStatus = NS_OK;
  const std::string mReport;
};

nsDigitalTvInspector::~nsDigitalTvInspector() { End(); }

void nsDigitalTvInspector::End() {
  if (mReading) {
    mReading->mStops = true;
    mReading->mInspector = nullptr;
  }
  mThread.Join();
  mReading = nullptr;
  mListener = nullptr;
}

nsresult nsDigitalTvInspector::InspectStream(const nsACString& aPath,
                                             nsIDigitalTvInspectorListener* aListener) {
  if (!aListener) return NS_ERROR_NULL_POINTER;
  if (mReading) return NS_ERROR_IN_PROGRESS;
  mReading = std::make_shared<Reading>();
  mReading->mInspector = this;
  mListener = aListener;
  const nsresult rv = mThread.Start("TvInspect", [path = std::string(NS_View(aPath)),
                                                  reading = mReading] { Inspect(path, reading); });
  if (NS_FAILED(rv)) End();
  return rv;
}

void nsDigitalTvInspector::Inspect(const std::string& aPath,
                                   const std::shared_ptr<Reading>& aReading) {
  using Clock = std::chrono::steady_clock;
  const auto post = [](const nsCOMPtr<Message>& aMessage) {
    (void)NS_DispatchToMainThread(aMessage.get(), NS_DISPATCH_NORMAL);
  };
  nsStreamReader reader;
  uint64_t done = 0, total = 0;
  nsresult rv = reader.Open(aPath, &total);
  nsTransportInspector inspector;
  std::vector<uint8_t> buffer(kPiece);
  auto told = Clock::now();
  for (bool isOver = false; NS_SUCCEEDED(rv) && !isOver && !aReading->mStops;) {
    size_t count = 0;
    rv = reader.Read(buffer, &count, &isOver);
    inspector.Push(std::span<const uint8_t>(buffer).first(count));
    done += count;
    if (Clock::now() - told < kProgressTime) continue;
    told = Clock::now();
    post(MakeRefCounted<Message>(aReading, done, total));
  }
  if (aReading->mStops) return;
  std::string report;
  if (NS_SUCCEEDED(rv))
    report = Text(ToJson(inspector.Finish()));
  else
    report = aPath + ": " + std::string(NS_ResultName(rv));
  post(MakeRefCounted<Message>(aReading, rv, std::move(report)));
}

// ---- Channels files and countries

nsresult nsDigitalTvInspector::CheckChannels(const nsACString& aPath, nsACString& aReport) {
  nsStreamReader reader;
  uint64_t size = 0;
  nsresult rv = reader.Open(std::string(NS_View(aPath)), &size);
  if (NS_FAILED(rv)) return rv;
  std::string text;
  std::vector<uint8_t> buffer(kPiece);
  for (bool isOver = false; !isOver;) {
    size_t count = 0;
    if (NS_FAILED(rv = reader.Read(buffer, &count, &isOver))) return rv;
    text.append(reinterpret_cast<const char*>(buffer.data()), count);
    if (text.size() > kMostChannels) return NS_ERROR_FILE_TOO_BIG;
  }
  return NS_Give(Text(CheckText(text)), aReport);
}

nsresult nsDigitalTvInspector::ListCountries(nsACString& aReport) {
  ordered_json countries = ordered_json::array();
  for (const nsCountryRow& row : NS_Countries())
    countries.push_back({{"callingCode", row.mCallingCode},
                         {"code", row.mIsoCode},
                         {"name", row.mName},
                         {"frequencies", NS_FrequenciesOfCountry(row.mCallingCode)}});
  return NS_Give(Text(countries), aReport);
}
