// Files of script that have been loaded.
#pragma once

#include <js/RootingAPI.h>
#include <jsapi.h>

#include <map>
#include <string>

/// The modules of a runtime, and what its components handed out, each loaded once. Main thread.
class nsScriptModules {
 public:
  /// Hooks for `import`, static and dynamic.
  void Init(JSContext* cx);
  void Clear() { mLoaded.clear(); }

  /// Runs a file as what its name says it is. False with a pending exception, or stopped.
  bool Run(const std::string& aFile);
  /// The module of a file; null with a pending exception.
  JSObject* Get(const std::string& aFile);
  /// The function NSGetFactory of a component, undefined when it has none. False with a pending
  /// exception.
  bool GetFactoryOf(const std::string& aFile, JS::MutableHandleValue aGetFactory);

 private:
  JSContext* mCx = nullptr;
  std::map<std::string, JS::PersistentRootedObject> mLoaded;
};
