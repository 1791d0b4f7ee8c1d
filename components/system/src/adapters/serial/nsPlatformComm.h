// The port of serial lines: the machine's COM ports, and what can be done with an open one.
//
// The shape is that of the platform for which COM ports are native; each method names the call of
// it that it stands for. Where a system has other names for its lines, its backend gives them
// numbers that stay with the device.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "nsError.h"
#include "nsPlatformOverlapped.h"

/// How a line is driven. [DCB]
struct nsCommDCB {
  /// Bits of mFlags.
  static constexpr uint32_t kBinary = 0x1, kParity = 0x2, kOutxCtsFlow = 0x4, kOutxDsrFlow = 0x8,
                            kDtrControl = 0x30, kOutX = 0x100, kInX = 0x200, kNull = 0x800,
                            kRtsControl = 0x3000, kRtsHandshake = 0x2000, kAbortOnError = 0x4000;
  /// Values of mParity and of mStopBits.
  static constexpr uint8_t kNoParity = 0, kOddParity = 1, kEvenParity = 2, kMarkParity = 3,
                           kSpaceParity = 4;
  static constexpr uint8_t kOneStopBit = 0, kOne5StopBits = 1, kTwoStopBits = 2;

  uint32_t mBaudRate = 9600;  ///< Bits a second, any.
  uint32_t mFlags = kBinary;
  uint16_t mXonLim = 0, mXoffLim = 0;
  uint8_t mByteSize = 8;  ///< Data bits.
  uint8_t mParity = kNoParity;
  uint8_t mStopBits = kOneStopBit;
  char mXonChar = 0x11, mXoffChar = 0x13;

  friend bool operator==(const nsCommDCB&, const nsCommDCB&) = default;
};

/// [COMMCONFIG]
struct nsCommConfig {
  static constexpr uint32_t kSize = 52;
  uint32_t mSize = kSize;
  nsCommDCB mDCB;
};

/// In ms. [COMMTIMEOUTS]
struct nsCommTimeouts {
  static constexpr uint32_t kMaxDword = 0xFFFFFFFF;

  /// The longest time between two bytes of a read; 0: no limit. kMaxDword with both others 0: a
  /// read takes what is there. With both others kMaxDword or a constant below: a read waits for
  /// the first byte as long as the constant says, and takes what is there then.
  uint32_t mReadIntervalTimeout = 0;
  /// A read lasts at most its count times the multiplier plus the constant; both 0: no limit.
  uint32_t mReadTotalTimeoutMultiplier = 0, mReadTotalTimeoutConstant = 0;
  /// The same for a write.
  uint32_t mWriteTotalTimeoutMultiplier = 0, mWriteTotalTimeoutConstant = 0;
};

/// What is queued. [COMSTAT]
struct nsCommStat {
  /// Bits of mFlags: output waits for CTS, for XON; output waits.
  static constexpr uint32_t kCtsHold = 0x1, kXoffHold = 0x8, kTxim = 0x40;
  uint32_t mFlags = 0;
  uint32_t mInQueue = 0;   ///< Bytes that a read finds.
  uint32_t mOutQueue = 0;  ///< Bytes that have not left yet.
};

/// What is known of a port. Texts that are not known are empty.
struct nsCommPortInfo {
  std::string mName;      ///< "COM3"
  std::string mDevice;    ///< "/dev/ttyUSB0"
  std::string mDriver;    ///< "ftdi_sio"
  std::string mMaker;     ///< Of the device that the port belongs to, as it says of itself.
  std::string mProduct;   ///< Likewise.
  std::string mIdentity;  ///< Stays the same over starts and whatever else is plugged in.
};

/// An open port. All methods may be called from any thread, at any time, also after CloseHandle:
/// they answer NS_ERROR_ABORT then. NS_ERROR_NOT_AVAILABLE when the device has gone, for good.
/// Everything else that goes wrong is NS_ERROR_FAILURE, if it is not named.
class nsPlatformCommPort {
 public:
  /// Functions of EscapeCommFunction.
  static constexpr uint32_t kSetXoff = 1, kSetXon = 2, kSetRts = 3, kClrRts = 4, kSetDtr = 5,
                            kClrDtr = 6, kSetBreak = 8, kClrBreak = 9;
  /// Bits of PurgeComm.
  static constexpr uint32_t kPurgeTxAbort = 1, kPurgeRxAbort = 2, kPurgeTxClear = 4,
                            kPurgeRxClear = 8;
  /// Bits of GetCommModemStatus.
  static constexpr uint32_t kCtsOn = 0x10, kDsrOn = 0x20, kRingOn = 0x40, kRlsdOn = 0x80;
  /// Bits of event masks: a byte has come, the last byte has left, lines have changed, a break has
  /// begun, a byte was damaged, it rings.
  static constexpr uint32_t kEvRxChar = 0x1, kEvTxEmpty = 0x4, kEvCts = 0x8, kEvDsr = 0x10,
                            kEvRlsd = 0x20, kEvBreak = 0x40, kEvErr = 0x80, kEvRing = 0x100;
  /// Bits of the errors of ClearCommError: the queue was full, the device was too slow, parity,
  /// framing, a break.
  static constexpr uint32_t kCeRxOver = 0x1, kCeOverrun = 0x2, kCeRxParity = 0x4, kCeFrame = 0x8,
                            kCeBreak = 0x10;

  virtual ~nsPlatformCommPort() = default;

