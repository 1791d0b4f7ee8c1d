// Machine files: what they describe, and what is said of wrong ones.
#include "nsSimulatedMachineFile.h"

#include <gtest/gtest.h>

#include <chrono>
#include <ctime>

#include <filesystem>
#include <set>

#include "nsMutation.h"

namespace {

using Volumes = nsPlatformVolumes;

std::unique_ptr<nsSimulatedMachine> Read(std::string_view aText) {
  std::unique_ptr<nsSimulatedMachine> machine;
  std::string message;
  EXPECT_EQ(NS_ReadMachineText(aText, "m.json", "/machines", &machine, &message), NS_OK) << message;
  return machine;
}

std::string MessageFor(std::string_view aText) {
  std::unique_ptr<nsSimulatedMachine> machine;
  std::string message;
  EXPECT_EQ(NS_ReadMachineText(aText, "m.json", "/", &machine, &message), NS_ERROR_FILE_CORRUPTED);
  EXPECT_FALSE(machine);
  return message;
}

constexpr std::string_view kStick = R"({
  "comment": "one stick",
  "volumes": [
    {"letter": "E", "kind": "removable", "bus": "usb", "root": "stick",
     "label": "CONTENT", "serialNumber": 4294967295, "maximumComponentLength": 255, "fileSystem": "vfat"}
  ],
  "changes": [
    {"after": 1.001, "volumes": {"remove": ["E"]}},
    {"after": 1, "volumes": {"insert": [{"letter": "F", "kind": "fixed", "bus": "none"}]}}
  ]
}
)";

// Every other section, with every kind of value in it.
constexpr std::string_view kRest = R"({
  "interfaces": [
    {"name": "eth0", "label": "Lan", "type": "ethernet", "medium": "wire", "status": "up", "mac": "00-1A-2B-3C-4D-5E",
     "speed": 1000000000, "dhcp": true, "addresses": ["192.168.1.20/24", "fe80::1/64"], "dns": ["192.168.1.1"],
     "gateways": ["192.168.1.1"], "index": 7}
  ],
  "registry": [
    {"key": "SOFTWARE\\Vorel", "values": [{"name": "a", "text": "b"}, {"name": "c", "texts": ["d", ""]},
     {"name": "e", "number": 4294967295}, {"name": "f", "bytes": "00ff"}]}
  ],
  "clock": {"utc": "2026-03-01T08:30:00Z", "zone": "Europe/Berlin", "zones": [{"name": "Europe/Berlin", "bias": -60,
     "daylightBias": -60, "standardDate": [10, 5, 0, 3, 0], "daylightDate": [3, 5, 0, 2, 0]}]},
  "fonts": {"folders": ["fonts/"], "faces": [{"family": "Sans", "italic": true, "weight": 700}]},
  "host": {"name": "kiosk", "commands": [{"line": "reboot", "status": 0}, {"line": "sleep"}]},
  "faults": [{"port": "Clock", "call": 2, "forEver": true}],
  "changes": [
    {"after": 0.5, "interfaces": {"remove": ["eth0"], "set": [{"name": "eth1", "status": "down"}]},
     "clock": {"utc": "2027-01-01T00:00:00Z"}, "registry": [{"key": "A", "values": []}], "host": {"deviceId": "x"}}
  ]
}
)";

TEST(MachineFile, FactsOfTheFileAreMissing) {
  auto machine = Read(kStick);
  ASSERT_TRUE(machine);
  nsPlatformVolumes& volumes = *machine->Platform()->mVolumes;
  uint32_t mask = 0, kind = 0;
  EXPECT_EQ(volumes.ReadDriveMask(&mask), NS_OK);
  EXPECT_EQ(mask, 1u << 4);
  EXPECT_EQ(volumes.ReadDriveKind('E', &kind), NS_OK);
  EXPECT_EQ(kind, 2u);
  Volumes::VolumeInformation information;
  ASSERT_EQ(volumes.ReadVolumeInformation('E', &information), NS_OK);
  EXPECT_EQ(information.mLabel, "CONTENT");
  EXPECT_EQ(information.mSerialNumber, 0xFFFFFFFFu);
  std::string root;
  EXPECT_EQ(volumes.ReadRootDirectory('E', &root), NS_OK);
  EXPECT_EQ(root, "/machines/stick") << "a relative path starts at the file";
}

