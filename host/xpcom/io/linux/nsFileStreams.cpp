#include "nsFileStreams.h"

#include <fcntl.h>
#include <prio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>

#include "nsErrno.h"
#include "nsIFile.h"
#include "nsString.h"

namespace {

bool Has(int32_t aBehavior, uint32_t aFlag) { return static_cast<uint32_t>(aBehavior) & aFlag; }

int SystemFlags(int32_t aFlags) {
  struct Flag {
    int32_t mOurs;
    int mSystem;
  };
  static constexpr Flag kFlags[] = {{PR_CREATE_FILE, O_CREAT},
                                    {PR_APPEND, O_APPEND},
                                    {PR_TRUNCATE, O_TRUNC},
                                    {PR_SYNC, O_SYNC},
                                    {PR_EXCL, O_EXCL}};
  int flags = O_CLOEXEC | (aFlags & PR_RDWR ? O_RDWR : aFlags & PR_WRONLY ? O_WRONLY : O_RDONLY);
  for (const Flag& each : kFlags)
    if (aFlags & each.mOurs) flags |= each.mSystem;
  return flags;
}

nsresult PathOf(nsIFile* aFile, std::string* aPath) {
  if (!aFile) return NS_ERROR_NULL_POINTER;
  nsCString path;
  const nsresult rv = aFile->GetNativePath(path);
  if (NS_SUCCEEDED(rv)) *aPath = path.view();
  return rv;
}

nsresult StreamError() {
  return errno == ENOSPC || errno == EDQUOT ? NS_ERROR_FILE_NO_DEVICE_SPACE
                                            : NS_BASE_STREAM_OSERROR;
}

/// Moves up to a count of bytes from a stream to whatever aWrite writes to.
template <class Write>
nsresult CopyFrom(nsIInputStream* aFrom, uint32_t aCount, uint32_t* aCopied, Write aWrite) {
  if (!aFrom || !aCopied) return NS_ERROR_NULL_POINTER;
  *aCopied = 0;
  char buffer[8192];
  while (*aCopied < aCount) {
    uint32_t read = 0;
    nsresult rv = aFrom->Read(buffer, std::min<uint32_t>(sizeof buffer, aCount - *aCopied), &read);
    if (NS_FAILED(rv)) return *aCopied ? NS_OK : rv;
    if (read == 0) break;
    rv = aWrite(buffer, read);
    if (NS_FAILED(rv)) return rv;
    *aCopied += read;
  }
  return NS_OK;
}

}  // namespace

nsresult nsOpenFile::Init(std::string aPath, int aFlags, uint32_t aPermissions, bool aDefer) {
  (void)Close();
  mPath = std::move(aPath);
  mFlags = aFlags;
  mPermissions = aPermissions;
  mState = State::eDeferred;
  return aDefer ? NS_OK : EnsureOpen();
}

nsresult nsOpenFile::Reopen() {
  if (mState == State::eNone) return NS_ERROR_NOT_INITIALIZED;
  (void)Close();
  mState = State::eDeferred;
  return EnsureOpen();
}

nsresult nsOpenFile::EnsureOpen() {
  switch (mState) {
    case State::eNone:
      return NS_ERROR_NOT_INITIALIZED;
    case State::eClosed:
      return NS_BASE_STREAM_CLOSED;
    case State::eOpen:
      return NS_OK;
    case State::eDeferred:
      break;
  }
  mFd = open(mPath.c_str(), mFlags, mPermissions);
  if (mFd < 0) return NS_LastResult();
  mState = State::eOpen;
  return NS_OK;
}

nsresult nsOpenFile::Close() {
  if (mState != State::eNone) mState = State::eClosed;
  if (mFd < 0) return NS_OK;
  return close(std::exchange(mFd, -1)) == 0 ? NS_OK : StreamError();
}

nsresult nsOpenFile::Read(char* aBuf, uint32_t aCount, uint32_t* aRead) {
  const nsresult rv = EnsureOpen();
  if (NS_FAILED(rv)) return rv;
  ssize_t count;
  do count = read(mFd, aBuf, aCount);
  while (count < 0 && errno == EINTR);
  if (count < 0) return StreamError();
  *aRead = static_cast<uint32_t>(count);
  return NS_OK;
}

nsresult nsOpenFile::Write(const char* aBuf, uint32_t aCount) {
  const nsresult rv = EnsureOpen();
  if (NS_FAILED(rv)) return rv;
  for (uint32_t done = 0; done < aCount;) {
    const ssize_t count = write(mFd, aBuf + done, aCount - done);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return StreamError();
    done += static_cast<uint32_t>(count);
  }
  return NS_OK;
}

nsresult nsOpenFile::Sync() {
  const nsresult rv = EnsureOpen();
  if (NS_FAILED(rv)) return rv;
  // Pipes and devices have nothing to bring to a disk.
  return fsync(mFd) == 0 || errno == EINVAL || errno == ENOTSUP ? NS_OK : StreamError();
}

