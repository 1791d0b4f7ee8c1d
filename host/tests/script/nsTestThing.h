// An object with an operation for each kind of type that crosses, and listeners that script
// implements.
#pragma once

#include <algorithm>
#include <vector>

#include "nsIJSNativeInitializer.h"
#include "nsImplements.h"
#include "nsJSUtils.h"
#include "nsScriptTable.h"
#include "nsXPCOM.h"

class nsITestListener : public nsISupports {
 public:
  using Self = nsITestListener;
  using Base = nsISupports;
  static constexpr std::string_view kName = "nsITestListener";
  static constexpr nsIID kIID = "a0000000-0000-4000-8000-000000000001"_iid;
  virtual nsresult OnThing(nsISupports* aThing, const nsAString& aText) = 0;
  virtual nsresult Ask(int64_t aNumber, int64_t* aDouble, nsACString& aText) = 0;

 protected:
  ~nsITestListener() = default;
};

class nsITestListener2 : public nsITestListener {
 public:
  using Self = nsITestListener2;
  using Base = nsITestListener;
  static constexpr std::string_view kName = "nsITestListener2";
  static constexpr nsIID kIID = "a0000000-0000-4000-8000-000000000002"_iid;
  virtual nsresult OnMore() = 0;

 protected:
  ~nsITestListener2() = default;
};

class nsITestThing : public nsISupports {
 public:
  using Self = nsITestThing;
  using Base = nsISupports;
  static constexpr std::string_view kName = "nsITestThing";
  static constexpr nsIID kIID = "a0000000-0000-4000-8000-000000000003"_iid;
  static constexpr uint32_t LIMIT = 7;
  virtual nsresult GetLabel(nsAString& aLabel) = 0;
  virtual nsresult SetLabel(const nsAString& aLabel) = 0;
  virtual nsresult GetCount(uint8_t* aCount) = 0;
  virtual nsresult SetCount(uint8_t aCount) = 0;
  virtual nsresult GetPeer(nsITestThing** aPeer) = 0;
  virtual nsresult SetPeer(nsITestThing* aPeer) = 0;
  virtual nsresult Echo64(int64_t aSigned, uint64_t aUnsigned, int64_t* aSignedBack,
                          uint64_t* aUnsignedBack) = 0;
  virtual nsresult EchoUtf8(const nsACString& aText, nsACString& aBack) = 0;
  virtual nsresult EchoChars(const char* aText, char** aBack) = 0;
  virtual nsresult EchoWide(const char16_t* aText, char16_t** aBack) = 0;
  virtual nsresult Reverse(uint32_t aCount, const uint8_t* aBytes, uint32_t* aBackCount,
                           uint8_t** aBack) = 0;
  virtual nsresult As(const nsIID& aIID, void** aResult) = 0;
  virtual nsresult Fail(nsresult aResult) = 0;
  virtual nsresult AddListener(nsITestListener* aListener) = 0;
  virtual nsresult RemoveListener(nsITestListener* aListener) = 0;
  virtual nsresult Notify(const nsAString& aText, uint32_t* aFailures) = 0;
  virtual nsresult AskAll(int64_t aNumber, nsAString& aAnswers) = 0;
  virtual nsresult Hidden(void* aPointer) = 0;

 protected:
  ~nsITestThing() = default;
};

/// What the class info does not list.
class nsITestExtra : public nsISupports {
 public:
  using Self = nsITestExtra;
  using Base = nsISupports;
  static constexpr std::string_view kName = "nsITestExtra";
  static constexpr nsIID kIID = "a0000000-0000-4000-8000-000000000004"_iid;
  virtual nsresult GetExtra(bool* aExtra) = 0;

 protected:
  ~nsITestExtra() = default;
};

/// Has a member of another interface's name.
class nsITestTwin : public nsISupports {
 public:
  using Self = nsITestTwin;
  using Base = nsISupports;
  static constexpr std::string_view kName = "nsITestTwin";
  static constexpr nsIID kIID = "a0000000-0000-4000-8000-000000000005"_iid;
  virtual nsresult GetExtra(nsAString& aExtra) = 0;

 protected:
  ~nsITestTwin() = default;
};

