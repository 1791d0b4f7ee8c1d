#include "nsSystemManagerGeneric.h"

#include <algorithm>

#include "nsDebug.h"
#include "nsIArray.h"
#include "nsIMutableArray.h"
#include "nsISimpleEnumerator.h"
#include "nsISystemApplicationProfile.h"
#include "nsServices.h"
#include "nsSystemArray.h"
#include "nsVorelMethodCaller.h"

namespace {

template <class T>
ptrdiff_t IndexOf(const nsCOMArray<T>& aList, T* aElement) {
  const auto found = std::find(aList.begin(), aList.end(), aElement);
  return found == aList.end() ? -1 : found - aList.begin();
}

// Takes the element out by position, so that its reference dies after the list is whole again.
template <class T>
nsCOMPtr<T> RemoveAt(nsCOMArray<T>& aList, ptrdiff_t aIndex) {
  nsCOMPtr<T> element = std::move(aList[static_cast<size_t>(aIndex)]);
  aList.erase(aList.begin() + aIndex);
  return element;
}

// The outcome of a change of a list, as the manager's listener operations give it: 1 or 0.
nsresult Outcome(bool aDone) { return nsresult{aDone ? 1u : 0u}; }

template <class T>
bool Append(nsCOMArray<T>& aList, T* aElement) {
  if (!aElement) return false;
  aList.emplace_back(aElement);
  return true;
}

template <class T>
bool Remove(nsCOMArray<T>& aList, T* aElement) {
  const ptrdiff_t index = IndexOf(aList, aElement);
  if (index == -1) return false;
  RemoveAt(aList, index);
  return true;
}

// By index, the length read anew at each step: listeners come and go while they are called.
template <class T, class Call>
void CallEach(const nsCOMArray<T>& aListeners, Call aCall) {
  for (size_t i = 0; i < aListeners.size(); ++i) {
    const nsCOMPtr<T> listener = aListeners[i];
    (void)aCall(listener.get());
  }
}

// Elements are released after the list is empty, so that a destructor which looks at it finds
// nothing.
template <class T>
void Empty(nsCOMArray<T>& aList) {
  nsCOMArray<T> dying;
  dying.swap(aList);
}

// "urn:vorel:owl:NAME:..." -> NAME; empty for a text that is no such URN.
std::u16string_view ShortProfile(std::u16string_view aUri) {
  constexpr std::u16string_view kPrefix = u"urn:vorel:owl:";
  if (!aUri.starts_with(kPrefix)) return {};
  aUri.remove_prefix(kPrefix.size());
  return aUri.substr(0, aUri.find(u':'));
}

}  // namespace

nsSystemManagerGeneric::nsSystemManagerGeneric() : mLogger(NS_GetLogger("system.manager")) {}

nsSystemManagerGeneric::~nsSystemManagerGeneric() {
  Empty(mBindings);
  Empty(mAdapters);
}

template <class... P>
nsresult nsSystemManagerGeneric::RunOnMainThread(nsresult (nsSystemManagerGeneric::*aMethod)(P...),
                                                 std::type_identity_t<P>... aArguments) {
  const auto caller =
      NS_NewRunnableMethodCaller<vorel::threads::eStrong>(this, aMethod, aArguments...);
  return NS_DispatchToMainThread(caller.get(), NS_DISPATCH_SYNC);
}

nsresult nsSystemManagerGeneric::GetAdapters(nsIArray** aAdapters) {
  nsCOMPtr<nsISimpleEnumerator> adapters;
  nsresult rv = NS_NewArrayEnumerator(adapters.getter_AddRefs(), mAdapters);
  NS_ENSURE_SUCCESS(rv, rv);
  rv = NS_NewScriptArray(aAdapters, adapters.get());
  NS_ENSURE_SUCCESS(rv, rv);
  return NS_OK;
}

nsresult nsSystemManagerGeneric::RefreshAdapters(const nsIID&) { return NS_OK; }

nsresult nsSystemManagerGeneric::GetAdaptersByIId(const nsIID& aIID, nsIArray** aAdapters) {
  const auto array = do_CreateInstance<nsIMutableArray>(VOREL_ARRAY_CONTRACTID);
  if (!array) {
    SYSTEM_LOG_ERROR(mLogger, "Failed to create nsArray instance \"");
    return NS_ERROR_FAILURE;
  }
  nsCOMPtr<nsISimpleEnumerator> adapters;
  nsresult rv = NS_NewArrayEnumerator(adapters.getter_AddRefs(), mAdapters);
  NS_ENSURE_SUCCESS(rv, rv);
  for (bool more; NS_SUCCEEDED(adapters->HasMoreElements(&more)) && more;) {
    nsCOMPtr<nsISupports> adapter;
    rv = adapters->GetNext(adapter.getter_AddRefs());
    NS_ENSURE_SUCCESS(rv, rv);
    nsCOMPtr<nsISupports> asked;
    if (NS_FAILED(adapter->QueryInterface(aIID, NS_OutVoid(asked)))) continue;
    rv = array->AppendElement(adapter.get(), false);
    NS_ENSURE_SUCCESS(rv, rv);
  }
  nsCOMPtr<nsIArray>(array).forget(aAdapters);
  return NS_OK;
}

