// The wire of a display, and where it is.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

class nsFileTree;

/// One thread at a time. A transfer takes some milliseconds, and up to a second or so where the
/// wire hangs.
class nsDdcWire {
 public:
  virtual ~nsDdcWire() = default;
  /// False when nobody at that address takes it, or the wire fails.
  virtual bool Write(uint8_t aAddress, std::span<const uint8_t> aBytes) = 0;
  /// Fills all of aBytes; false likewise.
  virtual bool Read(uint8_t aAddress, std::span<uint8_t> aBytes) = 0;
};

/// A bus of the kernel, "/dev/i2c-3". Null when it can't be opened or used; the reason is written
/// then.
std::unique_ptr<nsDdcWire> NS_OpenDdcWire(const std::string& aDevice, std::string* aReason);

/// Which display on which output, as the display server tells it.
struct nsDdcPlace {
  std::string mOutput;        ///< "HDMI-1"
  uint32_t mConnectorId = 0;  ///< The kernel's; 0 when the server does not tell.
  std::string mDescription;   ///< The first block of its EDID, as bytes; empty when not told.

  bool operator==(const nsDdcPlace&) const = default;
};

struct nsDdcBuses {
  /// The device of the connector's own bus; empty when the kernel does not tell.
  std::string mOwn;
  /// Else all buses of graphics cards: that of the display is the one that has its description.
  std::vector<std::string> mPossible;
};

nsDdcBuses NS_FindDdcBuses(const nsFileTree& aFiles, const nsDdcPlace& aPlace);

/// Whether the display on a wire bears that description.
bool NS_IsDescribedAs(nsDdcWire& aWire, const std::string& aDescription);
