#include "nsSystemAdapterGeneric.h"

#include <cstring>
#include <span>

#include "nsDebug.h"
#include "nsICategoryManager.h"
#include "nsIMutableArray.h"
#include "nsIPrefBranch.h"
#include "nsIPrefService.h"
#include "nsISimpleEnumerator.h"
#include "nsISupportsCString.h"
#include "nsISystemApplicationProfile.h"
#include "nsISystemApplicationProfileBinding.h"
#include "nsLogger.h"
#include "nsServices.h"
#include "nsSystemArray.h"

namespace {

constexpr std::string_view kProfiles = "vorel.app-profile.";
constexpr char kBindingCategory[] = "vorel-application-profile-binding";
constexpr std::u16string_view kAny = u"*";

nsCOMPtr<nsILog4Logger> Logger() { return NS_GetLogger("system.adapter.generic"); }

// The names that nsIPrefBranch::getChildList hands out.
class ChildList {
 public:
  ChildList() = default;
  ChildList(const ChildList&) = delete;
  ChildList& operator=(const ChildList&) = delete;
  ~ChildList() {
    for (char* name : Names()) NS_Free(name);
    NS_Free(mNames);
  }

  nsresult Read(nsIPrefBranch* aBranch, const std::string& aStart) {
    return aBranch->GetChildList(aStart.c_str(), &mCount, &mNames);
  }
  std::span<char* const> Names() const { return {mNames, mCount}; }

 private:
  uint32_t mCount = 0;
  char** mNames = nullptr;
};

// A branch, and whether anything is below it: NS_ERROR_NOT_AVAILABLE, with the branch, when nothing
// is.
nsresult GetFilledBranch(nsIPrefService* aService, const std::string& aName,
                         nsCOMPtr<nsIPrefBranch>* aBranch) {
  nsresult rv = aService->GetBranch(aName.c_str(), aBranch->getter_AddRefs());
  NS_ENSURE_SUCCESS(rv, rv);
  ChildList children;
  rv = children.Read(aBranch->get(), "");
  NS_ENSURE_SUCCESS(rv, rv);
  const bool empty = children.Names().empty();
  SYSTEM_LOG_DEBUG(Logger(), (empty ? "Empty branch for " : "Have branch for ") + aName);
  return empty ? NS_ERROR_NOT_AVAILABLE : NS_OK;
}

// Whether the segment of a preference name answers a connector type. The first bytes are compared,
// as many as the segment has, a terminating zero counting as one; but a "*" at the segment's end is
// taken off before. So a star is no wildcard ("usb*" answers "usb" alone), and a segment without
// one answers every type that begins with it ("usb" answers "usb2"). Kept as it stands:
// configurations in the field depend on it.
bool AnswersConnectorType(const std::string& aSegment, const std::string& aConnectorType) {
  std::string compared = aSegment;
  if (compared.ends_with('*')) compared.pop_back();
  return std::strncmp(aConnectorType.c_str(), compared.c_str(), aSegment.size()) == 0;
}

}  // namespace

nsresult nsSystemAdapterGeneric::GetSysPath(nsAString& aSysPath) const {
  return NS_Give(mSysPath, aSysPath);
}

nsresult nsSystemAdapterGeneric::GetLabel(nsAString& aLabel) const {
  return NS_Give(mLabel, aLabel);
}

nsresult nsSystemAdapterGeneric::GetConnectors(nsIArray** aConnectors) const {
  const nsresult rv = NS_NewScriptArray(aConnectors, mConnectors);
  NS_ENSURE_SUCCESS(rv, rv);
  return NS_OK;
}

nsresult nsSystemAdapterGeneric::GetAttachedObjects(nsIArray** aAttachedObjects) const {
  const nsresult rv = NS_NewScriptArray(aAttachedObjects, mAttachedObjects);
  NS_ENSURE_SUCCESS(rv, rv);
  return NS_OK;
}

