#include "nsNetworkManagerNetwork.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <net/if.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <set>

#include "nsKernelNetwork.h"
#include "nsLogger.h"
#include "nsNativeFile.h"
#include "nsPlatformNetworkText.h"
#include "nsUniqueFd.h"

namespace {

using namespace std::chrono_literals;
using Keys = std::set<std::string>;

constexpr auto kPatience = 20s;  // for addresses that are given
constexpr auto kLeasePatience = 60s;
constexpr auto kRestorePatience = 4s;
constexpr auto kStartPatience = 10s;
constexpr char kOurs[] = "vorel-";  // the names of our connections begin with it
// Above the connections that are made by the way.
constexpr int32_t kFirstPriority = 100, kLastPriority = 998;
// Flags and states of the service.
constexpr uint32_t kUnmanaged = 10;
constexpr uint32_t kActivated = 2, kDeactivated = 4;
constexpr uint32_t kExternal = 0x80;
constexpr uint32_t kAllowOverlapping = 0x8;
constexpr uint32_t kInMemory = 0x2, kBlockAutoconnect = 0x20;
constexpr uint32_t kToDisk = 0x1, kNoReapply = 0x40;

nsBusObject Manager() {
  return {nsNetworkManagerNetwork::kService, "/org/freedesktop/NetworkManager",
          "org.freedesktop.NetworkManager"};
}
nsBusObject Settings() {
  return {nsNetworkManagerNetwork::kService, "/org/freedesktop/NetworkManager/Settings",
          "org.freedesktop.NetworkManager.Settings"};
}
nsBusObject Device(const std::string& aPath) {
  return {nsNetworkManagerNetwork::kService, aPath, "org.freedesktop.NetworkManager.Device"};
}
nsBusObject Active(const std::string& aPath) {
  return {nsNetworkManagerNetwork::kService, aPath,
          "org.freedesktop.NetworkManager.Connection.Active"};
}
nsBusObject Connection(const std::string& aPath) {
  return {nsNetworkManagerNetwork::kService, aPath,
          "org.freedesktop.NetworkManager.Settings.Connection"};
}

bool IsIPv6(const nsSocketAddress& aAddress) { return aAddress.mFamily == nsSocketAddress::kIPv6; }
bool IsPath(const std::string& aPath) { return !aPath.empty() && aPath != "/"; }

// ---- Writing a connection: a{sa{sv}}. Errors add up, and show when the message is sent.

/// Opens a container for the life of the object.
class In {
 public:
  In(sd_bus_message* aMessage, char aType, const char* aContents) : mMessage(aMessage) {
    mIsOpen = sd_bus_message_open_container(mMessage, aType, aContents) >= 0;
  }
  ~In() {
    if (mIsOpen) (void)sd_bus_message_close_container(mMessage);
  }
  In(const In&) = delete;
  In& operator=(const In&) = delete;