nsresult nsOpenFile::Seek(int32_t aWhence, int64_t aOffset) {
  static constexpr int kWhence[] = {SEEK_SET, SEEK_CUR, SEEK_END};
  if (aWhence < 0 || aWhence > 2) return NS_ERROR_INVALID_ARG;
  const nsresult rv = EnsureOpen();
  if (NS_FAILED(rv)) return rv;
  return lseek(mFd, aOffset, kWhence[aWhence]) >= 0 ? NS_OK : NS_LastResult();
}

nsresult nsOpenFile::Tell(int64_t* aPosition) {
  if (!aPosition) return NS_ERROR_NULL_POINTER;
  const nsresult rv = EnsureOpen();
  if (NS_FAILED(rv)) return rv;
  const off_t position = lseek(mFd, 0, SEEK_CUR);
  if (position < 0) return NS_LastResult();
  *aPosition = position;
  return NS_OK;
}

nsresult nsOpenFile::Size(int64_t* aSize) {
  const nsresult rv = EnsureOpen();
  if (NS_FAILED(rv)) return rv;
  struct stat facts;
  if (fstat(mFd, &facts) != 0) return NS_LastResult();
  *aSize = facts.st_size;
  return NS_OK;
}

nsresult nsOpenFile::Truncate() {
  int64_t position = 0;
  const nsresult rv = Tell(&position);
  if (NS_FAILED(rv)) return rv;
  return ftruncate(mFd, position) == 0 ? NS_OK : NS_LastResult();
}

// ---- Input

const nsClassInfoRecord nsFileInputStream::kClassInfo = {
    NS_ClassInterfaces<nsIInputStream, nsIFileInputStream, nsISeekableStream>, nullptr, 0,
    "be9a53ae-c7e9-11d3-8cda-0060b0fc14a3"_iid};

nsresult nsFileInputStream::Init(nsIFile* aFile, int32_t aIOFlags, int32_t aPerm,
                                 int32_t aBehaviorFlags) {
  std::string path;
  const nsresult rv = PathOf(aFile, &path);
  if (NS_FAILED(rv)) return rv;
  mBehavior = aBehaviorFlags;
  return mFile.Init(path, SystemFlags(aIOFlags == -1 ? PR_RDONLY : aIOFlags),
                    aPerm == -1 ? 0 : static_cast<uint32_t>(aPerm),
                    Has(aBehaviorFlags, DEFER_OPEN));
}

nsresult nsFileInputStream::Close() {
  if (Has(mBehavior, DELETE_ON_CLOSE) && !mFile.Path().empty() && !mFile.IsClosed())
    (void)unlink(mFile.Path().c_str());
  return mFile.Close();
}

nsresult nsFileInputStream::Available(uint32_t* aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  int64_t position = 0, size = 0;
  nsresult rv = mFile.Tell(&position);
  if (NS_SUCCEEDED(rv)) rv = mFile.Size(&size);
  if (NS_SUCCEEDED(rv))
    *aResult = static_cast<uint32_t>(std::clamp<int64_t>(size - position, 0, UINT32_MAX));
  return rv;
}

nsresult nsFileInputStream::Read(char* aBuf, uint32_t aCount, uint32_t* aResult) {
  if (!aBuf || !aResult) return NS_ERROR_NULL_POINTER;
  *aResult = 0;
  if (mFile.IsClosed()) return NS_OK;
  const nsresult rv = mFile.Read(aBuf, aCount, aResult);
  if (NS_SUCCEEDED(rv) && *aResult == 0 && aCount > 0 && Has(mBehavior, CLOSE_ON_EOF))
    (void)Close();
  return rv;
}

nsresult nsFileInputStream::IsNonBlocking(bool* aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  *aResult = false;
  return NS_OK;
}

nsresult nsFileInputStream::Seek(int32_t aWhence, int64_t aOffset) {
  if (mFile.IsClosed() && Has(mBehavior, REOPEN_ON_REWIND) && aWhence == NS_SEEK_SET &&
      aOffset == 0)
    return mFile.Reopen();
  return mFile.Seek(aWhence, aOffset);
}

nsresult nsFileInputStream::Tell(int64_t* aResult) { return mFile.Tell(aResult); }
nsresult nsFileInputStream::SetEOF() { return mFile.Truncate(); }

// ---- Output

const nsClassInfoRecord nsFileOutputStream::kClassInfo = {
    NS_ClassInterfaces<nsIOutputStream, nsIFileOutputStream, nsISeekableStream>, nullptr, 0,
    "c272fee0-c7e9-11d3-8cda-0060b0fc14a3"_iid};

nsresult nsFileOutputStream::Init(nsIFile* aFile, int32_t aIOFlags, int32_t aPerm,
                                  int32_t aBehaviorFlags) {
  std::string path;
  const nsresult rv = PathOf(aFile, &path);
  if (NS_FAILED(rv)) return rv;
  const int32_t flags = aIOFlags == -1 ? PR_WRONLY | PR_CREATE_FILE | PR_TRUNCATE : aIOFlags;
  return mFile.Init(path, SystemFlags(flags), aPerm == -1 ? 0664 : static_cast<uint32_t>(aPerm),
                    Has(aBehaviorFlags, DEFER_OPEN));
}