template <class I>
class TestListenerFace : public nsScriptFace<I> {
 public:
  using nsScriptFace<I>::nsScriptFace;
  nsresult OnThing(nsISupports* aThing, const nsAString& aText) override {
    return this->template Call<"onThing", &nsITestListener::OnThing>(aThing, aText);
  }
  nsresult Ask(int64_t aNumber, int64_t* aDouble, nsACString& aText) override {
    return this->template Call<"ask", &nsITestListener::Ask>(aNumber, aDouble, aText);
  }
};
class TestListener2Face : public TestListenerFace<nsITestListener2> {
 public:
  using TestListenerFace::TestListenerFace;
  nsresult OnMore() override { return Call<"onMore", &nsITestListener2::OnMore>(); }
};

inline const nsScriptInterface* const kTestTables[] = {
    nsBind<nsITestListener, nsMethod<"onThing", &nsITestListener::OnThing, "aThing", "aText">,
           nsMethod<"ask", &nsITestListener::Ask, "aNumber", "aDouble", "aText">,
           nsImplementedBy<TestListenerFace<nsITestListener>>>(),
    nsBind<nsITestListener2, nsMethod<"onMore", &nsITestListener2::OnMore>,
           nsImplementedBy<TestListener2Face>>(),
    nsBind<nsITestThing, nsConstant<"LIMIT", nsITestThing::LIMIT>,
           nsAttribute<"label", &nsITestThing::GetLabel, &nsITestThing::SetLabel>,
           nsAttribute<"count", &nsITestThing::GetCount, &nsITestThing::SetCount>,
           nsAttribute<"peer", &nsITestThing::GetPeer, &nsITestThing::SetPeer>,
           nsMethod<"echo64", &nsITestThing::Echo64, "aSigned", "aUnsigned", "aSignedBack",
                    "aUnsignedBack">,
           nsMethod<"echoUtf8", &nsITestThing::EchoUtf8, "aText", "aBack">,
           nsMethod<"echoChars", &nsITestThing::EchoChars, "aText", "aBack">,
           nsMethod<"echoWide", &nsITestThing::EchoWide, "aText", "aBack">,
           nsMethod<"reverse", &nsITestThing::Reverse, "aCount", "aBytes[aCount]", "aBackCount",
                    "aBack[aBackCount]">,
           nsMethod<"as", &nsITestThing::As, "aIID", "aResult">,
           nsMethod<"fail", &nsITestThing::Fail, "aResult">,
           nsMethod<"addListener", &nsITestThing::AddListener, "aListener">,
           nsMethod<"removeListener", &nsITestThing::RemoveListener, "aListener">,
           nsMethod<"notify", &nsITestThing::Notify, "aText", "aFailures">,
           nsMethod<"askAll", &nsITestThing::AskAll, "aNumber", "aAnswers">,
           nsLeftOut<&nsITestThing::Hidden>>(),
    nsBind<nsITestExtra, nsAttribute<"extra", &nsITestExtra::GetExtra>>(),
    nsBind<nsITestTwin, nsAttribute<"extra", &nsITestTwin::GetExtra>>(),
};

