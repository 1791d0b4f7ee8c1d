// Lines of the channels file: fields keep their bounds, and what was read once is read the same
// again.
#include <cstdlib>

#include "nsChannelsFormat.h"

namespace {
bool Read(std::string_view aLine, nsChannelsRecord* aRecord, bool* aIsAudioWhole) {
  nsChannelsWords words;
  if (NS_FAILED(NS_SplitChannelsLine(aLine, &aRecord->mName, &aRecord->mProvider, &words)))
    return false;
  if (aRecord->mName.size() > 99 || aRecord->mProvider.size() > 99 || words.mAudio.size() > 99 ||
      words.mPids.size() > 99 || words.mGuard.size() > 31)
    std::abort();
  *aIsAudioWhole = NS_ReadChannelsWords(words, aRecord);
  return true;
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* aData, size_t aSize) {
  nsChannelsRecord once;
  bool isWhole = false;
  if (!Read({reinterpret_cast<const char*>(aData), aSize}, &once, &isWhole) || !isWhole) return 0;
  // The second writing says what the first said. Texts that do not fit into a line are cut anew.
  nsChannelsRecord twice, thrice;
  const std::string line = NS_WriteChannelsLine(once);
  if (line.size() > kMaxChannelsLine || !Read(line, &twice, &isWhole)) return 0;
  const std::string again = NS_WriteChannelsLine(twice);
  if (again.size() > kMaxChannelsLine) return 0;
  if (!Read(again, &thrice, &isWhole)) std::abort();
  if (isWhole && twice.mConstellation < 3 && twice.mAudio == once.mAudio &&
      NS_WriteChannelsLine(thrice) != again)
    std::abort();
  return 0;
}
