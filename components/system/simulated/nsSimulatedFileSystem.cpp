#include "nsSimulatedFileSystem.h"

#include <algorithm>
#include <deque>
#include <optional>
#include <stdexcept>
#include <utility>

// ---- Files

/// The entries as they were when the listing was opened.
class nsSimulatedFiles::SnapshotListing final : public Listing {
 public:
  SnapshotListing(const nsSimulatedFiles& aFiles, std::deque<Entry> aEntries)
      : mFiles(aFiles), mEntries(std::move(aEntries)) {}

  bool HasMore() override { return !mEntries.empty(); }
  nsresult GetNext(Entry* aEntry) override {
    if (mEntries.empty()) return NS_ERROR_UNEXPECTED;
    Entry entry = std::move(mEntries.front());
    mEntries.pop_front();
    if (nsresult rv = mFiles.Enter("GetNext"); NS_FAILED(rv)) return rv;
    *aEntry = std::move(entry);
    return NS_OK;
  }

 private:
  const nsSimulatedFiles& mFiles;
  std::deque<Entry> mEntries;
};

nsSimulatedFiles::nsSimulatedFiles(nsSimulatedCallsRef aCalls, char16_t aSeparator)
    : nsSimulatedPort(std::move(aCalls), "Files"),
      mSeparator(aSeparator),
      mRoot(NewNode(kDirectory)) {}

nsSimulatedFiles::NodeRef nsSimulatedFiles::NewNode(Kind aKind) {
  auto node = std::make_shared<Node>(mFreeINodes);
  node->mFacts.mStatus = NS_OK;
  node->mFacts.mKind = aKind;
  node->mFacts.mLastModify = ++mNow;
  node->mFacts.mHasINode = true;
  if (mFreeINodes->empty()) mFreeINodes->push_back(++mLastINode);
  node->mFacts.mINode = mFreeINodes->back();
  mFreeINodes->pop_back();
  node->mFacts.mVolume = 1;
  return node;
}

nsSimulatedFiles::NodeRef nsSimulatedFiles::Find(std::u16string_view aPath) const {
  NodeRef node = mRoot;
  while (node) {
    aPath.remove_prefix(std::min(aPath.find_first_not_of(mSeparator), aPath.size()));
    if (aPath.empty()) break;
    const size_t end = std::min(aPath.find(mSeparator), aPath.size());
    const auto child = node->mChildren.find(std::u16string(aPath.substr(0, end)));
    node = child == node->mChildren.end() ? nullptr : child->second;
    aPath.remove_prefix(end);
  }
  return node;
}

nsSimulatedFiles::Node& nsSimulatedFiles::At(std::u16string_view aPath) {
  const NodeRef node = Find(aPath);
  if (!node) throw std::logic_error("no such simulated file");
  return *node;  // the tree holds it
}

nsSimulatedFiles::NodeRef& nsSimulatedFiles::Slot(std::u16string_view aPath) {
  const size_t end = aPath.rfind(mSeparator) + 1;  // 0 without one
  Node& directory = At(aPath.substr(0, end));
  if (directory.mFacts.mKind != kDirectory) throw std::logic_error("not a directory");
  directory.mFacts.mLastModify = ++mNow;
  return directory.mChildren[std::u16string(aPath.substr(end))];
}

void nsSimulatedFiles::Erase(std::u16string_view aPath) {
  Slot(aPath);  // for the directory's time
  const size_t end = aPath.rfind(mSeparator) + 1;
  At(aPath.substr(0, end)).mChildren.erase(std::u16string(aPath.substr(end)));
}

void nsSimulatedFiles::Announce(std::u16string_view aPath) {
  std::function<void(std::u16string_view)> observer;
  {
    nsAutoLock lock(mLock);
    observer = mObserver;
  }
  if (observer) observer(aPath);
}

void nsSimulatedFiles::MakeDirectory(std::u16string_view aPath) {
  if (const size_t end = aPath.rfind(mSeparator); end > 0 && end != aPath.npos) {
    bool isThere;
    {
      nsAutoLock lock(mLock);
      isThere = Find(aPath.substr(0, end)) != nullptr;
    }
    if (!isThere) MakeDirectory(aPath.substr(0, end));
  }
  {
    nsAutoLock lock(mLock);
    Slot(aPath) = NewNode(kDirectory);
  }
  Announce(aPath);
}

