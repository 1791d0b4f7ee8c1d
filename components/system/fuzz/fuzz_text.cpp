// The text of broadcasts: whatever the bytes, the result is text, or stays as it was.
#include <string>

#include "nsDvbText.h"
#include "nsFuzzHost.h"
#include "nsString.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* aData, size_t aSize) {
  NS_StartFuzzHost();
  const std::string_view text(reinterpret_cast<const char*>(aData), aSize);
  nsCString result("untouched");
  const nsresult rv = decodeDvbText(text, result);
  if (NS_FAILED(rv) && result.view() != "untouched") std::abort();
  // What came through a converter is whole text.
  if (NS_SUCCEEDED(rv) && aSize > 0 && aData[0] < 0x20 &&
      NS_ToUtf8(NS_ToUtf16(result)) != result.view())
    std::abort();
  return 0;
}
