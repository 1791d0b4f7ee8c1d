#include "nsTableFilters.h"

#include <algorithm>
#include <chrono>
#include <map>
#include <set>

#include "IMpeg2Data.h"
#include "nsIMediaCancel.h"
#include "nsMediaFilter.h"
#include "nsMediaTuner.h"
#include "nsRecordedTables.h"

namespace {

using std::chrono::milliseconds, std::chrono::steady_clock;

constexpr nsMediaType kSI = {MEDIATYPE_MPEG2_SECTIONS, MEDIASUBTYPE_DVB_SI};
constexpr nsMediaType kSections = {MEDIATYPE_MPEG2_SECTIONS, MEDIASUBTYPE_MPEG2DATA};

constexpr uint8_t kPat = 0x00, kCat = 0x01, kPmt = 0x02, kNitActual = 0x40, kSdtActual = 0x42;

bool IsTableSection(std::span<const uint8_t> aSection) {
  return aSection.size() >= 12 && (aSection[1] & 0x80) != 0;
}
uint16_t ExtensionOf(std::span<const uint8_t> aSection) {
  return static_cast<uint16_t>(aSection[3] << 8 | aSection[4]);
}

/// All sections of one table identifier.
class Collector {
 public:
  /// aExpected: the extensions that there should be, if that is known.
  Collector(uint8_t aTableId, std::set<uint16_t> aExpected)
      : mTableId(aTableId), mExpected(std::move(aExpected)) {}

  void Add(std::span<const uint8_t> aSection) {
    if (!IsTableSection(aSection) || aSection[0] != mTableId || (aSection[5] & 1) == 0) return;
    const uint16_t extension = ExtensionOf(aSection);
    Table& table = mTables[extension];
    const uint8_t version = aSection[5] >> 1 & 0x1F;
    if (table.mVersion != version) table = {version, aSection[7], {}};
    const bool isNew =
        table.mSections.try_emplace(aSection[6], aSection.begin(), aSection.end()).second;
    if (!isNew) mIsRound = true;
  }

  /// Nothing more is to be waited for.
  bool IsDone() const {
    if (mTables.empty() ||
        !std::ranges::all_of(mTables, &Table::IsWhole, &Tables::value_type::second))
      return false;
    // What a stream has one of.
    if (mTableId == kPat || mTableId == kCat || mTableId == kNitActual || mTableId == kSdtActual)
      return true;
    if (mExpected.empty()) return mIsRound;
    // Maps come twice a second at least: one that is named but not broadcast does not hold up the
    // others for longer.
    return steady_clock::now() - mBegin > std::chrono::seconds(1) ||
           std::ranges::all_of(
               mExpected, [this](uint16_t aExtension) { return mTables.contains(aExtension); });
  }

  /// The sections of all tables that are whole, by extension and number.
  std::vector<std::vector<uint8_t>> Take() const {
    std::vector<std::vector<uint8_t>> sections;
    for (const auto& [extension, table] : mTables)
      if (table.IsWhole())
        for (const auto& [number, section] : table.mSections) sections.push_back(section);
    return sections;
  }

 private:
  struct Table {
    uint8_t mVersion = 0xFF;  ///< none yet
    uint8_t mLast = 0;
    std::map<uint8_t, std::vector<uint8_t>> mSections;
    bool IsWhole() const { return mSections.size() > mLast; }
  };
  using Tables = std::map<uint16_t, Table>;

