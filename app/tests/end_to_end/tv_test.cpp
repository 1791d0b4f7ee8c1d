// vorel tv: streams, channels files and countries, as people and programs read them.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>

#include "nsProgram.h"

namespace {

using nlohmann::json;

std::string Sample(const char* aName) {
  return SourceFile(std::string("components/system/tests/data/digitaltv/") + aName);
}

}  // namespace

TEST(Tv, AStreamIsNotShownAsAScanWouldFindIt) {
  nsProgram program;
  const nsOutcome table = program.Run({"tv", "inspect", Sample("dvbpsi.ts")});
  EXPECT_NE(
      table.mOutput.find(
          "769  Teleö HD  ARTV2     television  2       768  512    513 fra, 514 eng E-AC-3\n"),
      std::string::npos)
      << table.mOutput;
  EXPECT_NE(table.mOutput.find("! service 771 has no name: a scan leaves it out\n"),
            std::string::npos);
  EXPECT_EQ(table.mStatus, 1) << "something is broken";
  const nsOutcome asJson = program.Run({"tv", "inspect", "--json", Sample("ffmpeg.ts")});
  const json report = json::parse(asJson.mOutput, nullptr, false);
  ASSERT_TRUE(report.is_object()) << asJson.mOutput << asJson.mErrors;
  EXPECT_EQ(report["transponder"]["transportStreamId"], 7);
  ASSERT_EQ(report["services"].size(), 2u);
  EXPECT_EQ(report["services"][0]["name"], "Un");
  EXPECT_EQ(report["services"][0]["audio"][1],
            (json{{"pid", 258}, {"kind", "AC-3"}, {"language", "eng"}}));
  EXPECT_EQ(report["problems"], json{"the NIT is missing"});
  EXPECT_EQ(report["totals"]["packetSize"], 188);
}

TEST(Tv, AFileThatCannotBeReadIsReported) {
  nsProgram program;
  for (const char* command : {"inspect", "channels"}) {
    const nsOutcome outcome = program.Run({"tv", command, "/nowhere/at.all"});
    EXPECT_EQ(outcome.mStatus, 1);
    EXPECT_EQ(outcome.mErrors, "vorel tv: /nowhere/at.all: NS_ERROR_FILE_NOT_FOUND\n");
  }
  for (const std::vector<std::string>& wrong :
       {std::vector<std::string>{"tv", "inspect"}, {"tv", "nothing"}, {"tv", "countries", "FR"}})
    EXPECT_EQ(program.Run(wrong).mStatus, 2);
}

TEST(Tv, AWrongLineOfAChannelsFileIsNotNamed) {
  nsProgram program;
  const std::string file = (std::filesystem::path(program.Directory()) / "channels.conf").string();
  std::ofstream(file) << "Un(P):506000000:INVERSION_AUTO:BANDWIDTH_8_MHZ:FEC_2_3:FEC_1_2:QAM_64:"
                         "TRANSMISSION_MODE_8K:"
                         "GUARD_INTERVAL_1_32:HIERARCHY_NONE:120+1024:130=fra;;:1\n"
                         "Deux(P):514000000:INVERSION_AUTO:BANDWIDTH_9_MHZ:FEC_2_3:FEC_1_2:QAM_64:"
                         "TRANSMISSION_MODE_8K:"
                         "GUARD_INTERVAL_1_32:HIERARCHY_NONE:120:;;:2\n"
                         "no service\nTrois(P):...\n";
  const nsOutcome outcome = program.Run({"tv", "channels", file});
  EXPECT_EQ(outcome.mStatus, 1);
  EXPECT_NE(outcome.mOutput.find("Un    P         506  1   1024  120    130 fra\n"),
            std::string::npos)
      << outcome.mOutput;
  EXPECT_NE(outcome.mOutput.find(
                file + ":2: unknown bandwidth 'BANDWIDTH_9_MHZ'\n" + file +
                ":3: not NAME(PROVIDER) with at most 99 bytes each: reading ends here\n"),
            std::string::npos)
      << outcome.mOutput;
}

TEST(Tv, ACountryHasNoFrequencies) {
  nsProgram program;
  const json countries =
      json::parse(program.Run({"tv", "countries", "--json"}).mOutput, nullptr, false);
  ASSERT_EQ(countries.size(), 243u);
  for (const json& country : countries)
    EXPECT_TRUE(country["code"] != "FR" || country["frequencies"].size() == 28u);
}

