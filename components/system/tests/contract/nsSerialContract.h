// What the contract suite of serial lines runs on.
#pragma once

#include <memory>
#include <string>

#include "nsContract.h"
#include "nsPlatformComm.h"

/// A machine with the port COM40, and the device behind it.
class nsSerialMachine {
 public:
  virtual ~nsSerialMachine() = default;
  std::string Lacks() const { return ""; }
  virtual nsPlatformComm& Comm() = 0;
  virtual void Say(const std::string& aBytes) = 0;
  virtual std::string Hear(size_t aCount) = 0;
  virtual void Unplug() = 0;
  /// The device takes no more bytes than its queue has room for, till Hear.
  virtual void Hold(nsPlatformCommPort& aPort) = 0;
};

class SerialContract : public nsContractTest<nsSerialMachine> {
 protected:
  nsresult TryOpen(bool aOverlapped, nsPlatformCommPortRef* aPort,
                   const char* aName = "\\\\.\\COM40") {
    return mMachine->Comm().OpenPort(aName,
                                     nsPlatformComm::kGenericRead | nsPlatformComm::kGenericWrite,
                                     nsPlatformComm::kShareBoth, nsPlatformComm::kOpenExisting,
                                     aOverlapped ? nsPlatformComm::kFlagOverlapped : 0, aPort);
  }
  nsPlatformCommPortRef Open(bool aOverlapped, nsCommTimeouts aTimeouts = {}) {
    nsPlatformCommPortRef port;
    EXPECT_EQ(TryOpen(aOverlapped, &port), NS_OK);
    // A terminal is set to XON and XOFF by default.
    EXPECT_EQ(port->SetCommConfig({}, nsCommConfig::kSize), NS_OK);
    EXPECT_EQ(port->SetCommTimeouts(aTimeouts), NS_OK);
    return port;
  }
  static std::string Read(nsPlatformCommPort& aPort, uint32_t aCount) {
    std::string bytes(aCount, '?');
    uint32_t read = 0;
    EXPECT_EQ(aPort.ReadFile(bytes.data(), aCount, &read, nullptr), NS_OK);
    bytes.resize(read);
    return bytes;
  }
  static nsOverlappedRef Wait(nsPlatformCommPort& aPort) {
    auto record = std::make_shared<nsOverlapped>();
    EXPECT_EQ(aPort.WaitCommEvent(record), NS_ERROR_IN_PROGRESS);
    return record;
  }
  static uint32_t Events(const nsOverlappedRef& aRecord) {
    uint32_t events = 0;
    EXPECT_EQ(aRecord->GetResult(true, &events), NS_OK);
    return events;
  }

  static constexpr nsCommTimeouts kAtOnce{nsCommTimeouts::kMaxDword, 0, 0, 0, 0};
};
