#include "nsLinuxNetworkSettings.h"

#include <fcntl.h>
#include <net/if.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <sstream>

#include "nsErrno.h"
#include "nsKernelNetwork.h"
#include "nsNativeFile.h"
#include "nsNetworkManagerNetwork.h"
#include "nsNetworkdNetwork.h"
#include "nsPlatformNetworkText.h"
#include "nsPollSource.h"
#include "nsSystemBus.h"

namespace {

constexpr char kNoResolver = '0', kResolverFile = 'F', kResolverLink = 'L';
constexpr size_t kWordLimit = 4096;
constexpr int kAskerPatience = 200;   // ms
constexpr int kAnswerPatience = 120;  // s

struct Service {
  const char* mName;
  const char* mBusName;
};
constexpr Service kServices[] = {{"NetworkManager", nsNetworkManagerNetwork::kService},
                                 {"systemd-networkd", nsNetworkdNetwork::kService}};

bool ReadServerLine(const std::string& aLine, nsSocketAddress* aServer) {
  std::istringstream words(aLine);
  std::string keyword, address;
  return words >> keyword >> address && keyword == "nameserver" && NS_ReadAddress(address, aServer);
}

nsresult SyncFolderOf(const std::string& aPath) {
  const nsUniqueFd folder(
      open(aPath.substr(0, aPath.rfind('/')).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return folder && fsync(folder.get()) == 0 ? NS_OK : NS_LastResult();
}

std::string BootId() {
  std::string id;
  (void)NS_ReadFile("/proc/sys/kernel/random/boot_id", &id);
  return id;
}

bool AddressOf(const std::string& aPath, sockaddr_un* aAddress) {
  *aAddress = {};
  aAddress->sun_family = AF_UNIX;
  if (aPath.size() >= sizeof aAddress->sun_path) return false;
  std::memcpy(aAddress->sun_path, aPath.c_str(), aPath.size() + 1);
  return true;
}

/// Words of other processes: one a connection, which then waits for the answer.
class RequestSource final : public nsPollSource {
 public:
  RequestSource(nsUniqueFd aSocket, std::string aPath,
                std::function<void(nsNetworkRequest)> aHandler)
      : mSocket(std::move(aSocket)), mPath(std::move(aPath)), mHandler(std::move(aHandler)) {}
  ~RequestSource() override { (void)unlink(mPath.c_str()); }

  void Wait() override {
    std::vector<pollfd> sockets{{mSocket.get(), POLLIN, 0}};
    (void)Poll(sockets, -1);
  }
  bool Consume() override {
    const auto asker =
        std::make_shared<nsUniqueFd>(accept4(mSocket.get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (!*asker) return false;
    pollfd ready{asker->get(), POLLIN, 0};
    char word[64];
    const ssize_t length = poll(&ready, 1, kAskerPatience) > 0
                               ? recv(asker->get(), word, sizeof word, MSG_DONTWAIT)
                               : -1;
    if (length <= 0) return true;
    mHandler({std::string(word, static_cast<size_t>(length)), [asker](const std::string& aText) {
                // One that has gone does not need it.
                (void)send(asker->get(), aText.data(), std::min(aText.size(), kWordLimit),
                           MSG_DONTWAIT | MSG_NOSIGNAL);
              }});
    return true;
  }

 private:
  const nsUniqueFd mSocket;
  const std::string mPath;
  const std::function<void(nsNetworkRequest)> mHandler;
};

}  // namespace

// ---- The ways

nsresult nsLinuxNetworkSettings::FindKind(const std::string& aName, Kind* aKind) {
  nsSystemBus bus;
  Kind kind = Kind::eKernel;
  if (NS_SUCCEEDED(bus.Open(mOptions.mBus))) {
    nsKernelNetwork kernel(BootId());
    nsNetworkManagerNetwork manager(bus, kernel, mCancelled);
    bool manages = false;
    const nsresult rv = bus.HasService(nsNetworkManagerNetwork::kService)
                            ? manager.Manages(aName, &manages)
                            : NS_OK;
    if (NS_FAILED(rv)) {
      const nsAutoLock lock(mReasonLock);
      mReason = manager.Reason();
      return rv;
    }
    if (manages)
      kind = Kind::eNetworkManager;
    else if (bus.HasService(nsNetworkdNetwork::kService))
      kind = Kind::eNetworkd;  // it manages an interface as soon as there is a file for it
  }
  *aKind = kind;
  return NS_OK;
}

nsresult nsLinuxNetworkSettings::With(Kind aKind,
                                      const std::function<nsresult(nsNetworkWay&)>& aCall) {
  nsSystemBus bus;
  nsKernelNetwork kernel(BootId());
  // Without a bus all that is asked of it fails, and what needs none goes on.
  if (aKind != Kind::eKernel) (void)bus.Open(mOptions.mBus);
  nsNetworkManagerNetwork manager(bus, kernel, mCancelled);
  nsNetworkdNetwork networkd(bus, kernel, mOptions.mRoot == "/" ? "" : mOptions.mRoot, mCancelled);
  nsNetworkWay& way = aKind == Kind::eNetworkManager ? static_cast<nsNetworkWay&>(manager)
                      : aKind == Kind::eNetworkd     ? static_cast<nsNetworkWay&>(networkd)
                                                     : kernel;
  nsresult rv = aCall(way);
  std::string reason = way.Reason();
  if (NS_FAILED(rv) && aKind != Kind::eKernel) {
    const Service& service = kServices[aKind == Kind::eNetworkd ? 1 : 0];
    // It may have gone during the call.
    if (rv != NS_ERROR_ABORT && rv != NS_ERROR_FILE_NOT_FOUND && !bus.HasService(service.mBusName))
      rv = NS_ERROR_OFFLINE;
    if (rv == NS_ERROR_OFFLINE) reason = std::string(service.mName) + " is not on the message bus";
  }
  if (rv == NS_ERROR_ABORT) mCancelled = false;
  const nsAutoLock lock(mReasonLock);
  mReason = NS_SUCCEEDED(rv) ? "" : reason;
  return rv;
}

nsresult nsLinuxNetworkSettings::WithRecord(
    const std::string& aRecord,
    const std::function<nsresult(nsNetworkWay&, const std::string&)>& aCall) {
  const char kind = aRecord.empty() ? '\0' : aRecord[0];
  if (kind != 'K' && kind != 'N' && kind != 'D') return NS_ERROR_FILE_CORRUPTED;
  return With(Kind{kind}, [&](nsNetworkWay& aWay) { return aCall(aWay, aRecord.substr(1)); });
}

std::string nsLinuxNetworkSettings::FindDhcpClient(const std::string& aName) const {
  for (const std::string& process : mFiles.List("/proc")) {
    if (process.empty() || process[0] < '0' || process[0] > '9') continue;
    const std::string name = mFiles.ReadAttribute("/proc/" + process + "/comm");
    if (name != "dhclient" && name != "udhcpc" && name != "dhcpcd") continue;
    // Its arguments name the interfaces that it serves; one without any serves all.
    std::string line = mFiles.ReadFile("/proc/" + process + "/cmdline").value_or("");
    std::ranges::replace(line, '\0', ' ');
    std::istringstream words(line);
    bool isOurs = false, isOthers = false;
    for (std::string word; words >> word;) {
      isOurs = isOurs || word == aName || word == "-i" + aName;
      isOthers = isOthers || (word != aName && if_nametoindex(word.c_str()) != 0);
    }
    if (isOurs || !isOthers) return name;
  }
  return "";
}

nsresult nsLinuxNetworkSettings::FindWay(const std::string& aName, nsInterfaceWay* aWay) {
  if (if_nametoindex(aName.c_str()) == 0) return NS_ERROR_FILE_NOT_FOUND;
  Kind kind;
  if (const nsresult rv = FindKind(aName, &kind); NS_FAILED(rv)) return rv;
  if (kind == Kind::eKernel) {
    *aWay = {"", FindDhcpClient(aName), false, false};
    return NS_OK;
  }
  const char* const service = kServices[kind == Kind::eNetworkd ? 1 : 0].mName;
  *aWay = {service, service, true, true};
  return NS_OK;
}

nsresult nsLinuxNetworkSettings::AwaitService(const std::string& aService, uint32_t aMilliseconds) {
  for (const Service& service : kServices)
    if (aService == service.mName) {
      const bool isThere = NS_WaitFor(std::chrono::milliseconds(aMilliseconds), mCancelled, [&] {
        nsSystemBus bus;
        return NS_SUCCEEDED(bus.Open(mOptions.mBus)) && bus.HasService(service.mBusName);
      });
      return isThere ? NS_OK : NS_ERROR_OFFLINE;
    }
  return NS_OK;
}

nsresult nsLinuxNetworkSettings::ReadInterface(const std::string& aName, uint32_t aGuard,
                                               std::string* aRecord) {
  Kind kind;
  nsresult rv = FindKind(aName, &kind);
  if (NS_FAILED(rv)) return rv;
  std::string record;
  rv = With(kind, [&](nsNetworkWay& aWay) { return aWay.Read(aName, aGuard, &record); });
  if (NS_SUCCEEDED(rv)) *aRecord = static_cast<char>(kind) + record;
  return rv;
}

nsresult nsLinuxNetworkSettings::WriteInterface(const std::string& aName,
                                                const std::string& aRecord,
                                                const nsInterfaceSettings& aSettings) {
  return WithRecord(aRecord, [&](nsNetworkWay& aWay, const std::string& aRest) {
    return aWay.Write(aName, aRest, aSettings);
  });
}

nsresult nsLinuxNetworkSettings::KeepInterface(const std::string& aName,
                                               const std::string& aRecord) {
  return WithRecord(aRecord, [&](nsNetworkWay& aWay, const std::string& aRest) {
    return aWay.Keep(aName, aRest);
  });
}

nsresult nsLinuxNetworkSettings::ForgetInterface(const std::string& aName,
                                                 const std::string& aRecord) {
  return WithRecord(aRecord, [&](nsNetworkWay& aWay, const std::string& aRest) {
    return aWay.Forget(aName, aRest);
  });
}

nsresult nsLinuxNetworkSettings::RestoreInterface(const std::string& aName,
                                                  const std::string& aRecord) {
  return WithRecord(aRecord, [&](nsNetworkWay& aWay, const std::string& aRest) {
    return aWay.Restore(aName, aRest);
  });
}

std::string nsLinuxNetworkSettings::Reason() {
  const nsAutoLock lock(mReasonLock);
  return mReason;
}

// ---- The resolver's file

nsresult nsLinuxNetworkSettings::ReadServers(std::vector<nsSocketAddress>* aServers) {
  std::string text;
  const nsresult rv = NS_ReadFile(mOptions.mResolver, &text, kConfigurationLimit);
  if (NS_FAILED(rv) && rv != NS_ERROR_FILE_NOT_FOUND) return rv;
  std::vector<nsSocketAddress> servers;
  std::istringstream lines(text);
  nsSocketAddress server;
  for (std::string line; std::getline(lines, line);)
    if (ReadServerLine(line, &server)) servers.push_back(server);
  *aServers = std::move(servers);
  return NS_OK;
}

nsresult nsLinuxNetworkSettings::ReadResolver(std::string* aRecord) {
  char target[4096];
  const ssize_t length = readlink(mOptions.mResolver.c_str(), target, sizeof target);
  if (length >= 0) {
    *aRecord = kResolverLink + std::string(target, static_cast<size_t>(length));
    return NS_OK;
  }
  std::string text;
  const nsresult rv = NS_ReadFile(mOptions.mResolver, &text, kConfigurationLimit);
  if (NS_FAILED(rv) && rv != NS_ERROR_FILE_NOT_FOUND) return rv;
  *aRecord = NS_FAILED(rv) ? std::string(1, kNoResolver) : kResolverFile + text;
  return NS_OK;
}

nsresult nsLinuxNetworkSettings::WriteResolver(const std::vector<nsSocketAddress>& aServers) {
  std::string before;
  const nsresult rv = NS_ReadFile(mOptions.mResolver, &before, kConfigurationLimit);
  if (NS_FAILED(rv) && rv != NS_ERROR_FILE_NOT_FOUND) return rv;
  std::string servers, rest;
  for (const nsSocketAddress& server : aServers)
    servers += "nameserver " + NS_AddressText(server) + "\n";
  std::istringstream lines(before);
  nsSocketAddress server;
  for (std::string line; std::getline(lines, line);)
    if (!ReadServerLine(line, &server) ||
        std::ranges::find(aServers, server.mFamily, &nsSocketAddress::mFamily) == aServers.end())
      rest += line + "\n";
  const std::string& path = mOptions.mResolver;
  nsresult written = NS_ReplaceFile(path, servers + rest, 0644);
  if (NS_SUCCEEDED(written) && chmod(path.c_str(), 0644) != 0) written = NS_LastResult();
  return written;
}

nsresult nsLinuxNetworkSettings::RestoreResolver(const std::string& aRecord) {
  const std::string& path = mOptions.mResolver;
  if (aRecord.empty()) return NS_ERROR_FILE_CORRUPTED;
  const std::string rest = aRecord.substr(1);
  switch (aRecord[0]) {
    case kResolverFile: {
      const nsresult rv = NS_ReplaceFile(path, rest, 0644);
      return NS_SUCCEEDED(rv) && chmod(path.c_str(), 0644) != 0 ? NS_LastResult() : rv;
    }
    case kResolverLink: {
      const std::string beside = path + ".vorel-former";
      if (unlink(beside.c_str()) != 0 && errno != ENOENT) return NS_LastResult();
      if (symlink(rest.c_str(), beside.c_str()) != 0) return NS_LastResult();
      return rename(beside.c_str(), path.c_str()) == 0 ? SyncFolderOf(path) : NS_LastResult();
    }
    case kNoResolver:
      return unlink(path.c_str()) == 0 || errno == ENOENT ? SyncFolderOf(path) : NS_LastResult();
    default:
      return NS_ERROR_FILE_CORRUPTED;
  }
}

// ---- The machine

nsresult nsLinuxNetworkSettings::ReadIgmpVersion(uint32_t* aVersion) {
  std::string text;
  if (const nsresult rv = NS_ReadFile(IgmpPath(), &text); NS_FAILED(rv)) return rv;
  const bool isVersion = text.size() <= 2 && text[0] >= '0' && text[0] <= '3';
  *aVersion = isVersion ? static_cast<uint32_t>(text[0] - '0') : 0;
  return NS_OK;
}

nsresult nsLinuxNetworkSettings::WriteIgmpVersion(uint32_t aVersion) {
  if (aVersion > 3) return NS_ERROR_INVALID_ARG;
  const nsUniqueFd file(open(IgmpPath().c_str(), O_WRONLY | O_CLOEXEC));
  if (!file) return NS_LastResult();
  const char digit = static_cast<char>('0' + aVersion);
  return write(file.get(), &digit, 1) == 1 ? NS_OK : NS_LastResult();
}

// ---- The state

nsresult nsLinuxNetworkSettings::LockState() {
  if (mLock) return NS_OK;
  const std::string folder = mOptions.mState.substr(0, mOptions.mState.rfind('/'));
  if (mkdir(folder.c_str(), 0755) != 0 && errno != EEXIST) return NS_LastResult();
  nsUniqueFd lock;
  const nsresult rv = NS_OpenLockFile(mOptions.mState + ".lock", &lock);
  if (NS_FAILED(rv)) return rv;
  if (flock(lock.get(), LOCK_EX | LOCK_NB) != 0)
    return errno == EWOULDBLOCK ? NS_ERROR_FILE_IS_LOCKED : NS_LastResult();
  mLock = std::move(lock);
  return NS_OK;
}

nsresult nsLinuxNetworkSettings::UnlockState() {
  (void)mLock.Close();
  return NS_OK;
}

nsresult nsLinuxNetworkSettings::LoadState(std::string* aText) {
  return NS_ReadFile(mOptions.mState, aText, kConfigurationLimit, nsFileKind::eRegular);
}

nsresult nsLinuxNetworkSettings::SaveState(const std::string& aText) {
  if (!mLock) return NS_ERROR_FILE_IS_LOCKED;
  return NS_ReplaceFile(mOptions.mState, aText);
}

// ---- Words between processes

nsresult nsLinuxNetworkSettings::Listen(std::function<void(nsNetworkRequest)> aHandler,
                                        std::shared_ptr<nsEventSource>* aSource) {
  sockaddr_un address;
  if (!AddressOf(SocketPath(), &address)) return NS_ERROR_FILE_NAME_TOO_LONG;
  nsUniqueFd listener(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!listener) return NS_LastResult();
  // The lock is ours: what is there is that of a process that died.
  if (unlink(SocketPath().c_str()) != 0 && errno != ENOENT) return NS_LastResult();
  if (bind(listener.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
    return NS_LastResult();
  if (chmod(SocketPath().c_str(), 0600) != 0 || listen(listener.get(), 4) != 0) {
    const nsresult rv = NS_LastResult();
    (void)unlink(SocketPath().c_str());
    return rv;
  }
  *aSource =
      std::make_shared<RequestSource>(std::move(listener), SocketPath(), std::move(aHandler));
  return NS_OK;
}

nsresult nsLinuxNetworkSettings::Ask(const std::string& aWord, std::string* aAnswer) {
  sockaddr_un address;
  if (!AddressOf(SocketPath(), &address)) return NS_ERROR_FILE_NAME_TOO_LONG;
  const nsUniqueFd asker(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
  if (!asker) return NS_LastResult();
  if (connect(asker.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
    return errno == ENOENT || errno == ECONNREFUSED ? NS_ERROR_NOT_AVAILABLE : NS_LastResult();
  if (send(asker.get(), aWord.data(), aWord.size(), MSG_NOSIGNAL) < 0) return NS_LastResult();
  pollfd ready{asker.get(), POLLIN, 0};
  // A little at a time, for an end that comes meanwhile.
  for (int second = 0; second < kAnswerPatience * 5 && !mCancelled; ++second)
    if (poll(&ready, 1, 200) > 0) break;
  if (mCancelled.exchange(false)) return NS_ERROR_ABORT;
  std::string text(kWordLimit, '\0');
  const ssize_t length = recv(asker.get(), text.data(), text.size(), MSG_DONTWAIT);
  if (length <= 0) return NS_ERROR_FAILURE;
  text.resize(static_cast<size_t>(length));
  *aAnswer = std::move(text);
  return NS_OK;
}
