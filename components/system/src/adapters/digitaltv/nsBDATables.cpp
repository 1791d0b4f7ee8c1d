#include "nsBDATables.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

#include "nsIDigitalTvAudioChannel.h"
#include "nsLogger.h"

namespace {

constexpr uint32_t kMpeg = nsIDigitalTvAudioChannel::AUDIO_MPEG;
constexpr uint32_t kAc3 = nsIDigitalTvAudioChannel::AUDIO_AC3;
constexpr uint32_t kEac3 = nsIDigitalTvAudioChannel::AUDIO_EAC3;

__attribute__((format(printf, 1, 2))) std::string Format(const char* aFormat, ...) {
  char text[500];
  va_list arguments;
  va_start(arguments, aFormat);
  (void)std::vsnprintf(text, sizeof text, aFormat, arguments);
  va_end(arguments);
  return text;
}

// Built only when somebody reads it.
#define LOG(...) SYSTEM_LOG_DEBUG(mLog, Format(__VA_ARGS__))

const char* Text(const std::string& aText) { return aText.empty() ? "(null)" : aText.c_str(); }

uint32_t Read16(std::span<const uint8_t> aBytes) { return uint32_t{aBytes[0]} << 8 | aBytes[1]; }
uint32_t Read32(std::span<const uint8_t> aBytes) {
  return Read16(aBytes) << 16 | Read16(aBytes.subspan(2));
}
uint16_t ReadPid(std::span<const uint8_t> aBytes) {
  return static_cast<uint16_t>(Read16(aBytes) & 0x1FFF);
}
int32_t ReadLength(std::span<const uint8_t> aBytes) {
  return static_cast<int32_t>(Read16(aBytes) & 0x0FFF);
}

/// As much as there is.
std::span<const uint8_t> Behind(std::span<const uint8_t> aBytes, int32_t aCount) {
  return aBytes.subspan(std::min(aBytes.size(), static_cast<size_t>(std::max(aCount, 0))));
}

BDAService::Audio& AudioOf(BDAService& aService, uint32_t aKind) {
  return aKind == kMpeg ? aService.audio : aKind == kAc3 ? aService.ac3 : aService.eac3;
}

}  // namespace

// ---- Records

BDASectionFilter& nsBDATables::AddFilter(int32_t aPid, int32_t aTableId, int32_t aTimeout) {
  auto& filter = *mWaitingFilters.emplace_back(std::make_unique<BDASectionFilter>());
  filter.one_shot = true;
  filter.pid = aPid;
  filter.table_id = aTableId;
  filter.timeout = aTimeout;
  return filter;
}

BDATransponder* nsBDATables::FindOrMakeTransponder(uint32_t aTransportStreamId) {
  for (const auto& transponder : mTransponders)
    if (transponder->transport_stream_id == aTransportStreamId) return transponder.get();
  auto* const made = mTransponders.emplace_back(std::make_unique<BDATransponder>()).get();
  made->transport_stream_id = aTransportStreamId;
  return made;
}

BDAService* nsBDATables::FindService(BDATransponder* aTransponder, uint32_t aServiceId) {
  if (!aTransponder) return nullptr;
  for (const auto& service : aTransponder->services)
    if (service->service_id == aServiceId) return service.get();
  return nullptr;
}

BDAService* nsBDATables::MakeService(BDATransponder* aTransponder, uint32_t aServiceId) {
  auto* const made = aTransponder->services.emplace_back(std::make_unique<BDAService>()).get();
  made->service_id = aServiceId;
  return made;
}

// ---- Sections

