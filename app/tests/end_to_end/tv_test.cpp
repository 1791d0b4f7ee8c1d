// vorel tv: streams, channels files and countries, as people and programs read them.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

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
