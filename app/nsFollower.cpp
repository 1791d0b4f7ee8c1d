#include "nsFollower.h"

#include <nlohmann/json.hpp>

#include "nsISystemAdapter.h"
#include "nsISystemApplicationProfile.h"

void nsFollower::Tell(const char* aEvent, const char* aKey, nlohmann::ordered_json aWhat) const {
  mReport({{"event", aEvent}, {aKey, std::move(aWhat)}});
}

nsresult nsFollower::OnAdapterAdded(nsISystemAdapter* aAdapter) {
  if (mReport) Tell("adapter-added", "adapter", mPicture.Describe(aAdapter));
  return NS_OK;
}

nsresult nsFollower::OnAdapterRemoved(nsISystemAdapter* aAdapter) {
  if (mReport) Tell("adapter-removed", "adapter", mPicture.Describe(aAdapter));
  return NS_OK;
}

nsresult nsFollower::OnAdapterChanged(nsISystemAdapter* aAdapter) {
  if (mReport) Tell("adapter-changed", "adapter", mPicture.Describe(aAdapter));
  return NS_OK;
}

nsresult nsFollower::OnProfileBindingAdded(nsISystemApplicationProfileBinding* aBinding) {
  mBindings.emplace_back(aBinding);
  if (mReport) Tell("binding-added", "binding", mPicture.DescribeBinding(aBinding, {}));
  return NS_OK;
}

nsresult nsFollower::OnProfileBindingRemoved(nsISystemApplicationProfileBinding* aBinding) {
  std::erase(mBindings, aBinding);
  if (mReport) Tell("binding-removed", "binding", mPicture.DescribeBinding(aBinding, {}));
  return NS_OK;
}
