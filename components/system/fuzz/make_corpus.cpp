// Writes what a fuzz target begins with: the tables, streams and lines of the tests.
//
// usage: fuzz_corpus TARGET DIRECTORY
#include <filesystem>
#include <fstream>
#include <iostream>

#include "nsChannelsFormat.h"
#include "nsTestTables.h"

using namespace vorel::test;

namespace {

std::vector<Bytes> Texts() {
  std::vector<Bytes> texts{BytesOf("plain"), BytesOf("\xC3\xA9")};
  for (int first = 1; first < 0x20; ++first)
    texts.push_back(
        BytesOf(std::string(1, static_cast<char>(first)) + std::string("\0\5Text\xA4\xA4", 8)));
  return texts;
}

std::vector<Bytes> Lines() {
  nsChannelsRecord record;
  record.mName = "Sample";
  record.mProvider = "Provider";
  record.mFrequency = 506000;
  record.mBandwidth = 8;
  record.mVideoPid = 120;
  record.mPmtPid = 1024;
  record.mAudio = {{"fra", 130, 4}, {"eng", 131, 4}, {"fra", 140, 106}, {"", 150, 122}};
  std::vector<Bytes> lines;
  for (uint32_t value = 0; value < 6; ++value) {
    record.mCodeRateHP = record.mCodeRateLP = record.mConstellation = value;
    record.mTransmissionMode = record.mPriority = record.mHierarchy = value;
    lines.push_back(BytesOf(NS_WriteChannelsLine(record)));
  }
  return lines;
}

std::vector<Bytes> Tables() {
  Bytes descriptors = ServiceDescriptor(1, "Provider", "Name");
  descriptors += Descriptor(0x83, Bytes{0, 1, 0xFC, 7});
  Bytes ac3 = Language("eng");
  ac3 += Descriptor(0x6A, Bytes{0});
  return {
      Section(0, 9, Pat({{0, 0x10}, {1, 0x100}, {2, 0x101}})),
      Section(2, 1,
              Pmt(0x65, {Elementary(2, 0x65), Elementary(4, 0x66, Language("fra")),
                         Elementary(6, 0x67, ac3)})),
      Section(0x40, 1,
              Nit(Descriptor(0x40, BytesOf("Network")),
                  {{9, 2, Descriptor(0x5A, Bytes{3, 4, 24, 64, 31, 130, 64, 255, 255, 255, 255})},
                   {10, 2, Descriptor(0x62, Bytes{3, 3, 4, 24, 64})}})),
      Section(0x42, 9,
              Sdt({SdtService(1, 4, false, descriptors), SdtService(2, 4, true, descriptors)}))};
}

std::vector<Bytes> Sections() {
  std::vector<Bytes> inputs(1);
  for (const Bytes& table : Tables()) {
    Bytes input;
    Append16(input, static_cast<unsigned>(table.size()));
    input += Swapped(table);
    inputs.push_back(input);
    inputs[0] += input;
  }
  return inputs;
}

std::vector<Bytes> Streams() {
  const auto tables = Tables();
  Stream stream;
  stream.Sections(0, {tables[0]})
      .Sections(0x10, {tables[2]})
      .Sections(0x11, {tables[3], tables[3]});
  stream.Packet(0x100, true, Bytes(184, 1))
      .Packet(0x100, false, Bytes(10, 2))
      .Sections(0x12, {tables[1]});
  std::vector<Bytes> inputs;
  for (const size_t gap : {0u, 4u, 16u}) {
    Bytes input{100};
    for (size_t at = 0; at < stream.mBytes.size(); at += 188) {
      input += std::span(stream.mBytes).subspan(at, 188);
      input += Bytes(gap, static_cast<uint8_t>(at));
    }
    inputs.push_back(input);
  }
  return inputs;
}

}  // namespace

int main(int aCount, char** aArguments) {
  const std::map<std::string, std::vector<Bytes> (*)()> targets = {
      {"text", Texts}, {"channels", Lines}, {"sections", Sections}, {"demultiplexer", Streams}};
  const auto target = aCount == 3 ? targets.find(aArguments[1]) : targets.end();
  if (target == targets.end()) {
    std::cerr << "usage: fuzz_corpus TARGET DIRECTORY\n";
    return 2;
  }
  const std::filesystem::path directory = aArguments[2];
  std::filesystem::create_directories(directory);
  int number = 0;
  for (const Bytes& input : target->second()) {
    std::ofstream file(directory / ("seed-" + std::to_string(number++)), std::ios::binary);
    file.write(reinterpret_cast<const char*>(input.data()),
               static_cast<std::streamsize>(input.size()));
    if (!file) return 1;
  }
  return 0;
}