  const uint8_t mTableId;
  const std::set<uint16_t> mExpected;
  Tables mTables;
  bool mIsRound = false;  ///< a section has come again
  const steady_clock::time_point mBegin = steady_clock::now();
};

class TransportInformationFilter final
    : public nsImplements<TransportInformationFilter, nsMediaFilter> {
 public:
  TransportInformationFilter() {
    (void)AddPin<nsPlainMediaPin>(PINDIR_INPUT, u"In", std::vector{kSI});
  }

 private:
  ~TransportInformationFilter() override = default;
};

class SectionsFilter final
    : public nsImplements<SectionsFilter, nsMediaFilter, IMpeg2Data, nsIMediaCancel> {
 public:
  SectionsFilter() : mInput(AddPin<nsPlainMediaPin>(PINDIR_INPUT, u"In", std::vector{kSections})) {}

  nsresult GetSection(uint16_t aPid, uint8_t aTableId, MPEG2_FILTER* aFilter, uint32_t aTimeout,
                      ISectionList** aList) override;
  nsresult GetTable(uint16_t aPid, uint8_t aTableId, MPEG2_FILTER* aFilter, uint32_t aTimeout,
                    ISectionList** aList) override;
  nsresult GetStreamOfSections(uint16_t, uint8_t, MPEG2_FILTER*, void*, IMpeg2Stream**) override {
    return E_NOTIMPL;
  }
  nsresult Cancel() override;

 private:
  using Reader = std::shared_ptr<nsPlatformSectionReader>;
  ~SectionsFilter() override = default;

  template <class Take>
  nsresult Read(uint16_t aPid, uint8_t aTableId, uint32_t aTimeout, Take aTake);
  std::shared_ptr<nsMediaTuner> Tuner() const;
  std::set<uint16_t> ProgramsOf(uint16_t aPid) const;
  void RememberPrograms(const std::vector<std::vector<uint8_t>>& aPat);

  nsMediaPin& mInput;
  mutable nsMutex mLock;
  std::set<Reader> mReaders NS_GUARDED_BY(mLock);  ///< of the calls that wait
  std::map<uint16_t, std::set<uint16_t>> mPrograms
      NS_GUARDED_BY(mLock);                       ///< of the last PAT, by PID
  uint64_t mGeneration NS_GUARDED_BY(mLock) = 0;  ///< of the tuner, when that came
};

std::shared_ptr<nsMediaTuner> SectionsFilter::Tuner() const {
  const nsCOMPtr<nsIMediaSource> source = do_QueryInterface<nsIMediaSource>(mInput.Peer());
  return source ? source->SourceTuner() : nullptr;
}

/// aTake is given each section, and says whether that was enough. VFW_E_TIMEOUT when it wasn't.
template <class Take>
nsresult SectionsFilter::Read(uint16_t aPid, uint8_t aTableId, uint32_t aTimeout, Take aTake) {
  const auto tuner = Tuner();
  if (!tuner) return VFW_E_NOT_CONNECTED;
  const nsPlatformTunerRef device = tuner->Device();
  if (!device) return VFW_E_WRONG_STATE;
  Reader reader;
  nsresult rv = device->OpenSections({.mPid = aPid, .mTableId = aTableId}, &reader);
  if (NS_FAILED(rv)) return rv;
  {
    const nsAutoLock lock(mLock);
    mReaders.insert(reader);
  }
  const auto end = steady_clock::now() + milliseconds(aTimeout);
  std::vector<uint8_t> section;
  for (bool isEnough = false; NS_SUCCEEDED(rv) && !isEnough;) {
    const auto left = std::chrono::ceil<milliseconds>(end - steady_clock::now()).count();
    // A stream full of sections must not keep the time from being over.
    rv = left < 0 ? NS_ERROR_NET_TIMEOUT
                  : reader->ReadSection(static_cast<uint32_t>(left), &section);
    if (NS_SUCCEEDED(rv)) isEnough = aTake(section);
  }
  const nsAutoLock lock(mLock);
  mReaders.erase(reader);
  return rv == NS_ERROR_NET_TIMEOUT ? VFW_E_TIMEOUT : rv;
}

nsresult SectionsFilter::GetTable(uint16_t aPid, uint8_t aTableId, MPEG2_FILTER* aFilter,
                                  uint32_t aTimeout, ISectionList** aList) {
  if (!aList) return E_POINTER;
  if (aFilter) return E_NOTIMPL;
  Collector collector(aTableId, aTableId == kPmt ? ProgramsOf(aPid) : std::set<uint16_t>());
  const nsresult rv = Read(aPid, aTableId, aTimeout, [&](std::span<const uint8_t> aSection) {
    collector.Add(aSection);
    return collector.IsDone();
  });
  if (NS_FAILED(rv) && rv != VFW_E_TIMEOUT) return rv;
  const auto sections = collector.Take();
  if (sections.empty()) return VFW_E_TIMEOUT;
  if (aPid == 0 && aTableId == kPat) RememberPrograms(sections);
  MakeRefCounted<nsSectionList>(aPid, aTableId, sections).forget(aList);
  return S_OK;
}

nsresult SectionsFilter::GetSection(uint16_t aPid, uint8_t aTableId, MPEG2_FILTER* aFilter,
                                    uint32_t aTimeout, ISectionList** aList) {
  if (!aList) return E_POINTER;
  if (aFilter) return E_NOTIMPL;
  std::vector<std::vector<uint8_t>> sections;
  const nsresult rv = Read(aPid, aTableId, aTimeout, [&](std::span<const uint8_t> aSection) {
    if (IsTableSection(aSection) && (aSection[5] & 1) != 0)
      sections.emplace_back(aSection.begin(), aSection.end());
    return !sections.empty();
  });
  if (NS_FAILED(rv)) return rv;
  MakeRefCounted<nsSectionList>(aPid, aTableId, sections).forget(aList);
  return S_OK;
}

nsresult SectionsFilter::Cancel() {
  const nsAutoLock lock(mLock);
  for (const Reader& reader : mReaders) reader->Cancel();
  return S_OK;
}

std::set<uint16_t> SectionsFilter::ProgramsOf(uint16_t aPid) const {
  const auto tuner = Tuner();
  const nsAutoLock lock(mLock);
  const auto found = mPrograms.find(aPid);
  if (!tuner || tuner->Generation() != mGeneration || found == mPrograms.end()) return {};
  return found->second;
}

void SectionsFilter::RememberPrograms(const std::vector<std::vector<uint8_t>>& aPat) {
  const auto tuner = Tuner();
  if (!tuner) return;
  const nsAutoLock lock(mLock);
  mGeneration = tuner->Generation();
  mPrograms.clear();
  for (const auto& section : aPat)
    for (size_t at = 8; at + 4 <= section.size() - 4; at += 4) {
      const auto program = static_cast<uint16_t>(section[at] << 8 | section[at + 1]);
      const auto pid = static_cast<uint16_t>((section[at + 2] & 0x1F) << 8 | section[at + 3]);
      if (program != 0) mPrograms[pid].insert(program);
    }
}

}  // namespace

nsCOMPtr<IBaseFilter> NS_NewTransportInformationFilter() {
  return MakeRefCounted<TransportInformationFilter>();
}
nsCOMPtr<IBaseFilter> NS_NewSectionsFilter() { return MakeRefCounted<SectionsFilter>(); }
