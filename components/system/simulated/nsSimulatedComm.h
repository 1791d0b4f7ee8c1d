// Serial ports with a device behind each.
#pragma once

#include <functional>
#include <map>
#include <optional>

#include "nsLock.h"
#include "nsMachineValue.h"
#include "nsPlatformComm.h"
#include "nsSimulatedCalls.h"

/// The facts of one port and of the device behind it.
struct nsSimulatedSerial {
  /// What it sends when it has been sent those bytes, after it has left out that many.
  struct Answer {
    std::string mTo, mSay;
    uint32_t mIgnore = 0;
  };

  nsCommPortInfo mInfo;  ///< The name is the port's.
  nsCommDCB mDCB;        ///< How the line is driven when nobody has set it yet.
  bool mEcho = false;    ///< Sends back what it is sent.
  std::vector<Answer> mAnswers;
  std::string mSays;  ///< Sends that when it sees DTR rise.
  bool mCTS = true, mDSR = true, mRing = false, mDCD = false;
  std::string mJoined;               ///< The port at the other end of a null-modem cable.
  uint32_t mQueue = 4096;            ///< Bytes that it keeps until they are read.
  std::string mUser;                 ///< Who has it open, another program; empty: nobody.
  bool mMayOpen = true;              ///< Whether this process has the right.
  std::optional<uint32_t> mHighest;  ///< The highest speed; nothing: any.
};

/// Input lines of a port; what is not there stays as it is.
struct nsSimulatedLines {
  std::optional<bool> mCTS = std::nullopt, mDSR = std::nullopt, mRing = std::nullopt,
                      mDCD = std::nullopt;
};

/// Ports by name, in which time is real: reads wait as their time-outs say.
class nsSimulatedComm final : public nsPlatformComm, public nsSimulatedPort {
 public:
  explicit nsSimulatedComm(nsSimulatedCallsRef aCalls);
  ~nsSimulatedComm() override;

  /// The port is there from now on, instead of one of that name.
  void Insert(const std::string& aName, nsSimulatedSerial aPort = {});
  /// The device is pulled out, whoever uses it.
  void Remove(const std::string& aName);
  void SetLines(const std::string& aName, const nsSimulatedLines& aLines);
  /// The device sends bytes; nobody hears them while the port is closed.
  void Say(const std::string& aName, std::string_view aBytes);
  /// A break comes in.
  void Break(const std::string& aName);
  /// A damaged byte comes in: a bit kCe... of the port.
  void Damage(const std::string& aName, uint32_t aError);
  /// What the device has been sent since the last time.
  std::string TakeWritten(const std::string& aName);
  /// How the line is driven now.
  nsCommDCB DCB(const std::string& aName) const;
  /// The output lines: DTR, RTS, and whether a break is on.
  struct Outputs {
    bool mDTR = false, mRTS = false, mBreak = false;
  };
  Outputs OutputsOf(const std::string& aName) const;

  /// An array of ports, as docs/machine-file.md tells. Throws nsMachineFileError.
  void ReadFacts(const nsMachineValue& aValue);
  /// An object of "remove", "insert" and "set".
  std::function<void()> ReadChange(const nsMachineValue& aValue);

  nsresult ListPorts(std::vector<nsCommPortInfo>* aPorts) override;
  nsresult ReadDefaultCommConfig(const std::string& aName, nsCommConfig* aConfig,
                                 uint32_t aSize) override;
  nsresult OpenPort(const std::string& aFileName, uint32_t aAccess, uint32_t aShareMode,
                    uint32_t aDisposition, uint32_t aFlags, nsPlatformCommPortRef* aPort) override;

 private:
  class Lines;
  class OpenLine;

  const nsSimulatedCallsRef mAllCalls;
  const std::shared_ptr<Lines> mLines;
};
