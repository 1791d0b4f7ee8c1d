// The preferences as everybody sees them. Main thread: NS_ERROR_NOT_SAME_THREAD elsewhere.
#pragma once

#include "nsIPrefBranchInternal.h"
#include "nsIPrefService.h"
#include "nsImplements.h"
#include "nsPrefs.h"

/// The preferences below a root. A default branch reads and sets defaults, the other what is in
/// force.
class nsPrefBranch : public nsImplements<nsPrefBranch, nsIPrefBranchInternal> {
 public:
  nsPrefBranch(std::shared_ptr<nsPrefs> aPrefs, std::string aRoot, bool aIsDefault)
      : mPrefs(std::move(aPrefs)), mRoot(std::move(aRoot)), mIsDefault(aIsDefault) {}

  nsresult GetRoot(char** aRoot) override;
  /// PREF_INVALID for one that is not there.
  nsresult GetPrefType(const char* aPrefName, int32_t* aResult) override;
  /// This and the other two: NS_ERROR_UNEXPECTED when it is not there, and for another type.
  nsresult GetBoolPref(const char* aPrefName, bool* aResult) override;
  nsresult SetBoolPref(const char* aPrefName, bool aValue) override;
  nsresult GetCharPref(const char* aPrefName, char** aResult) override;
  nsresult SetCharPref(const char* aPrefName, const char* aValue) override;
  nsresult GetIntPref(const char* aPrefName, int32_t* aResult) override;
  nsresult SetIntPref(const char* aPrefName, int32_t aValue) override;
  /// nsISupportsString, nsIFile and nsILocalFile; NS_ERROR_NO_INTERFACE for others.
  nsresult GetComplexValue(const char* aPrefName, const nsIID& aType, void** aValue) override;
  nsresult SetComplexValue(const char* aPrefName, const nsIID& aType, nsISupports* aValue) override;
  nsresult ClearUserPref(const char* aPrefName) override;
  nsresult LockPref(const char* aPrefName) override;
  nsresult PrefHasUserValue(const char* aPrefName, bool* aResult) override;
  nsresult PrefIsLocked(const char* aPrefName, bool* aResult) override;
  nsresult UnlockPref(const char* aPrefName) override;
  nsresult DeleteBranch(const char* aStartingAt) override;
  /// In the order of the names, and without the root. *aCount and *aChildArray are 0 and null for
  /// none.
  nsresult GetChildList(const char* aStartingAt, uint32_t* aCount, char*** aChildArray) override;
  nsresult ResetBranch(const char* aStartingAt) override;
  nsresult AddObserver(const char* aDomain, nsIObserver* aObserver, bool aHoldWeak) override;
  nsresult RemoveObserver(const char* aDomain, nsIObserver* aObserver) override;

 protected:
  ~nsPrefBranch() override = default;
  const std::shared_ptr<nsPrefs> mPrefs;

 private:
  nsresult FullName(const char* aName, std::string* aFull) const;
  template <class T>
  nsresult Get(const char* aPrefName, T* aResult) const;
  nsresult Set(const char* aPrefName, nsPrefValue aValue);
  nsresult SetLocked(const char* aPrefName, bool aLocked);

  const std::string mRoot;
  const bool mIsDefault;
};

inline constexpr nsCID NS_PREFSERVICE_CID = "91ca2441-050f-4f7c-9df8-75b40ea40156"_iid;

/// "@mozilla.org/preferences-service;1"; as a branch, the one of all preferences.
class nsPrefService final : public nsPrefBranch, public nsIPrefService {
 public:
  nsPrefService() : nsPrefBranch(std::make_shared<nsPrefs>(), "", false) {}
  nsPrefs& Prefs() { return *mPrefs; }
  /// Where ResetPrefs finds the defaults.
  void ReadDefaults(const std::string& aDirectory);

  nsresult QueryInterface(const nsIID& aIID, void** aResult) override;
  nsrefcnt AddRef() override { return nsPrefBranch::AddRef(); }
  nsrefcnt Release() override { return nsPrefBranch::Release(); }

  /// Reads a file; NS_OK without one, since the profile's is read when the profile starts.
  nsresult ReadUserPrefs(nsIFile* aFile) override;
  /// Forgets everything and reads the defaults again.
  nsresult ResetPrefs() override;
  nsresult ResetUserPrefs() override;
  /// To a file, or, without one, to the profile's.
  nsresult SavePrefFile(nsIFile* aFile) override;
  nsresult GetBranch(const char* aPrefRoot, nsIPrefBranch** aResult) override;
  nsresult GetDefaultBranch(const char* aPrefRoot, nsIPrefBranch** aResult) override;

 private:
  ~nsPrefService() override = default;
  nsresult NewBranch(const char* aPrefRoot, bool aIsDefault, nsIPrefBranch** aResult);
  std::string mDefaults;
};
