// The names of devices and of what runs, and where the names are found.
#pragma once

#include <memory>
#include <string_view>

#include "nsCOMPtr.h"
#include "nsDirectShowTypes.h"

class IBindCtx;
class ICreateDevEnum;
class IMoniker;
class IRunningObjectTable;
class nsPlatformTuners;

/// Categories: tuners, their components, and the filters that read tables, which are part of the
/// graph. A device's display name is its path in the port.
nsCOMPtr<ICreateDevEnum> NS_NewMediaDeviceEnum(std::shared_ptr<nsPlatformTuners> aTuners);
/// MK_E_NOOBJECT when there is no such device, MK_E_SYNTAX for no name.
nsresult NS_FindMediaDevice(const std::shared_ptr<nsPlatformTuners>& aTuners,
                            std::u16string_view aPath, IMoniker** aMoniker);
nsCOMPtr<IMoniker> NS_NewItemMoniker(std::u16string_view aDelimiter, std::u16string_view aItem);
nsCOMPtr<IBindCtx> NS_NewBindCtx(nsCOMPtr<IRunningObjectTable> aRunning);
nsCOMPtr<IRunningObjectTable> NS_NewRunningObjectTable();
