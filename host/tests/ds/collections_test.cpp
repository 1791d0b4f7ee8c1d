// Observers, arrays, values.
#include <thread>

#include "nsIClassInfo.h"
#include "nsIMutableArray.h"
#include "nsISimpleEnumerator.h"
#include "nsISupportsCString.h"
#include "nsISupportsID.h"
#include "nsISupportsInterfacePointer.h"
#include "nsISupportsPRBool.h"
#include "nsISupportsPRInt32.h"
#include "nsISupportsPRUint32.h"
#include "nsISupportsString.h"
#include "nsIUUIDGenerator.h"
#include "nsTestHost.h"

namespace {

using Strings = std::vector<std::string>;

class Observers : public nsHostTest {
 protected:
  void SetUp() override {
    Start();
    mService = do_GetService<nsIObserverService>(NS_OBSERVERSERVICE_CONTRACTID);
  }
  nsCOMPtr<nsIObserver> Observer(std::string aName, std::function<void()> aThen = {}) {
    return nsCOMPtr<nsIObserver>(MakeRefCounted<nsTestObserver>(
        [this, aName, aThen](nsISupports*, std::string, std::string) {
          mHeard.push_back(aName);
          if (aThen) aThen();
        }));
  }
  void Notify(const char* aTopic = "topic") {
    EXPECT_EQ(NS_OK, mService->NotifyObservers(nullptr, aTopic, nullptr));
  }

