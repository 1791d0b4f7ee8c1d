#include "nsSimulatedMachineFile.h"

#include <cmath>
#include <cstdio>
#include <filesystem>

#include "nsMachineValue.h"

namespace {

// The sections of a machine file. Each is read by the port whose facts it holds, and so is its part
// of a change, where the facts of that port can change.
struct Section {
  const char* mName;
  void (*mReadFacts)(const nsMachineValue&, nsSimulatedMachine&);
  std::function<void()> (*mReadChange)(const nsMachineValue&, nsSimulatedMachine&);
};

template <auto Member>
constexpr Section MakeSection(const char* aName) {
  Section section{aName,
                  [](const nsMachineValue& aValue, nsSimulatedMachine& aMachine) {
                    (aMachine.*Member)->ReadFacts(aValue);
                  },
                  nullptr};
  using Port = std::remove_cvref_t<decltype(*(std::declval<nsSimulatedMachine&>().*Member))>;
  if constexpr (requires(Port & aPort, const nsMachineValue& aValue) { aPort.ReadChange(aValue); })
    section.mReadChange = [](const nsMachineValue& aValue,
                             nsSimulatedMachine& aMachine) -> std::function<void()> {
      return (aMachine.*Member)->ReadChange(aValue);
    };
  return section;
}

constexpr Section kSections[] = {
    MakeSection<&nsSimulatedMachine::mVolumes>("volumes"),
    MakeSection<&nsSimulatedMachine::mDisplays>("displays"),
    MakeSection<&nsSimulatedMachine::mWindowEvents>("devices"),
    MakeSection<&nsSimulatedMachine::mNetwork>("interfaces"),
    MakeSection<&nsSimulatedMachine::mNetworkSettings>("networkSettings"),
    MakeSection<&nsSimulatedMachine::mComm>("serial"),
    MakeSection<&nsSimulatedMachine::mTuners>("tuners"),
    MakeSection<&nsSimulatedMachine::mRegistry>("registry"),
    MakeSection<&nsSimulatedMachine::mClock>("clock"),
    MakeSection<&nsSimulatedMachine::mFonts>("fonts"),
    MakeSection<&nsSimulatedMachine::mHost>("host"),
};

constexpr std::pair<std::string_view, nsresult> kResults[] = {
#define RESULT(aName, aValue) {#aName, aName},
    NS_RESULT_CODES(RESULT)
#undef RESULT
};

nsresult ReadFailure(const nsMachineValue& aValue) {
  for (const auto& [name, result] : kResults)
    if (NS_FAILED(result) && name == aValue.AsString()) return result;
  aValue.Fail("must be the name of an error, such as \"NS_ERROR_FAILURE\"");
}

void ReadFault(nsMachineObject& aObject, nsSimulatedCalls& aCalls) {
  nsSimulatedFault fault;
  const nsMachineValue& port = aObject.Required("port");
  fault.mPort = port.AsString();
  if (!aCalls.HasPort(fault.mPort)) port.Fail("there is no port \"" + fault.mPort + "\"");
  if (const auto* method = aObject.Optional("method")) fault.mMethod = method->AsString();
  if (const auto* call = aObject.Optional("call")) fault.mNumber = call->AsInteger<uint32_t>(1);
  if (const auto* result = aObject.Optional("result")) fault.mResult = ReadFailure(*result);
  if (const auto* forEver = aObject.Optional("forEver")) fault.mForEver = forEver->AsBoolean();
  aCalls.Fail(std::move(fault));
}

void ReadChange(nsMachineObject& aObject, nsSimulatedMachine& aMachine) {
  nsSimulatedChange change;
  change.mAfter =
      std::chrono::milliseconds(std::llround(aObject.Required("after").AsNumber(0, 1e6) * 1000));
  for (const Section& section : kSections)
    if (const nsMachineValue* value =
            section.mReadChange ? aObject.Optional(section.mName) : nullptr)
      change.mActions.push_back(section.mReadChange(*value, aMachine));
  if (change.mActions.empty()) aObject.Fail("this change changes nothing");
  aMachine.AddChange(std::move(change));
}

void ReadMachine(nsMachineObject& aObject, nsSimulatedMachine& aMachine) {
  if (const nsMachineValue* comment = aObject.Optional("comment")) (void)comment->AsString();
  for (const Section& section : kSections)
    if (const nsMachineValue* value = aObject.Optional(section.mName))
      section.mReadFacts(*value, aMachine);
  if (const nsMachineValue* faults = aObject.Optional("faults"))
    for (const nsMachineValue& fault : faults->AsArray())
      fault.AsObject([&](nsMachineObject& aFields) { ReadFault(aFields, *aMachine.mCalls); });
  if (const nsMachineValue* changes = aObject.Optional("changes"))
    for (const nsMachineValue& change : changes->AsArray())
      change.AsObject([&](nsMachineObject& aFields) { ReadChange(aFields, aMachine); });
}

// A machine with all that it has is a few pages.
constexpr size_t kMaximumFile = 16 * 1024 * 1024;

// Opening a pipe would wait for whoever writes into it, for ever if nobody does.
bool ReadFile(const std::string& aPath, std::string& aText) {
  std::error_code error;
  if (!std::filesystem::is_regular_file(aPath, error)) return false;
  const std::unique_ptr<FILE, int (*)(FILE*)> file(fopen(aPath.c_str(), "rb"), fclose);
  if (!file) return false;
  char buffer[16384];
  while (const size_t length = fread(buffer, 1, sizeof buffer, file.get())) {
    aText.append(buffer, length);
    if (aText.size() > kMaximumFile) return false;
  }
  return !ferror(file.get());
}

}  // namespace

nsresult NS_ReadMachineText(std::string_view aText, const std::string& aName,
                            const std::string& aDirectory,
                            std::unique_ptr<nsSimulatedMachine>* aMachine, std::string* aMessage) {
  try {
    auto machine = std::make_unique<nsSimulatedMachine>();
    nsMachineValue::Parse(aText, aDirectory).AsObject([&](nsMachineObject& aObject) {
      ReadMachine(aObject, *machine);
    });
    *aMachine = std::move(machine);
    return NS_OK;
  } catch (const nsMachineFileError& error) {
    *aMessage = aName + ":" + std::to_string(error.mLine) + ": " + error.what();
    return NS_ERROR_FILE_CORRUPTED;
  }
}

nsresult NS_ReadMachineFile(const std::string& aPath, std::unique_ptr<nsSimulatedMachine>* aMachine,
                            std::string* aMessage) {
  std::string text;
  if (!ReadFile(aPath, text)) {
    *aMessage = aPath + ": this file can't be read";
    return NS_ERROR_FILE_NOT_FOUND;
  }
  const size_t slash = aPath.rfind('/');
  const std::string directory = slash == aPath.npos ? "." : aPath.substr(0, slash);
  return NS_ReadMachineText(text, aPath, directory, aMachine, aMessage);
}
