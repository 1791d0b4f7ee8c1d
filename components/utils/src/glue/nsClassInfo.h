// Class information for script, from one constant record a class.
#pragma once

#include "nsCOMPtr.h"
#include "nsIClassInfo.h"
#include "nsIProgrammingLanguage.h"

/// What script may know of a class.
struct nsClassInfoRecord {
  /// Allocates the array with NS_Alloc, and one NS_Alloc copy for each identifier.
  nsresult (*getInterfaces)(uint32_t* aCount, nsIID*** aArray);
  /// Makes the scriptable helper of a language; null: the class has none.
  nsresult (*getLanguageHelper)(uint32_t aLanguage, nsISupports** aHelper);
  uint32_t flags;
  nsCID classID;
};

/// The class info object of a record. Lives for ever, so its counts mean nothing; any thread.
class GenericClassInfo final : public nsIClassInfo {
 public:
  constexpr explicit GenericClassInfo(const nsClassInfoRecord* aRecord) : mRecord(aRecord) {}

  nsresult QueryInterface(const nsIID& aIID, void** aResult) override;
  nsrefcnt AddRef() override { return 2; }
  nsrefcnt Release() override { return 1; }
  nsresult GetInterfaces(uint32_t* aCount, nsIID*** aArray) override;
  nsresult GetHelperForLanguage(uint32_t aLanguage, nsISupports** aResult) override;
  nsresult GetContractID(char** aContractID) override;
  nsresult GetClassDescription(char** aClassDescription) override;
  nsresult GetClassID(nsCID** aClassID) override;
  nsresult GetImplementationLanguage(uint32_t* aLanguage) override;
  nsresult GetFlags(uint32_t* aFlags) override;
  nsresult GetClassIDNoAlloc(nsCID* aClassID) override;

 private:
  const nsClassInfoRecord* mRecord;
};

/// A scriptable helper that supplies a class name, which must live for ever, and nothing else. For
/// languages other than JAVASCRIPT the result is null, and success.
nsresult NS_NewGenericHelper(uint32_t aLanguage, const char* aClassName, nsISupports** aResult);

namespace vorel::detail {
nsresult CopyInterfaces(const nsIID* const* aIIDs, uint32_t aCount, uint32_t* aCountOut,
                        nsIID*** aArrayOut);

template <size_t N>
struct ClassName {
  char mText[N]{};
  consteval ClassName(const char (&aText)[N]) {
    for (size_t i = 0; i < N; ++i) mText[i] = aText[i];
  }
};
}  // namespace vorel::detail

/// A record's getInterfaces, from the interfaces themselves.
template <nsInterface... I>
nsresult NS_ClassInterfaces(uint32_t* aCount, nsIID*** aArray) {
  static constexpr const nsIID* kIIDs[] = {&I::kIID...};
  return vorel::detail::CopyInterfaces(kIIDs, sizeof...(I), aCount, aArray);
}

/// A record's getLanguageHelper for a class that script sees under a name.
template <vorel::detail::ClassName Name>
nsresult NS_NamedHelper(uint32_t aLanguage, nsISupports** aHelper) {
  return NS_NewGenericHelper(aLanguage, Name.mText, aHelper);
}

/// A class's record: the name that script shows, "" for none, and the interfaces in the order in
/// which script sees them. Stands in the class:
///   static constexpr nsClassInfoRecord kClassInfo = NS_ClassInfo<"Thing", nsIThing>("..."_iid);
template <vorel::detail::ClassName Name, nsInterface... I>
consteval nsClassInfoRecord NS_ClassInfo(const nsCID& aClassID = {}) {
  return {NS_ClassInterfaces<I...>, Name.mText[0] ? NS_NamedHelper<Name> : nullptr,
          nsIClassInfo::DOM_OBJECT, aClassID};
}
