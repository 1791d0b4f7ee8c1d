// Tests and repair: "@vorel/system/maintenance;1", in script the global systemMaintenance.
#pragma once

#include "nsXPCOMTypes.h"

/// Any thread.
class nsISystemMaintenance : public nsISupports {
 public:
  using Self = nsISystemMaintenance;
  using Base = nsISupports;
  static constexpr std::string_view kName = "nsISystemMaintenance";
  static constexpr nsIID kIID = "658de7c7-a584-4bbb-b1ca-bf042d8f3e58"_iid;

  /// A kept place. Does nothing, success.
  virtual nsresult Reserved3() = 0;
  /// Ends the process by a write to address 0, and so by way of the crash reporter.
  /// NS_ERROR_FAILURE should the write be survived.
  virtual nsresult CrashProcess() = 0;
  /// Blocks the main thread for ever; from another thread, that one too. Where the watchdog is on
  /// it ends the process 180 seconds after it was last fed.
  virtual nsresult HangMainThread() = 0;
  /// Runs a line of the system's shell, on a thread of its own. The result tells whether that
  /// thread could be started; nothing but a warning in the log tells how the command ended.
  virtual nsresult RunCommand(const nsACString& aCommandLine) = 0;
  /// Kept places. Do nothing, success.
  virtual nsresult Reserved7(void* aArgument) = 0;
  virtual nsresult Reserved8(void* aArgument) = 0;
  virtual nsresult Reserved9(void* aArgument) = 0;

 protected:
  ~nsISystemMaintenance() = default;
};
