// What the receiver graph and the end of its stream ask of the adapter that they work for.
#pragma once

#include "nsCOMPtr.h"
#include "nsIInputStream.h"
#include "nsIOutputStream.h"

class IBaseFilter;
class IGraphBuilder;
class IPin;

class nsSystemBDAReceiver {
 public:
  /// Puts the filters of the tuner's devices into the graph. NS_ERROR_FAILURE.
  virtual nsresult AddFilters(IGraphBuilder* aGraph) = 0;
  /// Connects them behind the network provider, and looks for the pin that their transport stream
  /// comes out of. NS_ERROR_FAILURE.
  virtual nsresult Connect(IBaseFilter* aProvider) = 0;
  /// NS_ERROR_FAILURE without one.
  virtual nsresult GetTransportStreamPin(IPin** aPin) = 0;
  /// Takes the filters out of the graph and lets go of them, of their pin and of the graph.
  virtual void RemoveFilters() = 0;

  // Any thread, from here on.

  virtual nsresult GetLocked(bool* aLocked) = 0;
  virtual nsresult GetLevel(int32_t* aLevel) = 0;
  /// Whether the scan was asked to stop.
  virtual bool IsScanStopped() = 0;
  /// The writing end of the pipe to the player; null when there is none.
  virtual nsCOMPtr<nsIOutputStream> PipeOutput() = 0;
  /// Its reading end; null when there is none.
  virtual nsCOMPtr<nsIInputStream> PipeInput() = 0;
  /// Closes that pipe, its writing end first; nothing when it has been replaced meanwhile.
  virtual void ClosePipe(nsIOutputStream* aOutput) = 0;

 protected:
  ~nsSystemBDAReceiver() = default;
};
