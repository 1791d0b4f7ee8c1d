// Hears of changes in the manager's list of application profile bindings.
#pragma once

#include "nsXPCOMTypes.h"

class nsISystemApplicationProfileBinding;

/// Given to nsISystemManager::AddProfileBindingListener. Called on the main thread, in the order of
/// registration, while the call that made the change waits. Results are ignored. For listeners that
/// come and go during a round see nsISystemAdapterListener.
class nsISystemProfileBindingListener : public nsISupports {
 public:
  using Self = nsISystemProfileBindingListener;
  using Base = nsISupports;
  static constexpr std::string_view kName = "nsISystemProfileBindingListener";
  static constexpr nsIID kIID = "81fd2b61-2afd-44fd-9316-4d4a9b6d61e7"_iid;

  /// The binding is in the list and in force.
  virtual nsresult OnProfileBindingAdded(nsISystemApplicationProfileBinding* aBinding) = 0;
  /// The binding is out of the list.
  virtual nsresult OnProfileBindingRemoved(nsISystemApplicationProfileBinding* aBinding) = 0;

 protected:
  ~nsISystemProfileBindingListener() = default;
};
