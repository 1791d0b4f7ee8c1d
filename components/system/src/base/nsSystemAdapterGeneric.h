// What all adapters have in common.
//
//   class nsSystemAdapterStorage final
//       : public nsSystemAdapterBase<nsImplements<nsSystemAdapterStorage, nsISystemAdapterStorage>>
//       { ... };
#pragma once

#include "nsCOMArray.h"
#include "nsISystemAdapter.h"
#include "nsISystemConnector.h"
#include "nsISystemDevice.h"
#include "nsString.h"

class nsIArray;
class nsIMutableArray;
class nsIPrefBranch;
class nsISystemApplicationProfile;

/// The fields of an adapter, and the decision which bindings an application profile gets on it. It
/// is no interface itself, so that nsISystemAdapter stands in an adapter exactly once, at the root
/// of its leaf interface.
///
/// Preferences and category entries decide, not code: a profile reaches an adapter only if there
/// are a preference subtree and a registered contract ID for the adapter's type (the name of its
/// device), its connector type and its connector mask, where "*" stands for any of them. All of
/// this runs on the main thread.
class nsSystemAdapterGeneric {
 public:
  // Discovery fills these before the adapter is published; nothing here changes them after that.
  nsString mSysPath;
  nsString mLabel;
  nsCOMPtr<nsISystemDevice> mDevice;
  nsCOMArray<nsISystemConnector> mConnectors;
  nsCOMArray<nsISupports> mAttachedObjects;  ///< stays empty

  nsresult GetSysPath(nsAString& aSysPath) const;
  nsresult GetLabel(nsAString& aLabel) const;
  nsresult GetConnectors(nsIArray** aConnectors) const;
  nsresult GetAttachedObjects(nsIArray** aAttachedObjects) const;
  nsresult GetDevice(nsISystemDevice** aDevice) const;

  /// The bindings of a profile on this adapter, made, initialised and enabled; null, and success,
  /// when there is none. NS_ERROR_NULL_POINTER without a profile.
  nsresult GenerateApplicationProfileBindings(nsISystemApplicationProfile* aApplicationProfile,
                                              nsIArray** aBindings);

  // The steps of it, for classes that make bindings in their own way. T, M and I are the adapter
  // type, the connector type and the mask.

  /// M and I: the first connector's name, and the masks of all joined bit by bit; "*" for the mask
  /// as soon as one connector says so, and without connectors, when M is empty. NS_ERROR_FAILURE
  /// when a mask is no number, or when "*" comes after numbers.
  nsresult GetMaskConnectors(nsAString& aConnectorType, nsAString& aMask);
  /// The subtree of the preferences at ROOT.T.M.I. or ROOT.T.*.*. NS_ERROR_NOT_AVAILABLE when there
  /// is none; for M = "*" the empty branch is handed out with that result.
  nsresult GetPrefBranch(const nsAString& aProfileRoot, const nsAString& aAdapterType,
                         const nsAString& aConnectorType, const nsAString& aMask,
                         nsIPrefBranch** aBranch);
  /// The contract ID of the binding class; empty, and success, when none is registered. A class
  /// name given in narrows the search; one that the search had to choose comes out.
  nsresult GetProfileInstanciationData(const nsAString& aProfileName, const nsAString& aAdapterType,
                                       const nsAString& aConnectorType, const nsAString& aMask,
                                       nsACString& aClassName, nsACString& aContractID);
  /// Tries one combination and appends its binding, if it gets one. The defaults serve where the
  /// subtree names no class.
  nsresult InstanciateProfile(nsISystemApplicationProfile* aApplicationProfile,
                              const nsAString& aAdapterType, const nsAString& aConnectorType,
                              const nsAString& aMask, nsCString aContractID, nsCString aClassName,
                              nsIMutableArray* aBindings);

 protected:
  nsSystemAdapterGeneric() = default;
  ~nsSystemAdapterGeneric() = default;

 private:
  /// This adapter, as bindings get it.
  virtual nsISystemAdapter* AsAdapter() = 0;
};

/// An adapter class: Implements is an nsImplements<Class, I...> in whose first interface's line
/// nsISystemAdapter stands.
template <class Implements>
class nsSystemAdapterBase : public Implements, public nsSystemAdapterGeneric {
  using Generic = nsSystemAdapterGeneric;

 public:
  nsresult GetSysPath(nsAString& aSysPath) override { return Generic::GetSysPath(aSysPath); }
  nsresult GetLabel(nsAString& aLabel) override { return Generic::GetLabel(aLabel); }
  nsresult GetConnectors(nsIArray** aConnectors) override {
    return Generic::GetConnectors(aConnectors);
  }
  nsresult GetAttachedObjects(nsIArray** aObjects) override {
    return Generic::GetAttachedObjects(aObjects);
  }
  nsresult GetDevice(nsISystemDevice** aDevice) override { return Generic::GetDevice(aDevice); }

 private:
  nsISystemAdapter* AsAdapter() final { return this; }
};