int32_t nsBDATables::parse_section(BDASectionFilter& aFilter) {
  const Bytes section = aFilter.section;
  if (section.size() < 8 || section[0] != aFilter.table_id) return -1;
  const int32_t sectionLength = (section[1] | (section[2] & 0x0F) << 8) - 1;
  const int32_t extension = section[3] | section[4] << 8;
  const int32_t version = section[5] >> 1 & 0x1F;
  const uint8_t number = section[6], last = section[7];

  BDASectionFilter* filter = &aFilter;
  if (aFilter.chained && aFilter.table_id_ext != -1 && aFilter.table_id_ext != extension) {
    while (filter->next && filter->next->table_id_ext != extension) filter = filter->next.get();
    if (!filter->next) {
      filter->next = std::make_unique<BDASectionFilter>();
      filter->next->chained = aFilter.chained;
      filter->next->one_shot = aFilter.one_shot;
      filter->next->timeout = aFilter.timeout;
      filter->next->table_id = aFilter.table_id;
      filter->next->table_id_ext = extension;
      filter->next->version_number = version;
    }
    filter = filter->next.get();
  }
  if (filter->version_number != version || filter->table_id_ext != extension) {
    if (filter->version_number != -1 && filter->table_id_ext != -1)
      LOG("section version_number or table_id_ext changed %d -> %d / %04x -> %04x\n",
          filter->version_number, version, static_cast<unsigned>(filter->table_id_ext),
          static_cast<unsigned>(extension));
    filter->complete = 0;
    filter->seen_sections.fill(0);
    filter->version_number = version;
    filter->table_id_ext = extension;
  }

  const auto bit = static_cast<uint8_t>(1u << (number & 7));
  uint8_t& seen = filter->seen_sections[number / 8];
  if ((seen & bit) == 0) {
    seen |= bit;
    LOG("pid 0x%02x tid 0x%02x table_id_ext 0x%04x, %i/%i (version %i)\n",
        static_cast<unsigned>(aFilter.pid), static_cast<unsigned>(aFilter.table_id),
        static_cast<unsigned>(extension), number, last, version);
    // The length was lowered by one already, so that the CRC stays out of it.
    const Bytes payload = section.subspan(8);
    const int32_t length = std::min(sectionLength - 8, static_cast<int32_t>(payload.size()));
    const auto id = static_cast<uint32_t>(extension);
    switch (section[0]) {
      case 0x00:
        LOG("PAT\n");
        parse_pat(payload, length, id);
        break;
      case 0x02:
        LOG("PMT 0x%04x for service 0x%04x\n", static_cast<unsigned>(aFilter.pid), id);
        parse_pmt(payload, length, id);
        break;
      case 0x41:
        LOG("////////////////////////////////////////////// NIT other\n");
        [[fallthrough]];
      case 0x40:
        LOG("NIT (%s TS)\n", section[0] == 0x40 ? "actual" : "other");
        parse_nit(payload, length, id);
        break;
      case 0x42:
      case 0x46:
        LOG("SDT (%s TS)\n", section[0] == 0x42 ? "actual" : "other");
        parse_sdt(payload, length, id);
        break;
      default:
        break;
    }
    int count = 0;
    while (count <= last &&
           (filter->seen_sections[static_cast<size_t>(count / 8)] >> count % 8 & 1))
      ++count;
    if (count > last) filter->complete = 1;
  }
  if (aFilter.chained) return 0;
  return filter->complete != 0 ? 1 : 0;
}

void nsBDATables::parse_pat(Bytes aBuffer, int32_t aLength, uint32_t aTransportStreamId) {
  for (; aLength >= 4; aBuffer = aBuffer.subspan(4), aLength -= 4) {
    const uint32_t serviceId = Read16(aBuffer);
    const uint16_t pmtPid = ReadPid(aBuffer.subspan(2));
    if (serviceId == 0) {
      LOG("Skipping nit pid entry with service_id 0x00\n");
      continue;
    }
    if (!mCurrentTransponder) mCurrentTransponder = FindOrMakeTransponder(aTransportStreamId);
    LOG("  Found service id 0x%04x with PMT 0x%04x\n", serviceId, pmtPid);
    BDAService* service = FindService(mCurrentTransponder, serviceId);
    if (service)
      LOG("Existing service object found\n");
    else
      service = MakeService(mCurrentTransponder, serviceId);
    service->pmt_pid = pmtPid;
    if (pmtPid == 0) {
      LOG("Skipping adding filter. pmt pid is 0x00\n");
    } else if (service->pmt_filter) {
      LOG("Skipping adding filter.\n");
    } else {
      // A second section with the same service brings a second filter: nobody notes the first.
      AddFilter(pmtPid, 0x02, mPmtTimeout);
      service->pmt_filter = nullptr;
    }
  }
}

