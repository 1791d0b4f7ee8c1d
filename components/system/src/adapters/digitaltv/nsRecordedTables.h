// The tables of a stream that has been read, as a scanner asks for them.
#pragma once

#include <map>
#include <span>
#include <tuple>
#include <vector>

#include "IMpeg2Data.h"
#include "ISectionList.h"
#include "nsDirectShowTypes.h"
#include "nsImplements.h"

/// Sections in the form that ISectionList tells.
class nsSectionList final : public nsImplements<nsSectionList, ISectionList> {
 public:
  /// aSections as broadcast, of eight bytes at least.
  nsSectionList(uint16_t aPid, uint8_t aTableId,
                const std::vector<std::vector<uint8_t>>& aSections);

  nsresult Initialize(uint32_t, IMpeg2Data*, MPEG_CONTEXT*, uint16_t, uint8_t, MPEG2_FILTER*,
                      uint32_t, void*) override {
    return E_NOTIMPL;
  }
  nsresult InitializeWithRawSections(MPEG_PACKET_LIST*) override { return E_NOTIMPL; }
  nsresult CancelPendingRequest() override { return S_OK; }
  nsresult GetNumberOfSections(uint16_t* aCount) override;
  nsresult GetSectionData(uint16_t aNumber, uint32_t* aLength, SECTION** aSection) override;
  nsresult GetProgramIdentifier(uint16_t* aPid) override;
  nsresult GetTableIdentifier(uint8_t* aTableId) override;

 private:
  ~nsSectionList() override = default;
  const uint16_t mPid;
  const uint8_t mTableId;
  std::vector<std::vector<uint8_t>> mSections;
};

/// Keeps the newest version of each table; sections that are not in force yet are left out. Nobody
/// is waited for: a table that has not come does not come. Add on one thread, GetTable on another
/// when that has ended.
class nsRecordedTables final : public nsImplements<nsRecordedTables, IMpeg2Data> {
 public:
  /// Of one table extension; the numbers of its sections.
  struct Table {
    uint8_t mVersion = 0;
    uint8_t mLast = 0;
    std::map<uint8_t, std::vector<uint8_t>> mSections;
    bool IsComplete() const { return mSections.size() > mLast; }
  };

  /// A section as broadcast, its CRC checked. Those with the short header are left out. False when
  /// nothing is kept of it: it is known, or there are more than 64 MiB of sections.
  bool Add(uint16_t aPid, std::span<const uint8_t> aSection);
  /// Null when there is none.
  const Table* Find(uint16_t aPid, uint8_t aTableId, uint16_t aExtension) const;
  bool Has(uint16_t aPid, uint8_t aTableId) const;

  /// VFW_E_TIMEOUT, as they do not come any more.
  nsresult GetSection(uint16_t aPid, uint8_t aTableId, MPEG2_FILTER* aFilter, uint32_t aTimeout,
                      ISectionList** aList) override;
  nsresult GetTable(uint16_t aPid, uint8_t aTableId, MPEG2_FILTER* aFilter, uint32_t aTimeout,
                    ISectionList** aList) override;
  nsresult GetStreamOfSections(uint16_t, uint8_t, MPEG2_FILTER*, void*, IMpeg2Stream**) override {
    return E_NOTIMPL;
  }

 private:
  static constexpr size_t kMost = size_t{64} << 20;

  ~nsRecordedTables() override = default;
  // PID, table, extension.
  std::map<std::tuple<uint16_t, uint8_t, uint16_t>, Table> mTables;
  size_t mSize = 0;
};
