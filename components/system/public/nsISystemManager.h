// The machine as the application sees it: "@vorel/system/systemmanager;1", in script the global
// systemManager.
#pragma once

#include "nsXPCOMTypes.h"

class nsIArray;
class nsISystemAdapterListener;
class nsISystemProfileBindingListener;

/// The list of adapters, the list of bindings that say on which adapters application profiles are
/// in force, and listeners to both.
///
/// Meant for the main thread: no operation takes a lock. The lists are empty before start-up has
/// reached the profile, and again after "xpcom-shutdown"; the operations work all the same. Out
/// arrays are new ones, with references to the same objects: a later change of the machine does not
/// show in them.
// script: global SystemManager, row 8
class nsISystemManager : public nsISupports {
 public:
  using Self = nsISystemManager;
  using Base = nsISupports;
  static constexpr std::string_view kName = "nsISystemManager";
  static constexpr nsIID kIID = "defd4869-f84c-4be4-a5c7-6304a759ecb3"_iid;

  /// All adapters, in the order in which they were found.
  virtual nsresult GetAdapters(nsIArray** aAdapters) = 0;
  /// Looks again at the adapters of one kind. Followed for nsISystemAdapterIP, whose result is the
  /// discovery's; for every other interface success, and nothing is done.
  virtual nsresult RefreshAdapters(const nsIID& aIID) = 0;
  /// The adapters that answer to an interface, in the order in which they were found; an empty
  /// array when there is none. NS_ERROR_FAILURE when no array can be made.
  virtual nsresult GetAdaptersByIId(const nsIID& aIID, nsIArray** aAdapters) = 0;
  /// The bindings of a profile, in the order in which they came into force; null, and success, when
  /// there is none. aUri is the profile's name, or a URN that holds it: "urn:vorel:owl:NAME" or
  /// "urn:vorel:owl:NAME:...". Upper and lower case differ. A binding that fails to tell its
  /// profile fails the call.
  virtual nsresult GetApplicationProfileBindingsByProfileUri(const nsAString& aUri,
                                                             nsIArray** aBindings) = 0;
  /// A kept place. NS_ERROR_NOT_IMPLEMENTED, always; the arguments are not looked at.
  virtual nsresult Reserved7(void* aFirst, void* aSecond) = 0;

  // The results of three of the next four are kept as they are, though they read like nothing else
  // here: callers depend on them, and script sees 0 and 1 as success.

  /// NS_OK, always; null is passed over. A listener that is added twice is called twice. Held until
  /// it is removed, or until "xpcom-shutdown".
  virtual nsresult AddAdapterListener(nsISystemAdapterListener* aListener) = 0;
  /// Removes it once. The value 1 when it was found, 0 when it was not.
  virtual nsresult RemoveAdapterListener(nsISystemAdapterListener* aListener) = 0;
  /// The value 1; 0 for null. Otherwise as AddAdapterListener.
  virtual nsresult AddProfileBindingListener(nsISystemProfileBindingListener* aListener) = 0;
  /// Removes it once. The value 1 when it was found, 0 when it was not.
  virtual nsresult RemoveProfileBindingListener(nsISystemProfileBindingListener* aListener) = 0;

 protected:
  ~nsISystemManager() = default;
};
