// Constructors of module rows, and the records of the modules that are part of the host itself.
#pragma once

#include "Module.h"
#include "nsCOMPtr.h"

/// A row's constructor for a class of which there are many objects.
template <class T>
nsresult NS_ConstructNew(nsISupports* aOuter, const nsIID& aIID, void** aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  if (aOuter) return NS_ERROR_NO_AGGREGATION;
  return MakeRefCounted<T>()->QueryInterface(aIID, aResult);
}

/// A row's constructor for the one object of a class that has get().
template <class T>
nsresult NS_ConstructTheOne(nsISupports* aOuter, const nsIID& aIID, void** aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  if (aOuter) return NS_ERROR_NO_AGGREGATION;
  return T::get().QueryInterface(aIID, aResult);
}

extern const vorel::Module kThreadsModule;
extern const vorel::Module kNetworkModule;
extern const vorel::Module kPrefsModule;
extern const vorel::Module kLogModule;
extern const vorel::Module kIOModule;
extern const vorel::Module kZoneModule;
extern const vorel::Module kGfxModule;
