// A serial port as an adapter.
#pragma once

#include "nsISystemAdapter.h"

class nsIAsyncInputStream;
class nsIAsyncOutputStream;
class nsISystemSerialListener;

/// Set it up, Open it, use its streams and lines, Close it. The system path is the port's name,
/// "COM3".
///
/// Mode 1, the default, is for a thread that may wait: reads and writes wait as the time-out says,
/// and nobody is told of anything. Mode 2 is for the main thread: reads take what is there, a
/// worker listens to the port, calls the listeners and those that wait on the streams.
///
/// Unless told otherwise an operation may be called from any thread, and answers
/// NS_ERROR_NOT_INITIALIZED while the port is closed where "open" stands in its description. A
/// failure of the system in an operation on lines is NS_ERROR_FAILURE. Places without a name are
/// reserved.
class nsISystemAdapterSerial : public nsISystemAdapter {
 public:
  using Self = nsISystemAdapterSerial;
  using Base = nsISystemAdapter;
  static constexpr std::string_view kName = "nsISystemAdapterSerial";
  static constexpr nsIID kIID = "eb8624c6-13ea-4a50-bf60-ecaa63bd9357"_iid;

  /// 0x127 for every port.
  virtual nsresult GetCapabilities(uint32_t* aCapabilities) = 0;
  /// Settings for the next Open; nothing is checked here, and what the port can't do is logged then
  /// and left as it was. Not to be called while another thread opens the port.
  ///
  /// aAccess: 1 for reading, 2 for writing, 3 for both. aBaudRate in bits a second, one of the
  /// usual ones up to 256000. aCharSize: data bits, 5 to 8. aParity: 256 none; 512 odd, 1024 even,
  /// 2048 mark, 4096 space turn the check on, of the parity that the line is set to already.
  /// aStopBits: 0 one, 1 one and a half, 2 two. aFlowControl: 0 none, 1 RTS and CTS, 2 XON and
  /// XOFF.
  virtual nsresult SetParameters(uint32_t aAccess, uint32_t aBaudRate, uint32_t aCharSize,
                                 uint32_t aParity, uint32_t aStopBits, uint32_t aFlowControl) = 0;
  /// What was set, also what the port refused. At first 3, 9600, 8, 256, 0, 0.
  virtual nsresult GetParameters(uint32_t* aAccess, uint32_t* aBaudRate, uint32_t* aCharSize,
                                 uint32_t* aParity, uint32_t* aStopBits,
                                 uint32_t* aFlowControl) = 0;
  /// Open. A break of that length; returns after it. Other operations of the port wait meanwhile.
  virtual nsresult SendBreak(uint32_t aMicroseconds) = 0;
  /// Open. Gives what SetBREAK has set, and answers NS_ERROR_NOT_IMPLEMENTED all the same: kept as
  /// it stands.
  virtual nsresult GetBREAK(bool* aBREAK) = 0;
  /// Open. A break begins, or ends.
  virtual nsresult SetBREAK(bool aBREAK) = 0;
  /// Open. Data carrier detect, an input; false also when the line can't be read.
  virtual nsresult GetDCD(bool* aDCD) = 0;
  /// Open. Clear to send, likewise.
  virtual nsresult GetCTS(bool* aCTS) = 0;
  /// Open. Data set ready, likewise.
  virtual nsresult GetDSR(bool* aDSR) = 0;
  /// Open. What Open has made of the output: true. SetDTR does not change it: kept as it stands.
  virtual nsresult GetDTR(bool* aDTR) = 0;
  /// Open. Data terminal ready, an output.
  virtual nsresult SetDTR(bool aDTR) = 0;
  /// Open. The ring indicator, an input; false also when the line can't be read.
  virtual nsresult GetRING(bool* aRING) = 0;
  /// Open. What Open remembers of the output: false. SetRTS does not change it: kept as it stands.
  virtual nsresult GetRTS(bool* aRTS) = 0;
  /// Open. Request to send, an output.
  virtual nsresult SetRTS(bool aRTS) = 0;
  virtual nsresult Reserved22(void* aFirst) = 0;
  virtual nsresult Reserved23(void* aFirst) = 0;
  /// Open. Whether everything written has left the port's queue; true also when that can't be read,
  /// with NS_ERROR_FAILURE.
  virtual nsresult GetIsTQEmpty(bool* aIsTQEmpty) = 0;
  /// Open. Does nothing, and succeeds.
  virtual nsresult DrainTQ() = 0;
  virtual nsresult Reserved26() = 0;
  virtual nsresult Reserved27() = 0;
  /// For ports in mode 2. Listeners stay over Close and Open. One that is added twice is called
  /// twice. While the port is open, all that is told is told at once. NS_ERROR_FAILURE when an open
  /// port can't be made to listen to its lines; the listener is added nevertheless. Don't call it
  /// on a port that is open in mode 1.
  virtual nsresult AddListener(nsISystemSerialListener* aListener) = 0;
  /// Success also for one that is not there.
  virtual nsresult RemoveListener(nsISystemSerialListener* aListener) = 0;
  /// Whether the streams say that they block; they do in mode 1. True at first.
  virtual nsresult GetIsBlocking(bool* aIsBlocking) = 0;
  virtual nsresult SetIsBlocking(bool aIsBlocking) = 0;
  /// A number that is kept, and has no use.
  virtual nsresult GetReservedValue(uint32_t* aReservedValue) = 0;
  virtual nsresult SetReservedValue(uint32_t aReservedValue) = 0;
  /// For mode 1, in ms, from the next Open on: how long a read waits for all of its bytes and for
  /// the next one, and a write for its end. 0, the default: without limit. 0xFFFFFFFF: a read takes
  /// what is there.
  virtual nsresult GetTimeout(uint32_t* aTimeout) = 0;
  virtual nsresult SetTimeout(uint32_t aTimeout) = 0;
  /// 1 or 2; NS_ERROR_FAILURE for others. To be set before Open.
  virtual nsresult GetMode(uint32_t* aMode) = 0;
  virtual nsresult SetMode(uint32_t aMode) = 0;
  /// Open. Always the same one, which is an nsIBinaryInputStream too. Hold it as long as the port
  /// is used: the stream closes when its last user lets go of it, till the next Open.
  ///
  /// Numbers are big-endian. In mode 2 a read takes as many bytes as it is asked for, whether they
  /// are there or not: ask for what Available says. ReadString fails on every text that is not
  /// empty: kept as it stands. On a closed stream reads give no bytes.
  ///
  /// AsyncWait calls back at the next event of the port, once. Without a target it calls on the
  /// worker's thread.
  virtual nsresult GetInputStream(nsIAsyncInputStream** aInputStream) = 0;
  /// Open. As GetInputStream, with nsIBinaryOutputStream. In mode 2 a write that is done at once
  /// reports 0 bytes, so that everything but Write and WriteFrom fails after it has written: kept
  /// as it stands. NS_BASE_STREAM_WOULD_BLOCK tells of a write that goes on.
  virtual nsresult GetOutputStream(nsIAsyncOutputStream** aOutputStream) = 0;
  /// NS_ERROR_FAILURE when the port is open. NS_ERROR_FILE_ACCESS_DENIED when it can't be opened:
  /// it is not there, another program uses it, or the right is missing; the log says which.
  /// NS_ERROR_FAILURE also when the port can't be listened to: it is open then and wants a Close.
  virtual nsresult Open() = 0;
  /// Closes the streams and the port. Reads and writes of other threads fail; who waits on a stream
  /// is not called. Success also for a port that is closed.
  virtual nsresult Close() = 0;

 protected:
  ~nsISystemAdapterSerial() = default;
};
