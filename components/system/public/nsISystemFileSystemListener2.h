// A listener that also hears of moves.
#pragma once

#include "nsISystemFileSystemListener.h"

/// A client of the shared service that does not implement this one hears a removal and an addition
/// in place of a move.
class nsISystemFileSystemListener2 : public nsISystemFileSystemListener {
 public:
  using Self = nsISystemFileSystemListener2;
  using Base = nsISystemFileSystemListener;
  static constexpr std::string_view kName = "nsISystemFileSystemListener2";
  static constexpr nsIID kIID = "f4ab2474-001b-495e-8eea-7c84b2a906e1"_iid;

  /// Something has another name or another place below the root. Of a directory, one call for each
  /// entry below it comes first, the deepest first, then its own.
  virtual nsresult OnFileSystemMoved(const nsAString& aOldPath, const nsAString& aNewPath) = 0;

 protected:
  ~nsISystemFileSystemListener2() = default;
};
