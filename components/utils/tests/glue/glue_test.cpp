// Enumerators, class information, strings, and the names of functions in logs.
#include <gtest/gtest.h>

#include "nsCOMArray.h"
#include "nsIObserver.h"
#include "nsISimpleEnumerator.h"
#include "nsIXPCScriptable.h"
#include "nsImplements.h"
#include "nsLogger.h"
#include "nsString.h"
#include "nsUtf.h"
#include "nsXPCOM.h"

namespace {

class Observer final : public nsImplements<Observer, nsIObserver> {
 public:
  static const nsClassInfoRecord kClassInfo;
  explicit Observer(int* aCount = nullptr) : mCount(aCount) {
    if (mCount) ++*mCount;
  }
  nsresult Observe(nsISupports*, const char*, const char16_t*) override { return NS_OK; }

 private:
  ~Observer() override {
    if (mCount) --*mCount;
  }
  int* const mCount;
};

const nsClassInfoRecord Observer::kClassInfo = {
    NS_ClassInterfaces<nsIObserver, nsISimpleEnumerator>, nullptr, 8,
    "7d2f3c57-45cd-4a28-9a09-60ff1a30a1f1"_iid};

TEST(Enumerator, ShowsLaterChangesOrLosesReferences) {
  int count = 0;
  nsCOMArray<nsIObserver> list;
  for (int i = 0; i < 3; ++i) list.emplace_back(new Observer(&count));
  nsIObserver* const first = list[0].get();
  nsCOMPtr<nsISimpleEnumerator> enumerator;
  ASSERT_EQ(NS_NewArrayEnumerator(enumerator.getter_AddRefs(), list), NS_OK);
  list.clear();
  EXPECT_EQ(count, 3);
  bool more = false;
  EXPECT_EQ(enumerator->HasMoreElements(nullptr), NS_ERROR_NULL_POINTER);
  EXPECT_EQ(enumerator->GetNext(nullptr), NS_ERROR_NULL_POINTER);
  ASSERT_EQ(enumerator->HasMoreElements(&more), NS_OK);
  EXPECT_TRUE(more);
  nsCOMPtr<nsISupports> element;
  ASSERT_EQ(enumerator->GetNext(element.getter_AddRefs()), NS_OK);
  EXPECT_EQ(element.get(), first);
  element = nullptr;
  EXPECT_EQ(count, 2) << "the reference went to the caller";
  enumerator = nullptr;
  EXPECT_EQ(count, 0) << "those not handed out";
}

TEST(Enumerator, EmptyOneGivesSomething) {
  nsCOMPtr<nsISimpleEnumerator> enumerator;
  ASSERT_EQ(NS_NewArrayEnumerator(enumerator.getter_AddRefs(), nullptr), NS_OK);
  bool more = true;
  ASSERT_EQ(enumerator->HasMoreElements(&more), NS_OK);
  EXPECT_FALSE(more);
  nsCOMPtr<nsISupports> element;
  EXPECT_EQ(enumerator->GetNext(element.getter_AddRefs()), NS_ERROR_UNEXPECTED);
}

TEST(ClassInfo, AnswersDiffer) {
  const auto observer = MakeRefCounted<Observer>();
  const auto info = do_QueryInterface<nsIClassInfo>(observer);
  ASSERT_TRUE(info);
  EXPECT_EQ(info->AddRef(), 2u);
  EXPECT_EQ(info->Release(), 1u);
  uint32_t count = 0, language = 0, flags = 0;
  nsIID** array = nullptr;
  ASSERT_EQ(info->GetInterfaces(&count, &array), NS_OK);
  ASSERT_EQ(count, 2u);
  EXPECT_EQ(*array[0], nsIObserver::kIID);
  EXPECT_EQ(*array[1], nsISimpleEnumerator::kIID);
  for (uint32_t i = 0; i < count; ++i) NS_Free(array[i]);
  NS_Free(array);
  nsCOMPtr<nsISupports> helper;
  EXPECT_EQ(info->GetHelperForLanguage(2, helper.getter_AddRefs()), NS_ERROR_NOT_IMPLEMENTED);
  char here;
  char* text = &here;
  EXPECT_EQ(info->GetContractID(&text), NS_ERROR_NOT_IMPLEMENTED);
  EXPECT_EQ(text, nullptr);
  text = &here;
  EXPECT_EQ(info->GetClassDescription(&text), NS_ERROR_NOT_IMPLEMENTED);
  EXPECT_EQ(text, nullptr);
  nsCID cid, *allocated = &cid;
  EXPECT_EQ(info->GetClassID(&allocated), NS_ERROR_NOT_IMPLEMENTED);
  EXPECT_EQ(allocated, nullptr);
  EXPECT_EQ(info->GetClassIDNoAlloc(&cid), NS_OK);
  EXPECT_EQ(cid, "7d2f3c57-45cd-4a28-9a09-60ff1a30a1f1"_iid);
  EXPECT_EQ(info->GetImplementationLanguage(&language), NS_OK);
  EXPECT_EQ(language, 1u);
  EXPECT_EQ(info->GetFlags(&flags), NS_OK);
  EXPECT_EQ(flags, 8u);
}

TEST(ClassInfo, HelperDoesMoreThanNameTheClass) {
  nsCOMPtr<nsISupports> helper;
  ASSERT_EQ(NS_NamedHelper<"SystemClock">(1, helper.getter_AddRefs()), NS_OK);
  EXPECT_FALSE(helper);
  ASSERT_EQ(NS_NamedHelper<"SystemClock">(2, helper.getter_AddRefs()), NS_OK);
  const auto scriptable = do_QueryInterface<nsIXPCScriptable>(helper);
  ASSERT_TRUE(scriptable);
  nsAdoptedCString name;
  EXPECT_EQ(scriptable->GetClassName(name.getter_Copies()), NS_OK);
  EXPECT_EQ(name.view(), "SystemClock");
  uint32_t flags = 1;
  EXPECT_EQ(scriptable->GetScriptableFlags(&flags), NS_OK);
  EXPECT_EQ(flags, 0u);
  EXPECT_EQ(scriptable->PreCreate(nullptr, nullptr, nullptr, nullptr), NS_ERROR_NOT_IMPLEMENTED);
  EXPECT_EQ(scriptable->PostCreatePrototype(nullptr, nullptr), NS_OK);
}

TEST(String, SharedTextChangesWithItsCopy) {
  nsString a(u"one");
  nsString b = a;
  b += u" two";
  EXPECT_EQ(a, u"one");
  EXPECT_EQ(b, std::u16string(u"one two"));
  const nsString& self = a;
  a = self;
  EXPECT_EQ(a, u"one");
  a = b;
  EXPECT_EQ(a, b);
  EXPECT_EQ(a.get()[a.Length()], 0);
}

TEST(String, DecimalTakesMoreThanDigits) {
  EXPECT_EQ(NS_ParseDecimal(u"42"), 42);
  EXPECT_EQ(NS_ParseDecimal(u"-7"), -7);
  EXPECT_EQ(NS_ParseDecimal(u"+7"), 7);
  for (const char16_t* text :
       {u"", u"+", u"-", u"+-7", u"1x", u" 1", u"1 ", u"0x1", u"\u0661", u"9223372036854775808"})
    EXPECT_FALSE(NS_ParseDecimal(text)) << NS_ToUtf8(std::u16string_view(text));
}

TEST(Log, FunctionIsNotNamedAsInTheSource) {
  using vorel::detail::FunctionName;
  const std::pair<const char*, const char*> cases[] = {
      {"nsresult nsSystemManager::Init()", "nsSystemManager::Init"},
      {"virtual nsresult nsFoo::Bar(const nsAString&, void (*)(int))", "nsFoo::Bar"},
      {"static const char* nsFoo::Name(int) [with T = {anonymous}::Other]", "nsFoo::Name"},
      {"const nsIID& nsFoo::Id()", "nsFoo::Id"},
      {"virtual nsresult {anonymous}::nsSystemConnector::SetLabel(const nsAString&)",
       "nsSystemConnector::SetLabel"},
      {"virtual nsresult (anonymous namespace)::nsSystemConnector::SetLabel(const nsAString &)",
       "nsSystemConnector::SetLabel"},
      {"(anonymous namespace)::Foo (anonymous namespace)::Make((anonymous namespace)::Foo)",
       "Make"},
      {"nsFoo::Bar()::<lambda(int)>", "nsFoo::Bar"},
  };
  for (const auto& [pretty, name] : cases) EXPECT_EQ(FunctionName(pretty), name);
}

TEST(Log, TheRoomOfAFileDoesNotShowInItsLocation) {
  using vorel::detail::LocationPath;
  EXPECT_EQ(LocationPath("components/system/src/base/discovery/nsSystemManager.cpp"),
            "components/system/src/base/nsSystemManager");
  EXPECT_EQ(LocationPath("components/system/src/adapters/digitaltv/graph/nsPin.cpp"),
            "components/system/src/adapters/nsPin");
  EXPECT_EQ(LocationPath("components/system/src/base/nsX.h"), "components/system/src/base/nsX");
  EXPECT_EQ(LocationPath("host/xpcom/io/nsPipe.cpp"), "host/xpcom/io/nsPipe");
}

TEST(Utf, TextSteersTheTerminal) {
  EXPECT_EQ(vorel::Printable("caf\u00e9\t\U0001F600"), "caf\u00e9\t\U0001F600");
  EXPECT_EQ(vorel::Printable("\x1b[2J\x7f\r\n"), "\\x1b[2J\\x7f\\x0d\\n");
  EXPECT_EQ(vorel::Printable("a\nb", true), "a\nb");
  EXPECT_EQ(vorel::Printable("\u0085\u009b\u061c\u200e\u200f\u2028\u2029\u202a\u202e\u2066\u2069"),
            "\\u{85}\\u{9b}\\u{61c}\\u{200e}\\u{200f}\\u{2028}\\u{2029}\\u{202a}\\u{202e}\\u{2066}"
            "\\u{2069}");
  EXPECT_EQ(vorel::Printable("\xff\u2027\u202f\u2065"), "\uFFFD\u2027\u202f\u2065");
}

}  // namespace
