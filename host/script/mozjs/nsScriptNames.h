// Names: of members, and those that stand for interfaces.
#pragma once

#include <js/RootingAPI.h>
#include <jsapi.h>

#include <deque>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "nsScriptTables.h"

class nsScriptRuntime;

/// A name that stands for interfaces: one of Components.interfaces, or a global one for a DOM class
/// or interface.
struct nsNamedInterface {
  std::string mName;
  std::vector<nsIID> mIIDs;
  std::string mContractID;  ///< what `new` makes
  nsCID mCID;               ///< the same, when there is no contract ID
  bool mConstructs = false;
};

/// The names of a runtime. Main thread.
class nsScriptNames {
 public:
  explicit nsScriptNames(nsScriptRuntime& aRuntime) : mRuntime(aRuntime) {}
  void Init(JSContext* cx) { mCx = cx; }
  void Clear() { mInterfaceObjects.clear(); }

  /// The property of a table's name, made once. False with a pending exception.
  bool NameOf(std::string_view aName, JS::MutableHandleId aResult);

  /// One of Components.interfaces.
  JSObject* InterfaceObject(const nsScriptInterface* aInterface);
  /// Lasts as long as the runtime.
  nsNamedInterface* NewName() { return &mNames.emplace_back(); }
  /// The first identifier that a value names; false when it names none.
  bool ReadID(JS::HandleValue aValue, nsID* aResult);
  bool DefineInterfaceConstants(JS::HandleObject aObject, const nsScriptInterface* aInterface);
  bool DefineHasInstance(JS::HandleObject aObject, nsNamedInterface* aName);

 private:
  nsScriptRuntime& mRuntime;
  JSContext* mCx = nullptr;
  std::unordered_map<const nsScriptInterface*, JS::PersistentRootedObject> mInterfaceObjects;
  std::deque<nsNamedInterface> mNames;
  // By their place: tables last as long as the process. Pinned, so that no tracer is needed.
  std::unordered_map<const char*, JS::PropertyKey> mProperties;
};