void nsBDATables::parse_pmt(Bytes aBuffer, int32_t aLength, uint32_t aProgramNumber) {
  BDAService* const found = FindService(mCurrentTransponder, aProgramNumber);
  if (!found) {
    LOG("PMT for serivce_id 0x%04x was not in PAT\n", aProgramNumber);
    return;
  }
  if (aLength < 4) return;
  BDAService& service = *found;
  service.pcr_pid = ReadPid(aBuffer);
  const int32_t programInfo = ReadLength(aBuffer.subspan(2));
  aLength -= 4 + programInfo;
  aBuffer = Behind(aBuffer, 4 + programInfo);

  while (aLength >= 5) {
    const unsigned type = aBuffer[0];
    const uint16_t pid = ReadPid(aBuffer.subspan(1));
    const int32_t infoLength = ReadLength(aBuffer.subspan(3));
    const Bytes descriptors = aBuffer.subspan(5);
    const auto has = [&](uint8_t aTag) { return find_descriptor(aTag, descriptors, infoLength); };
    if (type == 1 || type == 2 || type == 27) {
      LOG("  VIDEO     : PID 0x%04x, type 0x%02x\n", pid, type);
      if (service.video_pid == 0) service.video_pid = pid;
    } else if (type == 3 || type == 4) {
      LOG("  AUDIO     : PID 0x%04x\n", pid);
      AddAudio(service, kMpeg, pid, descriptors, infoLength);
    } else if (type == 6 && has(0x56)) {
      LOG("  TELETEXT  : PID 0x%04x\n", pid);
      service.teletext_pid = pid;
    } else if (type == 6 && has(0x59)) {
      LOG("  SUBTITLING: PID 0x%04x\n", pid);
      service.subtitling_pid = pid;
    } else if (type == 6 && has(0x6A)) {
      LOG("  AC3       : PID 0x%04x\n", pid);
      AddAudio(service, kAc3, pid, descriptors, infoLength);
    } else if (type == 6 && has(0x7A)) {
      LOG(" EAC3       : PID 0x%04x\n", pid);
      AddAudio(service, kEac3, pid, descriptors, infoLength);
    } else {
      LOG("  OTHER     : PID 0x%04x TYPE 0x%02x\n", pid, type);
    }
    aLength -= 5 + infoLength;
    aBuffer = Behind(aBuffer, 5 + infoLength);
  }

  const auto truncate = [&](BDAService::Audio& aAudio, const char* aName) {
    if (aAudio.num <= BDAService::kMaxAudio) return;
    LOG("more than %i %s channels: %i, truncating to %i\n", BDAService::kMaxAudio, aName,
        aAudio.num, BDAService::kMaxAudio);
    aAudio.num = BDAService::kMaxAudio;
  };
  truncate(service.audio, "audio");
  truncate(service.ac3, "ac3");
  truncate(service.eac3, "eac3");
  const auto audioPids = [&] {
    std::string pids;
    for (size_t i = 0; i < static_cast<size_t>(service.audio.num); ++i)
      pids += Format(i == 0 ? "0x%04x (%.4s)" : ", 0x%04x (%.4s)", service.audio.pid[i],
                     service.audio.lang[i].data());
    return pids;
  };
  LOG("0x%04x 0x%04x: %s -- %s, pmt_pid 0x%04x, vpid 0x%04x, apid %s\n",
      service.transport_stream_id, service.service_id, Text(service.provider_name),
      Text(service.service_name), service.pmt_pid, service.video_pid, audioPids().c_str());
}

