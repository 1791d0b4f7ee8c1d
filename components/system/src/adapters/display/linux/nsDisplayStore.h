// Settings of displays that the next session starts with.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "nsPlatformDisplays.h"
#include "nsPlatformRegistry.h"

/// What is stored of one display; what is not there has not been stored.
struct nsStoredDisplay {
  std::optional<uint32_t> mX, mY;           // of signed numbers
  std::optional<uint32_t> mWidth, mHeight;  // of the mode, not turned
  std::optional<uint32_t> mFrequency;
  std::optional<uint32_t> mOrientation;  // in quarters
  std::optional<uint32_t> mBitsPerPixel;
  std::optional<uint32_t> mBrightness, mContrast;
};

/// A key of the configuration store for each connector and the display on it, so that another
/// display in the same place has settings of its own, and gets none that it can't show.
class nsDisplayStore {
 public:
  explicit nsDisplayStore(std::shared_ptr<nsPlatformRegistry> aRegistry)
      : mRegistry(std::move(aRegistry)) {}

  /// Empty for a display that nothing is stored of, and when the store does not answer.
  nsStoredDisplay Read(const std::string& aConnector, const std::string& aIdentity) const;
  /// Writes what is given, and leaves the rest. What was written before a failure stays.
  nsresult Write(const std::string& aConnector, const std::string& aIdentity,
                 const nsStoredDisplay& aDisplay) const;

 private:
  const std::shared_ptr<nsPlatformRegistry> mRegistry;
};
