// The port of media objects: where the objects come from that the media interfaces of
// public/directshow belong to, and the few functions that go with them.
//
// A platform that has such objects hands out its own. One that has none is given those of graph/,
// which work on its tuners; nobody above can tell.
#pragma once

#include <cstdint>

#include "nsDirectShowTypes.h"

class IBindCtx;
class IMoniker;
class IRunningObjectTable;

/// Where the server of a class may run; the graph's own objects run here whatever is asked for.
inline constexpr uint32_t CLSCTX_INPROC_SERVER = 0x1;
inline constexpr uint32_t CLSCTX_ALL = 0x17;
/// The table holds the object.
inline constexpr uint32_t ROTFLAGS_REGISTRATIONKEEPSALIVE = 1;

/// Any thread, and so are the objects that come from here.
class nsPlatformMedia {
 public:
  virtual ~nsPlatformMedia() = default;

  /// For the calling thread, before it makes or uses an object; it may be done again.
  /// Windows: CoInitialize.
  virtual nsresult CoInitialize() = 0;
  /// A new object of a class, not aggregated. REGDB_E_CLASSNOTREG for a class that there is not,
  /// E_NOINTERFACE when it does not have the interface.
  /// Windows: CoCreateInstance.
  virtual nsresult CoCreateInstance(const nsCID& aClass, uint32_t aContext, const nsIID& aIID,
                                    void** aResult) = 0;
  /// The one table of the process, or of all.
  /// Windows: GetRunningObjectTable.
  virtual nsresult GetRunningObjectTable(IRunningObjectTable** aTable) = 0;
  /// A name that says which object among those of one kind. Its display name is both texts.
  /// Windows: CreateItemMoniker.
  virtual nsresult CreateItemMoniker(const char16_t* aDelimiter, const char16_t* aItem,
                                     IMoniker** aMoniker) = 0;
  /// Windows: CreateBindCtx.
  virtual nsresult CreateBindCtx(IBindCtx** aContext) = 0;
  /// The moniker whose display name this is; for devices the path that their moniker gives.
  /// MK_E_SYNTAX for a text that names nothing, MK_E_NOOBJECT for a device that is not there.
  /// aEaten is how many characters were understood.
  /// Windows: MkParseDisplayName.
  virtual nsresult MkParseDisplayName(IBindCtx* aContext, const char16_t* aName, uint32_t* aEaten,
                                      IMoniker** aMoniker) = 0;
  /// Gives back memory that an interface has handed out: names of monikers, lists, media types and
  /// their formats. Null is nothing.
  /// Windows: CoGetMalloc, IMalloc::Free.
  virtual void CoTaskMemFree(void* aMemory) = 0;
  /// A text with its length in front, for parameters of type BSTR. Null when there is no memory.
  /// Windows: SysAllocString.
  virtual char16_t* SysAllocString(const char16_t* aText) = 0;
  /// The other end of it, also for texts that an interface or a VARIANT hands out. Null is nothing.
  /// Windows: SysFreeString.
  virtual void SysFreeString(char16_t* aText) = 0;
};