void nsBDATables::AddAudio(BDAService& aService, uint32_t aKind, uint16_t aPid, Bytes aDescriptors,
                           int32_t aLength) {
  BDAService::Audio& audio = AudioOf(aService, aKind);
  if (audio.num >= BDAService::kMaxAudio) {
    // Enhanced AC-3 goes by the name of the other here.
    LOG("more than %i %s channels, truncating\n", BDAService::kMaxAudio,
        aKind == kMpeg ? "audio" : "ac3");
    return;
  }
  audio.pid[static_cast<size_t>(audio.num)] = aPid;
  parse_descriptorsPMT(aDescriptors, aLength, aService, aKind);
  ++audio.num;
}

void nsBDATables::parse_nit(Bytes aBuffer, int32_t aLength, uint32_t aNetworkId) {
  const int32_t descriptorsLength = aLength >= 2 ? ReadLength(aBuffer) : 0;
  if (aLength < descriptorsLength + 4) {
    LOG("section too short: network_id == 0x%04x, section_length == %i, descriptors_loop_len == "
        "%i\n",
        aNetworkId, aLength, descriptorsLength);
    return;
  }
  parse_descriptorsNIT(aBuffer.subspan(2), descriptorsLength, mCurrentTransponder);
  // The length of the loop that follows is stepped over unread.
  aLength -= descriptorsLength + 4;
  aBuffer = Behind(aBuffer, descriptorsLength + 4);
  while (aLength >= 7) {
    const uint32_t transportStreamId = Read16(aBuffer);
    BDATransponder* const transponder = FindOrMakeTransponder(transportStreamId);
    transponder->network_id = aNetworkId;
    transponder->original_network_id = Read16(aBuffer.subspan(2));
    const int32_t loopLength = ReadLength(aBuffer.subspan(4));
    if (aLength < loopLength + 4) {
      LOG("section too short: transport_stream_id == 0x%04x, section_length == %i, "
          "descriptors_loop_len == %i\n",
          transportStreamId, aLength, loopLength);
      return;
    }
    LOG("  transport_stream_id 0x%04x\n", transportStreamId);
    parse_descriptorsNIT(aBuffer.subspan(6), loopLength, transponder);
    aLength -= loopLength + 6;
    aBuffer = Behind(aBuffer, loopLength + 6);
  }
}

void nsBDATables::parse_sdt(Bytes aBuffer, int32_t aLength, uint32_t aTransportStreamId) {
  BDATransponder* const transponder = FindOrMakeTransponder(aTransportStreamId);
  aBuffer = Behind(aBuffer, 3);  // and the length stays as it was
  while (aLength > 4 && aBuffer.size() >= 5) {
    const uint32_t serviceId = Read16(aBuffer);
    const int32_t loopLength = ReadLength(aBuffer.subspan(3));
    if (aLength < loopLength || loopLength == 0) {
      // So a service without descriptors ends the section.
      LOG("  section too short: service_id == 0x%02x, section_length == %i, remainingLength == "
          "%i\n",
          serviceId, aLength, loopLength);
      return;
    }
    BDAService* service = FindService(transponder, serviceId);
    if (!service) service = MakeService(transponder, serviceId);
    service->running_status = aBuffer[3] >> 5;
    service->scrambled = (aBuffer[3] >> 4 & 1) != 0;
    service->transport_stream_id = aTransportStreamId;
    // The head of the service is counted once too often, and kept so: a descriptor that begins in
    // the last five bytes of the loop is not read.
    parse_descriptorsSDT(aBuffer.subspan(5), loopLength - 5, *service);
    aLength -= loopLength + 5;
    aBuffer = Behind(aBuffer, loopLength + 5);
  }
}

// ---- Loops of descriptors

template <class Action>
void nsBDATables::ForEachDescriptor(Bytes aBuffer, int32_t aLength, const char* aIndent,
                                    Action aAction) {
  while (aLength > 0 && aBuffer.size() >= 2) {
    // In eight bits: 254 makes it 0.
    const auto length = static_cast<uint8_t>(aBuffer[1] + 2);
    if (length == 0) {
      LOG("%sdescriptor_tag == 0x%02x, len is 0\n", aIndent, aBuffer[0]);
      return;
    }
    // 255 makes it 1, less than its own head.
    if (!aAction(aBuffer.first(std::min<size_t>(std::max<size_t>(length, 2), aBuffer.size()))))
      return;
    aLength -= length;
    aBuffer = Behind(aBuffer, length);
  }
}