  nsCOMPtr<nsIObserverService> mService;
  Strings mHeard;
};

TEST_F(Observers, OldestHearsFirst) {
  for (const char* name : {"a", "b", "c"})
    EXPECT_EQ(NS_OK, mService->AddObserver(Observer(name).get(), "topic", false));
  Notify("other");
  Notify();
  EXPECT_EQ((Strings{"c", "b", "a"}), mHeard);
}

TEST_F(Observers, ChangesDuringANotificationDisturbIt) {
  const auto a = Observer("a"), c = Observer("c");
  const auto b = Observer("b", [&] {
    EXPECT_EQ(NS_OK, mService->RemoveObserver(a.get(), "topic"));
    EXPECT_EQ(NS_OK, mService->AddObserver(c.get(), "topic", false));
  });
  EXPECT_EQ(NS_OK, mService->AddObserver(a.get(), "topic", false));
  EXPECT_EQ(NS_OK, mService->AddObserver(b.get(), "topic", false));
  Notify();
  EXPECT_EQ((Strings{"b", "a"}), mHeard) << "it runs over the observers as they were";
  EXPECT_EQ(NS_OK, mService->RemoveObserver(b.get(), "topic"));
  mHeard.clear();
  Notify();
  EXPECT_EQ(Strings{"c"}, mHeard);
}

TEST_F(Observers, UnknownOneIsRemoved) {
  const auto a = Observer("a");
  EXPECT_EQ(NS_ERROR_FAILURE, mService->RemoveObserver(a.get(), "topic"));
  EXPECT_EQ(NS_OK, mService->AddObserver(a.get(), "topic", false));
  EXPECT_EQ(NS_ERROR_FAILURE, mService->RemoveObserver(a.get(), "other"));
  EXPECT_EQ(NS_OK, mService->RemoveObserver(a.get(), "topic"));
  EXPECT_EQ(NS_ERROR_NO_INTERFACE, mService->AddObserver(a.get(), "topic", true));
}

TEST_F(Observers, WeakOneIsKeptAliveOrCalledDead) {
  std::atomic<int> calls = 0;
  auto observer = MakeRefCounted<nsTestWeakObserver>(&calls);
  const auto removed = MakeRefCounted<nsTestWeakObserver>(&calls);
  EXPECT_EQ(NS_OK, mService->AddObserver(observer.get(), "topic", true));
  EXPECT_EQ(NS_OK, mService->AddObserver(removed.get(), "topic", true));
  EXPECT_EQ(NS_OK, mService->RemoveObserver(removed.get(), "topic"));
  Notify();
  EXPECT_EQ(1, calls);
  observer = nullptr;
  Notify();
  EXPECT_EQ(1, calls);
  nsCOMPtr<nsISimpleEnumerator> left;
  EXPECT_EQ(NS_OK, mService->EnumerateObservers("topic", left.getter_AddRefs()));
  bool more = true;
  EXPECT_EQ(NS_OK, left->HasMoreElements(&more));
  EXPECT_FALSE(more);
}

TEST_F(Observers, WeakOnesThatDieElsewhereCrash) {
  std::atomic<int> calls = 0;
  std::atomic<bool> done = false;
  std::thread other([&] {
    for (int i = 0; i < 500; ++i) {
      const auto observer = MakeRefCounted<nsTestWeakObserver>(&calls);
      EXPECT_EQ(NS_OK, mService->AddObserver(observer.get(), "topic", true));
    }
    done = true;
  });
  while (!done) Notify();
  other.join();
}

using Numbers = std::vector<uint32_t>;

class Arrays : public nsHostTest, public testing::WithParamInterface<const char*> {
 protected:
  void SetUp() override {
    Start();
    mArray = do_CreateInstance<nsIMutableArray>(GetParam());
    ASSERT_TRUE(mArray);
  }
  static nsCOMPtr<nsISupports> Number(uint32_t aValue) {
    const auto number = do_CreateInstance<nsISupportsPRUint32>("@mozilla.org/supports-PRUint32;1");
    EXPECT_EQ(NS_OK, number->SetData(aValue));
    return number;
  }
  Numbers All() {
    nsCOMPtr<nsISimpleEnumerator> elements;
    EXPECT_EQ(NS_OK, mArray->Enumerate(elements.getter_AddRefs()));
    Numbers numbers;
    for (bool more; NS_SUCCEEDED(elements->HasMoreElements(&more)) && more;) {
      nsCOMPtr<nsISupports> element;
      EXPECT_EQ(NS_OK, elements->GetNext(element.getter_AddRefs()));
      EXPECT_EQ(NS_OK,
                do_QueryInterface<nsISupportsPRUint32>(element)->GetData(&numbers.emplace_back()));
    }
    return numbers;
  }
  nsCOMPtr<nsIMutableArray> mArray;
};

TEST_P(Arrays, ElementsStandElsewhere) {
  const auto two = Number(2);
  EXPECT_EQ(NS_OK, mArray->AppendElement(Number(1).get(), false));
  EXPECT_EQ(NS_OK, mArray->AppendElement(two.get(), false));
  EXPECT_EQ(NS_OK, mArray->InsertElementAt(Number(0).get(), 0, false));
  EXPECT_EQ(NS_ERROR_INVALID_ARG, mArray->InsertElementAt(two.get(), 4, false));
  EXPECT_EQ((Numbers{0, 1, 2}), All());
  EXPECT_EQ(NS_OK, mArray->ReplaceElementAt(Number(9).get(), 1, false));
  EXPECT_EQ(NS_OK, mArray->RemoveElementAt(0));
  EXPECT_EQ(NS_ERROR_INVALID_ARG, mArray->RemoveElementAt(2));
  EXPECT_EQ((Numbers{9, 2}), All());
  uint32_t index = 99;
  EXPECT_EQ(NS_OK, mArray->IndexOf(0, do_QueryInterface<nsISupportsPRUint32>(two).get(), &index));
  EXPECT_EQ(1u, index);
  EXPECT_EQ(NS_ERROR_FAILURE, mArray->IndexOf(2, two.get(), &index));
  nsCOMPtr<nsISupportsPRUint32> element;
  EXPECT_EQ(NS_OK, mArray->QueryElementAt(1, nsISupportsPRUint32::kIID, NS_OutVoid(element)));
  EXPECT_EQ(NS_ERROR_ILLEGAL_VALUE,
            mArray->QueryElementAt(2, nsISupportsPRUint32::kIID, NS_OutVoid(element)));
  EXPECT_EQ(NS_ERROR_NULL_POINTER, mArray->AppendElement(nullptr, false));
  EXPECT_EQ(NS_OK, mArray->Clear());
  EXPECT_EQ(Numbers{}, All());
}

TEST_P(Arrays, WeakElementIsKeptAlive) {
  std::atomic<int> calls = 0;
  auto element = MakeRefCounted<nsTestWeakObserver>(&calls);
  nsIObserver* const raw = element.get();
  EXPECT_EQ(NS_OK, mArray->AppendElement(raw, true));
  nsCOMPtr<nsIObserver> found;
  EXPECT_EQ(NS_OK, mArray->QueryElementAt(0, nsIObserver::kIID, NS_OutVoid(found)));
  EXPECT_EQ(raw, found.get());
  found = nullptr;
  element = nullptr;
  EXPECT_EQ(NS_ERROR_NULL_POINTER, mArray->QueryElementAt(0, nsIObserver::kIID, NS_OutVoid(found)));
  EXPECT_EQ(NS_ERROR_FAILURE, mArray->AppendElement(Number(1).get(), true));
}

INSTANTIATE_TEST_SUITE_P(Both, Arrays, testing::Values(NS_ARRAY_CONTRACTID, VOREL_ARRAY_CONTRACTID),
                         [](const auto& aInfo) { return aInfo.index ? "Vorel" : "Platform"; });

class Values : public nsHostTest {
  void SetUp() override { Start(); }
};

TEST_F(Values, ScriptCanNotIndexTheArray) {
  const auto array = do_CreateInstance<nsIMutableArray>(VOREL_ARRAY_CONTRACTID);
  const auto info = do_QueryInterface<nsIClassInfo>(array);
  ASSERT_TRUE(info);
  uint32_t count = 0;
  nsIID** interfaces = nullptr;
  ASSERT_EQ(NS_OK, info->GetInterfaces(&count, &interfaces));
  EXPECT_TRUE(std::any_of(interfaces, interfaces + count,
                          [](const nsIID* aIID) { return *aIID == nsIArray::kIID; }));
  for (uint32_t i = 0; i < count; ++i) NS_Free(interfaces[i]);
  NS_Free(interfaces);
  EXPECT_FALSE(
      do_QueryInterface<nsIClassInfo>(do_CreateInstance<nsIMutableArray>(NS_ARRAY_CONTRACTID)));
}

template <class T>
std::string ToText(const char* aContractID, auto aValue, uint16_t aType) {
  const auto object = do_CreateInstance<T>(aContractID);
  EXPECT_TRUE(object) << aContractID;
  EXPECT_EQ(NS_OK, object->SetData(aValue));
  decltype(aValue) back{};
  EXPECT_EQ(NS_OK, object->GetData(&back));
  EXPECT_EQ(aValue, back);
  uint16_t type = 0;
  EXPECT_EQ(NS_OK, object->GetType(&type));
  EXPECT_EQ(aType, type) << aContractID;
  char* text = nullptr;
  EXPECT_EQ(NS_OK, object->ToString(&text));
  const std::string result = text;
  NS_Free(text);
  return result;
}

TEST_F(Values, ValueOrItsTextIsAnother) {
  EXPECT_EQ("true", ToText<nsISupportsPRBool>("@mozilla.org/supports-PRBool;1", true, 4));
  EXPECT_EQ("4294967295",
            ToText<nsISupportsPRUint32>("@mozilla.org/supports-PRUint32;1", 0xFFFFFFFFu, 7));
  EXPECT_EQ("-1", ToText<nsISupportsPRInt32>("@mozilla.org/supports-PRInt32;1", -1, 12));

  const auto bytes = do_CreateInstance<nsISupportsCString>("@mozilla.org/supports-cstring;1");
  EXPECT_EQ(NS_OK, bytes->SetData(nsCString(std::string_view("a\0b", 3))));
  nsCString back;
  EXPECT_EQ(NS_OK, bytes->GetData(back));
  EXPECT_EQ(std::string_view("a\0b", 3), back.view());

  const auto id = do_CreateInstance<nsISupportsID>("@mozilla.org/supports-id;1");
  nsID* held = reinterpret_cast<nsID*>(1);
  EXPECT_EQ(NS_OK, id->GetData(&held));
  EXPECT_EQ(nullptr, held);
  EXPECT_EQ(NS_OK, id->SetData(&nsIObserver::kIID));
  EXPECT_EQ(NS_OK, id->GetData(&held));
  EXPECT_EQ(nsIObserver::kIID, *held);
  NS_Free(held);

  const auto pointer =
      do_CreateInstance<nsISupportsInterfacePointer>("@mozilla.org/supports-interface-pointer;1");
  EXPECT_EQ(NS_OK, pointer->SetData(id.get()));
  nsCOMPtr<nsISupports> object;
  EXPECT_EQ(NS_OK, pointer->GetData(object.getter_AddRefs()));
  EXPECT_TRUE(NS_SameObject(object.get(), id.get()));
}

TEST_F(Values, IdentifiersRepeatOrAreNotRandomOnes) {
  const auto generator = do_GetService<nsIUUIDGenerator>("@mozilla.org/uuid-generator;1");
  nsID a, b;
  EXPECT_EQ(NS_OK, generator->GenerateUUIDInPlace(&a));
  EXPECT_EQ(NS_OK, generator->GenerateUUIDInPlace(&b));
  EXPECT_NE(a, b);
  EXPECT_EQ(4, a.m2 >> 12);
  EXPECT_EQ(2, a.m3[0] >> 6);
}

}  // namespace