void nsSimulatedFiles::Write(std::u16string_view aPath) {
  {
    nsAutoLock lock(mLock);
    if (const NodeRef node = Find(aPath))
      node->mFacts.mLastModify = ++mNow;
    else
      Slot(aPath) = NewNode(kFile);
  }
  Announce(aPath);
}

void nsSimulatedFiles::MakeOther(std::u16string_view aPath, Kind aKind) {
  {
    nsAutoLock lock(mLock);
    Slot(aPath) = NewNode(aKind);
  }
  Announce(aPath);
}

void nsSimulatedFiles::Link(std::u16string_view aPath, std::u16string_view aNewPath) {
  {
    nsAutoLock lock(mLock);
    const NodeRef node = Find(aPath);
    if (!node) throw std::logic_error("no such simulated file");
    Slot(aNewPath) = node;
  }
  Announce(aNewPath);
}

void nsSimulatedFiles::Rename(std::u16string_view aPath, std::u16string_view aNewPath) {
  {
    nsAutoLock lock(mLock);
    const NodeRef node = Find(aPath);
    if (!node) throw std::logic_error("no such simulated file");
    Erase(aPath);
    Slot(aNewPath) = node;
  }
  Announce(aPath);
  Announce(aNewPath);
}

void nsSimulatedFiles::Remove(std::u16string_view aPath) {
  {
    nsAutoLock lock(mLock);
    (void)At(aPath);
    Erase(aPath);
  }
  Announce(aPath);
}

void nsSimulatedFiles::SetLastModify(std::u16string_view aPath, int64_t aLastModify) {
  nsAutoLock lock(mLock);
  At(aPath).mFacts.mLastModify = aLastModify;
}

void nsSimulatedFiles::SetINode(std::u16string_view aPath, uint64_t aINode) {
  nsAutoLock lock(mLock);
  At(aPath).mFacts.mINode = aINode;
}

void nsSimulatedFiles::SetVolume(std::u16string_view aPath, uint64_t aVolume) {
  nsAutoLock lock(mLock);
  At(aPath).mFacts.mVolume = aVolume;
}

void nsSimulatedFiles::SetHasINode(std::u16string_view aPath, bool aHasINode) {
  nsAutoLock lock(mLock);
  At(aPath).mFacts.mHasINode = aHasINode;
}

void nsSimulatedFiles::SetUnreadable(std::u16string_view aPath) {
  nsAutoLock lock(mLock);
  At(aPath).mFacts.mStatus = NS_ERROR_FILE_ACCESS_DENIED;
}

std::set<std::u16string> nsSimulatedFiles::Paths(std::u16string_view aRoot) const {
  nsAutoLock lock(mLock);
  std::set<std::u16string> paths;
  const auto walk = [&](const auto& aSelf, const Node& aNode,
                        const std::u16string& aPrefix) -> void {
    for (const auto& [name, child] : aNode.mChildren) {
      std::u16string path = aPrefix + name;
      if (child->mFacts.mKind == kDirectory) path += mSeparator;
      aSelf(aSelf, *child, path);
      paths.insert(std::move(path));
    }
  };
  if (const NodeRef root = Find(aRoot)) walk(walk, *root, u"");
  return paths;
}

void nsSimulatedFiles::SetObserver(std::function<void(std::u16string_view)> aObserver) {
  nsAutoLock lock(mLock);
  mObserver = std::move(aObserver);
}

nsSimulatedFiles::Entry nsSimulatedFiles::NamedEntry(std::u16string_view aName, const Node& aNode) {
  if (NS_FAILED(aNode.mFacts.mStatus)) return {};
  Entry entry = aNode.mFacts;
  entry.mLeafName = aName;
  return entry;
}

nsresult nsSimulatedFiles::Exists(const nsAString& aPath, bool* aExists) {
  if (nsresult rv = Enter("Exists"); NS_FAILED(rv)) return rv;
  nsAutoLock lock(mLock);
  *aExists = Find(NS_View(aPath)) != nullptr;
  return NS_OK;
}