// The root is compared with the path of a file, which has no separator at its end.
TEST(MachineFile, SeparatorAtTheEndOfARootStays) {
  auto machine = Read(R"({"volumes": [
    {"letter": "E", "kind": "removable", "bus": "usb", "root": "stick/"},
    {"letter": "F", "kind": "removable", "bus": "usb", "root": "/media/f//"},
    {"letter": "G", "kind": "fixed", "bus": "usb", "root": "/"}]})");
  ASSERT_TRUE(machine);
  const std::pair<char, std::string> roots[] = {
      {'E', "/machines/stick"}, {'F', "/media/f"}, {'G', "/"}};
  for (const auto& [letter, expected] : roots) {
    std::string root;
    EXPECT_EQ(machine->mVolumes->ReadRootDirectory(letter, &root), NS_OK);
    EXPECT_EQ(root, expected);
  }
}

TEST(MachineFile, ChangesComeTooEarlyOrInTheWrongOrder) {
  using std::chrono::milliseconds;
  auto machine = Read(kStick);
  ASSERT_TRUE(machine);
  uint32_t mask = 0;
  ASSERT_EQ(machine->UntilNextChange(), milliseconds(1001));
  machine->ApplyNextChange();
  EXPECT_EQ(machine->mVolumes->ReadDriveMask(&mask), NS_OK);
  EXPECT_EQ(mask, 0u);
  ASSERT_EQ(machine->UntilNextChange(), milliseconds(1000));
  machine->ApplyNextChange();
  EXPECT_EQ(machine->mVolumes->ReadDriveMask(&mask), NS_OK);
  EXPECT_EQ(mask, 1u << 5);
  EXPECT_FALSE(machine->UntilNextChange());
  machine->ApplyNextChange();
}

TEST(MachineFile, FaultHitsAnotherCall) {
  auto machine = Read(R"({"faults": [
    {"port": "Volumes", "method": "ReadDriveKind", "call": 2, "result": "NS_ERROR_NOT_AVAILABLE", "forEver": true}]})");
  ASSERT_TRUE(machine);
  uint32_t value;
  EXPECT_EQ(machine->mVolumes->ReadDriveKind('C', &value), NS_OK);
  EXPECT_EQ(machine->mVolumes->ReadDriveMask(&value), NS_OK);
  EXPECT_EQ(machine->mVolumes->ReadDriveKind('C', &value), NS_ERROR_NOT_AVAILABLE);
  EXPECT_EQ(machine->mVolumes->ReadDriveKind('C', &value), NS_ERROR_NOT_AVAILABLE);
}

