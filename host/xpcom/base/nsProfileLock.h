#pragma once

#include <string>

#include "nsError.h"

/// The lock on a profile directory, by which no two processes use one profile. It ends with the
/// process, however that ends: a file that is left over locks nothing.
class nsProfileLock {
 public:
  nsProfileLock() = default;
  nsProfileLock(const nsProfileLock&) = delete;
  nsProfileLock& operator=(const nsProfileLock&) = delete;
  ~nsProfileLock() { Unlock(); }

  /// Makes the directory if it is not there. NS_ERROR_FILE_IS_LOCKED when another process has it;
  /// *aError is a sentence for whoever started this one.
  nsresult Lock(const std::string& aDirectory, std::string* aError);
  void Unlock();

 private:
  int mFd = -1;
};