nsresult nsFileOutputStream::Close() { return mFile.Close(); }
nsresult nsFileOutputStream::Flush() { return mFile.Sync(); }

nsresult nsFileOutputStream::Write(const char* aBuf, uint32_t aCount, uint32_t* aResult) {
  if (!aBuf || !aResult) return NS_ERROR_NULL_POINTER;
  const nsresult rv = mFile.Write(aBuf, aCount);
  if (NS_SUCCEEDED(rv)) *aResult = aCount;
  return rv;
}

nsresult nsFileOutputStream::WriteFrom(nsIInputStream* aFromStream, uint32_t aCount,
                                       uint32_t* aResult) {
  return CopyFrom(aFromStream, aCount, aResult, [this](const char* aBuf, uint32_t aLength) {
    return mFile.Write(aBuf, aLength);
  });
}

nsresult nsFileOutputStream::IsNonBlocking(bool* aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  *aResult = false;
  return NS_OK;
}

nsresult nsFileOutputStream::Seek(int32_t aWhence, int64_t aOffset) {
  return mFile.Seek(aWhence, aOffset);
}
nsresult nsFileOutputStream::Tell(int64_t* aResult) { return mFile.Tell(aResult); }
nsresult nsFileOutputStream::SetEOF() { return mFile.Truncate(); }

// ---- Safe output

const nsClassInfoRecord nsSafeFileOutputStream::kClassInfo = {
    NS_ClassInterfaces<nsIOutputStream, nsIFileOutputStream, nsISafeOutputStream>, nullptr, 0,
    "a181af0d-68b8-4308-94db-d4f859058215"_iid};

nsresult nsSafeFileOutputStream::Init(nsIFile* aFile, int32_t /*aIOFlags*/, int32_t aPerm,
                                      int32_t /*aBehaviorFlags*/) {
  std::string path;
  nsresult rv = PathOf(aFile, &path);
  if (NS_FAILED(rv)) return rv;
  (void)Close();
  // What a link leads to is replaced, not the link.
  std::error_code error;
  const std::filesystem::path target = std::filesystem::canonical(path, error);
  mTarget = error ? path : target.native();
  uint32_t permissions = aPerm == -1 ? 0664 : static_cast<uint32_t>(aPerm);
  struct stat facts;
  const bool isThere = stat(mTarget.c_str(), &facts) == 0;
  if (isThere && S_ISDIR(facts.st_mode)) return NS_ERROR_FILE_IS_DIRECTORY;
  const std::string temporary = mTarget + ".writing." + std::to_string(getpid());
  (void)unlink(temporary.c_str());
  rv = mFile.Init(temporary, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, permissions, false);
  if (NS_SUCCEEDED(rv) && isThere && chmod(temporary.c_str(), facts.st_mode & 07777) != 0)
    rv = NS_LastResult();
  mWriteResult = rv;
  return rv;
}

nsresult nsSafeFileOutputStream::Close() {
  if (mFile.Path().empty() || mFile.IsClosed()) return NS_OK;
  (void)mFile.Close();
  (void)unlink(mFile.Path().c_str());
  return NS_OK;
}

nsresult nsSafeFileOutputStream::Flush() { return mFile.Sync(); }

nsresult nsSafeFileOutputStream::Write(const char* aBuf, uint32_t aCount, uint32_t* aResult) {
  if (!aBuf || !aResult) return NS_ERROR_NULL_POINTER;
  const nsresult rv = mFile.Write(aBuf, aCount);
  if (NS_FAILED(rv)) return NS_FAILED(mWriteResult) ? rv : mWriteResult = rv;
  *aResult = aCount;
  return NS_OK;
}

nsresult nsSafeFileOutputStream::WriteFrom(nsIInputStream* aFromStream, uint32_t aCount,
                                           uint32_t* aResult) {
  return CopyFrom(aFromStream, aCount, aResult, [this](const char* aBuf, uint32_t aLength) {
    uint32_t written = 0;
    return Write(aBuf, aLength, &written);
  });
}

nsresult nsSafeFileOutputStream::IsNonBlocking(bool* aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  *aResult = false;
  return NS_OK;
}

nsresult nsSafeFileOutputStream::Finish() {
  nsresult rv = mWriteResult;
  if (NS_SUCCEEDED(rv)) rv = mFile.Sync();
  if (NS_SUCCEEDED(rv)) rv = mFile.Close();
  if (NS_SUCCEEDED(rv) && rename(mFile.Path().c_str(), mTarget.c_str()) != 0) {
    rv = NS_LastResult();
    (void)unlink(mFile.Path().c_str());
  }
  if (NS_FAILED(rv)) {
    (void)Close();
    return rv;
  }
  // The new name, too, is on the disk.
  nsOpenFile directory;
  rv = directory.Init(std::filesystem::path(mTarget).parent_path().native(),
                      O_RDONLY | O_DIRECTORY | O_CLOEXEC, 0, false);
  return NS_FAILED(rv) ? rv : directory.Sync();
}