TEST(MachineFile, MessageNamesTheWrongLineOrReason) {
  struct {
    const char* mText;
    const char* mMessage;
  } const cases[] = {
      {"",
       "m.json:1: syntax error while parsing value - unexpected end of input; expected '[', '{', "
       "or a literal"},
      {"[]", "m.json:1: must be an object"},
      {"{\n\"volumes\": [],\n\n\"volume\": []}", "m.json:4: unknown key \"volume\""},
      {"{\"volumes\": [],\n\"volumes\": []}",
       "m.json:2: the key \"volumes\" stands here a second time, first in line 1"},
      // A number is the one token that the parser can only end by looking beyond it.
      {"{\"volumes\":\n5\n\n}", "m.json:2: must be an array"},
      {"{\"comment\":\n\ntrue\n}", "m.json:3: must be a text"},
      {"{\"volumes\": [\n{\"letter\": \"E\",\n\"kind\": \"removable\"}]}",
       "m.json:2: the key \"bus\" is missing"},
      {"{\"volumes\": [{\"letter\": \"e\",\n\"kind\": \"fixed\", \"bus\": \"usb\"}]}",
       "m.json:1: must be a letter from A to Z"},
      {"{\"volumes\": [{\"letter\": \"E\",\n\"kind\":\n\"floppy\", \"bus\": \"usb\"}]}",
       "m.json:3: \"floppy\" is none of \"removable\", \"fixed\", \"network\", \"optical\", "
       "\"memory\", \"unknown\""},
      {"{\"volumes\": [{\"letter\": \"E\", \"kind\": \"fixed\", \"bus\": "
       "\"usb\",\n\"serialNumber\": 4294967296}]}",
       "m.json:2: must be an integer from 0 to 4294967295"},
      {"{\"volumes\": [{\"letter\": \"E\", \"kind\": \"fixed\", \"bus\": \"usb\", "
       "\"serialNumber\": 1.5}]}",
       "m.json:1: must be an integer from 0 to 4294967295"},
      {"{\"volumes\": [{\"letter\": \"E\", \"kind\": \"fixed\", \"bus\": \"usb\"},\n"
       "{\"letter\": \"E\", \"kind\": \"fixed\", \"bus\": \"usb\"}]}",
       "m.json:2: the letter E is taken"},
      {"{\"clock\": {\"zones\": [{\"name\": \"UTC\", \"bias\": 0},\n"
       "{\"name\": \"UTC\", \"bias\": 1}]}}",
       "m.json:2: the zone \"UTC\" stands here a second time"},
      {"{\"host\": {\"commands\": [{\"line\": \"a\"},\n{\"line\": \"a\"}]}}",
       "m.json:2: the command \"a\" stands here a second time"},
      {"{\"registry\": [{\"key\": \"A\", \"values\": []},\n{\"key\": \"a\", \"values\": []}]}",
       "m.json:2: the key \"a\" stands here a second time"},
      {"{\"registry\": [{\"key\": \"A\", \"values\": [{\"name\": \"v\", \"number\": 1},\n"
       "{\"name\": \"V\", \"number\": 1}]}]}",
       "m.json:2: the value \"V\" stands here a second time"},
      {"{\"changes\": [\n{\"after\": 1}]}", "m.json:2: this change changes nothing"},
      {"{\"changes\": [\n{\"after\":\n-1, \"volumes\": {}}]}",
       "m.json:3: must be a number from 0 to 1e+06"},
      {"{\"volumes\": [],\n}\n",
       "m.json:2: syntax error while parsing object key - unexpected '}'; expected string literal"},
      {"{\"faults\": [\n{\"port\": \"Volume\"}]}", "m.json:2: there is no port \"Volume\""},
      {"{\"faults\": [{\"port\": \"Volumes\",\n\"result\": \"NS_OK\"}]}",
       "m.json:2: must be the name of an error, such as \"NS_ERROR_FAILURE\""},
      {"{\"comment\":\n1e999}", "m.json:2: number overflow parsing '1e999'"},
      {"{\"comment\":\n\"\xff\"}",
       "m.json:2: syntax error while parsing value - invalid string: ill-formed UTF-8 byte; last "
       "read: '\"?'"},
      {"{}\n\nx",
       "m.json:3: syntax error while parsing value - invalid literal; last read: "
       "'{}<U+000A><U+000A>x'; expected end of input"},
  };
  for (const auto& testCase : cases) EXPECT_EQ(MessageFor(testCase.mText), testCase.mMessage);
}

TEST(MachineFile, ExampleDoesNotReadOrLacksAKind) {
  std::unique_ptr<nsSimulatedMachine> machine;
  std::string message;
  ASSERT_EQ(NS_ReadMachineFile(VOREL_SOURCE_DIR "/app/machines/kiosk.json", &machine, &message),
            NS_OK)
      << message;
  std::set<uint32_t> kinds;
  for (char letter = 'A'; letter <= 'Z'; ++letter) {
    uint32_t kind = 99;
    EXPECT_EQ(machine->mVolumes->ReadDriveKind(letter, &kind), NS_OK);
    kinds.insert(kind);
  }
  EXPECT_EQ(kinds, (std::set<uint32_t>{Volumes::kDriveNoRootDirectory, Volumes::kDriveRemovable,
                                       Volumes::kDriveFixed, Volumes::kDriveRemote,
                                       Volumes::kDriveCdRom}));
}

