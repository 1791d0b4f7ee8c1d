// The configuration store as one file, shared by all processes that use it.
#pragma once

#include <functional>
#include <memory>

#include "nsPlatformRegistryData.h"

/// Each change replaces the file as a whole, durably, under a lock on the file beside it
/// (PATH.lock). Reading needs no lock and always looks at the file as it is. A file that is not
/// whole is set aside as PATH.damaged, or with a number behind that, with a warning; the store then
/// starts anew.
///
/// What a key holds that is opened for the first time comes from a seed.
class nsLinuxRegistry final : public nsPlatformRegistryStore {
 public:
  /// aPath says where the file lies; asked at every use, since the profile is not known from the
  /// start.
  explicit nsLinuxRegistry(std::function<std::string()> aPath, nsRegistrySeed aSeed = {})
      : nsPlatformRegistryStore(std::move(aSeed)), mPath(std::move(aPath)) {}

 private:
  nsresult Read(const char* aMethod, const Visitor& aVisitor) override;
  nsresult Change(const char* aMethod, const Visitor& aVisitor) override;

  const std::function<std::string()> mPath;
};

/// "registry" in the profile's directory; before there is a profile, and without one,
/// "vorel/registry" in the user's directory for state.
std::string NS_RegistryPath();
