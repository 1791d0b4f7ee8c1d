// Sections, in the order of the scanner's source: first byte the table, any bytes behind it.
// Several in one input, with their lengths in front.
#include <algorithm>
#include <cstdlib>

#include "nsBDATables.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* aData, size_t aSize) {
  nsBDATables tables(nullptr);
  while (aSize > 2) {
    const size_t length = std::min<size_t>(aData[0] << 8 | aData[1], aSize - 2);
    // In memory of its own size, so that a read behind its end is seen.
    const std::vector<uint8_t> section(aData + 2, aData + 2 + length);
    aData += 2 + length;
    aSize -= 2 + length;
    if (section.empty()) continue;
    BDASectionFilter filter;
    filter.table_id = section[0];
    filter.section = section;
    (void)tables.parse_section(filter);
  }
  for (const auto& transponder : tables.mTransponders)
    for (const auto& service : transponder->services)
      for (const BDAService::Audio* audio : {&service->audio, &service->ac3, &service->eac3})
        if (audio->num < 0 || audio->num > BDAService::kMaxAudio) std::abort();
  return 0;
}
