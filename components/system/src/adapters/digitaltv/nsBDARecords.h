// What a scan of one frequency finds, as plain records.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

/// One table to read.
struct BDASectionFilter {
  bool one_shot = false;
  bool chained = false;  ///< one filter for each table_id_ext
  int32_t pid = 0;
  int32_t table_id = 0;
  int32_t table_id_ext = -1;                ///< -1 until a section was seen
  int32_t version_number = -1;              ///< the same
  std::array<uint8_t, 32> seen_sections{};  ///< one bit a section number
  int32_t complete = 0;                     ///< 1 when all sections up to the last are in
  std::span<const uint8_t> section;         ///< the one that is being parsed, not owned
  int32_t timeout = 0;                      ///< seconds
  std::unique_ptr<BDASectionFilter> next;
};

/// One service. Texts are as they were broadcast, the selector of their character table in front;
/// empty: there is none.
struct BDAService {
  static constexpr int32_t kMaxAudio = 32;
  struct Audio {
    std::array<uint16_t, kMaxAudio> pid{};
    std::array<std::array<char, 4>, kMaxAudio> lang{};  ///< three letters and a zero
    int32_t num = 0;
  };

  uint32_t transport_stream_id = 0;
  uint32_t service_id = 0;  ///< the key within the transponder
  std::string provider_name, service_name;
  uint16_t pmt_pid = 0, pcr_pid = 0, video_pid = 0;
  Audio audio;
  uint16_t teletext_pid = 0, subtitling_pid = 0;
  Audio ac3, eac3;
  uint8_t service_type = 0;
  bool scrambled = false;
  int32_t running_status = 0;
  BDASectionFilter* pmt_filter = nullptr;
  int32_t channel_number = 0;
};

/// One transport stream. Numbers are coded as in nsIBDAScanResultDigitalTvService.
struct BDATransponder {
  std::vector<std::unique_ptr<BDAService>> services;  ///< in order of discovery
  uint32_t network_id = 0;
  uint32_t transport_stream_id = 0;  ///< the key
  uint32_t original_network_id = 0;
  bool other_frequency_flag = false;
  std::vector<int32_t> alternative_frequencies;  ///< kHz
  std::string network_name;                      ///< bytes as broadcast
  int32_t frequency = 0;                         ///< kHz
  int32_t bandwidth = 0;                         ///< MHz
  bool priority = false;
  int32_t code_rate_hp = 0, code_rate_lp = 0;
  int32_t guard_interval = 0;
  int32_t transmission_mode = 0;
  int32_t constellation = 0;
};
