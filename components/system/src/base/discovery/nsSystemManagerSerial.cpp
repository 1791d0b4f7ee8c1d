// Discovery of serial ports.
#include <cstdio>
#include <new>

#include "nsPlatformComm.h"
#include "nsString.h"
#include "nsSystemAdapterSerial.h"
#include "nsSystemManager.h"

void nsSystemManager::InitSerial() {
  constexpr int kLastNumber = 255;
  // What the bits mean is not settled; all ports have the same.
  constexpr uint32_t kCapabilities = 0x127;

  for (int number = 0; number <= kLastNumber; ++number) {
    char name[16];
    std::snprintf(name, sizeof name, "COM%d", number);
    nsCommConfig config;
    if (NS_FAILED(mPlatform->mComm->ReadDefaultCommConfig(name, &config, nsCommConfig::kSize)))
      continue;
    const nsString sysPath(NS_ToUtf16(std::string_view(name)));
    char label[32];
    std::snprintf(label, sizeof label, "Port serie %s", name);
    const nsCOMPtr<nsSystemAdapterSerial> adapter(new (std::nothrow) nsSystemAdapterSerial(
        mPlatform, sysPath, nsString(NS_ToUtf16(std::string_view(label))), kCapabilities));
    if (adapter) (void)AddAdapter(adapter.get());
  }
}
