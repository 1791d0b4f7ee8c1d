// Who uses a serial line: the lock files of the system's convention.
#pragma once

#include <sys/types.h>

#include <string>

#include "nsError.h"

/// A file LCK..ttyS0 with the number of the process that uses /dev/ttyS0; removed with this object.
class nsPortLock {
 public:
  nsPortLock() = default;
  nsPortLock(nsPortLock&& aOther) noexcept;
  nsPortLock& operator=(nsPortLock&& aOther) noexcept;
  ~nsPortLock() { Release(); }

  /// NS_ERROR_FILE_IS_LOCKED when a process that lives uses it, *aUser is then "1234 (minicom)".
  /// Success also where no file can be made there: then nobody else can either. A file of a
  /// process that is gone is replaced.
  nsresult Acquire(const std::string& aDirectory, const std::string& aDevice, std::string* aUser);
  void Release();

 private:
  std::string mPath;
};
