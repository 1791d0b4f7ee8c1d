#include "nsInotifyDirectories.h"

#include <dirent.h>
#include <fcntl.h>
#include <libmount.h>
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

// More are not told: whoever reads them knows by then.
constexpr size_t kMostTold = 10;

bool IsAtLimit(int aError) { return aError != EACCES && aError != EPERM; }

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
  const nsAutoLock lock(mLock);
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
  WatchWayToRoot(fd.get());
  mMountTable = nsUniqueFd(open("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC));
  mMounts = Mounts();
  return NS_OK;
}

// A root that moves together with a directory above it has no event of its own, nor has one that a
// link leads to no longer. What can't be watched here, for want of rights, is left out.
void nsInotifyDirectories::WatchWayToRoot(int aRootFd) {
  std::array<char, PATH_MAX> path;
  const auto readLink = [&](const std::string& aPath) {
    const ssize_t length = readlink(aPath.c_str(), path.data(), path.size() - 1);
    return std::string(path.data(), static_cast<size_t>(std::max<ssize_t>(length, 0)));
  };
  // One that is also to be found below the root, by a mount, keeps its other events.
  const auto watch = [&](const std::string& aPath, uint32_t aMask) {
    return inotify_add_watch(mInotify.get(), aPath.c_str(), aMask | IN_ONLYDIR | IN_MASK_ADD);
  };
  mPlace = readLink("/proc/self/fd/" + std::to_string(aRootFd));
  std::string_view rest = mPlace;
  for (size_t end; (end = rest.rfind('/')) != rest.npos && end > 0;) {
    rest = rest.substr(0, end);
    if (const int added = watch(std::string(rest), IN_MOVE_SELF); added >= 0)
      mAncestors.insert(added);
  }

  constexpr int kMostLinks = 40;  // the system follows no more
  std::string todo = mRoot, done = "/";
  for (int links = 0; !todo.empty() && links < kMostLinks;) {
    const size_t end = std::min(todo.find('/'), todo.size());
    const std::string name = todo.substr(0, end);
    todo.erase(0, end + 1);
    if (name.empty() || name == ".") continue;
    if (const std::string target = readLink(done + name); target.empty()) {
      done += name + "/";
    } else {
      ++links;
      const int added = watch(done, IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO);
      if (added >= 0) mWayLinks.emplace(added, name);
      todo = target + "/" + todo;
      if (target.starts_with('/')) done = "/";
    }
  }
}

bool nsInotifyDirectories::IsRootInPlace() const {
  const nsUniqueFd fd(vorel::OpenDirectoryAt(AT_FDCWD, mRoot, O_PATH));
  struct stat status;
  return fd && fstat(fd.get(), &status) == 0 && status.st_dev == mRootDevice &&
         status.st_ino == mRootINode;
}

bool nsInotifyDirectories::EndsHere() const {
  SYSTEM_LOG_WARNING(mLog, mRoot + " was deleted, moved or unmounted: its watch ends");
  return false;
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

nsInotifyDirectories::Directory* nsInotifyDirectories::Find(std::string_view aPath) const {
  Directory* at = mTop;
  while (!aPath.empty()) {
    const size_t end = std::min(aPath.find('/'), aPath.size());
    const auto child = at->mChildren.find(aPath.substr(0, end));
    if (child == at->mChildren.end()) return nullptr;
    at = child->second;
    aPath.remove_prefix(std::min(end + 1, aPath.size()));
  }
  return at;
}

nsUniqueFd nsInotifyDirectories::Open(const Directory& aDirectory) const {
  std::string path;
  if (PathOf(aDirectory, &path)) return OpenBelow(path, O_RDONLY);
  errno = ENOENT;
  return nsUniqueFd();
}

nsUniqueFd nsInotifyDirectories::OpenBelow(const std::string& aPath, int aFlags) const {
  // Nothing of the root is kept open, so that its volume can be unmounted.
  const nsUniqueFd root(vorel::OpenDirectoryAt(AT_FDCWD, mRoot, O_PATH));
  if (!root) return nsUniqueFd();
  return nsUniqueFd(vorel::OpenDirectoryBelow(root.get(), aPath, aFlags));
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
                                                                  const std::string& aName,
                                                                  bool* aIsNew) {
  *aIsNew = false;
  const nsUniqueFd fd(
      openat(aParentFd, aName.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!fd) {
    NoteUnwatched(aParent, aName, errno);
    return nullptr;
  }
  return Attach(fd.get(), aParent, aName, aIsNew);
}

nsInotifyDirectories::Directory* nsInotifyDirectories::Attach(int aFd, Directory* aParent,
                                                              const std::string& aName,
                                                              bool* aIsNew) {
  *aIsNew = false;
  const int watch = AddWatch(aFd);
  if (watch < 0) {  // it stays a name only
    const int error = errno;
    NoteUnwatched(aParent, aName, error);
    errno = error;
    return nullptr;
  }

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
  *aIsNew = true;
  Detach(child);
  if (const auto other = aParent->mChildren.find(aName); other != aParent->mChildren.end())
    Detach(other->second);
  child->mParent = aParent;
  child->mName = aName;
  aParent->mChildren.emplace(aName, child);
  mAdrift.erase(child);
  return child;
}

nsresult nsInotifyDirectories::Watch(const std::string& aPath) {
  nsAutoLock lock(mLock);
  const size_t end = aPath.rfind('/');
  Directory* const parent = Find(end == aPath.npos ? "" : std::string_view(aPath).substr(0, end));
  if (!parent) return NS_ERROR_FILE_NOT_FOUND;  // moved away meanwhile, which has events of its own
  const nsUniqueFd fd = OpenBelow(aPath, O_PATH);
  if (!fd) {
    const int error = errno;
    NoteUnwatched(parent, aPath.substr(end + 1), error);
    return vorel::DirectoryError(error);
  }
  bool isNew;
  return Attach(fd.get(), parent, aPath.substr(end + 1), &isNew) ? NS_OK
                                                                 : vorel::DirectoryError(errno);
}

void nsInotifyDirectories::LookForChild(Directory* aParent, const std::string& aName) {
  const nsUniqueFd fd = Open(*aParent);
  if (!fd) {
    NoteUnwatched(aParent, {}, errno);
    return;
  }
  // One that is known to be there has been read after it was watched.
  bool isNew;
  if (Directory* const child = WatchChild(fd.get(), aParent, aName, &isNew); child && isNew)
    WatchTree(child);
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
    directory->mIsUnread = false;
    if (!entries) {
      NoteUnwatched(directory, {}, errno);
      continue;
    }
    (void)fd.release();
    while (const dirent* entry = readdir(entries)) {
      const std::string name = entry->d_name;
      if (name == "." || name == "..") continue;
      if (entry->d_type != DT_DIR && entry->d_type != DT_UNKNOWN) continue;
      bool isNew;
      if (const Directory* child = WatchChild(dirfd(entries), directory, name, &isNew))
        stack.push_back(child->mWatch);
    }
    closedir(entries);
  }
}

// What has gone, or is no directory any more, has events of its own.
void nsInotifyDirectories::NoteUnwatched(Directory* aDirectory, const std::string& aName,
                                         int aError) {
  if (aError == ENOENT || aError == ENOTDIR || aError == ELOOP) return;
  aDirectory->mIsUnread = mIsIncomplete = true;
  if (aError == EAGAIN || aError == EXDEV) return;  // something moved meanwhile
  if (aError == ENOSPC) mIsLimited = true;
  std::string path;
  if (!PathOf(*aDirectory, &path)) return;
  if (!aName.empty()) path += (path.empty() ? "" : "/") + aName;
  // Of the limit one is told, whichever that was.
  const std::string key = IsAtLimit(aError) ? "" : path;
  const bool isKnown = mToldUnwatched.contains(key);
  if (!isKnown && mToldUnwatched.size() == kMostTold) return;
  mToldUnwatched[key] = {path, aError};
  if (isKnown) return;
  if (aError != ENOSPC)
    SYSTEM_LOG_WARNING(mLog, mRoot + "/" + path + " can't be watched: " + strerror(aError));
  mUnwatched.push_back({std::move(path), aError});
}

std::vector<nsInotifyDirectories::Unwatched> nsInotifyDirectories::TakeUnwatched() {
  nsAutoLock lock(mLock);
  return std::exchange(mUnwatched, {});
}

std::vector<nsInotifyDirectories::Unwatched> nsInotifyDirectories::StillUnwatched() {
  nsAutoLock lock(mLock);
  std::vector<Unwatched> still;
  for (const auto& [key, unwatched] : mToldUnwatched) {
    const Directory* place = Find(unwatched.mPath);
    const size_t end = unwatched.mPath.rfind('/');
    if (!place)
      place =
          Find(end == std::string::npos ? "" : std::string_view(unwatched.mPath).substr(0, end));
    if (place && place->mIsUnread) still.push_back(unwatched);
  }
  return still;
}

// What is known already is not asked for again: of a directory that was not watched for the limit
// there may be a very large one above.
void nsInotifyDirectories::WatchUnread(Directory* aDirectory) {
  nsUniqueFd fd = Open(*aDirectory);
  DIR* const entries = fd ? fdopendir(fd.get()) : nullptr;
  if (!entries) return;
  (void)fd.release();
  aDirectory->mIsUnread = false;
  mTouched.insert(aDirectory->mWatch);
  std::vector<Directory*> fresh;
  while (const dirent* entry = mIsLimited ? nullptr : readdir(entries)) {
    const std::string name = entry->d_name;
    if (name == "." || name == ".." || aDirectory->mChildren.contains(name)) continue;
    if (entry->d_type != DT_DIR && entry->d_type != DT_UNKNOWN) continue;
    bool isNew;
    if (Directory* const child = WatchChild(dirfd(entries), aDirectory, name, &isNew))
      fresh.push_back(child);
  }
  closedir(entries);
  for (Directory* child : fresh) WatchTree(child);
}

void nsInotifyDirectories::Retry() {
  nsAutoLock lock(mLock);
  mIsLimited = false;
  std::vector<Directory*> unread;
  for (const auto& [watch, directory] : mDirectories)
    if (directory->mIsUnread) unread.push_back(directory.get());
  for (Directory* directory : unread)
    if (!mIsLimited && !mIsStopped) WatchUnread(directory);
  mIsIncomplete = std::ranges::any_of(
      mDirectories, [](const auto& aDirectory) { return aDirectory.second->mIsUnread; });
  if (mIsIncomplete) return;
  mToldUnwatched.clear();
  mToldLimit = false;
}

// Rights may have been missing, for whoever looks at the disk or here.
void nsInotifyDirectories::TouchTree(Directory* aTop) {
  std::vector<Directory*> all{aTop};
  std::vector<int> unread;
  for (size_t i = 0; i < all.size(); ++i) {
    mTouched.insert(all[i]->mWatch);
    if (all[i]->mIsUnread) unread.push_back(all[i]->mWatch);
    for (const auto& [name, child] : all[i]->mChildren) all.push_back(child);
  }
  for (const int watch : unread)
    if (const auto found = mDirectories.find(watch); found != mDirectories.end())
      WatchTree(found->second.get());
}

void nsInotifyDirectories::Scan() {
  nsAutoLock lock(mLock);
  ScanAll();
}

void nsInotifyDirectories::ScanAll() {
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
  nsAutoLock lock(mLock);
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
  const bool mayHaveMoved = ((aEvent.mask & IN_MOVE_SELF) && mAncestors.contains(aEvent.wd)) ||
                            mWayLinks.contains({aEvent.wd, std::string(aName)});
  if ((mayHaveMoved && !IsRootInPlace()) ||
      (directory == mTop &&
       (aEvent.mask & (IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT | IN_IGNORED))))
    return EndsHere();
  if (!directory) return true;  // above the root, or of a watch that we have given up
  if (aEvent.mask & IN_UNMOUNT) directory->mIsUnmounted = true;
  if (aEvent.mask & IN_IGNORED) {
    Directory* const parent = directory->mIsUnmounted ? directory->mParent : nullptr;
    const std::string name = directory->mName;
    Forget(directory);
    if (parent) LookForChild(parent, name);  // what the volume had covered
    return true;
  }
  if (aName.empty()) {  // of a directory itself: the one above has an event, too
    if (directory == mTop && (aEvent.mask & IN_ATTRIB)) TouchTree(mTop);
    return true;
  }

  mTouched.insert(directory->mWatch);
  if (aEvent.mask & IN_ISDIR) {
    const std::string name(aName);
    const auto child = directory->mChildren.find(aName);
    const bool isKnown = child != directory->mChildren.end();
    if (isKnown && (aEvent.mask & IN_ATTRIB)) {
      TouchTree(child->second);
    } else {
      if (isKnown && (aEvent.mask & (IN_MOVED_FROM | IN_DELETE))) Detach(child->second);
      // Under its name there may come another one, which is told anew.
      std::string path;
      if (!isKnown && (aEvent.mask & (IN_MOVED_FROM | IN_DELETE)) && PathOf(*directory, &path))
        mToldUnwatched.erase((path.empty() ? path : path + "/") + name);
      // Also where something has left: two directories that change places have both come before the
      // second one's leave is told. And with new rights it may have become readable.
      LookForChild(directory, name);
    }
  }
  // A file that is written has several events in a row.
  if (Name changed{directory->mWatch, std::string(aName)};
      mNames.empty() || mNames.back() != changed)
    mNames.push_back(std::move(changed));
  return true;
}

std::map<std::string, int> nsInotifyDirectories::Mounts() const {
  std::map<std::string, int> mounts;
  libmnt_table* const table = mnt_new_table_from_file("/proc/self/mountinfo");
  libmnt_iter* const next = mnt_new_iter(MNT_ITER_FORWARD);
  libmnt_fs* mount;
  const std::string base = mPlace.ends_with('/') ? mPlace : mPlace + "/";
  while (table && next && mnt_table_next_fs(table, next, &mount) == 0) {
    const char* const target = mnt_fs_get_target(mount);
    if (target && std::string_view(target).starts_with(base))
      mounts[target + base.size()] = mnt_fs_get_id(mount);  // later ones cover earlier ones
  }
  mnt_free_iter(next);
  mnt_unref_table(table);
  return mounts;
}

bool nsInotifyDirectories::ReadMounts() {
  nsAutoLock lock(mLock);
  if (!IsRootInPlace()) return EndsHere();
  const auto before = std::exchange(mMounts, Mounts());
  std::set<std::string> places;
  for (const auto& mount : before)
    if (!std::ranges::binary_search(mMounts, mount)) places.insert(mount.first);
  for (const auto& mount : mMounts)
    if (!std::ranges::binary_search(before, mount)) places.insert(mount.first);
  for (const std::string& place : places) {
    const size_t end = place.rfind('/');
    const std::string name = place.substr(end + 1);
    Directory* const parent = Find(end == place.npos ? "" : std::string_view(place).substr(0, end));
    if (!parent) continue;
    mTouched.insert(parent->mWatch);
    mNames.push_back({parent->mWatch, name});
    LookForChild(parent, name);
  }
  // One that was to be seen at two places may still be there at the other.
  if (!mAdrift.empty()) ScanAll();
  return true;
}

bool nsInotifyDirectories::TakeOverflow() {
  nsAutoLock lock(mLock);
  return std::exchange(mOverflow, false);
}

std::vector<std::string> nsInotifyDirectories::TakeNames() {
  nsAutoLock lock(mLock);
  std::vector<std::string> names;
  std::string path;
  for (const Name& name : std::exchange(mNames, {})) {
    const auto directory = mDirectories.find(name.mWatch);
    if (directory == mDirectories.end() || !PathOf(*directory->second, &path)) continue;
    if (!path.empty()) path += '/';
    names.push_back(path + name.mLeaf);
  }
  return names;
}

std::vector<std::string> nsInotifyDirectories::TakeDirectories() {
  nsAutoLock lock(mLock);
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
