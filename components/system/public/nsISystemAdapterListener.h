// Hears of changes in the manager's list of adapters.
#pragma once

#include "nsXPCOMTypes.h"

class nsISystemAdapter;

/// Given to nsISystemManager::AddAdapterListener. Called on the main thread, in the order of
/// registration, while the call that made the change waits. Results are ignored: a listener that
/// fails disturbs nobody.
///
/// A listener may add and remove listeners. One that is added is called in the same round; one that
/// removes itself makes the round skip the listener after it.
class nsISystemAdapterListener : public nsISupports {
 public:
  using Self = nsISystemAdapterListener;
  using Base = nsISupports;
  static constexpr std::string_view kName = "nsISystemAdapterListener";
  static constexpr nsIID kIID = "18b1c3ce-6c05-47ac-9b26-a003a2f40357"_iid;

  /// The adapter is in the list. Its bindings are not made yet.
  virtual nsresult OnAdapterAdded(nsISystemAdapter* aAdapter) = 0;
  /// The adapter is out of the list. Its bindings still are in theirs, and go next.
  virtual nsresult OnAdapterRemoved(nsISystemAdapter* aAdapter) = 0;
  /// What the adapter reports has changed.
  virtual nsresult OnAdapterChanged(nsISystemAdapter* aAdapter) = 0;

 protected:
  ~nsISystemAdapterListener() = default;
};
