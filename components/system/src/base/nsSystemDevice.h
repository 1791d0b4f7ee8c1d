// The device of an adapter.
#pragma once

#include "nsISystemDevice.h"

/// Copies the texts. NS_ERROR_OUT_OF_MEMORY, and *aDevice untouched, when the object can't be had.
nsresult NewSystemDevice(nsISystemDevice** aDevice, const nsAString& aName,
                         const nsAString& aLabel);
