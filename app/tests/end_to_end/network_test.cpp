// Network settings as the program shows and changes them, on a simulated machine.
#include <gtest/gtest.h>
#include <signal.h>

#include <nlohmann/json.hpp>

#include "nsProgram.h"

namespace {

std::string Machine(const std::string& aMore) {
  return R"({"interfaces": [
    {"name": "eth0", "mac": "02-00-00-00-00-01", "addresses": ["192.0.2.5/24"], "gateways": ["192.0.2.1"], "dns": ["192.0.2.53"]},
    {"name": "eth1", "mac": "02-00-00-00-00-02", "addresses": ["198.51.100.5/24"]}])" +
         aMore + "}";
}

struct Network : testing::Test {
  nsOutcome Run(std::vector<std::string> aArguments) {
    aArguments.insert(aArguments.begin(), {"--machine", mMachine, "network"});
    return mProgram.Run(aArguments);
  }
  nsProgram mProgram;
  std::string mMachine = mProgram.Write("m.json", Machine(""));
};

TEST_F(Network, WhatIsInForceOrStoredIsToldWrong) {
  EXPECT_EQ(Run({}).mOutput,
            "eth0        in force  192.0.2.5/24 via 192.0.2.1 dns 192.0.2.53\n"
            "eth1        in force  198.51.100.5/24\n");
  mMachine = mProgram.Write("m.json", Machine(R"(, "registry": [
    {"key": "SYSTEM\\CurrentControlSet\\Services\\Tcpip\\Parameters\\Interfaces\\eth0", "values": [
      {"name": "EnableDHCP", "number": 0}, {"name": "IPAddress", "texts": ["192.0.2.9"]},
      {"name": "SubnetMask", "texts": ["255.255.0.255"]}, {"name": "DefaultGateway", "texts": ["192.0.2.1"]}]},
    {"key": "SYSTEM\\CurrentControlSet\\Services\\Tcpip\\Parameters\\Interfaces\\eth1", "values": [
      {"name": "EnableDHCP", "number": 1}, {"name": "NameServer", "text": "9.9.9.9"}]}])"));
  const auto told = nlohmann::json::parse(Run({"--json"}).mOutput);
  EXPECT_EQ(told["problems"][0], "eth0: SubnetMask 255.255.0.255 has holes");
  EXPECT_EQ(told["interfaces"][1]["stored"]["dhcp"], true);
  EXPECT_EQ(told["interfaces"][1]["differences"], (nlohmann::json{"dhcp", "servers"}));
  EXPECT_EQ(Run({"apply"}).mStatus, 1);
}

TEST_F(Network, ATrialIsNotToldOrDoesNotEnd) {
  const nsOutcome outcome = Run({"set", "eth0", "--address", "192.0.2.9/25", "--gateway=192.0.2.2",
                                 "--dns", "9.9.9.9,8.8.8.8", "--try", "1"});
  EXPECT_EQ(outcome.mStatus, 1);
  EXPECT_TRUE(outcome.mOutput.starts_with("waiting\ntaken back in 1 seconds")) << outcome.mErrors;
  EXPECT_TRUE(outcome.mErrors.ends_with("vorel: rolled-back: not confirmed in time\n"))
      << outcome.mErrors;
  // The end of the process is the end of the trial.
  mProgram.Start({"--machine", mMachine, "network", "set", "eth0", "--dhcp", "on", "--try", "60"});
  EXPECT_TRUE(mProgram.WaitFor("waiting\n"));
  EXPECT_EQ(mProgram.Finish(SIGTERM).mStatus, 0);
}

TEST_F(Network, WrongSettingsAreStoredOrNotNamed) {
  const struct {
    std::vector<std::string> mArguments;
    int mStatus;
    std::string mError;
  } cases[] = {
      {{"set"}, 2, "which interface?"},
      {{"set", "eth0"}, 2, "what is to change?"},
      {{"set", "eth7", "--dhcp", "on"}, 2, "there is no interface 'eth7': there are eth0, eth1"},
      {{"set", "eth0", "--dhcp", "perhaps"}, 2, "'perhaps' is neither on nor off"},
      {{"set", "eth0", "--gateway", "192.0.2.1"}, 2, "--gateway goes with --address"},
      {{"set", "eth0", "--address", "192.0.2.9/24", "--gateway", "192.0.3.1"},
       1,
       "eth0: DefaultGateway 192.0.3.1 is outside every net of the interface"},
      {{"set", "eth0", "--address", "192.0.2.9/255.0.255.0"},
       1,
       "SubnetMask 255.0.255.0 has holes"},
      {{"set", "eth0", "--address", "192.0.2.9"}, 1, "is no IP address"},
      {{"set", "eth0", "--address", "192.0.2.9/24", "--try", "0"}, 2, "'0' is no number from 1"},
      {{"set", "eth0", "--dhcp", "on", "--dns", "1.1.1.1,2.2.2.2,3.3.3.3"}, 2, "room for two"},
      {{"apply", "soon"}, 2, "'soon' is no number"},
      {{"confirm"}, 1, "nothing is on trial"},
      {{"get"}, 2, "unknown argument 'get'"},
  };
  for (const auto& one : cases) {
    const nsOutcome outcome = Run(one.mArguments);
    EXPECT_EQ(outcome.mStatus, one.mStatus) << one.mError;
    EXPECT_NE(outcome.mErrors.find(one.mError), std::string::npos) << outcome.mErrors;
  }
}

TEST_F(Network, ExampleConfirmsWhatIsCutOff) {
  const std::string example = SourceFile("app/examples/network.js");
  const nsOutcome kept =
      mProgram.Run({"--machine", mMachine, example, "eth0", "192.0.2.9/24", "192.0.2.1"});
  EXPECT_EQ(kept.mOutput, "eth0 has 192.0.2.9/24\n") << kept.mErrors;
  const std::string lost = mProgram.Write(
      "lost.json",
      Machine(R"(, "networkSettings": {"faults": [{"interface": "eth0", "fault": "link-lost"}]})"));
  const nsOutcome back =
      mProgram.Run({"--machine", lost, example, "eth0", "192.0.2.9/24", "192.0.2.1"});
  EXPECT_EQ(back.mStatus, 1);
  EXPECT_TRUE(back.mErrors.ends_with("asked for\n")) << back.mErrors;
}

}  // namespace
