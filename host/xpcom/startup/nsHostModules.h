// The host's own classes come in module records, as everybody else's do: one record an area, listed
// in nsHostModules.cpp in the order in which they are registered.
#pragma once

#include "nsConstructors.h"

extern const vorel::Module kBaseModule;  // base, components, ds

struct nsHostModule {
  const char* mName;
  const vorel::Module* mRecord;
};
/// Closed by a null name.
extern const nsHostModule kHostModules[];
