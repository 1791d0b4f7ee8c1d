// The configuration store as one file, shared by all processes that use it.
#pragma once

#include <functional>
#include <memory>

#include "nsLinuxNetwork.h"
#include "nsPlatformRegistryData.h"

/// Each change replaces the file as a whole, durably, under a lock on the file beside it
/// (PATH.lock). Reading needs no lock and always looks at the file as it is. A file that is not
/// whole is set aside as PATH.damaged, or with a number behind that, with a warning; the store then
/// starts anew.
///
/// The key of an interface, and that of all interfaces, are there from the first time they are
/// opened.
class nsLinuxRegistry final : public nsPlatformRegistryStore {
 public:
  /// aPath says where the file lies; asked at every use, since the profile is not known from the
  /// start.
  nsLinuxRegistry(std::function<std::string()> aPath, std::shared_ptr<nsLinuxNetwork> aNetwork)
      : mPath(std::move(aPath)), mNetwork(std::move(aNetwork)) {}

 private:
  nsresult Read(const char* aMethod, const Visitor& aVisitor) override;
  nsresult Change(const char* aMethod, const Visitor& aVisitor) override;
  std::optional<std::vector<nsRegistryValue>> Seed(const std::string& aPath) override;

  const std::function<std::string()> mPath;
  const std::shared_ptr<nsLinuxNetwork> mNetwork;
};

/// "registry" in the profile's directory; before there is a profile, and without one,
/// "vorel/registry" in the user's directory for state.
std::string NS_RegistryPath();
