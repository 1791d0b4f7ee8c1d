// Hears of what happens on a serial port.
#pragma once

#include "nsXPCOMTypes.h"

class nsIInputStream;

/// Given to nsISystemAdapterSerial::AddListener; told of ports that are open in mode 2. Called on
/// the main thread, one listener after the other, while the port's worker waits. Results are
/// ignored.
///
/// Whatever happens on the port, everything that the port listens for is told: a line may be told
/// that has not changed. Each call has the line's state at that moment.
class nsISystemSerialListener : public nsISupports {
 public:
  using Self = nsISystemSerialListener;
  using Base = nsISupports;
  static constexpr std::string_view kName = "nsISystemSerialListener";
  static constexpr nsIID kIID = "b7d2f0a4-3c51-4e8d-9a26-71c5d80e64f3"_iid;

  /// Clear to send.
  virtual nsresult OnCTS(bool aState) = 0;
  /// Data set ready.
  virtual nsresult OnDSR(bool aState) = 0;
  /// The ring indicator.
  virtual nsresult OnRING(bool aState) = 0;
  /// Data carrier detect.
  virtual nsresult OnDCD(bool aState) = 0;
  /// Bytes have come. aStream is the port's input stream; what Available says can be read at once.
  /// What is left unread is told again only with further bytes.
  virtual nsresult OnData(nsIInputStream* aStream) = 0;

 protected:
  ~nsISystemSerialListener() = default;
};