TEST(MachineFile, ExampleWithChangesFailsHalfWay) {
  int changes = 0;
  for (const auto& entry : std::filesystem::directory_iterator(VOREL_SOURCE_DIR "/app/machines")) {
    std::unique_ptr<nsSimulatedMachine> machine;
    std::string message;
    if (entry.path().extension() != ".json") continue;
    ASSERT_EQ(NS_ReadMachineFile(entry.path(), &machine, &message), NS_OK) << message;
    for (; machine->UntilNextChange(); ++changes) machine->ApplyNextChange();
  }
  EXPECT_GT(changes, 0);
}

TEST(MachineFile, DeepNestingOverrunsTheStack) {
  EXPECT_EQ(MessageFor(std::string(1000000, '[')), "m.json:1: nested too deeply");
}

TEST(MachineFile, ManyKeysTakeTheSquareOfTheirNumber) {
  constexpr int kMany = 80'000;
  std::string members = "{\"comment\": {", keys = "{\"registry\": [",
              interfaces = "{\"interfaces\": [";
  for (int i = 0; i < kMany; ++i) {
    const std::string comma = i == 0 ? "" : ",", number = std::to_string(i);
    members += comma + "\"k" + number + "\": 1";
    keys += comma + "{\"key\": \"A\\\\" + number + "\", \"values\": []}";
    interfaces += comma + "{\"name\": \"e" + number + "\"}";
  }
  const std::clock_t start = std::clock();
  EXPECT_EQ(MessageFor(members + "}}"), "m.json:1: must be a text");
  EXPECT_EQ(MessageFor(keys + ", {\"key\": \"a\\\\7\", \"values\": []}]}"),
            "m.json:1: the key \"a\\7\" stands here a second time");
  EXPECT_EQ(MessageFor(interfaces + ", {\"name\": \"e7\"}]}"),
            "m.json:1: the interface \"e7\" stands here a second time");
  std::unique_ptr<nsSimulatedMachine> machine;
  std::string message;
  EXPECT_EQ(NS_ReadMachineText(keys + "]}", "m.json", "/", &machine, &message), NS_OK) << message;
  // A few seconds of the processor under the sanitizers; before, minutes.
  EXPECT_LT(std::clock() - start, 10 * CLOCKS_PER_SEC);
}

TEST(MachineFile, UnreadableFileIsAnEmptyMachine) {
  std::unique_ptr<nsSimulatedMachine> machine;
  std::string message;
  EXPECT_EQ(NS_ReadMachineFile("/nowhere/m.json", &machine, &message), NS_ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(message, "/nowhere/m.json: this file can't be read");
  EXPECT_EQ(NS_ReadMachineFile("/", &machine, &message), NS_ERROR_FILE_NOT_FOUND) << "a directory";
  EXPECT_FALSE(machine);
}

// Mutations of good files: whatever comes out is a machine that runs through its script, or a
// message with a line of the text.
TEST(MachineFile, HostileBytesCrashTheReader) {
  ASSERT_TRUE(Read(kStick) && Read(kRest)) << "what is damaged must be good";
  nsMutation mutation;
  int machines = 0, messages = 0;
  for (int i = 0; i < 20000; ++i) {
    const std::string text =
        mutation.Damage(std::string(i % 2 ? kStick : kRest), "{}[]\",:\\0-e\n");
    std::unique_ptr<nsSimulatedMachine> machine;
    std::string message;
    if (NS_SUCCEEDED(NS_ReadMachineText(text, "m.json", "/", &machine, &message))) {
      ++machines;
      while (machine->UntilNextChange()) machine->ApplyNextChange();
      continue;
    }
    ++messages;
    unsigned line = 0;
    ASSERT_EQ(sscanf(message.c_str(), "m.json:%u: ", &line), 1) << message;
    ASSERT_GE(line, 1u);
    ASSERT_LE(line, 1 + static_cast<unsigned>(std::count(text.begin(), text.end(), '\n')));
  }
  EXPECT_GT(machines, 100);
  EXPECT_GT(messages, 1000);
}

}  // namespace
