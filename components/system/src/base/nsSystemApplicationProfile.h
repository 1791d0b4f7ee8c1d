// A named use of the machine.
#pragma once

#include "nsISystemApplicationProfile.h"

/// Copies the texts. NS_ERROR_OUT_OF_MEMORY, and *aProfile untouched, when the object can't be had.
nsresult NewSystemApplicationProfile(nsISystemApplicationProfile** aProfile, const nsAString& aName,
                                     const nsAString& aLabel, const nsAString& aDescription);
