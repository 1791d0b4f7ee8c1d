// Hears what the manager tells its listeners: keeps the bindings, and prints the changes if so
// asked.
#pragma once

#include <cstdio>
#include <functional>
#include <nlohmann/json_fwd.hpp>

#include "nsCOMArray.h"
#include "nsISystemAdapterListener.h"
#include "nsISystemApplicationProfileBinding.h"
#include "nsISystemProfileBindingListener.h"
#include "nsImplements.h"
#include "nsPicture.h"

/// Main thread. The manager keeps no list of bindings that can be asked for as a whole, so whoever
/// wants them all listens from before the profile is announced.
class nsFollower final
    : public nsImplements<nsFollower, nsISystemAdapterListener, nsISystemProfileBindingListener> {
 public:
  /// Called with {"event": "adapter-added", ...} and the like.
  using Report = std::function<void(const nlohmann::ordered_json&)>;

  explicit nsFollower(const nsPicture& aPicture) : mPicture(aPicture) {}

  const nsCOMArray<nsISystemApplicationProfileBinding>& Bindings() const { return mBindings; }
  /// From now on changes are reported; an empty function stops it.
  void SetReport(Report aReport) { mReport = std::move(aReport); }

  nsresult OnAdapterAdded(nsISystemAdapter* aAdapter) override;
  nsresult OnAdapterRemoved(nsISystemAdapter* aAdapter) override;
  nsresult OnAdapterChanged(nsISystemAdapter* aAdapter) override;
  nsresult OnProfileBindingAdded(nsISystemApplicationProfileBinding* aBinding) override;
  nsresult OnProfileBindingRemoved(nsISystemApplicationProfileBinding* aBinding) override;

 private:
  ~nsFollower() override = default;
  void Tell(const char* aEvent, const char* aKey, nlohmann::ordered_json aWhat) const;

  const nsPicture& mPicture;
  nsCOMArray<nsISystemApplicationProfileBinding> mBindings;
  Report mReport;
};
