// Hears what a snapshot tree finds.
#pragma once

#include <vector>

#include "nsString.h"
#include "nsXPCOMTypes.h"

/// Paths are absolute, in the platform's form; a directory's ends in the separator, except in
/// OnTreeReady. Called on the thread that set the tree up; results are ignored. The tree holds its
/// listener weakly, and the listener may drop the tree from within a call.
class nsISystemFileSystemTreeListener : public nsISupports {
 public:
  using Self = nsISystemFileSystemTreeListener;
  using Base = nsISupports;
  static constexpr std::string_view kName = "nsISystemFileSystemTreeListener";
  static constexpr nsIID kIID = "579f2210-8f3f-4f05-80c0-14e509b3c19f"_iid;

  /// A type of nsSystemFileSystemChange: eChanged, eAdded or eRemoved.
  virtual nsresult OnChangeFound(const nsAString& aPath, uint32_t aChangeType) = 0;
  virtual nsresult OnMoveFound(const nsAString& aOldPath, const nsAString& aNewPath) = 0;
  /// The first snapshot stands. The paths of all directories in it but the root; no order.
  virtual nsresult OnTreeReady(const nsAString& aRootPath,
                               const std::vector<nsString>& aDiscoveredDirs) = 0;
  /// There is nothing at the root's path. No other call follows.
  virtual nsresult OnRootPathMissing() = 0;
  /// Kept for the order of operations: the tree never calls it.
  virtual nsresult OnTreeError() = 0;

 protected:
  ~nsISystemFileSystemTreeListener() = default;
};
