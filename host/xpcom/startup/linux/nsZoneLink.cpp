#include "nsZoneLink.h"

#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>

namespace fs = std::filesystem;

namespace {

constexpr char kLink[] = "/etc/localtime";
constexpr int kMaximumLinks = 16;  // a circle of them leads nowhere
constexpr uint32_t kChanges =
    IN_CREATE | IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE | IN_ONLYDIR;

}  // namespace

bool nsZoneLink::Open() {
  mChanges = nsUniqueFd(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
  if (!mChanges || NS_FAILED(mWake.Open())) return false;
  Follow();
  return true;
}

// Watches the directory of each link on the way.
void nsZoneLink::Follow() {
  std::map<int, std::set<std::string>> names;
  fs::path path = kLink;
  for (int i = 0; i < kMaximumLinks && !path.empty(); ++i) {
    const int watch = inotify_add_watch(mChanges.get(), path.parent_path().c_str(), kChanges);
    if (watch >= 0) names[watch].insert(path.filename().native());
    std::error_code error;
    const fs::path target = fs::read_symlink(path, error);
    path = error ? fs::path() : (path.parent_path() / target).lexically_normal();
  }
  for (const auto& [watch, old] : mNames)
    if (!names.contains(watch)) (void)inotify_rm_watch(mChanges.get(), watch);
  mNames = std::move(names);
}

void nsZoneLink::Wait() {
  pollfd fds[] = {{mChanges.get(), POLLIN, 0}, {mWake.get(), POLLIN, 0}};
  (void)poll(fds, 2, -1);
  (void)mWake.Take();
}

bool nsZoneLink::Consume() {
  bool changed = false;
  char buffer[8192];
  for (ssize_t got; (got = read(mChanges.get(), buffer, sizeof buffer)) > 0;) {
    for (const char* at = buffer; at < buffer + got;) {
      inotify_event event;
      std::memcpy(&event, at, sizeof event);
      const std::string name = event.len ? at + sizeof event : "";
      at += sizeof event + event.len;
      const auto watch = mNames.find(event.wd);
      changed = changed || (event.mask & IN_Q_OVERFLOW) ||
                (watch != mNames.end() && watch->second.contains(name));
    }
  }
  if (changed) Follow();
  return changed;
}
