// The registry of adapters and bindings: the part of the manager that knows nothing of the machine.
#pragma once

#include "nsCOMArray.h"
#include "nsIObserver.h"
#include "nsISystemAdapter.h"
#include "nsISystemAdapterListener.h"
#include "nsISystemApplicationProfileBinding.h"
#include "nsISystemManager.h"
#include "nsISystemProfileBindingListener.h"
#include "nsLogger.h"
#include "nsString.h"
#include "nsThreadSafeWeakReference.h"

/// The rule: the lists change on the main thread only. An operation below that changes one, or
/// calls listeners, and finds itself on another thread, sends itself to the main thread and waits;
/// its result is then that of the dispatch, its own being lost. So whoever calls one elsewhere must
/// hold nothing that the main thread needs.
class nsSystemManagerGeneric : public nsISystemManager,
                               public nsIObserver,
                               public nsThreadSafeSupportsWeakReference {
 public:
  nsrefcnt AddRef() override { return nsThreadSafeSupportsWeakReference::AddRef(); }
  nsrefcnt Release() override { return nsThreadSafeSupportsWeakReference::Release(); }

  // nsISystemManager
  nsresult GetAdapters(nsIArray** aAdapters) override;
  nsresult RefreshAdapters(const nsIID& aIID) override;
  nsresult GetAdaptersByIId(const nsIID& aIID, nsIArray** aAdapters) override;
  nsresult GetApplicationProfileBindingsByProfileUri(const nsAString& aUri,
                                                     nsIArray** aBindings) override;
  nsresult Reserved7(void* aFirst, void* aSecond) override;
  nsresult AddAdapterListener(nsISystemAdapterListener* aListener) override;
  nsresult RemoveAdapterListener(nsISystemAdapterListener* aListener) override;
  nsresult AddProfileBindingListener(nsISystemProfileBindingListener* aListener) override;
  nsresult RemoveProfileBindingListener(nsISystemProfileBindingListener* aListener) override;

  /// "xpcom-shutdown" empties the lists; NS_ERROR_INVALID_ARG without a topic.
  nsresult Observe(nsISupports* aSubject, const char* aTopic, const char16_t* aData) override;

  // For discovery and adapters.

  /// Publishes an adapter: puts it last in the list and tells the listeners.
  nsresult AddAdapter(nsISystemAdapter* aAdapter);
  /// Takes it out, tells the listeners, then removes its bindings, each with its own notice.
  /// NS_ERROR_FAILURE, and nobody hears of it, when it is not in the list.
  nsresult RemoveAdapter(nsISystemAdapter* aAdapter);
  /// Tells the listeners; looks at no list.
  nsresult NotifyAdapterChanged(nsISystemAdapter* aAdapter);
  /// Puts each nsISystemApplicationProfileBinding of an array into the list and tells the
  /// listeners. A null array is success. The first element that is no binding ends it; those before
  /// it stay.
  nsresult AppendApplicationProfileBindings(nsIArray* aBindings);
  /// NS_ERROR_FAILURE when it is not in the list.
  nsresult RemoveApplicationProfileBinding(nsISystemApplicationProfileBinding* aBinding);
  nsresult CallAdapterListeners(nsISystemAdapter* aAdapter, bool aAdded);
  nsresult CallProfileBindingListeners(nsISystemApplicationProfileBinding* aBinding, bool aAdded);
  /// The first adapter of that system path among the given ones, or among all when none are given;
  /// null, and success, when there is none. NS_ERROR_UNEXPECTED when an element is no adapter. Main
  /// thread.
  nsresult GetAdapterBySysPath(nsIArray* aAdapters, nsString aSysPath, nsISystemAdapter** aAdapter);

 protected:
  nsSystemManagerGeneric();
  ~nsSystemManagerGeneric() override;

  nsCOMPtr<nsILog4Logger> mLogger;
  nsCOMArray<nsISystemAdapter> mAdapters;
  nsCOMArray<nsISystemApplicationProfileBinding> mBindings;
  nsCOMArray<nsISystemAdapterListener> mAdapterListeners;
  nsCOMArray<nsISystemProfileBindingListener> mProfileBindingListeners;

 private:
  template <class... P>
  nsresult RunOnMainThread(nsresult (nsSystemManagerGeneric::*aMethod)(P...),
                           std::type_identity_t<P>... aArguments);
};
