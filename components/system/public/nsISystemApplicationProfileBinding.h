// The statement that an application profile is in force on an adapter.
#pragma once

#include "nsXPCOMTypes.h"

class nsIPrefBranch;
class nsISystemAdapter;
class nsISystemApplicationProfile;

/// Implemented by every binding class. Any component may bring one: the system finds it by its
/// contract ID in the category "vorel-application-profile-binding", makes one object for each
/// adapter and profile, calls Init and IsEnabled, and keeps it for as long as the adapter is known.
/// Main thread.
class nsISystemApplicationProfileBinding : public nsISupports {
 public:
  using Self = nsISystemApplicationProfileBinding;
  using Base = nsISupports;
  static constexpr std::string_view kName = "nsISystemApplicationProfileBinding";
  static constexpr nsIID kIID = "36cd6339-28b6-49a3-9db8-0fcd742d1070"_iid;

  /// Called once, first. aBranch is the part of the preferences that configures this profile on
  /// such an adapter; it always has an "authorized", and the binding's own keys stand beside that.
  /// A failure drops the binding without further notice.
  virtual nsresult Init(nsISystemAdapter* aAdapter,
                        nsISystemApplicationProfile* aApplicationProfile,
                        nsIPrefBranch* aBranch) = 0;
  /// Asked right after Init; a binding that answers false, or fails, is dropped.
  virtual nsresult IsEnabled(bool* aEnabled) = 0;
  /// The profile given to Init. The manager's look-up reads its name.
  virtual nsresult GetApplicationProfile(nsISystemApplicationProfile** aApplicationProfile) = 0;
  /// The adapter given to Init, the very object: when an adapter goes, its bindings are found by
  /// comparing.
  virtual nsresult GetAdapter(nsISystemAdapter** aAdapter) = 0;

 protected:
  ~nsISystemApplicationProfileBinding() = default;
};