  /// NS_ERROR_INVALID_ARG for a size below nsCommConfig::kSize.
  /// Windows: GetCommConfig.
  virtual nsresult GetCommConfig(nsCommConfig* aConfig, uint32_t aSize) = 0;
  /// How the line is driven now, by whomever it was set.
  /// Windows: GetCommState.
  virtual nsresult GetCommState(nsCommDCB* aDCB) = 0;
  /// NS_ERROR_INVALID_ARG for a size as above, and for what the device can't do; the line is then
  /// as it was, or as near as the device comes.
  /// Windows: SetCommConfig.
  virtual nsresult SetCommConfig(const nsCommConfig& aConfig, uint32_t aSize) = 0;
  /// For reads and writes that begin after it.
  /// Windows: SetCommTimeouts.
  virtual nsresult SetCommTimeouts(const nsCommTimeouts& aTimeouts) = 0;
  /// The events that WaitCommEvent waits for; forgets those that have happened, and ends a wait
  /// that goes on, with no event.
  /// Windows: SetCommMask.
  virtual nsresult SetCommMask(uint32_t aMask) = 0;
  /// Windows: GetCommMask.
  virtual nsresult GetCommMask(uint32_t* aMask) = 0;
  /// Throws away what is queued, and ends overlapped reads and writes with NS_ERROR_ABORT.
  /// Windows: PurgeComm.
  virtual nsresult PurgeComm(uint32_t aFlags) = 0;
  /// Sets an output line, begins or ends a break.
  /// Windows: EscapeCommFunction.
  virtual nsresult EscapeCommFunction(uint32_t aFunction) = 0;
  /// The input lines.
  /// Windows: GetCommModemStatus.
  virtual nsresult GetCommModemStatus(uint32_t* aStatus) = 0;
  /// The errors since the last time, and what is queued.
  /// Windows: ClearCommError.
  virtual nsresult ClearCommError(uint32_t* aErrors, nsCommStat* aStat) = 0;
  /// Waits for one event of the mask or more, also one that has happened since the mask was set
  /// and was not waited for yet: bytes are an event when they come, not while they lie there. The
  /// record's count gives the events. NS_ERROR_IN_PROGRESS; NS_ERROR_INVALID_ARG while another
  /// wait goes on or the mask is 0. The record's waiter carries it out.
  /// Windows: WaitCommEvent.
  virtual nsresult WaitCommEvent(const nsOverlappedRef& aRecord) = 0;
  /// Takes bytes as the time-outs say; a read that comes to its time-out succeeds with fewer.
  /// Without a record it waits. With one, on a port that was opened for it, it is
  /// NS_ERROR_IN_PROGRESS where it would wait, and the record gets the bytes. Without a record on
  /// such a port: NS_ERROR_INVALID_ARG. NS_ERROR_FILE_ACCESS_DENIED on a port that was not opened
  /// for reading.
  /// Windows: ReadFile.
  virtual nsresult ReadFile(char* aBuffer, uint32_t aCount, uint32_t* aRead,
                            const nsOverlappedRef& aRecord) = 0;
  /// The same for writing. A write has ended when the system has taken all bytes. The bytes are
  /// copied where the write goes on.
  /// Windows: WriteFile.
  virtual nsresult WriteFile(const char* aBuffer, uint32_t aCount, uint32_t* aWritten,
                             const nsOverlappedRef& aRecord) = 0;
  /// Ends everything that goes on with NS_ERROR_ABORT and gives the device back; done when it
  /// returns. The second time: NS_ERROR_ABORT. The last reference does the same.
  /// Windows: CloseHandle.
  virtual nsresult CloseHandle() = 0;
};
using nsPlatformCommPortRef = std::shared_ptr<nsPlatformCommPort>;

/// All methods may be called from any thread. None keeps a device from being used by others but
/// OpenPort.
class nsPlatformComm {
 public:
  /// Access rights, share mode, disposition and flags of OpenPort.
  static constexpr uint32_t kGenericRead = 0x80000000, kGenericWrite = 0x40000000, kShareBoth = 3,
                            kOpenExisting = 3, kFlagOverlapped = 0x40000000;

  virtual ~nsPlatformComm() = default;

  /// Looks at the machine anew: all ports, by rising number.
  /// Windows: SetupDiEnumDeviceInfo, SetupDiGetDeviceRegistryProperty.
  virtual nsresult ListPorts(std::vector<nsCommPortInfo>* aPorts) = 0;
  /// Succeeds for the name of a port that the machine has: one that the last look has seen, or
  /// something newer; without a look so far it takes one. NS_ERROR_FILE_NOT_FOUND for other names,
  /// NS_ERROR_INVALID_ARG for a size below nsCommConfig::kSize.
  /// Windows: GetDefaultCommConfig.
  virtual nsresult ReadDefaultCommConfig(const std::string& aName, nsCommConfig* aConfig,
                                         uint32_t aSize) = 0;
  /// aFileName is "\\.\" and the port's name. Nobody else can use the port until it is closed.
  /// NS_ERROR_FILE_NOT_FOUND when there is no such port, NS_ERROR_FILE_IS_LOCKED when somebody uses
  /// it, NS_ERROR_FILE_ACCESS_DENIED when the right is missing; the log says who, and what to do.
  /// Windows: CreateFile.
  virtual nsresult OpenPort(const std::string& aFileName, uint32_t aAccess, uint32_t aShareMode,
                            uint32_t aDisposition, uint32_t aFlags,
                            nsPlatformCommPortRef* aPort) = 0;
};
