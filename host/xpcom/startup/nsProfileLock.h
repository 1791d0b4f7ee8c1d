// The lock on a profile directory.
#pragma once

#include <string>

#include "nsError.h"
#include "nsUniqueFd.h"

/// The lock by which no two processes use one profile. It ends with the
/// process, however that ends: a file that is left over locks nothing.
class nsProfileLock {
 public:
  /// Makes the directory if it is not there. NS_ERROR_FILE_IS_LOCKED when another process has it;
  /// *aError is a sentence for whoever started this one.
  nsresult Lock(const std::string& aDirectory, std::string* aError);
  void Unlock() { (void)mFd.Close(); }
  /// Locks anew when the lock's file has been removed under this process. As Lock when another one
  /// has made it anew; NS_ERROR_NOT_INITIALIZED before Lock.
  nsresult Keep(std::string* aError);

 private:
  std::string mDirectory;
  nsUniqueFd mFd;
};
