#include "nsSystemConnector.h"

#include <array>
#include <new>

#include "nsClassInfoOfAll.h"
#include "nsDebug.h"
#include "nsIArray.h"
#include "nsIPrefBranch.h"
#include "nsLogger.h"
#include "nsServices.h"
#include "nsString.h"
#include "nsSystemArray.h"

namespace {

class nsSystemConnector final : public nsImplements<nsSystemConnector, nsISystemConnector> {
 public:
  static constexpr nsClassInfoRecord kClassInfo =
      NS_ClassInfoOfAll<"", nsImplementsWith>("d8cfd2f3-5eba-4559-9b97-f0e3e3a45b76"_iid);
  using Arrays = std::array<nsCOMPtr<nsIArray>, 3>;

  nsSystemConnector(const nsAString& aName, const nsAString& aMask, const nsAString& aLabel,
                    const nsAString& aType, Arrays aArrays)
      : mLogger(NS_GetLogger("system.connector")),
        mName(aName),
        mMask(aMask),
        mLabel(aLabel),
        mType(aType),
        mArrays(std::move(aArrays)) {}

  nsresult GetName(nsAString& aName) override { return NS_Give(mName, aName); }
  nsresult GetMask(nsAString& aMask) override { return NS_Give(mMask, aMask); }
  nsresult GetLabel(nsAString& aLabel) override { return NS_Give(mLabel, aLabel); }
  nsresult SetLabel(const nsAString& aLabel) override;
  // Kept as it stands: it has always left the caller's string alone.
  nsresult GetType(nsAString&) override { return NS_OK; }
  nsresult Reserved8(void*) override { return NS_ERROR_NOT_IMPLEMENTED; }
  nsresult Reserved9(void*) override { return NS_ERROR_NOT_IMPLEMENTED; }
  nsresult Reserved10(void*) override { return NS_ERROR_NOT_IMPLEMENTED; }

 private:
  ~nsSystemConnector() override = default;

  const nsCOMPtr<nsILog4Logger> mLogger;
  const nsString mName;
  const nsString mMask;
  nsString mLabel;
  const nsString mType;
  const Arrays mArrays;  // held, not read
};

nsresult nsSystemConnector::SetLabel(const nsAString& aLabel) {
  mLabel = aLabel;
  const std::string name = "vorel.connectors." + NS_ToUtf8(mName) + "." + NS_ToUtf8(mMask);
  const auto prefs = do_GetService<nsIPrefBranch>(VOREL_PREFS_CONTRACTID);
  if (!prefs) {
    SYSTEM_LOG_ERROR(mLogger, "Can't get preferences service");
    return NS_ERROR_FAILURE;
  }
  const std::string label = NS_ToUtf8(aLabel);
  const nsresult rv = prefs->SetCharPref(name.c_str(), label.c_str());
  SYSTEM_LOG_DEBUG(mLogger, "Setting preference " + name + " = " + label);
  NS_ENSURE_SUCCESS(rv, rv);
  return NS_OK;
}

}  // namespace

nsresult NewSystemConnector(nsISystemConnector** aConnector, const nsAString& aName,
                            const nsAString& aMask, const nsAString& aLabel, const nsAString& aType,
                            nsIArray* aArray1, nsIArray* aArray2, nsIArray* aArray3) {
  nsSystemConnector::Arrays copies;
  const std::array arrays = {aArray1, aArray2, aArray3};
  for (size_t i = 0; i < arrays.size(); ++i) {
    if (!arrays[i]) continue;
    nsCOMPtr<nsISimpleEnumerator> elements;
    nsresult rv = arrays[i]->Enumerate(elements.getter_AddRefs());
    NS_ENSURE_SUCCESS(rv, rv);
    rv = NS_NewScriptArray(copies[i].getter_AddRefs(), elements.get());
    NS_ENSURE_SUCCESS(rv, rv);
  }
  nsCOMPtr<nsSystemConnector> connector(
      new (std::nothrow) nsSystemConnector(aName, aMask, aLabel, aType, std::move(copies)));
  if (!connector) return NS_ERROR_OUT_OF_MEMORY;
  connector.forget(aConnector);
  return NS_OK;
}