nsresult nsSimulatedFiles::ReadEntry(const nsAString& aPath, Entry* aEntry) {
  if (nsresult rv = Enter("ReadEntry"); NS_FAILED(rv)) return rv;
  nsAutoLock lock(mLock);
  std::u16string_view path = NS_View(aPath);
  const NodeRef node = Find(path);
  if (!node) return NS_ERROR_FILE_NOT_FOUND;
  if (path.ends_with(mSeparator)) path.remove_suffix(1);
  *aEntry = NamedEntry(path.substr(path.rfind(mSeparator) + 1), *node);
  return NS_OK;
}

nsresult nsSimulatedFiles::OpenListing(const nsAString& aPath, bool,
                                       std::unique_ptr<Listing>* aListing) {
  if (nsresult rv = Enter("OpenListing"); NS_FAILED(rv)) return rv;
  nsAutoLock lock(mLock);
  const NodeRef node = Find(NS_View(aPath));
  if (!node) return NS_ERROR_FILE_NOT_FOUND;
  if (node->mFacts.mKind != kDirectory) return NS_ERROR_FILE_NOT_DIRECTORY;
  std::deque<Entry> entries;
  for (const auto& [name, child] : node->mChildren) entries.push_back(NamedEntry(name, *child));
  *aListing = std::make_unique<SnapshotListing>(*this, std::move(entries));
  return NS_OK;
}

nsresult nsSimulatedFiles::ReadVolume(const nsAString& aPath, uint64_t* aVolume) {
  if (nsresult rv = Enter("ReadVolume"); NS_FAILED(rv)) return rv;
  nsAutoLock lock(mLock);
  const NodeRef node = Find(NS_View(aPath));
  if (!node) return NS_ERROR_FILE_NOT_FOUND;
  *aVolume = node->mFacts.mVolume;
  return NS_OK;
}

nsresult nsSimulatedFiles::ReadKept(const nsAString& aPath, std::string* aContents) {
  if (nsresult rv = Enter("ReadKept"); NS_FAILED(rv)) return rv;
  nsAutoLock lock(mLock);
  const auto kept = mKept.find(std::u16string(NS_View(aPath)));
  if (kept == mKept.end()) return NS_ERROR_FILE_NOT_FOUND;
  *aContents = kept->second;
  return NS_OK;
}

nsresult nsSimulatedFiles::ReplaceKept(const nsAString& aPath, std::string_view aContents) {
  if (nsresult rv = Enter("ReplaceKept"); NS_FAILED(rv)) return rv;
  nsAutoLock lock(mLock);
  mKept[std::u16string(NS_View(aPath))] = aContents;
  return NS_OK;
}

// ---- Changes

class nsSimulatedDirectoryChanges::Reader final : public nsPlatformDirectoryReader {
 public:
  explicit Reader(nsSimulatedDirectoryChanges& aOwner) : mOwner(aOwner) {
    nsAutoLock lock(mOwner.mLock);
    mOwner.mReaders.insert(this);
  }
  ~Reader() override {
    nsAutoLock lock(mOwner.mLock);
    mOwner.mReaders.erase(this);
  }

  nsresult Open(const nsAString& aRoot) override {
    if (nsresult rv = mOwner.Enter("Open"); NS_FAILED(rv)) return rv;
    nsPlatformFiles::Entry entry;
    if (nsresult rv = mOwner.mFiles->ReadEntry(aRoot, &entry); NS_FAILED(rv)) return rv;
    if (entry.mKind != nsPlatformFiles::kDirectory) return NS_ERROR_FILE_NOT_DIRECTORY;
    nsAutoLock lock(mOwner.mLock);
    if (mIsOpen) return NS_ERROR_ALREADY_INITIALIZED;
    mIsOpen = true;
    mRoot = std::u16string(NS_View(aRoot)) + mOwner.mFiles->Separator();
    return NS_OK;
  }
  bool IsOpen() const override {
    nsAutoLock lock(mOwner.mLock);
    return mIsOpen;
  }
  // The handle is of the whole tree.
  nsresult Watch(const nsAString&) override { return IsOpen() ? NS_OK : NS_ERROR_NOT_INITIALIZED; }
  std::vector<nsPlatformUnwatched> TakeUnwatched() override { return {}; }
  std::vector<nsPlatformUnwatched> StillUnwatched() override { return {}; }
  void Close() override {
    nsAutoLock lock(mOwner.mLock);
    mIsOpen = false;
    mCompletion = nullptr;
    mNames.clear();
    mEmpty.reset();
    mOwner.mChanged.NotifyAll();
  }