// ---- With a receiver

namespace {

// Twelve frequencies of 6 MHz make the shortest scan.
std::string Machine(nsProgram& aProgram, const char* aTuner = "", const char* aMore = "") {
  return aProgram.Write(
      "tv.json", std::string(R"({"tuners": [{"path": "stick", "name": "DVB-T stick", )") + aTuner +
                     R"("frequencies": [{"frequency": 545000, "lockDelay": 50, "stream": ")" +
                     SourceFile("app/machines/tv/506000.ts") +
                     R"("}, {"frequency": 557000, "strength": -61000, "stream": ")" +
                     SourceFile("app/machines/tv/538000.ts") + "\"}]}]" + aMore + "}");
}

// Prints a number for each packet of a service.
constexpr char kReader[] = R"(
const { classes, interfaces } = Components;
const receiver = systemManager.getAdaptersByIId(interfaces.nsISystemAdapterDigitalTvReceiver)[0];
receiver.selectChannelByName(arguments[0], arguments[1], 0);
const input = classes["@mozilla.org/binaryinputstream;1"].createInstance(interfaces.nsIBinaryInputStream);
input.setInputStream(receiver.stream);
const numbers = [];
while (numbers.length < 10500) {
  const packet = input.readBytes(188);
  let number = 0x811c9dc5;
  for (let i = 0; i < 188; ++i) number = Math.imul(number ^ packet.charCodeAt(i), 0x01000193) >>> 0;
  numbers.push(number);
}
console.log(numbers.join("\n"));
quit(0);
)";

// The same of the packets of these PIDs in a file.
std::vector<uint32_t> Filtered(const std::string& aFile, const std::set<unsigned>& aPids) {
  std::ifstream file(aFile, std::ios::binary);
  std::vector<uint32_t> numbers;
  for (char packet[188]; file.read(packet, sizeof packet);) {
    const auto byte = [&](size_t aAt) { return static_cast<uint8_t>(packet[aAt]); };
    if (!aPids.contains((byte(1) & 0x1Fu) << 8 | byte(2))) continue;
    uint32_t number = 0x811c9dc5;
    for (size_t i = 0; i < sizeof packet; ++i) number = (number ^ byte(i)) * 0x01000193;
    numbers.push_back(number);
  }
  return numbers;
}

// With an application's folder of its own, where the services are stored.
std::vector<std::string> On(nsProgram& aProgram, const std::string& aMachine,
                            std::vector<std::string> aArguments) {
  aProgram.Write("application.ini", "");
  aArguments.insert(aArguments.begin(), {"--machine", aMachine, "--app", aProgram.Directory(),
                                         "--log", "system.machine=warning", "--log", "off"});
  return aArguments;
}

json ScanAndStore(nsProgram& aProgram, const std::string& aMachine) {
  const nsOutcome scan =
      aProgram.Run(On(aProgram, aMachine, {"tv", "scan", "TW", "--store", "--json"}));
  EXPECT_EQ(scan.mStatus, 0) << scan.mErrors;
  return json::parse(scan.mOutput, nullptr, false);
}

}  // namespace

