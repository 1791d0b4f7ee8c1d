// The port of directory changes: names of what has changed below a root, as an asynchronous read.
//
// The shape is that of an overlapped read of a directory's changes: the read is issued, its
// completion is delivered as a call on the issuing thread, and what changes between two reads is
// kept for the next. A name says where to look and never what happened there.
#pragma once

#include <cstdint>
#include <cstring>
#include <memory>
#include <string_view>
#include <vector>

#include "nsEventSource.h"
#include "nsString.h"
#include "nsXPCOMStrings.h"

/// What a completed read leaves in the buffer: one record after another. Integers are in the
/// machine's byte order, records start at multiples of 4.
///
/// Names are relative to the root and have the platform's separators. The last component may be
/// ".": the directory itself is to be looked at.
struct nsPlatformChangeRecord {
  uint32_t mNextEntryOffset;  ///< From the start of this record to the next; 0 on the last.
  uint32_t mAction;           ///< Not to be read.
  uint32_t mFileNameLength;   ///< In bytes.
  // The name follows, UTF-16, not closed by a zero.

  static constexpr uint32_t kSize = 12;
};

/// Fills a buffer the way a completed read leaves it; for backends.
class nsPlatformChangeRecordWriter {
 public:
  nsPlatformChangeRecordWriter(uint8_t* aBuffer, uint32_t aSize) : mBuffer(aBuffer), mSize(aSize) {}

  /// False, and nothing written, when the name has no room in what is left.
  bool Append(std::u16string_view aName) {
    const size_t length = aName.size() * sizeof(char16_t);
    const uint32_t start = (mEnd + 3) & ~3u;
    if (length > mSize || start + nsPlatformChangeRecord::kSize + length > mSize) return false;
    const nsPlatformChangeRecord record{0, 0, static_cast<uint32_t>(length)};
    std::memcpy(mBuffer + start, &record, nsPlatformChangeRecord::kSize);
    std::memcpy(mBuffer + start + nsPlatformChangeRecord::kSize, aName.data(), length);
    const uint32_t offset = start - mLast;
    if (mEnd) std::memcpy(mBuffer + mLast, &offset, sizeof offset);
    mLast = start;
    mEnd = start + nsPlatformChangeRecord::kSize + static_cast<uint32_t>(length);
    return true;
  }
  uint32_t Bytes() const { return mEnd; }

 private:
  uint8_t* const mBuffer;
  const uint32_t mSize;
  uint32_t mLast = 0;
  uint32_t mEnd = 0;
};

/// A directory below the root that is not watched, and is tried again from time to time.
struct nsPlatformUnwatched {
  nsString mPath;  ///< Absolute.
  /// NS_ERROR_FILE_ACCESS_DENIED; NS_ERROR_FAILURE when the system can watch no more, which may be
  /// so for others too.
  nsresult mReason = NS_ERROR_FAILURE;
};

/// One directory that may be watched. As a source of events: there is something to consume when a
/// read that was issued can complete, and consuming completes it.
///
/// A reader guarantees: it does no work on files on the thread that waits and consumes; nothing is
/// lost between two reads; every directory in which something changed after it was watched is
/// named, with names that are already out of date by then; directories that appear or move, and
/// volumes that are mounted or unmounted below the root, are watched before they are named. Names
/// may come more than once and for no reason. When it can't keep this up, it completes with a
/// failure or with 0 bytes, and delivers no more.
class nsPlatformDirectoryReader : public nsEventSource {
 public:
  /// Called in Consume. NS_ERROR_FILE_NOT_FOUND: the root has gone, or something else is at its
  /// path. Any failure, and 0 bytes: the chain of reads is broken, another read would fail or never
  /// complete.
  class Completion {
   public:
    virtual void OnReadCompleted(nsresult aResult, uint32_t aBytes) = 0;

   protected:
    ~Completion() = default;
  };

  /// Closes the root. No thread may be waiting any more.
  ~nsPlatformDirectoryReader() override = default;

  /// Starts to watch the root, and nothing below it yet; any thread. Links below the root are not
  /// followed, a root that is one is.
  /// NS_ERROR_ALREADY_INITIALIZED when it is open, NS_ERROR_FILE_NOT_FOUND,
  /// NS_ERROR_FILE_NOT_DIRECTORY, NS_ERROR_FILE_ACCESS_DENIED, NS_ERROR_FAILURE when the system can
  /// watch no more.
  /// Windows: CreateFileW, FILE_LIST_DIRECTORY, overlapped.
  virtual nsresult Open(const nsAString& aRoot) = 0;
  /// Windows: none.
  virtual bool IsOpen() const = 0;
  /// Watches one directory below the root, whose absolute path is given; to be called for each of
  /// those that were there before Open, the upper ones first, and before it is listed: what is in
  /// the list and what is named are then all there is. Any thread. NS_ERROR_FILE_NOT_FOUND when it
  /// has gone, NS_ERROR_FILE_ACCESS_DENIED, NS_ERROR_FAILURE when the system can watch no more,
  /// NS_ERROR_NOT_INITIALIZED without an open root.
  /// Windows: nothing, the handle is of the whole tree.
  virtual nsresult Watch(const nsAString& aDirectory) = 0;
  /// What should be watched and can't be, since the last call; a read completes soon after. Each is
  /// named, and taken for a change in it, when it can be watched in the end. Some of many, and not
  /// again before all is watched. Any thread.
  /// Windows: none.
  virtual std::vector<nsPlatformUnwatched> TakeUnwatched() = 0;
  /// Of those that have been taken, the ones that are not watched yet, as of the last time that a
  /// read completed. Any thread.
  /// Windows: none.
  virtual std::vector<nsPlatformUnwatched> StillUnwatched() = 0;
  /// Ends the watch; a read that was issued does not complete. Any thread while none waits or
  /// consumes, or the one that does. Nothing happens without an open root.
  /// Windows: CloseHandle.
  virtual void Close() = 0;

  /// Issues a read. aBuffer, aligned to 4, and aCompletion must last until it has completed or the
  /// root is closed; the buffer is written to in Consume only. aNotifyFilter is made of the
  /// constants below. A name that has no room in the buffer is left out, with a warning. One read
  /// at a time: NS_ERROR_IN_PROGRESS. NS_ERROR_NOT_INITIALIZED without an open root. To be called
  /// on the thread that waits and consumes.
  /// Windows: ReadDirectoryChangesW; Wait is WaitForSingleObjectEx, alertable, and Wake SetEvent.
  virtual nsresult Read(uint8_t* aBuffer, uint32_t aSize, bool aWatchSubtree,
                        uint32_t aNotifyFilter, Completion* aCompletion) = 0;

  /// Names a path below the root as if something had changed there, so that a read completes soon:
  /// for a receiver that still holds names and acts on completions only. Any thread, also while
  /// another one waits. Nothing happens without an open root.
  /// Windows: QueueUserAPC, with a record of its own.
  virtual void Remind(std::u16string_view aName) = 0;

  static constexpr uint32_t kNotifyFileName = 0x1;
  static constexpr uint32_t kNotifyDirName = 0x2;
  static constexpr uint32_t kNotifyLastWrite = 0x10;
  static constexpr uint32_t kNotifyCreation = 0x40;
};

class nsPlatformDirectoryChanges {
 public:
  virtual ~nsPlatformDirectoryChanges() = default;

  /// A reader without an open root. Any thread.
  /// Windows: none.
  virtual std::unique_ptr<nsPlatformDirectoryReader> NewReader() = 0;
};