nsresult nsSystemAdapterGeneric::GetDevice(nsISystemDevice** aDevice) const {
  nsCOMPtr<nsISystemDevice>(mDevice).forget(aDevice);
  return NS_OK;
}

nsresult nsSystemAdapterGeneric::GetMaskConnectors(nsAString& aConnectorType, nsAString& aMask) {
  NS_Assign(aConnectorType, {});
  NS_Assign(aMask, {});
  if (mConnectors.empty()) {
    return NS_Give(kAny, aMask);
  }
  uint32_t mask = 0;
  for (const auto& connector : mConnectors) {
    nsresult rv;
    if (NS_View(aConnectorType).empty()) {
      rv = connector->GetName(aConnectorType);
      NS_ENSURE_SUCCESS(rv, rv);
    }
    nsString text;
    rv = connector->GetMask(text);
    NS_ENSURE_SUCCESS(rv, rv);
    if (text.IsEmpty() || text == kAny) {
      if (mask != 0) return NS_ERROR_FAILURE;
      return NS_Give(kAny, aMask);
    }
    const auto value = NS_ParseDecimal(text);
    if (!value || *value < INT32_MIN || *value > UINT32_MAX) return NS_ERROR_FAILURE;
    mask |= static_cast<uint32_t>(*value);
  }
  return NS_Give(NS_ToUtf16(std::to_string(mask)), aMask);
}

nsresult nsSystemAdapterGeneric::GetPrefBranch(const nsAString& aProfileRoot,
                                               const nsAString& aAdapterType,
                                               const nsAString& aConnectorType,
                                               const nsAString& aMask, nsIPrefBranch** aBranch) {
  nsresult rv;
  const auto prefs = do_GetService<nsIPrefService>(NS_PREFSERVICE_CONTRACTID, &rv);
  NS_ENSURE_SUCCESS(rv, rv);

  std::string name = NS_ToUtf8(aProfileRoot) + "." + NS_ToUtf8(aAdapterType) + ".";
  nsCOMPtr<nsIPrefBranch> branch;
  if (NS_View(aConnectorType) == kAny) {
    name += "*.*.";
    rv = GetFilledBranch(prefs.get(), name, &branch);
    if (branch) branch.forget(aBranch);
    return rv;
  }

  nsCOMPtr<nsIPrefBranch> root;
  rv = prefs->GetBranch("", root.getter_AddRefs());
  NS_ENSURE_SUCCESS(rv, rv);
  ChildList children;
  rv = children.Read(root.get(), name);
  NS_ENSURE_SUCCESS(rv, rv);

  const std::string connectorType = NS_ToUtf8(aConnectorType);
  const std::string mask = NS_ToUtf8(aMask);
  rv = NS_ERROR_NOT_AVAILABLE;
  for (const std::string_view child : children.Names()) {
    const size_t point = child.find('.', name.size() + 1);
    if (point == child.npos) continue;
    const std::string segment(child.substr(name.size(), point - name.size()));
    if (!AnswersConnectorType(segment, connectorType)) continue;
    // Kept as it stands: a match that leads to an empty branch leaves its extended name behind, and
    // later matches extend that.
    name += segment + "." + mask + ".";
    rv = GetFilledBranch(prefs.get(), name, &branch);
    if (NS_SUCCEEDED(rv)) break;
    branch = nullptr;
    if (rv != NS_ERROR_NOT_AVAILABLE) return rv;
  }
  branch.forget(aBranch);
  return rv;
}

