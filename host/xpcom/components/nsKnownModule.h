// A module record that the component manager knows, and, where it came from a file, its library.
#pragma once

#include <prlink.h>

#include <atomic>
#include <string>
#include <thread>

#include "Module.h"
#include "nsCOMPtr.h"
#include "nsIFactory.h"

class nsKnownModule {
 public:
  /// aLibrary, of dlopen, is closed with this; null for a record in memory.
  nsKnownModule(const vorel::Module& aRecord, std::string aName, PRLibrary* aLibrary);
  nsKnownModule(const nsKnownModule&) = delete;
  nsKnownModule& operator=(const nsKnownModule&) = delete;
  ~nsKnownModule();

  /// Opens a library and finds its record. The reason of a failure goes to *aError.
  static std::unique_ptr<nsKnownModule> Open(const std::string& aPath, std::string* aError);

  const vorel::Module& Record() const { return mRecord; }
  const std::string& Name() const { return mName; }

  /// The factory of a row: the module's own choice, else the row's, else one over the row's
  /// constructor. Runs the load step first, if it has not run: always on the main thread, so that
  /// this call, from another thread, waits for that one. A load step that fails, fails the module
  /// for good: NS_ERROR_FACTORY_NOT_LOADED.
  nsresult GetFactory(const vorel::Module::CIDEntry& aRow, nsIFactory** aResult);
  /// Runs the unload step, if the load step has run or there is none.
  void Unload();

 private:
  enum State { eNotLoaded, eLoading, eLoaded, eFailed };
  nsresult EnsureLoaded();
  nsresult Load();

  const vorel::Module& mRecord;
  const std::string mName;
  PRLibrary* const mLibrary;
  std::atomic<State> mState;  // written on the main thread only
};
