// An interface's settings by NetworkManager, over its bus.
#pragma once

#include <map>

#include "nsNetworkWay.h"
#include "nsSystemBus.h"

class nsKernelNetwork;

/// A change makes a connection of our own, a copy of the one in force but for what is set, and
/// activates it: in memory as long as it is on trial, on disk and preferred once it is kept, when
/// the one of our own before is deleted. Those of others are never changed. A checkpoint guards the
/// change even when nobody of ours is left.
class nsNetworkManagerNetwork final : public nsNetworkWay {
 public:
  static constexpr char kService[] = "org.freedesktop.NetworkManager";

  /// All must outlive this.
  nsNetworkManagerNetwork(nsSystemBus& aBus, nsKernelNetwork& aKernel,
                          const std::atomic<bool>& aCancelled)
      : mBus(aBus), mKernel(aKernel), mCancelled(aCancelled) {}

  /// Whether it manages the interface, rather than to leave it to others.
  nsresult Manages(const std::string& aName, bool* aManages);

  nsresult Read(const std::string& aName, uint32_t aGuard, std::string* aRecord) override;
  nsresult Write(const std::string& aName, const std::string& aRecord,
                 const nsInterfaceSettings& aSettings) override;
  nsresult Keep(const std::string& aName, const std::string& aRecord) override;
  nsresult Forget(const std::string& aName, const std::string& aRecord) override;
  nsresult Restore(const std::string& aName, const std::string& aRecord) override;

 private:
  struct Record {
    std::string mFormer;       ///< UUID of the connection that was active; may be empty.
    std::string mNew;          ///< That of ours.
    std::string mCheckpoint;   ///< Path; empty without one.
    bool mIsExternal = false;  ///< Whether NetworkManager only looked on.
    std::string mKernel;
  };
  static bool Parse(const std::string& aText, Record* aRecord);

  nsresult Fail(nsresult aResult) { return Failed(aResult, mBus.Reason()); }
  /// *aIsUnknown when it fails because the service does not know it.
  nsresult FindDevice(const std::string& aName, std::string* aDevice, bool* aIsUnknown = nullptr);
  /// Its path; empty when there is none.
  nsresult FindConnection(const std::string& aUuid, std::string* aPath);
  /// The UUID of the active connection; empty when none is.
  nsresult FindActive(const std::string& aDevice, std::string* aUuid, uint32_t* aFlags);
  /// Whether it is that one, as far as the service tells.
  bool IsActive(const std::string& aDevice, const std::string& aUuid);
  nsresult Activate(const std::string& aDevice, const std::string& aConnection,
                    std::chrono::milliseconds aPatience);
  nsresult Delete(const std::string& aUuid);
  nsresult RestoreByService(const std::string& aName, const Record& aRecord);
  void DropCheckpoint(const Record& aRecord);

  nsSystemBus& mBus;
  nsKernelNetwork& mKernel;
  const std::atomic<bool>& mCancelled;
};
