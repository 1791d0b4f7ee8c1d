// A network of the test's own, in which links come and go and nobody else sees them.
#pragma once

#include <chrono>
#include <fstream>
#include <string>
#include <thread>

#include "nsMountNamespace.h"

/// The calling thread, and threads that it makes, are in a namespace without any link but the
/// loopback, and see the sysfs of it; at the end the thread is back where it was.
class nsNetworkNamespace {
 public:
  nsNetworkNamespace();
  ~nsNetworkNamespace();
  nsNetworkNamespace(const nsNetworkNamespace&) = delete;
  nsNetworkNamespace& operator=(const nsNetworkNamespace&) = delete;

  /// Why the namespace can't be had here; empty when it can.
  const std::string& Lacks() const { return mLacks; }

  void Ip(const std::string& aArguments) const;
  /// Sets a link up or down, and waits until it is: the kernel tells a link's state after it has
  /// answered.
  void SetUp(const std::string& aLink, bool aUp = true) const;
  /// A pair of virtual wires, NAME and NAMEx, both up.
  void AddWire(const std::string& aName, const std::string& aMac = "02:00:00:00:00:01") const;
  /// What the program prints.
  std::string AskIp(const std::string& aArguments) const;

 private:
  static bool TryIp(const std::string& aArguments);

  const nsMountNamespace mMounts;
  const int mBefore;
  bool mEntered = false;
  std::string mLacks;
};
