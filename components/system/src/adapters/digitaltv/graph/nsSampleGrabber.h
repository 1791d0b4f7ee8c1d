// The end of a graph: the filter that lets a callback see each sample, and the one where samples
// end.
#pragma once

#include "nsCOMPtr.h"
#include "nsDirectShowTypes.h"

class IBaseFilter;

/// Pins "Input" and "Output". Answers ISampleGrabber: it takes connections of the type that was
/// set, of any before that, and calls SampleCB or BufferCB, on the streaming thread, before it
/// passes the sample on. It keeps no samples.
nsCOMPtr<IBaseFilter> NS_NewSampleGrabber();
/// Pin "In", which takes everything and does nothing with it.
nsCOMPtr<IBaseFilter> NS_NewNullRenderer();