nsresult nsSystemAdapterGeneric::GetProfileInstanciationData(
    const nsAString& aProfileName, const nsAString& aAdapterType, const nsAString& aConnectorType,
    const nsAString& aMask, nsACString& aClassName, nsACString& aContractID) {
  const auto logger = Logger();
  const auto catman = do_GetService<nsICategoryManager>(NS_CATEGORYMANAGER_CONTRACTID);
  NS_ENSURE_TRUE(catman, NS_ERROR_UNEXPECTED);

  const auto find = [&](const std::string& aCategory, const std::string& aEntry) {
    nsAdoptedCString value;
    if (NS_FAILED(
            catman->GetCategoryEntry(aCategory.c_str(), aEntry.c_str(), value.getter_Copies())) ||
        value.view().empty())
      return false;
    NS_Assign(aContractID, value.view());
    return true;
  };
  const auto firstEntry = [&](const std::string& aCategory) {
    nsCOMPtr<nsISimpleEnumerator> entries;
    nsCOMPtr<nsISupports> first;
    nsCString text;
    if (NS_SUCCEEDED(catman->EnumerateCategory(aCategory.c_str(), entries.getter_AddRefs())) &&
        NS_SUCCEEDED(entries->GetNext(first.getter_AddRefs())))
      if (const auto name = do_QueryInterface<nsISupportsCString>(first)) (void)name->GetData(text);
    return std::string(text.view());
  };
  const auto test = [&](const std::string& aKey) {
    SYSTEM_LOG_DEBUG(logger, "Testing " + aKey);
    if (find(kBindingCategory, aKey)) return true;
    const std::string className(NS_View(aClassName));
    if (!className.empty() && find(aKey, className)) return true;
    const std::string entry = firstEntry(aKey);
    if (entry.empty() || !find(aKey, entry)) return false;
    NS_Assign(aClassName, entry);
    return true;
  };

  const std::string name = NS_ToUtf8(aProfileName) + ".";
  const std::string adapterType = NS_ToUtf8(aAdapterType);
  const std::string connectorType = NS_ToUtf8(aConnectorType);
  const std::string mask = NS_ToUtf8(aMask);
  const bool hasAdapterType = !adapterType.empty();
  const bool hasConnectorType = !connectorType.empty();
  // From the specific to the general.
  const struct {
    bool tried;
    std::string key;
  } keys[] = {
      {hasAdapterType && hasConnectorType, name + adapterType + "." + connectorType + "." + mask},
      {hasAdapterType, name + adapterType + ".*.*"},
      {hasConnectorType, name + "*." + connectorType + "." + mask},
      {true, name + "*.*.*"},
  };
  NS_Assign(aContractID, {});
  for (const auto& [tried, key] : keys)
    if (tried && test(key)) break;
  return NS_OK;
}

nsresult nsSystemAdapterGeneric::InstanciateProfile(
    nsISystemApplicationProfile* aApplicationProfile, const nsAString& aAdapterType,
    const nsAString& aConnectorType, const nsAString& aMask, nsCString aContractID,
    nsCString aClassName, nsIMutableArray* aBindings) {
  const auto logger = Logger();
  nsString name;
  nsresult rv = aApplicationProfile->GetName(name);
  NS_ENSURE_SUCCESS(rv, rv);
  nsString root(NS_ToUtf16(kProfiles));
  root += name;

  nsCOMPtr<nsIPrefBranch> branch;
  rv = GetPrefBranch(root, aAdapterType, aConnectorType, aMask, branch.getter_AddRefs());
  if (NS_FAILED(rv)) {
    SYSTEM_LOG_DEBUG(logger, "Profile does not have preferences");
    return rv;
  }

  nsAdoptedCString className;
  if (NS_SUCCEEDED(branch->GetCharPref("class-name", className.getter_Copies()))) {
    aClassName = className.view();
    SYSTEM_LOG_DEBUG(logger, "Profile class-name=" + std::string(aClassName.view()));
    rv = GetProfileInstanciationData(name, aAdapterType, aConnectorType, aMask, aClassName,
                                     aContractID);
    if (NS_FAILED(rv)) {
      SYSTEM_LOG_ERROR(logger, "Can not find contractid for profile classname '" +
                                   std::string(aClassName.view()) + "'");
      return rv;
    }
  }

  if (!aClassName.IsEmpty()) {
    root += u":";
    root += NS_ToUtf16(aClassName);
    rv = GetPrefBranch(root, aAdapterType, aConnectorType, aMask, branch.getter_AddRefs());
    if (NS_FAILED(rv)) {
      SYSTEM_LOG_DEBUG(logger, "Profile does not have preferences");
      return rv;
    }
  }

  bool authorized = false;
  rv = branch->GetBoolPref("authorized", &authorized);
  if (NS_FAILED(rv) || !authorized) {
    SYSTEM_LOG_DEBUG(logger, "Profile not authorized");
    return rv;
  }

  const auto binding =
      do_CreateInstance<nsISystemApplicationProfileBinding>(aContractID.get(), &rv);
  NS_ENSURE_SUCCESS(rv, rv);
  bool enabled = false;
  // A binding that fails, or does not want to be in force here, is no failure.
  if (NS_FAILED(binding->Init(AsAdapter(), aApplicationProfile, branch.get())) ||
      NS_FAILED(binding->IsEnabled(&enabled)) || !enabled)
    return NS_OK;
  rv = aBindings->AppendElement(binding.get(), false);
  NS_ENSURE_SUCCESS(rv, rv);
  return NS_OK;
}