void nsBDATables::parse_descriptorsPMT(Bytes aBuffer, int32_t aLength, BDAService& aService,
                                       uint32_t aKind) {
  ForEachDescriptor(aBuffer, aLength, "", [&](Bytes aDescriptor) {
    if (aDescriptor[0] == 0x0A)
      parse_iso639_language_descriptor(aDescriptor, aService, aKind);
    else
      LOG("    skip descriptor 0x%02x\n", aDescriptor[0]);
    return true;
  });
}

void nsBDATables::parse_descriptorsSDT(Bytes aBuffer, int32_t aLength, BDAService& aService) {
  ForEachDescriptor(aBuffer, aLength, "  ", [&](Bytes aDescriptor) {
    if (aDescriptor[0] == 0x48)
      parse_service_descriptor(aDescriptor, aService);
    else
      LOG("  skip descriptor 0x%02x\n", aDescriptor[0]);
    return true;
  });
}

void nsBDATables::parse_descriptorsNIT(Bytes aBuffer, int32_t aLength,
                                       BDATransponder* aTransponder) {
  ForEachDescriptor(aBuffer, aLength, "", [&](Bytes aDescriptor) {
    switch (aDescriptor[0]) {
      case 0x40:
        LOG("  Found a network name descriptor\n");
        if (aTransponder)
          aTransponder->network_name.assign(aDescriptor.begin() + 2, aDescriptor.end());
        break;
      case 0x43:
        LOG("  Found a satellite delivery system descriptor\n");
        break;
      case 0x44:
        LOG("  Found a cable delivery system descriptor\n");
        break;
      case 0x5A:
        LOG("  Found a terrestrial delivery system descriptor\n");
        parse_terrestrial_delivery_system_descriptor(aDescriptor, aTransponder);
        break;
      case 0x62:
        LOG("  Found a frequency list descriptor\n");
        parse_frequency_list_descriptor(aDescriptor, aTransponder);
        break;
      case 0x83:
        LOG("  Found a terrestrial uk channel number\n");
        parse_terrestrial_uk_channel_number(aDescriptor, aTransponder);
        break;
      default:
        LOG("  skip descriptor 0x%02x\n", aDescriptor[0]);
        break;
    }
    return true;
  });
}

bool nsBDATables::find_descriptor(uint8_t aTag, Bytes aBuffer, int32_t aLength) {
  bool found = false;
  ForEachDescriptor(aBuffer, aLength, "", [&](Bytes aDescriptor) {
    found = aDescriptor[0] == aTag;
    return !found;
  });
  return found;
}

// ---- Descriptors

void nsBDATables::parse_iso639_language_descriptor(Bytes aDescriptor, BDAService& aService,
                                                   uint32_t aKind) {
  if (aDescriptor[1] < 4 || aDescriptor.size() < 6) return;
  BDAService::Audio& audio = AudioOf(aService, aKind);
  auto& language = audio.lang[static_cast<size_t>(audio.num)];
  std::copy_n(aDescriptor.begin() + 2, 3, language.begin());
  LOG("    LANG=%.3s %d\n", language.data(), aDescriptor[5]);
}

void nsBDATables::parse_service_descriptor(Bytes aDescriptor, BDAService& aService) {
  Bytes rest = aDescriptor.subspan(2);
  if (rest.empty()) return;
  aService.service_type = rest[0];
  rest = rest.subspan(1);
  // Control codes of the one-byte tables go; so do such bytes of the others, and that is kept.
  const auto takeText = [&] {
    std::string text;
    if (rest.empty()) return text;
    const size_t length = std::min<size_t>(rest[0], rest.size() - 1);
    for (const uint8_t byte : rest.subspan(1, length))
      if (byte < 0x80 || byte > 0x9F) text += static_cast<char>(byte);
    rest = rest.subspan(1 + length);
    return text;
  };
  aService.provider_name = takeText();
  aService.service_name = takeText();
  static constexpr const char* kRunning[] = {"???", "not running", "starts soon", "pausing",
                                             "running"};
  const int32_t running = aService.running_status;
  LOG("  0x%04x 0x%04x: pmt_pid 0x%04x %s -- %s (%s%s)\n", aService.transport_stream_id,
      aService.service_id, aService.pmt_pid, Text(aService.provider_name),
      Text(aService.service_name), kRunning[running >= 1 && running <= 4 ? running : 0],
      aService.scrambled ? ", scrambled" : "");
}

