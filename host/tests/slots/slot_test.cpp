// The compiled headers against the platform's own table (platform-slots.tsv): identifiers, parents,
// and the place and the types of every operation. The rows come from make_slot_table.py.
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <set>

#define INCLUDES
#include "slot_table.inc"
#undef INCLUDES

// The table's names for types.
using PRUint8 = uint8_t;
using PRUint16 = uint16_t;
using PRUint32 = uint32_t;
using PRUint64 = uint64_t;
using PRInt16 = int16_t;
using PRInt32 = int32_t;
using PRInt64 = int64_t;
using PRUnichar = char16_t;
using nsLoadFlags = uint32_t;
using nativeWindow = void*;
using jsid = uintptr_t;
namespace JS {
using Value = jsval;
}

namespace {

struct Interface {
  const char* mName;
  bool mIsIdentifier, mIsParent;
};
struct Operation {
  const char* mInterface;
  const char* mName;
  size_t mTable, mCompiled;
  bool mAreTypes;
};

// A pointer to a virtual member holds the offset of its slot: plus one, or, on ARM, with the mark
// elsewhere.
template <class Member>
size_t SlotOf(Member aMember) {
  uintptr_t words[2];
  static_assert(sizeof words == sizeof aMember);
  std::memcpy(words, &aMember, sizeof words);
  return (words[0] & ~uintptr_t{1}) / sizeof(void*);
}

#define UNWRAP(...) __VA_ARGS__
#define LEFT_OUT(aName, aCount)
#define OPERATION(aInterface, aSlot, aName, aResult, aArguments)
#define INTERFACE(aName, aParent, aIdentifier) \
  {#aName, aName::kIID == aIdentifier##_iid, std::is_same_v<aName::Base, aParent>},
const Interface kInterfaces[] = {
#include "slot_table.inc"
};
#undef INTERFACE
#undef OPERATION

#define INTERFACE(aName, aParent, aIdentifier)
#define OPERATION(aInterface, aSlot, aName, aResult, aArguments) \
  {#aInterface, #aName, aSlot, SlotOf(&aInterface::aName),       \
   std::is_same_v<decltype(&aInterface::aName), aResult(aInterface::*) aArguments>},
const Operation kOperations[] = {
#include "slot_table.inc"
};
#undef OPERATION
#undef LEFT_OUT

#define OPERATION(aInterface, aSlot, aName, aResult, aArguments)
#define LEFT_OUT(aName, aCount) {aName, aCount},
const std::map<std::string, int> kLeftOut = {
#include "slot_table.inc"
};

TEST(Slots, InterfaceHasAnotherIdentifierOrParent) {
  EXPECT_GT(std::size(kInterfaces), 80u);
  for (const Interface& interface : kInterfaces) {
    EXPECT_TRUE(interface.mIsIdentifier) << interface.mName;
    EXPECT_TRUE(interface.mIsParent) << interface.mName;
  }
}

TEST(Slots, OperationStandsElsewhereOrTakesOtherTypes) {
  EXPECT_GT(std::size(kOperations), 550u);
  for (const Operation& operation : kOperations) {
    EXPECT_EQ(operation.mTable, operation.mCompiled)
        << operation.mInterface << "::" << operation.mName;
    EXPECT_TRUE(operation.mAreTypes) << operation.mInterface << "::" << operation.mName;
  }
}

// Very large interfaces are declared up to the last operation that is called. Nothing here has a
// use for nsIDOMEventTarget and nsITraceRefcnt.
TEST(Slots, MoreIsLeftOutThanIsMeantToBe) {
  const std::map<std::string, int> expected = {{"nsIDOMDocument", 63}, {"nsIDOMEventTarget", 14},
                                               {"nsIDOMNode", 36},     {"nsIDOMWindow", 127},
                                               {"nsITraceRefcnt", 6},  {"nsIXPConnect", 46}};
  EXPECT_EQ(expected, kLeftOut);
}

}  // namespace