nsresult nsSystemAdapterGeneric::GenerateApplicationProfileBindings(
    nsISystemApplicationProfile* aApplicationProfile, nsIArray** aBindings) {
  NS_ENSURE_TRUE(aApplicationProfile, NS_ERROR_NULL_POINTER);
  const auto logger = Logger();
  nsresult rv;
  // The platform's own array: script does not get to see it.
  const auto bindings = do_CreateInstance<nsIMutableArray>(NS_ARRAY_CONTRACTID, &rv);
  NS_ENSURE_SUCCESS(rv, rv);
  nsString name;
  rv = aApplicationProfile->GetName(name);
  NS_ENSURE_SUCCESS(rv, rv);

  nsString connectorType, mask;
  if (NS_FAILED(GetMaskConnectors(connectorType, mask)))
    SYSTEM_LOG_ERROR(logger, "Bad connector_mask");
  nsString adapterType;
  if (mDevice) {
    rv = mDevice->GetName(adapterType);
    NS_ENSURE_SUCCESS(rv, rv);
  }

  nsCString className, contractID;
  (void)GetProfileInstanciationData(name, adapterType, connectorType, mask, className, contractID);
  if (contractID.IsEmpty()) {
    SYSTEM_LOG_DEBUG(logger, "The profile " + NS_ToUtf8(name) + " is not registred");
    *aBindings = nullptr;
    return NS_OK;
  }

  const nsString any(kAny);
  const bool hasAdapterType = !adapterType.IsEmpty();
  const bool hasConnectorType = !connectorType.IsEmpty();
  const bool hasMask = mask != any;
  // From the specific to the general, and on after a hit: a profile configured on several levels
  // gets a binding for each.
  const struct {
    bool tried;
    const nsString &adapterType, &connectorType, &mask;
  } combinations[] = {
      {hasAdapterType && hasConnectorType, adapterType, connectorType, mask},
      {hasAdapterType && hasConnectorType && hasMask, adapterType, connectorType, any},
      {hasAdapterType, adapterType, any, any},
      {hasConnectorType, any, connectorType, mask},
      {hasConnectorType && hasMask, any, connectorType, any},
      {true, any, any, any},
  };
  for (const auto& [tried, t, m, i] : combinations)
    if (tried)
      (void)InstanciateProfile(aApplicationProfile, t, m, i, contractID, className, bindings.get());

  uint32_t length = 0;
  rv = bindings->GetLength(&length);
  NS_ENSURE_SUCCESS(rv, rv);
  nsCOMPtr<nsIArray> result;
  if (length != 0) result = bindings;
  result.forget(aBindings);
  return NS_OK;
}
