// Contract suites of ports: what they run on. A portable suite has the simulated backend; a folder
// of a platform adds its own.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

/// A backend by name. A machine of it is made for each test.
template <class Machine>
struct nsContractBackend {
  const char* mName;
  std::unique_ptr<Machine> (*mMake)();
};
template <class Machine, class Made>
constexpr nsContractBackend<Machine> NS_ContractBackend(const char* aName) {
  return {aName, []() -> std::unique_ptr<Machine> { return std::make_unique<Made>(); }};
}

/// For the names of tests.
template <class Machine>
void PrintTo(const nsContractBackend<Machine>& aBackend, std::ostream* aOut) {
  *aOut << aBackend.mName;
}

template <class Machine>
class nsContractTest : public testing::TestWithParam<nsContractBackend<Machine>> {
 protected:
  void SetUp() override {
    mMachine = this->GetParam().mMake();
    if (const std::string lacks = mMachine->Lacks(); !lacks.empty()) GTEST_SKIP() << lacks;
  }
  std::unique_ptr<Machine> mMachine;
};
