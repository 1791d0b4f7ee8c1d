#include "nsChannelsFormat.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>
#include <span>

namespace {

constexpr size_t kMaxText = 99;  // of a name, a provider, a PID or audio text
constexpr size_t kMaxWord = 31;

bool IsBlank(char aChar) { return aChar == ' ' || (aChar >= '\t' && aChar <= '\r'); }
bool IsDigit(char aChar) { return aChar >= '0' && aChar <= '9'; }

/// The integer at the beginning, 0 when there is none; its lowest 32 bits.
uint32_t Number(std::string_view aText) {
  if (aText.size() > 1 && aText[0] == '+' && IsDigit(aText[1])) aText.remove_prefix(1);
  int64_t number = 0;
  (void)std::from_chars(aText.data(), aText.data() + aText.size(), number);
  return static_cast<uint32_t>(number);
}

std::string Signed(uint32_t aNumber) { return std::to_string(static_cast<int32_t>(aNumber)); }

/// Takes a line apart as scanf does with "%d %s ... %d": once a field is missing, all that follow
/// are.
class Scanner {
 public:
  explicit Scanner(std::string_view aText) : mText(aText) {}

  std::string TakeNumber() {
    SkipBlanks();
    size_t length = !mText.empty() && (mText[0] == '-' || mText[0] == '+') ? 1 : 0;
    const size_t digits = length;
    while (length < mText.size() && IsDigit(mText[length])) ++length;
    if (length == digits) mText = {};
    return Take(std::min(length, mText.size()));
  }
  /// At most aMost bytes of the word; the rest of it is passed over, so that the fields behind it
  /// keep their places.
  std::string TakeWord(size_t aMost, bool* aIsCut = nullptr) {
    SkipBlanks();
    const auto end = std::find_if(mText.begin(), mText.end(), IsBlank);
    std::string word = Take(static_cast<size_t>(end - mText.begin()));
    if (aIsCut) *aIsCut = word.size() > aMost;
    word.resize(std::min(word.size(), aMost));
    return word;
  }

 private:
  void SkipBlanks() {
    mText.remove_prefix(
        static_cast<size_t>(std::find_if_not(mText.begin(), mText.end(), IsBlank) - mText.begin()));
  }
  std::string Take(size_t aLength) {
    std::string taken(mText.substr(0, aLength));
    mText.remove_prefix(aLength);
    return taken;
  }
  std::string_view mText;
};

// ---- Words and their values

constexpr std::array<std::string_view, 6> kRates = {"FEC_1_2", "FEC_2_3", "FEC_3_4",
                                                    "FEC_5_6", "FEC_7_8", "FEC_AUTO"};
constexpr std::array<std::string_view, 3> kConstellations = {"QPSK", "QAM_16", "QAM_64"};
constexpr std::array<std::string_view, 3> kModes = {"TRANSMISSION_MODE_2K", "TRANSMISSION_MODE_8K",
                                                    "TRANSMISSION_MODE_AUTO"};
constexpr std::array<std::string_view, 5> kGuards = {"GUARD_INTERVAL_1_32", "GUARD_INTERVAL_1_16",
                                                     "GUARD_INTERVAL_1_8", "GUARD_INTERVAL_1_4",
                                                     "GUARD_INTERVAL_AUTO"};
constexpr std::array<std::string_view, 2> kHierarchies = {"HIERARCHY_NONE", "HIERARCHY_AUTO"};

/// Values without a word of their own have the last one.
std::string_view WordOf(uint32_t aValue, std::span<const std::string_view> aWords) {
  return aWords[std::min<size_t>(aValue, aWords.size() - 1)];
}

uint32_t ValueOf(std::string_view aWord, std::span<const std::string_view> aWords,
                 uint32_t aOther) {
  const auto found = std::ranges::find(aWords, aWord);
  return found == aWords.end() ? aOther : static_cast<uint32_t>(found - aWords.begin());
}

uint32_t BandwidthOf(std::string_view aWord) {
  if (aWord == "BANDWIDTH_8_MHZ") return 8;
  if (aWord == "BANDWIDTH_7_MHZ") return 7;
  return aWord == "BANDWIDTH_6_MHZ" ? 6 : 0;
}

/// The text up to a character, which is passed over too.
std::optional<std::string> TakeUpTo(char aEnd, std::string_view* aLine) {
  const size_t length = aLine->find(aEnd);
  if (length > kMaxText) return std::nullopt;  // not found, too
  std::string text(aLine->substr(0, length));
  aLine->remove_prefix(length + 1);
  return text;
}

}  // namespace

// ---- Reading

nsresult NS_SplitChannelsLine(std::string_view aLine, std::string* aName, std::string* aProvider,
                              nsChannelsWords* aWords) {
  aLine = aLine.substr(0, std::min(aLine.find('\0'), kMaxChannelsLine));
  const auto name = TakeUpTo('(', &aLine);
  if (!name) return NS_ERROR_INVALID_ARG;
  const auto provider = TakeUpTo(')', &aLine);
  if (!provider) return NS_ERROR_INVALID_ARG;
  std::string rest(aLine);
  std::ranges::replace(rest, ':', ' ');

  Scanner scanner(rest);
  nsChannelsWords words;
  words.mFrequency = scanner.TakeNumber();
  for (std::string* word :
       {&words.mInversion, &words.mBandwidth, &words.mCodeRateHP, &words.mCodeRateLP,
        &words.mConstellation, &words.mTransmissionMode, &words.mGuard, &words.mHierarchy})
    *word = scanner.TakeWord(kMaxWord);
  words.mPids = scanner.TakeWord(kMaxText);
  bool isCut;
  words.mAudio = scanner.TakeWord(kMaxText, &isCut);
  // Half an entry would be another PID.
  if (isCut) words.mAudio.resize(words.mAudio.find_last_of(",;") + 1);
  words.mServiceId = scanner.TakeNumber();
  *aName = *name;
  *aProvider = *provider;
  *aWords = words;
  return NS_OK;
}

