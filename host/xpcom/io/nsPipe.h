// Pipes between threads, "@mozilla.org/pipe;1".
#pragma once

#include <memory>

#include "nsIAsyncInputStream.h"
#include "nsIAsyncOutputStream.h"
#include "nsIPipe.h"
#include "nsImplements.h"

/// Bytes in at one end, out at the other, through a number of segments. Any thread may use either
/// end; where a second one calls the same end meanwhile, it waits for the first. Bytes move without
/// a copy between: ReadSegments and WriteSegments hand out the segments themselves. A read from
/// within the callback of a read, and a write likewise, does nothing: NS_BASE_STREAM_WOULD_BLOCK.
///
/// An end that blocks waits inside Read or Write: for some bytes, and for room for all bytes. One
/// that doesn't answers NS_BASE_STREAM_WOULD_BLOCK when nothing can be read or written, and
/// AsyncWait tells when to try again. The count is given for a failure too.
///
/// Closing the output lets the input read what is there, and then 0 bytes (or, closed with another
/// status than NS_BASE_STREAM_CLOSED, that status). Closing the input drops what is there, and
/// writing then fails with the status. An end that nobody holds any more is closed.
///
/// AsyncWait calls once, on the event target or, without one, on the thread that made the end
/// ready, which may be the caller's. An end is ready when bytes or room are there, or it is closed;
/// with WAIT_CLOSURE_ONLY only then. A second AsyncWait replaces the first, null takes it back. The
/// wanted count is not looked at. A waiting call holds its end.
class nsPipe final : public nsImplements<nsPipe, nsIPipe> {
 public:
  static const nsClassInfoRecord kClassInfo;
  /// A size or count of 0 is 4096 and 16; a count of 0xFFFFFFFF has no limit. The allocator is not
  /// used. NS_ERROR_ALREADY_INITIALIZED the second time, NS_ERROR_OUT_OF_MEMORY here and where a
  /// segment is written to for the first time.
  nsresult Init(bool aNonBlockingInput, bool aNonBlockingOutput, uint32_t aSegmentSize,
                uint32_t aSegmentCount, nsIMemory* aSegmentAllocator) override;
  /// NS_ERROR_NOT_INITIALIZED before Init. The same object each time.
  nsresult GetInputStream(nsIAsyncInputStream** aInputStream) override;
  nsresult GetOutputStream(nsIAsyncOutputStream** aOutputStream) override;

 private:
  ~nsPipe() override = default;
  nsCOMPtr<nsIAsyncInputStream> mInput;
  nsCOMPtr<nsIAsyncOutputStream> mOutput;
};
