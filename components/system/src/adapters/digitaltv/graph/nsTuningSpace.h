// What a network provider is told by: the space of a kind of network, requests, and locators.
#pragma once

#include "nsDirectShowTypes.h"

/// New objects, of the interface that is asked for; E_NOINTERFACE if there is none such.
nsresult NS_NewDVBTuningSpace(const nsIID& aIID, void** aResult);
nsresult NS_NewDVBTLocator(const nsIID& aIID, void** aResult);
