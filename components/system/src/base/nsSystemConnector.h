// A connector of an adapter.
#pragma once

#include "nsISystemConnector.h"

class nsIArray;

/// Copies the texts, and the elements of the arrays, each of which may be null; a failure to copy
/// one is returned. NS_ERROR_OUT_OF_MEMORY when the object can't be had. *aConnector is untouched
/// on failure.
nsresult NewSystemConnector(nsISystemConnector** aConnector, const nsAString& aName,
                            const nsAString& aMask, const nsAString& aLabel, const nsAString& aType,
                            nsIArray* aArray1, nsIArray* aArray2, nsIArray* aArray3);