TEST(Tv, WhatWasFoundIsNotStoredOrPlaysOtherPackets) {
  nsProgram program;
  const std::string machine = Machine(program, "\"rate\": \"fast\", ");
  const json found = ScanAndStore(program, machine);
  ASSERT_EQ(found.size(), 6u) << found.dump();
  EXPECT_EQ(found[0]["name"], "Vorel Un");
  EXPECT_EQ(found[3]["name"], "Ciné");
  EXPECT_EQ(found[3]["frequency"], 557000);
  EXPECT_EQ(found[3]["level"], -61000);
  EXPECT_EQ(found[3]["quality"], 90);
  // Another run: what it knows comes out of the file.
  const nsOutcome services = program.Run(On(program, machine, {"tv", "services", "--json"}));
  const json stored = json::parse(services.mOutput, nullptr, false);
  ASSERT_EQ(stored.size(), 6u) << services.mOutput << services.mErrors;
  for (const char* what : {"name", "provider", "frequency", "serviceId", "videoPid", "pmtPid"})
    EXPECT_EQ(stored[0][what], found[0][what]) << what;
  EXPECT_EQ(stored[0]["audio"], found[0]["audio"]);

  const std::string reader = program.Write("read.js", kReader);
  const nsOutcome outcome = program.Run(On(program, machine, {reader, "VOREL un", "eng"}));
  EXPECT_EQ(outcome.mStatus, 0) << outcome.mErrors;
  std::vector<uint32_t> got;
  std::istringstream lines(outcome.mOutput);
  for (uint32_t number; lines >> number;) got.push_back(number);
  ASSERT_EQ(got.size(), 10500u);
  const std::vector<uint32_t> wanted =
      Filtered(SourceFile("app/machines/tv/506000.ts"), {0, 4096, 256, 258});
  // While the PIDs are chosen one after the other, the first packets come.
  const size_t begin = 500, sure = 20;
  const auto isHere = [&](size_t aAt) {
    size_t same = 0;
    while (same < sure && got[begin + same] == wanted[(aAt + same) % wanted.size()]) ++same;
    return same == sure;
  };
  size_t at = 0;
  while (at < wanted.size() && !isHere(at)) ++at;
  ASSERT_LT(at, wanted.size()) << "these packets are not in the file";
  size_t wrong = 0;
  for (size_t i = begin; i < got.size(); ++i)
    wrong += got[i] != wanted[(at + i - begin) % wanted.size()];
  EXPECT_EQ(wrong, 0u) << "of " << got.size() - begin;
}

TEST(Tv, PlayerGoesReceiverGoesOrIsNotThere) {
  nsProgram program;
  EXPECT_EQ(program.Run({"tv"}).mStatus, 0);
  const std::string empty = program.Write("empty.json", "{}");
  EXPECT_EQ(program.Run(On(program, empty, {"tv"})).mOutput, "no receivers\n");
  EXPECT_EQ(program.Run(On(program, empty, {"tv", "scan", "FR"})).mErrors,
            "vorel tv: there is no receiver on this machine\n");
  std::string machine = Machine(program);
  const std::filesystem::path folder =
      std::filesystem::path(program.Directory()) / "defaults/channelconf/dvb-t";
  std::filesystem::create_directories(folder);
  std::ofstream(folder / "channels.conf")
      << "Sport(P):557000000:INVERSION_AUTO:BANDWIDTH_8_MHZ:FEC_2_3:FEC_1_2:QAM_64:"
         "TRANSMISSION_MODE_8K:GUARD_INTERVAL_1_32:HIERARCHY_NONE:259+4097:260=fra;;:514\n";
  EXPECT_EQ(program.Run(On(program, machine, {"tv", "play", "Nothing"})).mErrors,
            "vorel tv: 'Nothing' is not stored; vorel tv services lists what is\n");
  EXPECT_EQ(program.Run(On(program, machine, {"tv", "scan", "XX"})).mStatus, 2);

  const nsOutcome played =
      program.Run(On(program, machine, {"tv", "play", "sport", "--seconds", "2", "--info"}));
  EXPECT_EQ(played.mStatus, 0) << played.mErrors;
  EXPECT_GT(played.mOutput.size(), 100u * 188);
  for (size_t at = 0; at < played.mOutput.size(); at += 188)
    ASSERT_EQ(played.mOutput[at], 0x47) << at;
  EXPECT_NE(played.mErrors.find("level -61.0 dB, quality 90 %"), std::string::npos)
      << played.mErrors;

  program.Start(On(program, machine, {"tv", "play", "Sport"}));
  ASSERT_TRUE(program.WaitFor("G"));
  program.CloseOutput();
  EXPECT_EQ(program.Finish(0).mStatus, 0) << "the player has gone";

  machine = Machine(program, "", R"(, "changes": [{"after": 1, "tuners": {"remove": ["stick"]}}])");
  const nsOutcome pulled = program.Run(On(program, machine, {"tv", "play", "Sport"}));
  EXPECT_EQ(pulled.mStatus, 1);
  EXPECT_NE(pulled.mErrors.find("vorel tv: the receiver has gone\n"), std::string::npos)
      << pulled.mErrors;

  machine = Machine(program, "\"usedBy\": \"recorder\", ");
  const nsOutcome busy = program.Run(On(program, machine, {"tv", "play", "Sport"}));
  EXPECT_EQ(busy.mStatus, 1);
  EXPECT_NE(busy.mErrors.find("stick is used by recorder"), std::string::npos) << busy.mErrors;
}