class nsTestThing final
    : public nsImplements<nsTestThing, nsITestThing, nsITestExtra, nsIJSNativeInitializer> {
 public:
  static const nsClassInfoRecord kClassInfo;
  static inline int sAlive = 0;
  nsTestThing() { ++sAlive; }

  nsresult GetLabel(nsAString& aLabel) override { return NS_StringCopy(aLabel, mLabel); }
  nsresult SetLabel(const nsAString& aLabel) override { return NS_StringCopy(mLabel, aLabel); }
  nsresult GetCount(uint8_t* aCount) override {
    *aCount = mCount;
    return NS_OK;
  }
  nsresult SetCount(uint8_t aCount) override {
    mCount = aCount;
    return NS_OK;
  }
  nsresult GetPeer(nsITestThing** aPeer) override {
    nsCOMPtr<nsITestThing>(mPeer).forget(aPeer);
    return NS_OK;
  }
  nsresult SetPeer(nsITestThing* aPeer) override {
    mPeer = aPeer;
    return NS_OK;
  }
  nsresult Echo64(int64_t aSigned, uint64_t aUnsigned, int64_t* aSignedBack,
                  uint64_t* aUnsignedBack) override {
    *aSignedBack = aSigned;
    *aUnsignedBack = aUnsigned;
    return NS_OK;
  }
  nsresult EchoUtf8(const nsACString& aText, nsACString& aBack) override {
    return NS_CStringCopy(aBack, aText);
  }
  nsresult EchoChars(const char* aText, char** aBack) override {
    *aBack = aText ? NS_NewCString(aText) : nullptr;
    return NS_OK;
  }
  nsresult EchoWide(const char16_t* aText, char16_t** aBack) override {
    *aBack = aText ? NS_StringCloneData(nsDependentString(aText)) : nullptr;
    return NS_OK;
  }
  nsresult Reverse(uint32_t aCount, const uint8_t* aBytes, uint32_t* aBackCount,
                   uint8_t** aBack) override {
    *aBack = static_cast<uint8_t*>(NS_Alloc(aCount + 1));
    std::reverse_copy(aBytes, aBytes + aCount, *aBack);
    *aBackCount = aCount;
    return NS_OK;
  }
  nsresult As(const nsIID& aIID, void** aResult) override { return QueryInterface(aIID, aResult); }
  nsresult Fail(nsresult aResult) override { return aResult; }
  nsresult AddListener(nsITestListener* aListener) override {
    mListeners.push_back(aListener);
    return NS_OK;
  }
  nsresult RemoveListener(nsITestListener* aListener) override {
    const auto found =
        std::find(mListeners.begin(), mListeners.end(), nsCOMPtr<nsITestListener>(aListener));
    if (found == mListeners.end()) return NS_ERROR_INVALID_ARG;
    mListeners.erase(found);
    return NS_OK;
  }
  nsresult Notify(const nsAString& aText, uint32_t* aFailures) override {
    *aFailures = 0;
    const auto listeners = mListeners;
    for (const auto& listener : listeners) {
      *aFailures += NS_FAILED(listener->OnThing(static_cast<nsITestThing*>(this), aText));
      if (const auto second = do_QueryInterface<nsITestListener2>(listener))
        *aFailures += NS_FAILED(second->OnMore());
    }
    return NS_OK;
  }
  nsresult AskAll(int64_t aNumber, nsAString& aAnswers) override {
    std::u16string answers;
    for (const auto& listener : mListeners) {
      int64_t twice = 0;
      nsCString text;
      const nsresult rv = listener->Ask(aNumber, &twice, text);
      const std::string answer = NS_FAILED(rv) ? std::string(NS_ResultName(rv))
                                               : std::to_string(twice) + std::string(text.view());
      answers += NS_ToUtf16(std::string_view(answer)) + u";";
    }
    NS_Assign(aAnswers, answers);
    return NS_OK;
  }
  nsresult Hidden(void*) override { return NS_ERROR_NOT_IMPLEMENTED; }
  nsresult GetExtra(bool* aExtra) override {
    *aExtra = true;
    return NS_OK;
  }
  nsresult Initialize(nsISupports*, JSContext* cx, JSObject*, uint32_t argc, jsval* argv) override {
    if (argc == 0) return NS_OK;
    nsDependentString text;
    const nsresult rv = nsJSUtils::ReadString(cx, argv[0], text);
    return NS_FAILED(rv) ? rv : SetLabel(text);
  }

  std::vector<nsCOMPtr<nsITestListener>> TakeListeners() { return std::exchange(mListeners, {}); }

 private:
  ~nsTestThing() override { --sAlive; }
  nsString mLabel;
  uint8_t mCount = 0;
  nsCOMPtr<nsITestThing> mPeer;
  std::vector<nsCOMPtr<nsITestListener>> mListeners;
};

inline const nsClassInfoRecord nsTestThing::kClassInfo = {
    NS_ClassInterfaces<nsITestThing>, NS_NamedHelper<"TestThing">, nsIClassInfo::DOM_OBJECT, {}};

class nsTestTwin final : public nsImplements<nsTestTwin, nsITestTwin, nsITestExtra> {
 public:
  static const nsClassInfoRecord kClassInfo;
  nsresult GetExtra(nsAString& aExtra) override {
    NS_Assign(aExtra, std::u16string_view(u"twin"));
    return NS_OK;
  }
  nsresult GetExtra(bool*) override { return NS_ERROR_UNEXPECTED; }

 private:
  ~nsTestTwin() override = default;
};

inline const nsClassInfoRecord nsTestTwin::kClassInfo = {
    NS_ClassInterfaces<nsITestTwin, nsITestExtra>,
    NS_NamedHelper<"TestTwin">,
    nsIClassInfo::DOM_OBJECT,
    {}};
