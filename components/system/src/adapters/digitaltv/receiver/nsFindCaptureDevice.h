// Which receiver components belong to a tuner.
#pragma once

#include <memory>

#include "nsDirectShowDevice.h"

/// Tries out, on a graph of its own, which component takes the tuner's signal, and which takes that
/// one's. Each is null when there is none; a lone component counts as the one that captures. A
/// tuner that can't be tried out has neither, and that is no failure either: always NS_OK.
nsresult FindCaptureDevice(const nsPlatformRef& aPlatform, const DirectShowSystemDevice& aTuner,
                           std::unique_ptr<DirectShowSystemDevice>* aDemod,
                           std::unique_ptr<DirectShowSystemDevice>* aCapture);
