// The classes that the bridge brings to the component manager.
#pragma once

#include "Module.h"
#include "nsCOMPtr.h"
#include "nsIDOMScriptObjectFactory.h"
#include "nsScriptRuntime.h"

extern const vorel::Module kScriptModule;

nsresult NS_ConstructModuleLoader(nsISupports* aOuter, const nsIID& aIID, void** aResult);

/// A factory that writes what is registered with it into aName.
nsCOMPtr<nsIDOMScriptObjectFactory> NS_NewScriptObjectFactory(nsNamedInterface* aName);