nsresult nsSystemManagerGeneric::GetApplicationProfileBindingsByProfileUri(const nsAString& aUri,
                                                                           nsIArray** aBindings) {
  const std::u16string_view uri = NS_View(aUri);
  const std::u16string_view shortProfile = ShortProfile(uri);
  SYSTEM_LOG_DEBUG(mLogger, "shortProfile=" + NS_ToUtf8(shortProfile));

  nsCOMPtr<nsISimpleEnumerator> bindings;
  nsresult rv = NS_NewArrayEnumerator(bindings.getter_AddRefs(), mBindings);
  NS_ENSURE_SUCCESS(rv, rv);
  nsCOMArray<nsISystemApplicationProfileBinding> found;
  for (bool more; NS_SUCCEEDED(bindings->HasMoreElements(&more)) && more;) {
    nsCOMPtr<nsISupports> element;
    rv = bindings->GetNext(element.getter_AddRefs());
    NS_ENSURE_SUCCESS(rv, rv);
    const auto binding = do_QueryInterface<nsISystemApplicationProfileBinding>(element, &rv);
    NS_ENSURE_SUCCESS(rv, rv);
    nsCOMPtr<nsISystemApplicationProfile> profile;
    rv = binding->GetApplicationProfile(profile.getter_AddRefs());
    NS_ENSURE_SUCCESS(rv, rv);
    NS_ENSURE_TRUE(profile, NS_ERROR_UNEXPECTED);
    nsString name;
    rv = profile->GetName(name);
    NS_ENSURE_SUCCESS(rv, rv);
    if (name == uri || (!shortProfile.empty() && name == shortProfile)) found.push_back(binding);
  }

  // Unlike GetAdaptersByIId, nothing found is no array.
  nsCOMPtr<nsIArray> array;
  if (!found.empty()) {
    rv = NS_NewScriptArray(array.getter_AddRefs(), found);
    NS_ENSURE_SUCCESS(rv, rv);
  }
  array.forget(aBindings);
  return NS_OK;
}

nsresult nsSystemManagerGeneric::Reserved7(void*, void*) { return NS_ERROR_NOT_IMPLEMENTED; }

nsresult nsSystemManagerGeneric::AddAdapterListener(nsISystemAdapterListener* aListener) {
  (void)Append(mAdapterListeners, aListener);
  return NS_OK;
}

nsresult nsSystemManagerGeneric::RemoveAdapterListener(nsISystemAdapterListener* aListener) {
  return Outcome(Remove(mAdapterListeners, aListener));
}

nsresult nsSystemManagerGeneric::AddProfileBindingListener(
    nsISystemProfileBindingListener* aListener) {
  return Outcome(Append(mProfileBindingListeners, aListener));
}

nsresult nsSystemManagerGeneric::RemoveProfileBindingListener(
    nsISystemProfileBindingListener* aListener) {
  return Outcome(Remove(mProfileBindingListeners, aListener));
}

nsresult nsSystemManagerGeneric::Observe(nsISupports*, const char* aTopic, const char16_t*) {
  NS_ENSURE_TRUE(aTopic, NS_ERROR_INVALID_ARG);
  if (std::string_view(aTopic) == "xpcom-shutdown") {
    Empty(mBindings);
    Empty(mAdapters);
    Empty(mAdapterListeners);
    Empty(mProfileBindingListeners);
  }
  return NS_OK;
}

nsresult nsSystemManagerGeneric::AddAdapter(nsISystemAdapter* aAdapter) {
  if (!NS_IsMainThread()) return RunOnMainThread(&nsSystemManagerGeneric::AddAdapter, aAdapter);
  mAdapters.emplace_back(aAdapter);
  return CallAdapterListeners(aAdapter, true);
}

nsresult nsSystemManagerGeneric::RemoveAdapter(nsISystemAdapter* aAdapter) {
  if (!NS_IsMainThread()) return RunOnMainThread(&nsSystemManagerGeneric::RemoveAdapter, aAdapter);
  const ptrdiff_t index = IndexOf(mAdapters, aAdapter);
  NS_ENSURE_TRUE(index != -1, NS_ERROR_FAILURE);
  const nsCOMPtr<nsISystemAdapter> adapter = RemoveAt(mAdapters, index);
  nsresult rv = CallAdapterListeners(aAdapter, false);
  NS_ENSURE_SUCCESS(rv, rv);

  nsCOMPtr<nsISimpleEnumerator> bindings;
  rv = NS_NewArrayEnumerator(bindings.getter_AddRefs(), mBindings);
  NS_ENSURE_SUCCESS(rv, rv);
  for (bool more; NS_SUCCEEDED(bindings->HasMoreElements(&more)) && more;) {
    nsCOMPtr<nsISupports> element;
    rv = bindings->GetNext(element.getter_AddRefs());
    NS_ENSURE_SUCCESS(rv, rv);
    const auto binding = do_QueryInterface<nsISystemApplicationProfileBinding>(element);
    nsCOMPtr<nsISystemAdapter> bound;
    if (binding && NS_SUCCEEDED(binding->GetAdapter(bound.getter_AddRefs())) && bound == aAdapter)
      (void)RemoveApplicationProfileBinding(binding.get());
  }
  return NS_OK;
}

