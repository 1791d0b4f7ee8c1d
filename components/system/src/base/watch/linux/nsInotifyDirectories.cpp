#include "nsInotifyDirectories.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstring>

#include "nsLogger.h"

namespace {

// Everything that changes names or content. Opening, reading and closing after reading are not in
// it: looking at the disk must not be an event.
constexpr uint32_t kMask = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_MODIFY |
                           IN_CLOSE_WRITE | IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR |
                           IN_EXCL_UNLINK;

}  // namespace

nsInotifyDirectories::nsInotifyDirectories(std::string aRoot, nsCOMPtr<nsILog4Logger> aLog)
    : mRoot(std::move(aRoot)), mLog(std::move(aLog)) {}

nsInotifyDirectories::~nsInotifyDirectories() = default;

nsresult nsInotifyDirectories::Start() {
  mInotify = nsUniqueFd(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
  if (!mInotify) {
    if (errno == EMFILE)
      SYSTEM_LOG_WARNING(
          mLog, "The limit of watchers is reached (fs.inotify.max_user_instances): " + mRoot +
                    " can't be watched");
    return NS_ERROR_FAILURE;
  }
  const nsUniqueFd fd(vorel::OpenDirectoryAt(AT_FDCWD, mRoot, O_PATH));
  if (!fd) return vorel::DirectoryError(errno);
  const int watch = AddWatch(fd.get());
  if (watch < 0) return errno == ENOSPC ? NS_ERROR_FAILURE : vorel::DirectoryError(errno);
  auto top = std::make_unique<Directory>();
  top->mWatch = watch;
  mTop = top.get();
  mDirectories.emplace(watch, std::move(top));
  struct stat status;
  if (fstat(fd.get(), &status) != 0) return NS_LastResult();
  mRootDevice = status.st_dev;
  mRootINode = status.st_ino;
  WatchAncestors(fd.get());
  return NS_OK;
}

// A root that moves together with a directory above it has no event of its own. What can't be
// watched here, for want of rights, is left out.
void nsInotifyDirectories::WatchAncestors(int aRootFd) {
  std::array<char, PATH_MAX> path;
  const ssize_t length =
      readlink(("/proc/self/fd/" + std::to_string(aRootFd)).c_str(), path.data(), path.size() - 1);
  std::string_view rest(path.data(), static_cast<size_t>(std::max<ssize_t>(length, 0)));
  for (size_t end; (end = rest.rfind('/')) != rest.npos && end > 0;) {
    rest = rest.substr(0, end);
    // One that is also to be found below the root, by a mount, keeps its other events.
    const int watch = inotify_add_watch(mInotify.get(), std::string(rest).c_str(),
                                        IN_MOVE_SELF | IN_ONLYDIR | IN_MASK_ADD);
    if (watch >= 0) mAncestors.insert(watch);
  }
}

bool nsInotifyDirectories::IsRootInPlace() const {
  const nsUniqueFd fd(vorel::OpenDirectoryAt(AT_FDCWD, mRoot, O_PATH));
  struct stat status;
  return fd && fstat(fd.get(), &status) == 0 && status.st_dev == mRootDevice &&
         status.st_ino == mRootINode;
}

int nsInotifyDirectories::AddWatch(int aFd) {
  // By descriptor: the path may be too long, or lead to something else by now.
  const std::string path = "/proc/self/fd/" + std::to_string(aFd);
  const int watch = inotify_add_watch(mInotify.get(), path.c_str(), kMask);
  if (watch < 0 && errno == ENOSPC && !mToldLimit) {
    mToldLimit = true;
    SYSTEM_LOG_WARNING(mLog,
                       "The limit of watches is reached (fs.inotify.max_user_watches): some "
                       "directories below " +
                           mRoot + " are not watched");
    errno = ENOSPC;
  }
  return watch;
}

// ---- The picture

bool nsInotifyDirectories::PathOf(const Directory& aDirectory, std::string* aPath) const {
  std::vector<const std::string*> names;
  const Directory* at = &aDirectory;
  for (; at->mParent; at = at->mParent) names.push_back(&at->mName);
  if (at != mTop) return false;
  aPath->clear();
  for (auto name = names.rbegin(); name != names.rend(); ++name) {
    if (!aPath->empty()) *aPath += '/';
    *aPath += **name;
  }
  return true;
}

nsUniqueFd nsInotifyDirectories::Open(const Directory& aDirectory) const {
  std::string path;
  if (!PathOf(aDirectory, &path)) return nsUniqueFd();
  // Nothing of the root is kept open, so that its volume can be unmounted.
  const nsUniqueFd root(vorel::OpenDirectoryAt(AT_FDCWD, mRoot, O_PATH));
  if (!root) return nsUniqueFd();
  return nsUniqueFd(vorel::OpenDirectoryBelow(root.get(), path, O_RDONLY));
}

void nsInotifyDirectories::Detach(Directory* aDirectory) {
  if (aDirectory->mParent) {
    const auto found = aDirectory->mParent->mChildren.find(aDirectory->mName);
    aDirectory->mParent->mChildren.erase(found);
    aDirectory->mParent = nullptr;
  }
  mAdrift.insert(aDirectory);
}

void nsInotifyDirectories::Forget(Directory* aDirectory) {
  while (!aDirectory->mChildren.empty()) Detach(aDirectory->mChildren.begin()->second);
  if (aDirectory != mTop) Detach(aDirectory);
  mAdrift.erase(aDirectory);
  mDirectories.erase(aDirectory->mWatch);
}

void nsInotifyDirectories::ForgetTree(Directory* aTop) {
  std::vector<Directory*> all{aTop};
  for (size_t i = 0; i < all.size(); ++i)
    for (const auto& [name, child] : all[i]->mChildren) all.push_back(child);
  for (Directory* directory : all) {
    (void)inotify_rm_watch(mInotify.get(), directory->mWatch);  // it may be gone already
    Forget(directory);
  }
}

nsInotifyDirectories::Directory* nsInotifyDirectories::WatchChild(int aParentFd, Directory* aParent,
                                                                  const std::string& aName) {
  const nsUniqueFd fd(
      openat(aParentFd, aName.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!fd) return nullptr;
  const int watch = AddWatch(fd.get());
  if (watch < 0) return nullptr;  // unreadable, or over the limit: it stays a name only

  auto& slot = mDirectories[watch];
  if (!slot) {
    slot = std::make_unique<Directory>();
    slot->mWatch = watch;
  }
  Directory* const child = slot.get();
  if (child->mParent == aParent && child->mName == aName) return child;
  // A directory that moves while the disk is read can look as if it lay within itself; the events
  // of that move are still to come. One that is mounted within itself really does.
  for (const Directory* above = aParent; above; above = above->mParent)
    if (above == child) return nullptr;
  Detach(child);
  if (const auto other = aParent->mChildren.find(aName); other != aParent->mChildren.end())
    Detach(other->second);
  child->mParent = aParent;
  child->mName = aName;
  aParent->mChildren.emplace(aName, child);
  mAdrift.erase(child);
  return child;
}

void nsInotifyDirectories::WatchTree(Directory* aTop) {
  std::vector<int> stack{
      aTop->mWatch};  // by watch: what is read here may move what was read before
  while (!stack.empty() && !mIsStopped) {
    const auto found = mDirectories.find(stack.back());
    stack.pop_back();
    if (found == mDirectories.end()) continue;
    Directory* const directory = found->second.get();
    directory->mScan = mScan;
    mTouched.insert(directory->mWatch);
    nsUniqueFd fd = Open(*directory);
    DIR* const entries = fd ? fdopendir(fd.get()) : nullptr;
    if (!entries) continue;
    (void)fd.release();
    while (const dirent* entry = readdir(entries)) {
      const std::string name = entry->d_name;
      if (name == "." || name == "..") continue;
      if (entry->d_type != DT_DIR && entry->d_type != DT_UNKNOWN) continue;
      if (const Directory* child = WatchChild(dirfd(entries), directory, name))
        stack.push_back(child->mWatch);
    }
    closedir(entries);
  }
}

void nsInotifyDirectories::Scan() {
  ++mScan;
  WatchTree(mTop);
  if (mIsStopped) return;
  std::vector<Directory*> unseen;
  for (const auto& [watch, directory] : mDirectories)
    if (directory->mScan != mScan && !(directory->mParent && directory->mParent->mScan != mScan))
      unseen.push_back(directory.get());
  // What moved away while the disk was read may be among them; events that are still queued bring
  // it back.
  for (Directory* directory : unseen) ForgetTree(directory);
}

// ---- Events

bool nsInotifyDirectories::ReadEvents() {
  alignas(inotify_event) std::array<char, 65536> buffer;
  ssize_t got;
  do {
    got = read(mInotify.get(), buffer.data(), buffer.size());
  } while (got < 0 && errno == EINTR);
  for (ssize_t at = 0; at < got;) {
    inotify_event event;
    std::memcpy(&event, buffer.data() + at, sizeof event);
    const char* const name = buffer.data() + at + sizeof event;
    if (!HandleEvent(event, {name, strnlen(name, event.len)})) return false;
    at += static_cast<ssize_t>(sizeof event + event.len);
  }
  return true;
}

bool nsInotifyDirectories::HandleEvent(const inotify_event& aEvent, std::string_view aName) {
  if (aEvent.mask & IN_Q_OVERFLOW) {
    mOverflow = true;
    SYSTEM_LOG_WARNING(mLog,
                       "The queue of file events has overflowed "
                       "(fs.inotify.max_queued_events): all directories below " +
                           mRoot + " are looked at again");
    return true;
  }
  const auto found = mDirectories.find(aEvent.wd);
  Directory* const directory = found == mDirectories.end() ? nullptr : found->second.get();
  const bool hasMoved =
      (aEvent.mask & IN_MOVE_SELF) && mAncestors.contains(aEvent.wd) && !IsRootInPlace();
  if (hasMoved || (directory == mTop &&
                   (aEvent.mask & (IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT | IN_IGNORED)))) {
    SYSTEM_LOG_WARNING(mLog, mRoot + " was deleted, moved or unmounted: its watch ends");
    return false;
  }
  if (!directory) return true;  // above the root, or of a watch that we have given up
  if (aEvent.mask & IN_IGNORED) {
    Forget(directory);
    return true;
  }
  if (aName.empty()) return true;  // of a directory itself: the one above has an event, too

  mTouched.insert(directory->mWatch);
  if (aEvent.mask & IN_ISDIR) {
    const auto child = directory->mChildren.find(aName);
    const bool isKnown = child != directory->mChildren.end();
    if (isKnown && (aEvent.mask & (IN_MOVED_FROM | IN_DELETE))) {
      Detach(child->second);
    } else if ((aEvent.mask & (IN_CREATE | IN_MOVED_TO)) ||
               (!isKnown && (aEvent.mask & IN_ATTRIB))) {  // it may have become readable
      if (const nsUniqueFd fd = Open(*directory))
        if (Directory* appeared = WatchChild(fd.get(), directory, std::string(aName)))
          WatchTree(appeared);
    }
  }
  if (std::string path; PathOf(*directory, &path)) {
    if (!path.empty()) path += '/';
    path += aName;
    // A file that is written has several events in a row.
    if (mNames.empty() || mNames.back() != path) mNames.push_back(std::move(path));
  }
  return true;
}

bool nsInotifyDirectories::TakeOverflow() { return std::exchange(mOverflow, false); }

std::vector<std::string> nsInotifyDirectories::TakeNames() { return std::exchange(mNames, {}); }

std::vector<std::string> nsInotifyDirectories::TakeDirectories() {
  while (!mAdrift.empty()) ForgetTree(*mAdrift.begin());
  std::vector<std::string> directories;
  for (const int watch : std::exchange(mTouched, {})) {
    const auto found = mDirectories.find(watch);
    std::string path;
    if (found != mDirectories.end() && PathOf(*found->second, &path))
      directories.push_back(std::move(path));
  }
  return directories;
}
