// Calls packed for another thread, and weak references that cross threads.
#include <gtest/gtest.h>

#include <thread>

#include "nsIObserver.h"
#include "nsString.h"
#include "nsThreadSafeWeakReference.h"
#include "nsVorelMethodCaller.h"

namespace {

using vorel::threads::eStrong;
using vorel::threads::eWeak;

// Keeps what it is called with; *aAlive tells whether it lives.
class Target final : public nsIObserver, public nsThreadSafeSupportsWeakReference {
 public:
  explicit Target(bool* aAlive = nullptr) : mAlive(aAlive) {
    if (mAlive) *mAlive = true;
  }
  nsresult QueryInterface(const nsIID& aIID, void** aResult) override {
    if (!(*aResult = NS_FindInterface<nsIObserver, nsISupportsWeakReference>(this, aIID)))
      return NS_ERROR_NO_INTERFACE;
    AddRef();
    return NS_OK;
  }
  nsrefcnt AddRef() override { return nsThreadSafeSupportsWeakReference::AddRef(); }
  nsrefcnt Release() override { return nsThreadSafeSupportsWeakReference::Release(); }
  nsresult Observe(nsISupports*, const char*, const char16_t*) override { return NS_OK; }

  nsresult Nothing() { return Keep("nothing"); }
  unsigned long Number() { return Keep("number") == NS_OK ? 7 : 0; }
  nsresult Text(const nsAString& aText) { return Keep(NS_ToUtf8(aText)); }
  nsresult TextAndNumber(const nsAString& aText, uint32_t aNumber) {
    return Keep(NS_ToUtf8(aText) + std::to_string(aNumber));
  }

  std::string mCalled;
  nsresult mResult = NS_OK;

 private:
  ~Target() override {
    // What a destructor may do: take and drop references to the dying object.
    nsCOMPtr<Target>(this);
    if (mAlive) *mAlive = false;
  }
  nsresult Keep(std::string aCalled) {
    mCalled = std::move(aCalled);
    return mResult;
  }
  bool* const mAlive;
};

TEST(MethodCaller, ArgumentsOrResultAreLost) {
  const auto target = MakeRefCounted<Target>();
  EXPECT_EQ(NS_NewRunnableMethodCaller<eStrong>(target.get(), &Target::Nothing)->Run(), NS_OK);
  EXPECT_EQ(target->mCalled, "nothing");
  EXPECT_EQ(NS_NewRunnableMethodCaller<eStrong>(target.get(), &Target::Number)->Run(), NS_OK);
  EXPECT_EQ(target->mCalled, "number");
  const nsString text(u"text");
  target->mResult = NS_ERROR_NOT_AVAILABLE;
  EXPECT_EQ(NS_NewRunnableMethodCaller<eStrong>(target.get(), &Target::Text, text)->Run(),
            NS_ERROR_NOT_AVAILABLE);
  EXPECT_EQ(target->mCalled, "text");
}

TEST(MethodCaller, StoredTextDiesWithItsMaker) {
  const auto target = MakeRefCounted<Target>();
  nsCOMPtr<nsIRunnable> caller;
  {
    nsString text(u"a text that is longer than any buffer inside of a string");
    caller = NS_NewRunnableMethodCaller<eStrong, nsString_external, uint32_t>(
        target.get(), &Target::TextAndNumber, text, 5);
    text = u"overwritten";
  }
  EXPECT_EQ(caller->Run(), NS_OK);
  EXPECT_EQ(target->mCalled, "a text that is longer than any buffer inside of a string5");
}

TEST(MethodCaller, StrongCallerLetsItsTargetDie) {
  bool alive;
  auto target = MakeRefCounted<Target>(&alive);
  auto caller = NS_NewRunnableMethodCaller<eStrong>(target.get(), &Target::Nothing);
  target = nullptr;
  EXPECT_TRUE(alive);
  EXPECT_EQ(caller->Run(), NS_OK);
  caller = nullptr;
  EXPECT_FALSE(alive);
}

TEST(MethodCaller, WeakCallerKeepsOrCallsADeadTarget) {
  bool alive;
  auto target = MakeRefCounted<Target>(&alive);
  const auto caller = NS_NewRunnableMethodCaller<eWeak>(target.get(), &Target::Nothing);
  EXPECT_EQ(caller->Run(), NS_OK);
  EXPECT_EQ(target->mCalled, "nothing");
  target = nullptr;
  EXPECT_FALSE(alive);
  EXPECT_EQ(caller->Run(), NS_ERROR_NOT_AVAILABLE);
  Target* none = nullptr;
  EXPECT_EQ(NS_NewRunnableMethodCaller<eWeak>(none, &Target::Nothing)->Run(),
            NS_ERROR_NOT_AVAILABLE);
}

TEST(MethodCaller, NothingIsDispatched) {
  EXPECT_EQ(NS_DispatchToMainThread(nullptr, NS_DISPATCH_SYNC), NS_ERROR_NULL_POINTER);
}

TEST(WeakReference, DeadReferentIsHandedOut) {
  auto target = MakeRefCounted<Target>();
  EXPECT_EQ(target->GetWeakReference(nullptr), NS_ERROR_NULL_POINTER);
  nsCOMPtr<nsIWeakReference> weak, same;
  ASSERT_EQ(target->GetWeakReference(weak.getter_AddRefs()), NS_OK);
  ASSERT_EQ(target->GetWeakReference(same.getter_AddRefs()), NS_OK);
  EXPECT_EQ(weak, same);
  nsCOMPtr<nsIObserver> strong;
  EXPECT_EQ(weak->QueryReferent(nsIObserver::kIID, NS_OutVoid(strong)), NS_OK);
  EXPECT_EQ(strong.get(), static_cast<nsIObserver*>(target.get()));
  nsCOMPtr<nsIRunnable> other;
  EXPECT_EQ(weak->QueryReferent(nsIRunnable::kIID, NS_OutVoid(other)), NS_ERROR_NO_INTERFACE);
  strong = nullptr;
  target = nullptr;
  EXPECT_EQ(weak->QueryReferent(nsIObserver::kIID, NS_OutVoid(strong)), NS_ERROR_NULL_POINTER);
  EXPECT_FALSE(strong);
}

TEST(WeakReference, LastReleaseAndQueryCross) {
  for (int round = 0; round < 500; ++round) {
    bool alive;
    auto target = MakeRefCounted<Target>(&alive);
    nsCOMPtr<nsIWeakReference> weak;
    ASSERT_EQ(target->GetWeakReference(weak.getter_AddRefs()), NS_OK);
    std::thread asker([weak]() mutable {
      nsCOMPtr<nsIObserver> strong;
      const nsresult rv = weak->QueryReferent(nsIObserver::kIID, NS_OutVoid(strong));
      EXPECT_EQ(NS_SUCCEEDED(rv), bool(strong));
    });
    target = nullptr;
    weak = nullptr;
    asker.join();
    EXPECT_FALSE(alive);
  }
}

}  // namespace
