// What the application says about itself, and what the host says about this machine.
#pragma once

#include <string>

/// Of "application.ini" in the application's directory: section "App".
struct nsAppInfo {
  std::string mVendor, mName, mVersion, mBuildID, mID;

  /// What the file says. Fields that it does not have are empty, and so are all when there is no
  /// file. Any bytes will do.
  static nsAppInfo Read(const std::string& aDirectory);
};

inline constexpr char kPlatformVersion[] = "14.0";
/// "Linux"
extern const char kOS[];
/// "x86_64-gcc3"
extern const char kABI[];
/// The kernel's release, "6.1.0".
std::string NS_OSVersion();