  nsresult Read(uint8_t* aBuffer, uint32_t aSize, bool, uint32_t,
                Completion* aCompletion) override {
    if (nsresult rv = mOwner.Enter("Read"); NS_FAILED(rv)) return rv;
    nsAutoLock lock(mOwner.mLock);
    if (!mIsOpen) return NS_ERROR_NOT_INITIALIZED;
    if (mCompletion) return NS_ERROR_IN_PROGRESS;
    mBuffer = aBuffer;
    mSize = aSize;
    mCompletion = aCompletion;
    return NS_OK;
  }

  void Wait() override {
    nsAutoLock lock(mOwner.mLock);
    mIsWaiting = true;
    mOwner.mChanged.NotifyAll();
    mOwner.mChanged.Wait(lock, [this] { return mIsWoken || CanComplete(); });
    mIsWaiting = mIsWoken = false;
  }
  bool Consume() override {
    nsAutoLock lock(mOwner.mLock);
    if (!CanComplete()) return false;
    Completion* const completion = std::exchange(mCompletion, nullptr);
    nsresult result = NS_OK;
    nsPlatformChangeRecordWriter writer(mBuffer, mSize);
    if (mEmpty)
      result = *std::exchange(mEmpty, {});
    else
      while (!mNames.empty() && writer.Append(mNames.front())) mNames.pop_front();
    lock.Unlock();
    completion->OnReadCompleted(result, writer.Bytes());
    return true;
  }
  void Wake() override {
    nsAutoLock lock(mOwner.mLock);
    mIsWoken = true;
    mOwner.mChanged.NotifyAll();
  }
  void Remind(std::u16string_view aName) override {
    nsAutoLock lock(mOwner.mLock);
    if (mIsOpen) mNames.emplace_back(aName);
    mOwner.mChanged.NotifyAll();
  }

  // With the owner's lock held.
  void Name(std::u16string_view aPath) {
    if (mIsOpen && aPath.starts_with(mRoot)) mNames.emplace_back(aPath.substr(mRoot.size()));
  }
  void CompleteEmpty(nsresult aResult) {
    if (mIsOpen) mEmpty = aResult;
  }
  bool IsIdle() const { return !mIsOpen || (mIsWaiting && !mIsWoken && mNames.empty() && !mEmpty); }

 private:
  bool CanComplete() const { return mCompletion && (mEmpty || !mNames.empty()); }

  nsSimulatedDirectoryChanges& mOwner;
  bool mIsOpen = false, mIsWoken = false, mIsWaiting = false;
  std::u16string mRoot;
  std::deque<std::u16string> mNames;
  std::optional<nsresult> mEmpty;
  uint8_t* mBuffer = nullptr;
  uint32_t mSize = 0;
  Completion* mCompletion = nullptr;
};

nsSimulatedDirectoryChanges::nsSimulatedDirectoryChanges(nsSimulatedCallsRef aCalls,
                                                         std::shared_ptr<nsSimulatedFiles> aFiles)
    : nsSimulatedPort(std::move(aCalls), "DirectoryChanges"), mFiles(std::move(aFiles)) {
  mFiles->SetObserver([this](std::u16string_view aPath) { Name(aPath); });
}

nsSimulatedDirectoryChanges::~nsSimulatedDirectoryChanges() { mFiles->SetObserver(nullptr); }

std::unique_ptr<nsPlatformDirectoryReader> nsSimulatedDirectoryChanges::NewReader() {
  return std::make_unique<Reader>(*this);
}

void nsSimulatedDirectoryChanges::Name(std::u16string_view aPath) {
  nsAutoLock lock(mLock);
  for (Reader* reader : mReaders) reader->Name(aPath);
  mChanged.NotifyAll();
}

void nsSimulatedDirectoryChanges::CompleteEmpty(nsresult aResult) {
  nsAutoLock lock(mLock);
  for (Reader* reader : mReaders) reader->CompleteEmpty(aResult);
  mChanged.NotifyAll();
}

void nsSimulatedDirectoryChanges::AwaitDelivery() {
  nsAutoLock lock(mLock);
  mChanged.Wait(lock, [this]() NS_REQUIRES(mLock) {
    return std::ranges::all_of(mReaders, [](Reader* aReader) { return aReader->IsIdle(); });
  });
}