 private:
  sd_bus_message* const mMessage;
  bool mIsOpen = false;
};

template <class... Arguments>
void Put(sd_bus_message* aMessage, const char* aKey, const char* aType, Arguments... aArguments) {
  (void)sd_bus_message_append(aMessage, "{sv}", aKey, aType, aArguments...);
}

void PutNets(sd_bus_message* aMessage, const nsInterfaceSettings& aSettings, bool aIPv6) {
  const In entry(aMessage, 'e', "sv");
  (void)sd_bus_message_append(aMessage, "s", "address-data");
  const In variant(aMessage, 'v', "aa{sv}");
  const In list(aMessage, 'a', "a{sv}");
  for (const nsIPNet& net : aSettings.mAddresses) {
    if (IsIPv6(net.mAddress) != aIPv6) continue;
    const In one(aMessage, 'a', "{sv}");
    Put(aMessage, "address", "s", NS_AddressText(net.mAddress).c_str());
    Put(aMessage, "prefix", "u", uint32_t{net.mPrefixLength});
  }
}

// Gateways behind the first one of a family are routes.
void PutGateways(sd_bus_message* aMessage, const nsInterfaceSettings& aSettings, bool aIPv6) {
  std::vector<std::pair<std::string, uint32_t>> gateways;
  for (size_t i = 0; i < aSettings.mGateways.size(); ++i)
    if (IsIPv6(aSettings.mGateways[i]) == aIPv6)
      gateways.emplace_back(NS_AddressText(aSettings.mGateways[i]),
                            aSettings.mMetric.value_or(100) + static_cast<uint32_t>(i));
  if (gateways.empty()) return;
  Put(aMessage, "gateway", "s", gateways[0].first.c_str());
  if (gateways.size() == 1) return;
  const In entry(aMessage, 'e', "sv");
  (void)sd_bus_message_append(aMessage, "s", "route-data");
  const In variant(aMessage, 'v', "aa{sv}");
  const In list(aMessage, 'a', "a{sv}");
  for (size_t i = 1; i < gateways.size(); ++i) {
    const In one(aMessage, 'a', "{sv}");
    Put(aMessage, "dest", "s", aIPv6 ? "::" : "0.0.0.0");
    Put(aMessage, "prefix", "u", uint32_t{0});
    Put(aMessage, "next-hop", "s", gateways[i].first.c_str());
    Put(aMessage, "metric", "u", gateways[i].second);
  }
}

void PutServers(sd_bus_message* aMessage, const nsInterfaceSettings& aSettings, bool aIPv6) {
  const In entry(aMessage, 'e', "sv");
  (void)sd_bus_message_append(aMessage, "s", "dns");
  const In variant(aMessage, 'v', aIPv6 ? "aay" : "au");
  const In list(aMessage, 'a', aIPv6 ? "ay" : "u");
  for (const nsSocketAddress& server : aSettings.mServers) {
    if (IsIPv6(server) != aIPv6) continue;
    uint32_t number;
    std::memcpy(&number, server.mBytes.data(), sizeof number);
    if (aIPv6)
      (void)sd_bus_message_append_array(aMessage, 'y', server.mBytes.data(), 16);
    else
      (void)sd_bus_message_append_basic(aMessage, 'u', &number);
  }
}

/// What a copy of a connection has of its own.
struct Changes {
  std::string mUuid, mId, mInterface;
  bool mIsPreferred = false;
  int32_t mPriority = 0;
  const nsInterfaceSettings* mSettings = nullptr;  // null: as the former