// Several places differ from where the standard has them. What reads the results depends on them as
// they stand here.
void nsBDATables::parse_terrestrial_delivery_system_descriptor(Bytes aDescriptor,
                                                               BDATransponder* aTransponder) {
  if (!aTransponder || aDescriptor.size() < 9) return;
  static constexpr const char* kRates[] = {"FEC_1_2", "FEC_2_3", "FEC_3_4",
                                           "FEC_5_6", "FEC_7_8", "FEC_AUTO"};
  static constexpr const char* kConstellations[] = {"    QPSK\n", "    QAM_16\n", "    QAM_64\n",
                                                    "    QAM_AUTO\n"};
  BDATransponder& transponder = *aTransponder;
  const uint8_t* const d = aDescriptor.data();
  // Units of 10 Hz.
  transponder.frequency = static_cast<int32_t>(Read32(aDescriptor.subspan(2))) / 100;
  transponder.bandwidth = 8 - (d[6] >> 5 & 3);
  transponder.priority = (d[6] >> 6 & 1) != 0;
  transponder.constellation = d[7] >> 6;
  LOG("%s", kConstellations[transponder.constellation]);
  transponder.code_rate_hp = std::min(d[7] & 7, 5);
  LOG("    HP - %s", kRates[transponder.code_rate_hp]);
  // A rate other than 1/2 of the low priority stream lands in that of the high one.
  const int32_t lowRate = std::min(d[8] >> 5, 5);
  (lowRate == 0 ? transponder.code_rate_lp : transponder.code_rate_hp) = lowRate;
  LOG("    LP - %s", kRates[lowRate]);
  transponder.guard_interval = d[8] >> 7;
  transponder.transmission_mode = (d[8] & 2) != 0 ? 1 : 0;
  LOG("    Transmission mode %s\n", transponder.transmission_mode == 0 ? "2K" : "8K");
  transponder.other_frequency_flag = (d[8] & 1) != 0;
  if (transponder.other_frequency_flag) LOG("    Other frequency flags set\n");
}

void nsBDATables::parse_frequency_list_descriptor(Bytes aDescriptor, BDATransponder* aTransponder) {
  if (!aTransponder) return;
  auto& frequencies = aTransponder->alternative_frequencies;
  frequencies.clear();
  const int32_t count = (aDescriptor[1] - 1) / 4;
  if (aDescriptor.size() < 3 || (aDescriptor[2] & 3) != 3) return;
  Bytes rest = aDescriptor.subspan(3);
  for (int32_t i = 0; i < count && rest.size() >= 4; ++i, rest = rest.subspan(4)) {
    frequencies.push_back(static_cast<int32_t>(Read32(rest) / 100));
    LOG("    Alternate Frequency %i\n", frequencies.back());
  }
}

void nsBDATables::parse_terrestrial_uk_channel_number(Bytes aDescriptor,
                                                      BDATransponder* aTransponder) {
  if (!aTransponder) return;
  Bytes rest = aDescriptor.subspan(2);
  for (int count = aDescriptor[1] >> 2; count > 0 && rest.size() >= 4;
       --count, rest = rest.subspan(4)) {
    const uint32_t serviceId = Read16(rest);
    const int32_t channel = rest[3];  // the upper two bits are masked away, not shifted
    LOG("    Service ID 0x%x has channel number %d\n", serviceId, channel);
    BDAService* const service = FindService(aTransponder, serviceId);
    if (service)
      service->channel_number = channel;
    else
      (void)MakeService(aTransponder, serviceId);
  }
}
