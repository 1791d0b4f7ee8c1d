// The tables of a transport stream, read into records.
#pragma once

#include <deque>

#include "nsBDARecords.h"
#include "nsCOMPtr.h"
#include "nsILog4.h"

/// The records of one frequency, and the tables that are still to be read for them. One thread at a
/// time.
///
/// The parsers are given a section as far as it goes, and lengths as they are broadcast: whatever
/// these say, nothing outside the section is read.
class nsBDATables {
 public:
  explicit nsBDATables(nsCOMPtr<nsILog4Logger> aLog) : mLog(std::move(aLog)) {}

  /// Appends a filter to those that wait.
  BDASectionFilter& AddFilter(int32_t aPid, int32_t aTableId, int32_t aTimeout);

  /// Reads aFilter.section. Its first bytes are in the order of a structure of memory, not of the
  /// stream: byte 1 is the lower byte of the length word, byte 3 that of table_id_ext. -1 for a
  /// section of another table, 1 when all sections of the table have been seen, else 0.
  int32_t parse_section(BDASectionFilter& aFilter);

  std::deque<std::unique_ptr<BDASectionFilter>> mWaitingFilters;
  BDATransponder* mCurrentTransponder = nullptr;  ///< that of the last PAT
  std::vector<std::unique_ptr<BDATransponder>> mTransponders;
  /// Seconds that a program map may take, for the filters that a PAT brings.
  int32_t mPmtTimeout = 5;

 private:
  using Bytes = std::span<const uint8_t>;

  BDATransponder* FindOrMakeTransponder(uint32_t aTransportStreamId);
  static BDAService* FindService(BDATransponder* aTransponder, uint32_t aServiceId);
  static BDAService* MakeService(BDATransponder* aTransponder, uint32_t aServiceId);

  // aBuffer goes on to the end of the section, its CRC included; aLength is how much of it is the
  // table's.
  void parse_pat(Bytes aBuffer, int32_t aLength, uint32_t aTransportStreamId);
  void parse_pmt(Bytes aBuffer, int32_t aLength, uint32_t aProgramNumber);
  void parse_nit(Bytes aBuffer, int32_t aLength, uint32_t aNetworkId);
  void parse_sdt(Bytes aBuffer, int32_t aLength, uint32_t aTransportStreamId);

  // aBuffer begins at the first descriptor and goes on to the end of the section; a descriptor that
  // begins within aLength is read as a whole.
  template <class Action>
  void ForEachDescriptor(Bytes aBuffer, int32_t aLength, const char* aIndent, Action aAction);
  void parse_descriptorsPMT(Bytes aBuffer, int32_t aLength, BDAService& aService, uint32_t aKind);
  void parse_descriptorsSDT(Bytes aBuffer, int32_t aLength, BDAService& aService);
  void parse_descriptorsNIT(Bytes aBuffer, int32_t aLength, BDATransponder* aTransponder);
  bool find_descriptor(uint8_t aTag, Bytes aBuffer, int32_t aLength);

  // aDescriptor is the whole descriptor, tag and length included, as far as the section goes.
  void parse_iso639_language_descriptor(Bytes aDescriptor, BDAService& aService, uint32_t aKind);
  void parse_service_descriptor(Bytes aDescriptor, BDAService& aService);
  void parse_terrestrial_delivery_system_descriptor(Bytes aDescriptor,
                                                    BDATransponder* aTransponder);
  void parse_frequency_list_descriptor(Bytes aDescriptor, BDATransponder* aTransponder);
  void parse_terrestrial_uk_channel_number(Bytes aDescriptor, BDATransponder* aTransponder);
  void AddAudio(BDAService& aService, uint32_t aKind, uint16_t aPid, Bytes aDescriptors,
                int32_t aLength);

  const nsCOMPtr<nsILog4Logger> mLog;
};
