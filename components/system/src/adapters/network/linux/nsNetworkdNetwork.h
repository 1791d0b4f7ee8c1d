// An interface's settings by systemd-networkd: a file of our own, and a reload over the bus.
#pragma once

#include "nsNetworkWay.h"
#include "nsSystemBus.h"

class nsKernelNetwork;

/// What is on trial is a file below /run, which a restart of the machine forgets; what is kept is
/// one below /etc. Both have names that come before those of others, the one on trial first, and
/// take over what the file that was in force says of other things.
class nsNetworkdNetwork final : public nsNetworkWay {
 public:
  static constexpr char kService[] = "org.freedesktop.network1";

  /// aRoot is where its files are: "" or another tree. All must outlive this.
  nsNetworkdNetwork(nsSystemBus& aBus, nsKernelNetwork& aKernel, std::string aRoot,
                    const std::atomic<bool>& aCancelled)
      : mBus(aBus), mKernel(aKernel), mRoot(std::move(aRoot)), mCancelled(aCancelled) {}

  nsresult Read(const std::string& aName, uint32_t aGuard, std::string* aRecord) override;
  nsresult Write(const std::string& aName, const std::string& aRecord,
                 const nsInterfaceSettings& aSettings) override;
  nsresult Keep(const std::string& aName, const std::string& aRecord) override;
  nsresult Forget(const std::string&, const std::string&) override { return NS_OK; }
  nsresult Restore(const std::string& aName, const std::string& aRecord) override;

  /// The text of a file that puts settings into force on an interface, beside what aFormer says.
  static std::string FileText(const std::string& aName, const nsInterfaceSettings& aSettings,
                              const std::string& aFormer);

 private:
  std::string TrialFile(const std::string& aName) const;
  std::string KeptFile(const std::string& aName) const;
  std::string StateOf(unsigned aIndex, const char* aKey) const;
  nsresult Reload();

  nsSystemBus& mBus;
  nsKernelNetwork& mKernel;
  const std::string mRoot;
  const std::atomic<bool>& mCancelled;
};
