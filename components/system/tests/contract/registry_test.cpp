// What every backend of the configuration store keeps to.
#include "nsRegistryContract.h"
#include "nsSimulatedMachine.h"

namespace {

using R = nsPlatformRegistry;
using Bytes = std::vector<uint8_t>;

TEST_P(RegistryContract, AValueChangesItsBytesTypeOrSize) {
  const auto key = Key(R::kRead | R::kSetValue);
  const Bytes all = [] {
    Bytes bytes;
    for (int i = 0; i < 256; ++i) bytes.push_back(static_cast<uint8_t>(i));
    return bytes;
  }();
  const std::pair<uint32_t, Bytes> values[] = {{R::kString, {}},
                                               {R::kString, {'a', 0}},
                                               {R::kMultiString, {'a', 0, 'b', 0, 0}},
                                               {R::kDword, {1, 2, 3, 4}},
                                               {R::kDword, {1}},
                                               {R::kBinary, all},
                                               {77, {'"', '\\', '\n'}},
                                               {R::kString, {'n', 'o', 'z'}}};
  for (const auto& [type, bytes] : values) {
    ASSERT_EQ(key->SetValue("value", type, bytes), NS_OK);
    uint32_t readType = 0;
    Bytes read;
    ASSERT_EQ(key->QueryValue("value", 256, &readType, &read), NS_OK);
    EXPECT_EQ(readType, type);
    EXPECT_EQ(read, bytes);
  }
}

TEST_P(RegistryContract, ANameIsFoundInOneSpellingOnlyOrLosesIts) {
  const auto key = Key(R::kRead | R::kSetValue);
  ASSERT_EQ(key->SetValue("IpAddress", R::kString, Bytes{'1', 0}), NS_OK);
  ASSERT_EQ(key->SetValue("second", R::kString, Bytes{}), NS_OK);
  ASSERT_EQ(key->SetValue("IPADDRESS", R::kString, Bytes{'2', 0}), NS_OK);
  uint32_t type = 0;
  Bytes data;
  ASSERT_EQ(key->QueryValue("ipaddress", 256, &type, &data), NS_OK);
  EXPECT_EQ(data, (Bytes{'2', 0}));
  std::vector<std::string> names;
  ASSERT_EQ(key->EnumerateValues(&names), NS_OK);
  EXPECT_EQ(names, (std::vector<std::string>{"IpAddress", "second"}));
  ASSERT_EQ(key->DeleteValue("ipADDRESS"), NS_OK);
  EXPECT_EQ(key->DeleteValue("ipADDRESS"), NS_ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(key->QueryValue("IpAddress", 256, &type, &data), NS_ERROR_FILE_NOT_FOUND);
  std::unique_ptr<nsPlatformRegistryKey> again;
  EXPECT_EQ(mMachine->Port().OpenKey("software\\TEST", R::kRead, &again), NS_OK);
}

TEST_P(RegistryContract, ALongValueIsCutOrWrittenInAFailingCall) {
  const auto key = Key(R::kRead | R::kSetValue);
  ASSERT_EQ(key->SetValue("v", R::kBinary, Bytes(257, 1)), NS_OK);
  uint32_t type = 5;
  Bytes data{9};
  EXPECT_EQ(key->QueryValue("v", 256, &type, &data), NS_ERROR_FILE_TOO_BIG);
  EXPECT_EQ(type, 5u);
  EXPECT_EQ(data, Bytes{9});
  EXPECT_EQ(key->QueryValue("v", 257, &type, &data), NS_OK);
}

TEST_P(RegistryContract, RightsThatWereNotAskedForAreThere) {
  const Bytes one{1};
  ASSERT_EQ(Key(R::kSetValue)->SetValue("v", R::kBinary, one), NS_OK);
  uint32_t type = 0;
  Bytes data;
  std::vector<std::string> names;
  EXPECT_EQ(Key(R::kSetValue)->QueryValue("v", 256, &type, &data), NS_ERROR_FILE_ACCESS_DENIED);
  EXPECT_EQ(Key(R::kSetValue)->EnumerateValues(&names), NS_ERROR_FILE_ACCESS_DENIED);
  EXPECT_EQ(Key(R::kRead)->SetValue("v", R::kBinary, one), NS_ERROR_FILE_ACCESS_DENIED);
  EXPECT_EQ(Key(R::kRead)->DeleteValue("v"), NS_ERROR_FILE_ACCESS_DENIED);
  EXPECT_EQ(Key(R::kRead)->QueryValue("v", 256, &type, &data), NS_OK);
}

TEST_P(RegistryContract, AMissingKeyOpensOrOneAboveAnotherDoesNot) {
  std::unique_ptr<nsPlatformRegistryKey> key;
  EXPECT_EQ(mMachine->Port().OpenKey("SOFTWARE\\Test", R::kRead, &key), NS_ERROR_FILE_NOT_FOUND);
  EXPECT_FALSE(key);
  (void)Key(R::kRead);
  EXPECT_EQ(mMachine->Port().OpenKey("SOFTWARE", R::kRead, &key), NS_OK);
  EXPECT_EQ(mMachine->Port().OpenKey("SOFTWARE\\Tes", R::kRead, &key), NS_ERROR_FILE_NOT_FOUND);
}

class SimulatedStore final : public nsRegistryMachine {
 public:
  nsPlatformRegistry& Port() override { return *mMachine.mRegistry; }

 private:
  nsSimulatedMachine mMachine;
};

INSTANTIATE_TEST_SUITE_P(
    Simulated, RegistryContract,
    testing::Values(NS_ContractBackend<nsRegistryMachine, SimulatedStore>("store")));

}  // namespace