  bool Sets(bool aIPv6) const {
    if (!mSettings) return false;
    if (!aIPv6 && mSettings->mIsDhcp) return true;
    return std::ranges::any_of(mSettings->mAddresses,
                               [&](const nsIPNet& aNet) { return IsIPv6(aNet.mAddress) == aIPv6; });
  }
  bool SetsServers(bool aIPv6) const {
    return mSettings && std::ranges::any_of(mSettings->mServers, [&](const nsSocketAddress& aOne) {
             return IsIPv6(aOne) == aIPv6;
           });
  }
  /// The keys of a section that the former has no say in.
  Keys Dropped(const std::string& aSection) const {
    Keys keys;
    if (aSection == "connection")
      keys = {"id", "uuid", "interface-name", "autoconnect", "autoconnect-priority", "timestamp"};
    const bool isIPv6 = aSection == "ipv6";
    if (aSection != "ipv4" && !isIPv6) return keys;
    // The older forms say the same again.
    keys = {"addresses", "routes"};
    if (Sets(isIPv6)) keys.insert({"method", "address-data", "gateway", "never-default"});
    if (Sets(isIPv6) && mSettings->mGateways.size() > 1) keys.insert("route-data");
    if (Sets(isIPv6) && mSettings->mMetric) keys.insert("route-metric");
    if (SetsServers(isIPv6)) keys.insert({"dns", "dns-data", "ignore-auto-dns"});
    return keys;
  }
  void Write(sd_bus_message* aMessage, const std::string& aSection) const {
    if (aSection == "connection") {
      Put(aMessage, "id", "s", mId.c_str());
      Put(aMessage, "uuid", "s", mUuid.c_str());
      Put(aMessage, "interface-name", "s", mInterface.c_str());
      Put(aMessage, "autoconnect", "b", static_cast<int>(mIsPreferred));
      Put(aMessage, "autoconnect-priority", "i", mPriority);
      return;
    }
    const bool isIPv6 = aSection == "ipv6";
    if (aSection != "ipv4" && !isIPv6) return;
    if (Sets(isIPv6)) {
      Put(aMessage, "method", "s", mSettings->mIsDhcp && !isIPv6 ? "auto" : "manual");
      if (!mSettings->mIsDhcp || isIPv6) {
        PutNets(aMessage, *mSettings, isIPv6);
        PutGateways(aMessage, *mSettings, isIPv6);
      }
      if (mSettings->mMetric)
        Put(aMessage, "route-metric", "x", static_cast<int64_t>(*mSettings->mMetric));
    }
    if (SetsServers(isIPv6)) {
      PutServers(aMessage, *mSettings, isIPv6);
      Put(aMessage, "ignore-auto-dns", "b", 1);
    }
  }
};

// Calls aVisit(key) at each entry of a dictionary; what it does not read is skipped.
template <class Visit>
void ForEachEntry(sd_bus_message* aMessage, const char* aValue, Visit aVisit) {
  const std::string entry = std::string("s") + aValue;
  if (sd_bus_message_enter_container(aMessage, 'a', ("{" + entry + "}").c_str()) <= 0) return;
  while (sd_bus_message_enter_container(aMessage, 'e', entry.c_str()) > 0) {
    aVisit(NS_BusText(aMessage, 's'));
    while (sd_bus_message_at_end(aMessage, false) == 0)
      if (sd_bus_message_skip(aMessage, nullptr) < 0) break;
    if (sd_bus_message_exit_container(aMessage) < 0) return;
  }
  (void)sd_bus_message_exit_container(aMessage);
}

// The secrets of a section stand in an answer of their own.
void CopySecrets(sd_bus_message* aSecrets, sd_bus_message* aTo, const std::string& aSection,
                 const Keys& aWritten) {
  (void)sd_bus_message_rewind(aSecrets, true);
  ForEachEntry(aSecrets, "a{sv}", [&](const std::string& aName) {
    if (aName != aSection) return;
    ForEachEntry(aSecrets, "v", [&](const std::string& aKey) {
      if (aWritten.contains(aKey)) return;
      const In entry(aTo, 'e', "sv");
      (void)sd_bus_message_append(aTo, "s", aKey.c_str());
      (void)sd_bus_message_copy(aTo, aSecrets, false);
    });
  });
}

// aFormer is an answer of GetSettings, or null.
void WriteConnection(sd_bus_message* aTo, sd_bus_message* aFormer,
                     const std::map<std::string, nsBusMessage>& aSecrets, const Changes& aChanges) {
  const In all(aTo, 'a', "{sa{sv}}");
  Keys written;
  const auto write = [&](const std::string& aSection, const std::function<void()>& aCopy) {
    written.insert(aSection);
    const In entry(aTo, 'e', "sa{sv}");
    (void)sd_bus_message_append(aTo, "s", aSection.c_str());
    const In section(aTo, 'a', "{sv}");
    aCopy();
    aChanges.Write(aTo, aSection);
  };
  if (aFormer)
    ForEachEntry(aFormer, "a{sv}", [&](const std::string& aSection) {
      write(aSection, [&] {
        const Keys dropped = aChanges.Dropped(aSection);
        Keys keys;
        ForEachEntry(aFormer, "v", [&](const std::string& aKey) {
          keys.insert(aKey);
          if (dropped.contains(aKey)) return;
          const In entry(aTo, 'e', "sv");
          (void)sd_bus_message_append(aTo, "s", aKey.c_str());
          (void)sd_bus_message_copy(aTo, aFormer, false);
        });
        if (const auto secrets = aSecrets.find(aSection); secrets != aSecrets.end())
          CopySecrets(secrets->second.get(), aTo, aSection, keys);
      });
    });
  for (const char* section : {"connection", "802-3-ethernet", "ipv4", "ipv6"}) {
    const std::string name = section;
    if (written.contains(name) || (aFormer && name == "802-3-ethernet")) continue;
    write(name, [&] {
      if (name == "connection") Put(aTo, "type", "s", "802-3-ethernet");
      const bool isIPv6 = name == "ipv6";
      if ((name == "ipv4" || isIPv6) && !aChanges.Sets(isIPv6)) Put(aTo, "method", "s", "auto");
    });
  }
}

// Those of sections that have some. A service that has none to give has nothing to be copied.
std::map<std::string, nsBusMessage> SecretsOf(nsSystemBus& aBus, const std::string& aPath,
                                              sd_bus_message* aSettings, Keys* aIds,
                                              int32_t* aPriority) {
  std::map<std::string, nsBusMessage> secrets;
  Keys sections;
  ForEachEntry(aSettings, "a{sv}", [&](const std::string& aSection) {
    sections.insert(aSection);
    if (aSection != "connection") return;
    ForEachEntry(aSettings, "v", [&](const std::string& aKey) {
      if (aKey == "id" && sd_bus_message_enter_container(aSettings, 'v', "s") > 0) {
        aIds->insert(NS_BusText(aSettings, 's'));
        (void)sd_bus_message_exit_container(aSettings);
      }
      if (aKey == "autoconnect-priority" &&
          sd_bus_message_enter_container(aSettings, 'v', "i") > 0) {
        (void)sd_bus_message_read_basic(aSettings, 'i', aPriority);
        (void)sd_bus_message_exit_container(aSettings);
      }
    });
  });
  (void)sd_bus_message_rewind(aSettings, true);
  for (const char* section : {"802-11-wireless-security", "802-1x", "pppoe", "gsm", "cdma"}) {
    nsBusMessage answer;
    if (sections.contains(section) &&
        NS_SUCCEEDED(aBus.Call(Connection(aPath), "GetSecrets", &answer, "s", section)))
      secrets[section] = std::move(answer);
  }
  return secrets;
}

// A file and its name, as far as one may: without the right to open it, all of its file system.
void SyncFile(const std::string& aPath) {
  const nsUniqueFd file(open(aPath.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY));
  const std::string path = file ? aPath.substr(0, aPath.rfind('/')) : "/etc";
  const nsUniqueFd folder(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  const bool isSafe = file ? fsync(file.get()) == 0 && folder && fsync(folder.get()) == 0
                           : folder && syncfs(folder.get()) == 0;
  if (!isSafe)
    SYSTEM_LOG_WARNING(NS_GetLogger("system.adapter.network"),
                       aPath + " may not outlive a loss of power yet");
}

}  // namespace

// ---- Asking

bool nsNetworkManagerNetwork::Parse(const std::string& aText, Record* aRecord) {
  std::vector<std::string> texts;
  if (!nsRecordTexts::Parse(aText, 5, &texts)) return false;
  *aRecord = {texts[0], texts[1], texts[2], texts[3] == "external", texts[4]};
  return true;
}

nsresult nsNetworkManagerNetwork::FindDevice(const std::string& aName, std::string* aDevice,
                                             bool* aIsUnknown) {
  if (if_nametoindex(aName.c_str()) == 0) return NS_ERROR_FILE_NOT_FOUND;
  nsBusMessage answer;
  nsresult rv = NS_ERROR_FILE_NOT_FOUND;
  // The kernel has it: a service that has just started does not know it yet.
  (void)NS_WaitFor(kStartPatience, mCancelled, [&] {
    rv = mBus.Call(Manager(), "GetDeviceByIpIface", &answer, "s", aName.c_str());
    return rv != NS_ERROR_FILE_NOT_FOUND;
  });
  if (aIsUnknown) *aIsUnknown = rv == NS_ERROR_FILE_NOT_FOUND;
  if (rv == NS_ERROR_FILE_NOT_FOUND) rv = NS_ERROR_FAILURE;
  if (NS_FAILED(rv)) return Fail(rv);
  *aDevice = NS_BusText(answer.get(), 'o');
  return NS_OK;
}

nsresult nsNetworkManagerNetwork::FindConnection(const std::string& aUuid, std::string* aPath) {
  aPath->clear();
  if (aUuid.empty()) return NS_OK;
  nsBusMessage answer;
  const nsresult rv = mBus.Call(Settings(), "GetConnectionByUuid", &answer, "s", aUuid.c_str());
  if (rv == NS_ERROR_FILE_NOT_FOUND) return NS_OK;
  if (NS_FAILED(rv)) return Fail(rv);
  *aPath = NS_BusText(answer.get(), 'o');
  return NS_OK;
}

nsresult nsNetworkManagerNetwork::Manages(const std::string& aName, bool* aManages) {
  std::string device;
  uint32_t state = 0;
  bool isUnknown = false;
  nsresult rv = FindDevice(aName, &device, &isUnknown);
  if (NS_SUCCEEDED(rv)) rv = mBus.GetNumber(Device(device), "State", &state);
  // One that goes meanwhile manages nothing.
  if (NS_FAILED(rv) && !isUnknown && rv != NS_ERROR_OFFLINE) return Fail(rv);
  *aManages = NS_SUCCEEDED(rv) && state > kUnmanaged;
  return NS_OK;
}

nsresult nsNetworkManagerNetwork::FindActive(const std::string& aDevice, std::string* aUuid,
                                             uint32_t* aFlags) {
  std::string active, uuid;
  uint32_t flags = 0;
  nsresult rv = mBus.GetText(Device(aDevice), "ActiveConnection", &active);
  if (NS_SUCCEEDED(rv) && IsPath(active)) {
    rv = mBus.GetText(Active(active), "Uuid", &uuid);
    if (NS_SUCCEEDED(rv)) rv = mBus.GetNumber(Active(active), "StateFlags", &flags);
    // It ends just now.
    if (rv == NS_ERROR_FILE_NOT_FOUND) rv = NS_OK;
  }
  if (NS_FAILED(rv)) return Fail(rv);
  *aUuid = uuid;
  *aFlags = flags;
  return NS_OK;
}

bool nsNetworkManagerNetwork::IsActive(const std::string& aDevice, const std::string& aUuid) {
  std::string uuid;
  uint32_t flags = 0;
  return NS_SUCCEEDED(FindActive(aDevice, &uuid, &flags)) && uuid == aUuid;
}

nsresult nsNetworkManagerNetwork::Activate(const std::string& aDevice,
                                           const std::string& aConnection,
                                           std::chrono::milliseconds aPatience) {
  nsBusMessage answer;
  const nsresult rv = mBus.Call(Manager(), "ActivateConnection", &answer, "ooo",
                                aConnection.c_str(), aDevice.c_str(), "/");
  if (NS_FAILED(rv)) return Fail(rv);
  const std::string active = NS_BusText(answer.get(), 'o');
  uint32_t state = 0;
  const bool isDone = NS_WaitFor(aPatience, mCancelled, [&] {
    // An activation that has failed goes.
    if (NS_FAILED(mBus.GetNumber(Active(active), "State", &state))) state = kDeactivated;
    return state == kActivated || state == kDeactivated;
  });
  if (isDone && state == kActivated) return NS_OK;
  if (mCancelled) return NS_ERROR_ABORT;
  return Failed(isDone ? NS_ERROR_FAILURE : NS_ERROR_NET_TIMEOUT,
                "NetworkManager can't activate the connection");
}

nsresult nsNetworkManagerNetwork::Delete(const std::string& aUuid) {
  std::string path;
  nsresult rv = FindConnection(aUuid, &path);
  if (NS_FAILED(rv) || path.empty()) return rv;
  rv = mBus.Call(Connection(path), "Delete", nullptr);
  return NS_SUCCEEDED(rv) || rv == NS_ERROR_FILE_NOT_FOUND ? NS_OK : Fail(rv);
}

void nsNetworkManagerNetwork::DropCheckpoint(const Record& aRecord) {
  // One whose time is over is gone.
  if (!aRecord.mCheckpoint.empty())
    (void)mBus.Call(Manager(), "CheckpointDestroy", nullptr, "o", aRecord.mCheckpoint.c_str());
}

// ---- Changing

nsresult nsNetworkManagerNetwork::Read(const std::string& aName, uint32_t aGuard,
                                       std::string* aRecord) {
  Record record;
  std::string device;
  nsresult rv = FindDevice(aName, &device);
  if (NS_SUCCEEDED(rv)) rv = mKernel.Read(aName, aGuard, &record.mKernel);
  if (NS_SUCCEEDED(rv)) rv = NS_ReadFile("/proc/sys/kernel/random/uuid", &record.mNew);
  if (NS_FAILED(rv)) return rv;
  if (record.mNew.ends_with('\n')) record.mNew.pop_back();
  uint32_t flags = 0;
  rv = FindActive(device, &record.mFormer, &flags);
  if (NS_FAILED(rv)) return rv;
  record.mIsExternal = flags & kExternal;
  if (aGuard > 0) {
    nsBusMessage answer;
    rv = mBus.Call(Manager(), "CheckpointCreate", &answer, "aouu", 1, device.c_str(), aGuard,
                   kAllowOverlapping);
    if (NS_FAILED(rv)) return Fail(rv);
    record.mCheckpoint = NS_BusText(answer.get(), 'o');
  }
  *aRecord = nsRecordTexts::Format({record.mFormer, record.mNew, record.mCheckpoint,
                                    record.mIsExternal ? "external" : "", record.mKernel});
  return NS_OK;
}

nsresult nsNetworkManagerNetwork::Write(const std::string& aName, const std::string& aRecord,
                                        const nsInterfaceSettings& aSettings) {
  Record record;
  if (!Parse(aRecord, &record)) return NS_ERROR_FILE_CORRUPTED;
  std::string device, path;
  nsresult rv = FindDevice(aName, &device);
  if (NS_FAILED(rv)) return rv;
  nsBusMessage former;
  std::map<std::string, nsBusMessage> secrets;
  Keys ids;
  int32_t priority = 0;
  rv = FindConnection(record.mFormer, &path);
  if (NS_FAILED(rv)) return rv;
  if (!path.empty()) {
    rv = mBus.Call(Connection(path), "GetSettings", &former);
    if (NS_FAILED(rv)) return Fail(rv);
    secrets = SecretsOf(mBus, path, former.get(), &ids, &priority);
  }
  Changes changes;
  changes.mUuid = record.mNew;
  changes.mId = kOurs + aName;
  changes.mInterface = aName;
  changes.mPriority = std::clamp(priority + 1, kFirstPriority, kLastPriority);
  changes.mSettings = &aSettings;
  const nsBusMessage call = mBus.NewCall(Settings(), "AddConnection2");
  if (!call) return NS_ERROR_OUT_OF_MEMORY;
  WriteConnection(call.get(), former.get(), secrets, changes);
  if (sd_bus_message_append(call.get(), "ua{sv}", kInMemory | kBlockAutoconnect, 0) < 0)
    return NS_ERROR_OUT_OF_MEMORY;
  nsBusMessage answer;
  rv = mBus.Send(call.get(), &answer);
  if (NS_FAILED(rv)) return Fail(rv);
  return Activate(device, NS_BusText(answer.get(), 'o'),
                  aSettings.mIsDhcp ? kLeasePatience : kPatience);
}

nsresult nsNetworkManagerNetwork::Keep(const std::string& aName, const std::string& aRecord) {
  Record record;
  if (!Parse(aRecord, &record)) return NS_ERROR_FILE_CORRUPTED;
  std::string path;
  nsresult rv = FindConnection(record.mNew, &path);
  if (NS_FAILED(rv)) return rv;
  if (path.empty())
    return Failed(NS_ERROR_UNEXPECTED, "NetworkManager has the connection on trial no more");
  nsBusMessage settings;
  rv = mBus.Call(Connection(path), "GetSettings", &settings);
  if (NS_FAILED(rv)) return Fail(rv);
  Keys ids;
  int32_t priority = 0;
  const auto secrets = SecretsOf(mBus, path, settings.get(), &ids, &priority);
  Changes changes;
  changes.mUuid = record.mNew;
  changes.mId = kOurs + aName;
  changes.mInterface = aName;
  changes.mIsPreferred = true;
  changes.mPriority = priority;
  const nsBusMessage call = mBus.NewCall(Connection(path), "Update2");
  if (!call) return NS_ERROR_OUT_OF_MEMORY;
  WriteConnection(call.get(), settings.get(), secrets, changes);
  if (sd_bus_message_append(call.get(), "ua{sv}", kToDisk | kNoReapply, 0) < 0)
    return NS_ERROR_OUT_OF_MEMORY;
  rv = mBus.Send(call.get());
  if (NS_FAILED(rv)) return Fail(rv);
  // What is confirmed has to outlive the power, and NetworkManager does not wait for the disk with
  // a new file. One in memory, or without a file, tells none.
  std::string file;
  if (NS_SUCCEEDED(mBus.GetText(Connection(path), "Filename", &file)) && !file.empty())
    SyncFile(file);
  return NS_OK;
}

nsresult nsNetworkManagerNetwork::Forget(const std::string& aName, const std::string& aRecord) {
  Record record;
  if (!Parse(aRecord, &record)) return NS_ERROR_FILE_CORRUPTED;
  DropCheckpoint(record);
  std::string device, path, former;
  nsresult rv = FindDevice(aName, &device);
  if (NS_FAILED(rv)) return rv;
  rv = FindConnection(record.mNew, &path);
  if (NS_FAILED(rv) || path.empty()) return rv;  // the change was never made
  // Its checkpoint may have been first.
  if (!IsActive(device, record.mNew)) rv = Activate(device, path, kPatience);
  if (NS_SUCCEEDED(rv)) rv = FindConnection(record.mFormer, &former);
  if (NS_FAILED(rv) || former.empty()) return rv;
  nsBusMessage settings;
  rv = mBus.Call(Connection(former), "GetSettings", &settings);
  if (NS_FAILED(rv)) return Fail(rv);
  Keys ids;
  int32_t priority = 0;
  (void)SecretsOf(mBus, former, settings.get(), &ids, &priority);
  return ids.contains(kOurs + aName) ? Delete(record.mFormer) : NS_OK;
}

nsresult nsNetworkManagerNetwork::Restore(const std::string& aName, const std::string& aRecord) {
  Record record;
  if (!Parse(aRecord, &record)) return NS_ERROR_FILE_CORRUPTED;
  const nsresult rv = RestoreByService(aName, record);
  if (NS_SUCCEEDED(rv) || mBus.HasService(kService)) return rv;
  // The player is to be reached meanwhile. What the service still has it may activate when it is
  // back: it is not done.
  const nsresult alone = mKernel.Restore(aName, record.mKernel);
  return NS_SUCCEEDED(alone) || alone == NS_ERROR_NOT_AVAILABLE ? NS_ERROR_OFFLINE : alone;
}

nsresult nsNetworkManagerNetwork::RestoreByService(const std::string& aName,
                                                   const Record& aRecord) {
  std::string device, path;
  nsresult rv = FindDevice(aName, &device);
  if (rv == NS_ERROR_FILE_NOT_FOUND) {
    // It may come back, and is not to find the connection then.
    const nsresult deleted = Delete(aRecord.mNew);
    return NS_SUCCEEDED(deleted) ? rv : deleted;
  }
  if (NS_FAILED(rv)) return rv;
  rv = FindConnection(aRecord.mFormer, &path);
  if (NS_FAILED(rv)) return rv;
  const bool isThere = !path.empty();
  if (!aRecord.mFormer.empty() && !aRecord.mIsExternal && !IsActive(device, aRecord.mFormer)) {
    // It may wait for a lease: what matters is that it is on its way.
    rv = isThere ? Activate(device, path, kRestorePatience) : NS_ERROR_FILE_NOT_FOUND;
    // A connection that others have deleted meanwhile, or changed, the checkpoint still has.
    if (NS_FAILED(rv) && rv != NS_ERROR_NET_TIMEOUT && !aRecord.mCheckpoint.empty())
      rv = mBus.Call(Manager(), "CheckpointRollback", nullptr, "o", aRecord.mCheckpoint.c_str());
    if (NS_FAILED(rv) && rv != NS_ERROR_NET_TIMEOUT && isThere) return rv;
  }
  DropCheckpoint(aRecord);
  const auto former = nsKernelNetwork::AddressesOf(aRecord.mKernel);
  if (isThere && !aRecord.mIsExternal)
    (void)NS_WaitFor(kRestorePatience, mCancelled, [&] {
      uint32_t state = 0;
      constexpr uint32_t kConfiguring = 50;
      return NS_SUCCEEDED(mBus.GetNumber(Device(device), "State", &state)) &&
             state >= kConfiguring && nsKernelNetwork::Has(aName, former);
    });
  rv = Delete(aRecord.mNew);
  if (NS_FAILED(rv)) return rv;
  if (isThere && !aRecord.mIsExternal) return NS_OK;
  // Nobody of NetworkManager's had it: it lets it go, and the kernel gets back what it had.
  (void)NS_WaitFor(kRestorePatience, mCancelled, [&] { return !IsActive(device, aRecord.mNew); });
  rv = mKernel.Restore(aName, aRecord.mKernel);
  return rv == NS_ERROR_NOT_AVAILABLE ? NS_OK : rv;
}
