// The manager, adapters, and application profiles.
#include "nsIArray.h"
#include "nsIPrefBranch.h"
#include "nsISystemAdapter.h"
#include "nsISystemAdapterListener.h"
#include "nsISystemApplicationProfile.h"
#include "nsISystemApplicationProfileBinding.h"
#include "nsISystemConnector.h"
#include "nsISystemDevice.h"
#include "nsISystemManager.h"
#include "nsISystemProfileBindingListener.h"
#include "nsSystemScript.h"

namespace {

constexpr auto kDevice =
    nsBind<nsISystemDevice, nsAttribute<"name", &nsISystemDevice::GetName>,
           nsAttribute<"label", &nsISystemDevice::GetLabel>, nsLeftOut<&nsISystemDevice::Reserved5>,
           nsLeftOut<&nsISystemDevice::Reserved6>>();

constexpr auto kConnector =
    nsBind<nsISystemConnector, nsAttribute<"name", &nsISystemConnector::GetName>,
           nsAttribute<"mask", &nsISystemConnector::GetMask>,
           nsAttribute<"label", &nsISystemConnector::GetLabel, &nsISystemConnector::SetLabel>,
           nsAttribute<"type", &nsISystemConnector::GetType>,
           nsLeftOut<&nsISystemConnector::Reserved8>, nsLeftOut<&nsISystemConnector::Reserved9>,
           nsLeftOut<&nsISystemConnector::Reserved10>>();

constexpr auto kAdapter =
    nsBind<nsISystemAdapter, nsAttribute<"sysPath", &nsISystemAdapter::GetSysPath>,
           nsAttribute<"label", &nsISystemAdapter::GetLabel>,
           nsAttribute<"connectors", &nsISystemAdapter::GetConnectors>,
           nsAttribute<"attachedObjects", &nsISystemAdapter::GetAttachedObjects>,
           nsAttribute<"device", &nsISystemAdapter::GetDevice>>();

class nsISystemAdapterListenerFace : public nsScriptFace<nsISystemAdapterListener> {
 public:
  using nsScriptFace::nsScriptFace;
  nsresult OnAdapterAdded(nsISystemAdapter* aAdapter) override {
    return Call<"onAdapterAdded", &nsISystemAdapterListener::OnAdapterAdded>(aAdapter);
  }
  nsresult OnAdapterRemoved(nsISystemAdapter* aAdapter) override {
    return Call<"onAdapterRemoved", &nsISystemAdapterListener::OnAdapterRemoved>(aAdapter);
  }
  nsresult OnAdapterChanged(nsISystemAdapter* aAdapter) override {
    return Call<"onAdapterChanged", &nsISystemAdapterListener::OnAdapterChanged>(aAdapter);
  }
};

constexpr auto kAdapterListener =
    nsBind<nsISystemAdapterListener,
           nsMethod<"onAdapterAdded", &nsISystemAdapterListener::OnAdapterAdded, "aAdapter">,
           nsMethod<"onAdapterRemoved", &nsISystemAdapterListener::OnAdapterRemoved, "aAdapter">,
           nsMethod<"onAdapterChanged", &nsISystemAdapterListener::OnAdapterChanged, "aAdapter">,
           nsImplementedBy<nsISystemAdapterListenerFace>>();

constexpr auto kApplicationProfile =
    nsBind<nsISystemApplicationProfile, nsAttribute<"name", &nsISystemApplicationProfile::GetName>,
           nsAttribute<"description", &nsISystemApplicationProfile::GetDescription>,
           nsAttribute<"label", &nsISystemApplicationProfile::GetLabel>>();

class nsISystemApplicationProfileBindingFace
    : public nsScriptFace<nsISystemApplicationProfileBinding> {
 public:
  using nsScriptFace::nsScriptFace;
  nsresult Init(nsISystemAdapter* aAdapter, nsISystemApplicationProfile* aApplicationProfile,
                nsIPrefBranch* aBranch) override {
    return Call<"init", &nsISystemApplicationProfileBinding::Init>(aAdapter, aApplicationProfile,
                                                                   aBranch);
  }
  nsresult IsEnabled(bool* aEnabled) override {
    return Call<"isEnabled", &nsISystemApplicationProfileBinding::IsEnabled>(aEnabled);
  }
  nsresult GetApplicationProfile(nsISystemApplicationProfile** aApplicationProfile) override {
    return Call<"applicationProfile", &nsISystemApplicationProfileBinding::GetApplicationProfile>(
        aApplicationProfile);
  }
  nsresult GetAdapter(nsISystemAdapter** aAdapter) override {
    return Call<"adapter", &nsISystemApplicationProfileBinding::GetAdapter>(aAdapter);
  }
};

constexpr auto kApplicationProfileBinding = nsBind<
    nsISystemApplicationProfileBinding,
    nsMethod<"init", &nsISystemApplicationProfileBinding::Init, "aAdapter", "aApplicationProfile",
             "aBranch">,
    nsMethod<"isEnabled", &nsISystemApplicationProfileBinding::IsEnabled, "aEnabled">,
    nsAttribute<"applicationProfile", &nsISystemApplicationProfileBinding::GetApplicationProfile>,
    nsAttribute<"adapter", &nsISystemApplicationProfileBinding::GetAdapter>,
    nsImplementedBy<nsISystemApplicationProfileBindingFace>>();

class nsISystemProfileBindingListenerFace : public nsScriptFace<nsISystemProfileBindingListener> {
 public:
  using nsScriptFace::nsScriptFace;
  nsresult OnProfileBindingAdded(nsISystemApplicationProfileBinding* aBinding) override {
    return Call<"onProfileBindingAdded", &nsISystemProfileBindingListener::OnProfileBindingAdded>(
        aBinding);
  }
  nsresult OnProfileBindingRemoved(nsISystemApplicationProfileBinding* aBinding) override {
    return Call<"onProfileBindingRemoved",
                &nsISystemProfileBindingListener::OnProfileBindingRemoved>(aBinding);
  }
};

constexpr auto kProfileBindingListener =
    nsBind<nsISystemProfileBindingListener,
           nsMethod<"onProfileBindingAdded",
                    &nsISystemProfileBindingListener::OnProfileBindingAdded, "aBinding">,
           nsMethod<"onProfileBindingRemoved",
                    &nsISystemProfileBindingListener::OnProfileBindingRemoved, "aBinding">,
           nsImplementedBy<nsISystemProfileBindingListenerFace>>();

constexpr auto kManager = nsBind<
    nsISystemManager, nsAttribute<"adapters", &nsISystemManager::GetAdapters>,
    nsMethod<"refreshAdapters", &nsISystemManager::RefreshAdapters, "aIID">,
    nsMethod<"getAdaptersByIId", &nsISystemManager::GetAdaptersByIId, "aIID", "aAdapters">,
    nsMethod<"getApplicationProfileBindingsByProfileUri",
             &nsISystemManager::GetApplicationProfileBindingsByProfileUri, "aUri", "aBindings">,
    // Kept places do nothing.
    nsLeftOut<&nsISystemManager::Reserved7>,
    nsMethod<"addAdapterListener", &nsISystemManager::AddAdapterListener, "aListener">,
    nsMethod<"removeAdapterListener", &nsISystemManager::RemoveAdapterListener, "aListener">,
    nsMethod<"addProfileBindingListener", &nsISystemManager::AddProfileBindingListener,
             "aListener">,
    nsMethod<"removeProfileBindingListener", &nsISystemManager::RemoveProfileBindingListener,
             "aListener">>();

}  // namespace

nsScriptTableList NS_ManagerTables() {
  return {kDevice,
          kConnector,
          kAdapter,
          kAdapterListener,
          kApplicationProfile,
          kApplicationProfileBinding,
          kProfileBindingListener,
          kManager};
}
