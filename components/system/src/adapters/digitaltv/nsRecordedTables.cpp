#include "nsRecordedTables.h"

#include <algorithm>
#include <utility>

#include "nsDirectShowTypes.h"

nsSectionList::nsSectionList(uint16_t aPid, uint8_t aTableId,
                             const std::vector<std::vector<uint8_t>>& aSections)
    : mPid(aPid), mTableId(aTableId), mSections(aSections) {
  for (auto& section : mSections) {
    std::swap(section[1], section[2]);
    std::swap(section[3], section[4]);
  }
}

nsresult nsSectionList::GetNumberOfSections(uint16_t* aCount) {
  if (!aCount) return E_POINTER;
  *aCount = static_cast<uint16_t>(std::min<size_t>(mSections.size(), UINT16_MAX));
  return S_OK;
}

nsresult nsSectionList::GetSectionData(uint16_t aNumber, uint32_t* aLength, SECTION** aSection) {
  if (!aLength || !aSection) return E_POINTER;
  if (aNumber >= mSections.size()) return E_INVALIDARG;
  *aLength = static_cast<uint32_t>(mSections[aNumber].size());
  *aSection = reinterpret_cast<SECTION*>(mSections[aNumber].data());
  return S_OK;
}

nsresult nsSectionList::GetProgramIdentifier(uint16_t* aPid) {
  if (!aPid) return E_POINTER;
  *aPid = mPid;
  return S_OK;
}

nsresult nsSectionList::GetTableIdentifier(uint8_t* aTableId) {
  if (!aTableId) return E_POINTER;
  *aTableId = mTableId;
  return S_OK;
}

bool nsRecordedTables::Add(uint16_t aPid, std::span<const uint8_t> aSection) {
  const bool hasLongHeader = aSection.size() >= 12 && (aSection[1] & 0x80) != 0;
  const bool isInForce = hasLongHeader && (aSection[5] & 1) != 0;
  if (!isInForce || mSize + aSection.size() > kMost) return false;
  const auto extension = static_cast<uint16_t>(aSection[3] << 8 | aSection[4]);
  const auto version = static_cast<uint8_t>(aSection[5] >> 1 & 0x1F);
  Table& table = mTables[{aPid, aSection[0], extension}];
  if (!table.mSections.empty() && table.mVersion != version) {
    for (const auto& [number, section] : table.mSections) mSize -= section.size();
    table.mSections.clear();
  }
  table.mVersion = version;
  table.mLast = aSection[7];
  const auto [known, isNew] = table.mSections.try_emplace(aSection[6]);
  if (!isNew) return false;
  known->second.assign(aSection.begin(), aSection.end());
  mSize += aSection.size();
  return true;
}

const nsRecordedTables::Table* nsRecordedTables::Find(uint16_t aPid, uint8_t aTableId,
                                                      uint16_t aExtension) const {
  const auto found = mTables.find({aPid, aTableId, aExtension});
  return found == mTables.end() ? nullptr : &found->second;
}

bool nsRecordedTables::Has(uint16_t aPid, uint8_t aTableId) const {
  const auto found = mTables.lower_bound({aPid, aTableId, uint16_t{0}});
  return found != mTables.end() && std::get<0>(found->first) == aPid &&
         std::get<1>(found->first) == aTableId;
}

nsresult nsRecordedTables::GetSection(uint16_t aPid, uint8_t aTableId, MPEG2_FILTER* aFilter,
                                      uint32_t aTimeout, ISectionList** aList) {
  return GetTable(aPid, aTableId, aFilter, aTimeout, aList);
}

nsresult nsRecordedTables::GetTable(uint16_t aPid, uint8_t aTableId, MPEG2_FILTER* aFilter,
                                    uint32_t, ISectionList** aList) {
  if (!aList) return E_POINTER;
  if (aFilter) return E_NOTIMPL;
  std::vector<std::vector<uint8_t>> sections;
  for (auto at = mTables.lower_bound({aPid, aTableId, uint16_t{0}});
       at != mTables.end() && std::get<0>(at->first) == aPid && std::get<1>(at->first) == aTableId;
       ++at)
    for (const auto& [number, section] : at->second.mSections) sections.push_back(section);
  if (sections.empty()) return VFW_E_TIMEOUT;
  MakeRefCounted<nsSectionList>(aPid, aTableId, sections).forget(aList);
  return S_OK;
}
