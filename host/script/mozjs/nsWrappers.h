// Compiled objects as script sees them.
#pragma once

#include <js/RootingAPI.h>
#include <jsapi.h>

#include <string>
#include <unordered_map>
#include <vector>

#include "nsCOMPtr.h"
#include "nsScriptTables.h"

class nsScriptRuntime;

/// A compiled object as script sees it. One for each object, for as long as script holds it.
struct nsWrapper {
  /// A pointer to the object as the interface, with a reference.
  struct Face {
    const nsScriptInterface* mInterface;
    nsISupports* mPointer;
  };
  JS::Heap<JSObject*>
      mObject;             ///< weak: null from the moment on that the collector has condemned it
  nsISupports* mIdentity;  ///< with a reference
  std::vector<Face> mFaces;
  std::string mClassName;
};

/// The wrappers of a runtime, and the prototypes that they show their members by. Main thread.
class nsWrappers {
 public:
  explicit nsWrappers(nsScriptRuntime& aRuntime) : mRuntime(aRuntime) {}
  void Init(JSContext* cx) { mCx = cx; }
  /// Lets prototypes go; wrappers go with the context.
  void Clear() {
    mPrototypes.clear();
    mShapes.clear();
  }

  /// The object for script; null for null. aInterface, which may be null, is what the place that
  /// gives it says it is.
  bool Wrap(nsISupports* aNative, const nsScriptInterface* aInterface,
            JS::MutableHandleValue aResult);
  /// The wrapper behind a value; null for any other.
  static nsWrapper* Of(const JS::Value& aValue);
  /// The wrapped object as an interface, borrowed; null when it does not implement it.
  nsISupports* Face(nsWrapper* aWrapper, const nsScriptInterface* aInterface);
  /// Makes members of an interface visible on the wrapper, if the object implements it.
  bool AddFace(JS::HandleObject aObject, nsWrapper* aWrapper, const nsScriptInterface* aInterface,
               bool* aImplements);
  JSObject* Prototype(const nsScriptInterface* aInterface);

  // For the collector.
  void Sweep(JSTracer* aTracer);
  void Finalize(nsWrapper* aWrapper);

 private:
  bool ReadClassInfo(nsISupports* aNative, std::vector<const nsScriptInterface*>* aInterfaces,
                     std::string* aName);
  void TellHidden(JS::HandleId aId, const std::vector<nsWrapper::Face>& aFaces, size_t aFace,
                  const std::string& aName);
  JSObject* ShapePrototype(const std::vector<nsWrapper::Face>& aFaces, const std::string& aName);
  bool DefineMembers(JS::HandleObject aPrototype, const nsScriptInterface* aInterface);

  nsScriptRuntime& mRuntime;
  JSContext* mCx = nullptr;
  std::unordered_map<nsISupports*, nsWrapper*> mWrappers;
  std::unordered_map<const nsScriptInterface*, JS::PersistentRootedObject> mPrototypes;
  std::unordered_map<std::string, JS::PersistentRootedObject> mShapes;
};
