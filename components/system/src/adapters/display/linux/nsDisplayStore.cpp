#include "nsDisplayStore.h"

#include <algorithm>

namespace {

struct Field {
  const char* mName;
  std::optional<uint32_t> nsStoredDisplay::*mValue;
};
constexpr Field kFields[] = {{"PositionX", &nsStoredDisplay::mX},
                             {"PositionY", &nsStoredDisplay::mY},
                             {"PelsWidth", &nsStoredDisplay::mWidth},
                             {"PelsHeight", &nsStoredDisplay::mHeight},
                             {"DisplayFrequency", &nsStoredDisplay::mFrequency},
                             {"DisplayOrientation", &nsStoredDisplay::mOrientation},
                             {"BitsPerPel", &nsStoredDisplay::mBitsPerPixel},
                             {"Brightness", &nsStoredDisplay::mBrightness},
                             {"Contrast", &nsStoredDisplay::mContrast}};

std::string KeyOf(const std::string& aConnector, const std::string& aIdentity) {
  std::string connector = aConnector;
  std::ranges::replace(connector, '\\', '_');
  return "SYSTEM\\CurrentControlSet\\Control\\Displays\\" + connector + "\\" +
         (aIdentity.empty() ? "unknown" : aIdentity);
}

}  // namespace

nsStoredDisplay nsDisplayStore::Read(const std::string& aConnector,
                                     const std::string& aIdentity) const {
  nsStoredDisplay display;
  std::unique_ptr<nsPlatformRegistryKey> key;
  if (NS_FAILED(
          mRegistry->OpenKey(KeyOf(aConnector, aIdentity), nsPlatformRegistry::kQueryValue, &key)))
    return display;
  for (const Field& field : kFields) {
    uint32_t type = 0;
    std::vector<uint8_t> data;
    if (NS_SUCCEEDED(key->QueryValue(field.mName, 4, &type, &data)) &&
        type == nsPlatformRegistry::kDword && data.size() == 4)
      display.*field.mValue =
          data[0] | data[1] << 8 | data[2] << 16 | static_cast<uint32_t>(data[3]) << 24;
  }
  return display;
}

nsresult nsDisplayStore::Write(const std::string& aConnector, const std::string& aIdentity,
                               const nsStoredDisplay& aDisplay) const {
  std::unique_ptr<nsPlatformRegistryKey> key;
  nsresult rv =
      mRegistry->CreateKey(KeyOf(aConnector, aIdentity), nsPlatformRegistry::kSetValue, &key);
  for (const Field& field : kFields)
    if (const auto& value = aDisplay.*field.mValue; value && NS_SUCCEEDED(rv))
      rv = key->SetValue(field.mName, nsPlatformRegistry::kDword, NS_RegistryDword(*value));
  return rv;
}