bool NS_ReadChannelsWords(const nsChannelsWords& aWords, nsChannelsRecord* aRecord) {
  nsChannelsRecord& record = *aRecord;
  record.mFrequency = Number(aWords.mFrequency) / 1000;
  record.mBandwidth = BandwidthOf(aWords.mBandwidth);
  record.mCodeRateHP = ValueOf(aWords.mCodeRateHP, std::span(kRates).first(5), 5);
  record.mCodeRateLP = ValueOf(aWords.mCodeRateLP, std::span(kRates).first(5), 5);
  record.mConstellation = ValueOf(aWords.mConstellation, kConstellations, 3);
  record.mTransmissionMode = ValueOf(aWords.mTransmissionMode, std::span(kModes).first(1), 1);
  record.mPriority = ValueOf(aWords.mGuard, kGuards, 0);
  record.mHierarchy = aWords.mHierarchy == kHierarchies[1] ? 1 : 0;
  (void)parseVideoAndPmtPids(aWords.mPids, &record.mVideoPid, &record.mPmtPid);
  record.mServiceId = Number(aWords.mServiceId);
  record.mAudio.clear();
  uint32_t position = 0;
  for (const uint32_t kind : kChannelsAudioKinds) {
    int32_t moreGroups = 0;
    if (NS_FAILED(parseAudioGroup(&position, aWords.mAudio, &record.mAudio, kind, &moreGroups)))
      return false;
    if (moreGroups == 0) break;
  }
  return true;
}

nsresult parseVideoAndPmtPids(std::string_view aText, uint32_t* aVideo, uint32_t* aPmt) {
  *aVideo = *aPmt = 0;
  std::string digits;
  bool hasVideo = false;
  for (const char c : aText) {
    if (c != '+') {
      digits += c;
    } else if (!digits.empty()) {  // "+5" is a video PID: a sign in front is passed over
      *aVideo = Number(digits);
      hasVideo = true;
      digits.clear();
    }
  }
  (hasVideo ? *aPmt : *aVideo) = Number(digits);
  return NS_OK;
}

nsresult parseAudioGroup(uint32_t* aPosition, std::string_view aText,
                         std::vector<nsChannelsRecord::Audio>* aChannels, uint32_t aKind,
                         int32_t* aMoreGroups) {
  *aMoreGroups = 0;
  std::string word;
  uint32_t pid = 0;
  bool hasLanguage = false;
  const auto append = [&] {
    if (hasLanguage)
      aChannels->push_back({word, pid, aKind});
    else
      aChannels->push_back({"", Number(word), aKind});
    word.clear();
    hasLanguage = false;
  };
  // The end of the text counts as a byte.
  while (*aPosition <= aText.size() && *aMoreGroups == 0) {
    const char c = *aPosition < aText.size() ? aText[*aPosition] : '\0';
    ++*aPosition;
    if (c == ';') {
      if (!word.empty()) append();
      *aMoreGroups = 1;
    } else if (c == '=') {
      if (word.empty()) return NS_ERROR_FAILURE;
      pid = Number(word);
      word.clear();
      hasLanguage = true;
    } else if ((c == ',' || c == '\0') && !word.empty()) {
      append();
    } else if (c != '\0') {
      // A comma with nothing in front of it becomes part of what follows, which is then no number.
      word += c;
    }
  }
  return NS_OK;
}

// ---- Writing

std::string NS_WriteChannelsLine(const nsChannelsRecord& aRecord) {
  std::string line = aRecord.mName + "(" + aRecord.mProvider + "):" + Signed(aRecord.mFrequency) +
                     "000:INVERSION_AUTO:BANDWIDTH_" + Signed(aRecord.mBandwidth) + "_MHZ:";
  for (const std::string_view word :
       {WordOf(aRecord.mCodeRateHP, kRates), WordOf(aRecord.mCodeRateLP, kRates),
        WordOf(aRecord.mConstellation, kConstellations), WordOf(aRecord.mTransmissionMode, kModes),
        // The priority stands where the guard interval is said to: what a scan stores there is what
        // readers of these files have always found.
        WordOf(aRecord.mPriority, kGuards), WordOf(aRecord.mHierarchy, kHierarchies)}) {
    line += word;
    line += ':';
  }
  line += Signed(aRecord.mVideoPid);
  if (aRecord.mPmtPid != 0) line += '+' + Signed(aRecord.mPmtPid);
  line += ':';
  for (const uint32_t kind : kChannelsAudioKinds) {
    if (kind != kChannelsAudioKinds[0]) line += ';';
    bool isFirst = true;
    for (const auto& audio : aRecord.mAudio) {
      if (audio.mKind != kind) continue;
      if (!isFirst) line += ',';
      isFirst = false;
      line += Signed(audio.mPid);
      if (!audio.mLanguage.empty()) line += '=' + audio.mLanguage;
    }
  }
  return line + ':' + Signed(aRecord.mServiceId) + '\n';
}
