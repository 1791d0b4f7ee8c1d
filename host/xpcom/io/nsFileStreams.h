// Streams from and to files: "@mozilla.org/network/file-input-stream;1", "...file-output-stream;1",
// "...safe-file-output-stream;1".
//
// One thread at a time. Flags are NSPR's (PR_RDONLY, PR_CREATE_FILE and so on). A file that can't
// be opened is the system's error (nsErrno.h); a stream that has not been initialised is
// NS_ERROR_NOT_INITIALIZED; after Close everything but Close is NS_BASE_STREAM_CLOSED, and reading
// gives 0 bytes. An error while reading or writing is NS_BASE_STREAM_OSERROR, but for a full disk,
// NS_ERROR_FILE_NO_DEVICE_SPACE.
#pragma once

#include <string>

#include "nsIFileInputStream.h"
#include "nsIFileOutputStream.h"
#include "nsISafeOutputStream.h"
#include "nsISeekableStream.h"
#include "nsImplements.h"

/// A file that is open, was open, or will be at its first use.
class nsOpenFile {
 public:
  nsOpenFile() = default;
  nsOpenFile(const nsOpenFile&) = delete;
  nsOpenFile& operator=(const nsOpenFile&) = delete;
  ~nsOpenFile() { (void)Close(); }

  /// Opens it now, or at the first use.
  nsresult Init(std::string aPath, int aFlags, uint32_t aPermissions, bool aDefer);
  /// Again what Init said.
  nsresult Reopen();
  /// Nothing the second time.
  nsresult Close();
  bool IsClosed() const { return mState == State::eClosed; }
  const std::string& Path() const { return mPath; }

  nsresult Read(char* aBuf, uint32_t aCount, uint32_t* aRead);
  /// All of it, or a failure.
  nsresult Write(const char* aBuf, uint32_t aCount);
  nsresult Sync();
  nsresult Seek(int32_t aWhence, int64_t aOffset);
  nsresult Tell(int64_t* aPosition);
  nsresult Size(int64_t* aSize);
  /// Cuts it off where it stands.
  nsresult Truncate();

 private:
  enum class State { eNone, eDeferred, eOpen, eClosed };
  nsresult EnsureOpen();

  State mState = State::eNone;
  std::string mPath;
  int mFlags = 0;
  uint32_t mPermissions = 0;
  int mFd = -1;
};

/// Flags of -1 are PR_RDONLY.
class nsFileInputStream final
    : public nsImplements<nsFileInputStream, nsIFileInputStream, nsISeekableStream> {
 public:
  static const nsClassInfoRecord kClassInfo;
  nsresult Init(nsIFile* aFile, int32_t aIOFlags, int32_t aPerm, int32_t aBehaviorFlags) override;
  nsresult Close() override;
  nsresult Available(uint32_t* aResult) override;
  nsresult Read(char* aBuf, uint32_t aCount, uint32_t* aResult) override;
  /// NS_ERROR_NOT_IMPLEMENTED: there is no buffer to hand out.
  nsresult ReadSegments(nsWriteSegmentFun, void*, uint32_t, uint32_t*) override {
    return NS_ERROR_NOT_IMPLEMENTED;
  }
  nsresult IsNonBlocking(bool* aResult) override;
  nsresult Seek(int32_t aWhence, int64_t aOffset) override;
  nsresult Tell(int64_t* aResult) override;
  nsresult SetEOF() override;

 private:
  ~nsFileInputStream() override { (void)Close(); }
  nsOpenFile mFile;
  int32_t mBehavior = 0;
};

/// Flags of -1 are PR_WRONLY | PR_CREATE_FILE | PR_TRUNCATE, permissions of -1 are 0664. Flush
/// brings what was written to the disk.
class nsFileOutputStream final
    : public nsImplements<nsFileOutputStream, nsIFileOutputStream, nsISeekableStream> {
 public:
  static const nsClassInfoRecord kClassInfo;
  nsresult Init(nsIFile* aFile, int32_t aIOFlags, int32_t aPerm, int32_t aBehaviorFlags) override;
  nsresult Close() override;
  nsresult Flush() override;
  nsresult Write(const char* aBuf, uint32_t aCount, uint32_t* aResult) override;
  nsresult WriteFrom(nsIInputStream* aFromStream, uint32_t aCount, uint32_t* aResult) override;
  /// NS_ERROR_NOT_IMPLEMENTED: there is no buffer to hand out.
  nsresult WriteSegments(nsReadSegmentFun, void*, uint32_t, uint32_t*) override {
    return NS_ERROR_NOT_IMPLEMENTED;
  }
  nsresult IsNonBlocking(bool* aResult) override;
  nsresult Seek(int32_t aWhence, int64_t aOffset) override;
  nsresult Tell(int64_t* aResult) override;
  nsresult SetEOF() override;

 private:
  ~nsFileOutputStream() override = default;
  nsOpenFile mFile;
};

/// Writes to a file next to the wanted one. Finish brings it to the disk and gives it the name, in
/// one step; whatever was there before is then gone, and its permissions are kept. Closed or
/// dropped without Finish, or after any write that failed, the wanted file is as it was. The flags
/// are not looked at: the whole file is written.
class nsSafeFileOutputStream final
    : public nsImplements<nsSafeFileOutputStream, nsIFileOutputStream, nsISafeOutputStream> {
 public:
  static const nsClassInfoRecord kClassInfo;
  nsresult Init(nsIFile* aFile, int32_t aIOFlags, int32_t aPerm, int32_t aBehaviorFlags) override;
  nsresult Close() override;
  nsresult Flush() override;
  nsresult Write(const char* aBuf, uint32_t aCount, uint32_t* aResult) override;
  nsresult WriteFrom(nsIInputStream* aFromStream, uint32_t aCount, uint32_t* aResult) override;
  nsresult WriteSegments(nsReadSegmentFun, void*, uint32_t, uint32_t*) override {
    return NS_ERROR_NOT_IMPLEMENTED;
  }
  nsresult IsNonBlocking(bool* aResult) override;
  /// The first failure of a write, if there was one.
  nsresult Finish() override;

 private:
  ~nsSafeFileOutputStream() override { (void)Close(); }
  nsOpenFile mFile;
  std::string mTarget;
  nsresult mWriteResult = NS_OK;
};
