// A directory as an adapter.
#pragma once

#include "nsISystemAdapter.h"

class nsIFile;

/// A directory that the application works from, or the root of a removable volume. Those of volumes
/// have the device "mass-storage" and a connector "usb"; those of directories have neither.
// script: global SystemAdapterStorage, row 9
class nsISystemAdapterStorage : public nsISystemAdapter {
 public:
  using Self = nsISystemAdapterStorage;
  using Base = nsISystemAdapter;
  static constexpr std::string_view kName = "nsISystemAdapterStorage";
  static constexpr nsIID kIID = "96152db9-078a-4208-a1e4-f2a4a3a2e53a"_iid;

  /// A new file object at each call, which the caller may change. Null, and success, when the
  /// adapter has got no directory: a volume is published before its directory is known. That the
  /// directory exists, or still exists, is not asked.
  virtual nsresult GetDirectory(nsIFile** aDirectory) = 0;

 protected:
  ~nsISystemAdapterStorage() = default;
};
