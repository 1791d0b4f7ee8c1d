// The filters that read tables.
#pragma once

#include "nsCOMPtr.h"
#include "nsDirectShowTypes.h"

class IBaseFilter;

/// What the tuning of another platform needs; here it is connected, and does nothing.
nsCOMPtr<IBaseFilter> NS_NewTransportInformationFilter();

/// Answers IMpeg2Data, and nsIMediaCancel for its calls. GetTable waits until the whole table is
/// there, for tables of several extensions on one PID until all of them are: for program maps those
/// that the program association table names, else until the first one comes again. At the end of
/// the time it hands out what is whole; VFW_E_TIMEOUT when nothing is. Sections not yet in force
/// are left out, as are short ones, which are no tables. GetSection takes the first section.
/// VFW_E_WRONG_STATE while the tuner is not open, VFW_E_NOT_CONNECTED without one.
nsCOMPtr<IBaseFilter> NS_NewSectionsFilter();