nsresult nsSystemManagerGeneric::NotifyAdapterChanged(nsISystemAdapter* aAdapter) {
  if (!NS_IsMainThread())
    return RunOnMainThread(&nsSystemManagerGeneric::NotifyAdapterChanged, aAdapter);
  CallEach(mAdapterListeners,
           [&](auto* aListener) { return aListener->OnAdapterChanged(aAdapter); });
  return NS_OK;
}

nsresult nsSystemManagerGeneric::AppendApplicationProfileBindings(nsIArray* aBindings) {
  if (!NS_IsMainThread())
    return RunOnMainThread(&nsSystemManagerGeneric::AppendApplicationProfileBindings, aBindings);
  if (!aBindings) return NS_OK;
  nsCOMPtr<nsISimpleEnumerator> bindings;
  nsresult rv = aBindings->Enumerate(bindings.getter_AddRefs());
  NS_ENSURE_SUCCESS(rv, rv);
  for (bool more; NS_SUCCEEDED(rv = bindings->HasMoreElements(&more)) && more;) {
    nsCOMPtr<nsISupports> element;
    rv = bindings->GetNext(element.getter_AddRefs());
    NS_ENSURE_SUCCESS(rv, rv);
    const auto binding = do_QueryInterface<nsISystemApplicationProfileBinding>(element, &rv);
    NS_ENSURE_SUCCESS(rv, rv);
    mBindings.push_back(binding);
    rv = CallProfileBindingListeners(binding.get(), true);
    NS_ENSURE_SUCCESS(rv, rv);
  }
  NS_ENSURE_SUCCESS(rv, rv);
  return NS_OK;
}

nsresult nsSystemManagerGeneric::RemoveApplicationProfileBinding(
    nsISystemApplicationProfileBinding* aBinding) {
  if (!NS_IsMainThread())
    return RunOnMainThread(&nsSystemManagerGeneric::RemoveApplicationProfileBinding, aBinding);
  const ptrdiff_t index = IndexOf(mBindings, aBinding);
  NS_ENSURE_TRUE(index != -1, NS_ERROR_FAILURE);
  const nsCOMPtr<nsISystemApplicationProfileBinding> binding = RemoveAt(mBindings, index);
  return CallProfileBindingListeners(aBinding, false);
}

nsresult nsSystemManagerGeneric::CallAdapterListeners(nsISystemAdapter* aAdapter, bool aAdded) {
  if (!NS_IsMainThread())
    return RunOnMainThread(&nsSystemManagerGeneric::CallAdapterListeners, aAdapter, aAdded);
  CallEach(mAdapterListeners, [&](auto* aListener) {
    return aAdded ? aListener->OnAdapterAdded(aAdapter) : aListener->OnAdapterRemoved(aAdapter);
  });
  return NS_OK;
}

nsresult nsSystemManagerGeneric::CallProfileBindingListeners(
    nsISystemApplicationProfileBinding* aBinding, bool aAdded) {
  if (!NS_IsMainThread())
    return RunOnMainThread(&nsSystemManagerGeneric::CallProfileBindingListeners, aBinding, aAdded);
  SYSTEM_LOG_DEBUG(mLogger, "Begin");
  CallEach(mProfileBindingListeners, [&](auto* aListener) {
    return aAdded ? aListener->OnProfileBindingAdded(aBinding)
                  : aListener->OnProfileBindingRemoved(aBinding);
  });
  SYSTEM_LOG_DEBUG(mLogger, "End");
  return NS_OK;
}

nsresult nsSystemManagerGeneric::GetAdapterBySysPath(nsIArray* aAdapters, nsString aSysPath,
                                                     nsISystemAdapter** aAdapter) {
  *aAdapter = nullptr;
  nsCOMPtr<nsIArray> adapters = aAdapters;
  nsresult rv;
  if (!adapters) {
    rv = GetAdapters(adapters.getter_AddRefs());
    NS_ENSURE_SUCCESS(rv, rv);
  }
  uint32_t length = 0;
  rv = adapters->GetLength(&length);
  NS_ENSURE_SUCCESS(rv, rv);
  for (uint32_t i = 0; i < length; ++i) {
    nsCOMPtr<nsISystemAdapter> adapter;
    (void)adapters->QueryElementAt(i, nsISystemAdapter::kIID, NS_OutVoid(adapter));
    NS_ENSURE_TRUE(adapter, NS_ERROR_UNEXPECTED);
    nsString sysPath;
    rv = adapter->GetSysPath(sysPath);
    NS_ENSURE_SUCCESS(rv, rv);
    if (sysPath == aSysPath) {
      adapter.forget(aAdapter);
      return NS_OK;
    }
  }
  return NS_OK;
}
