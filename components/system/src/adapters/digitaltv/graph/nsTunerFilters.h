// The filters of a tuner's devices: the tuner itself, and the components behind it.
#pragma once

#include "nsCOMPtr.h"
#include "nsDirectShowTypes.h"
#include "nsPlatformTuners.h"

class IBaseFilter;

/// The tuner: input "Antenna In", output "Signal Out", or "Transport Out" where no component
/// follows. IBDA_Topology tells what it is made of; the nodes of its demodulators have
/// IBDA_SignalStatistics. The device is taken when the filter runs, and given back when it stops.
nsCOMPtr<IBaseFilter> NS_NewTunerFilter(std::shared_ptr<nsPlatformTuners> aTuners,
                                        const nsTunerInfo& aInfo);
/// Component aPosition of a tuner, from 1. It takes its signal from what stands before it in that
/// tuner, and from nothing else.
nsCOMPtr<IBaseFilter> NS_NewTunerPartFilter(const nsTunerInfo& aInfo, size_t aPosition);
