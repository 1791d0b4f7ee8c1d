// The standard output as the end of a stream: "@vorel/tools/stream-output;1" of the program's
// tools library.
#pragma once

#include "nsXPCOMTypes.h"

class nsIInputStream;

/// Hears of the end, on the main thread.
class nsIStreamOutputListener : public nsISupports {
 public:
  using Self = nsIStreamOutputListener;
  using Base = nsISupports;
  static constexpr std::string_view kName = "nsIStreamOutputListener";
  static constexpr nsIID kIID = "4c1f1f52-6c0e-4a77-9a7b-0d3a5c64a101"_iid;

  /// NS_OK: the stream has ended. NS_BASE_STREAM_CLOSED: nobody reads the standard output any more.
  /// Other failures are those of reading or writing.
  virtual nsresult OnEnded(nsresult aStatus) = 0;

 protected:
  ~nsIStreamOutputListener() = default;
};

/// Main thread.
class nsIStreamOutput : public nsISupports {
 public:
  using Self = nsIStreamOutput;
  using Base = nsISupports;
  static constexpr std::string_view kName = "nsIStreamOutput";
  static constexpr nsIID kIID = "4c1f1f52-6c0e-4a77-9a7b-0d3a5c64a102"_iid;

  /// Writes what comes out of a blocking stream to the standard output, on a thread of its own.
  /// Returns at once. It goes on until the stream ends or this object is dropped, which closes the
  /// stream. NS_ERROR_IN_PROGRESS the second time, NS_ERROR_NULL_POINTER without a stream or a
  /// listener.
  virtual nsresult Start(nsIInputStream* aStream, nsIStreamOutputListener* aListener) = 0;
  /// How many bytes have been written.
  virtual nsresult GetWritten(uint64_t* aWritten) = 0;

 protected:
  ~nsIStreamOutput() = default;
};
