// A method call packed as a runnable for another thread: a target, a member function, its
// arguments.
//
//   auto caller = NS_NewRunnableMethodCaller<vorel::threads::eStrong>(this, &nsFoo::Bar, aWhat);
//   rv = NS_DispatchToMainThread(caller.get(), NS_DISPATCH_SYNC);
//
// The method's result does not come back: the dispatch's does. The rule for users: test whether
// this is the wanted thread; if so call directly; if not, pack the same method with the same
// arguments and dispatch it.
#pragma once

#include <tuple>

#include "nsCOMPtr.h"
#include "nsIRunnable.h"
#include "nsIWeakReference.h"
#include "nsImplements.h"

class nsIThread;

inline constexpr uint32_t NS_DISPATCH_NORMAL = 0;
inline constexpr uint32_t NS_DISPATCH_SYNC = 1;

/// The thread that the host was started on. Any thread; fails when the thread manager is not to be
/// had.
nsresult NS_GetMainThread(nsIThread** aThread);
/// Runs it on the main thread; with NS_DISPATCH_SYNC waits for the end of it. NS_ERROR_NULL_POINTER
/// without a runnable. Not to be called with SYNC from the main thread itself, nor with anything
/// held that it needs.
nsresult NS_DispatchToMainThread(nsIRunnable* aRunnable, uint32_t aFlags);
/// False when the thread manager is not to be had.
bool NS_IsMainThread();

namespace vorel::threads {

/// What a caller keeps of its target.
enum Ownership {
  /// A strong reference, until the caller dies.
  eStrong = 2,
  /// A plain pointer and a weak reference, which must still answer when the call is run.
  eWeak = 3,
};

namespace detail {

template <int Mode, class Target>
class TargetHolder {
  static_assert(Mode == eStrong);

 public:
  explicit TargetHolder(Target* aTarget) : mTarget(aTarget) {}
  template <class Call>
  nsresult With(Call aCall) {
    return aCall(mTarget.get());
  }

 private:
  nsCOMPtr<Target> mTarget;
};

template <class Target>
class TargetHolder<eWeak, Target> {
 public:
  explicit TargetHolder(Target* aTarget) : mTarget(aTarget) {
    if (mTarget) (void)mTarget->GetWeakReference(mWeak.getter_AddRefs());
  }
  template <class Call>
  nsresult With(Call aCall) {
    nsCOMPtr<nsISupports> alive;
    if (!mTarget || !mWeak ||
        NS_FAILED(mWeak->QueryReferent(nsISupports::kIID, NS_OutVoid(alive))) || !alive)
      return NS_ERROR_NOT_AVAILABLE;
    return aCall(mTarget);
  }

 private:
  Target* mTarget;
  nsCOMPtr<nsIWeakReference> mWeak;
};

}  // namespace detail

/// The holder. Stored holds the argument types as they are kept: a string that must outlive its
/// maker is kept as nsString_external; a reference or a plain interface pointer is legal only when
/// the dispatching thread waits for the call or otherwise keeps the thing alive.
template <int Mode, class Target, class Method, class... Stored>
class nsVorelMethodCaller {
 public:
  nsVorelMethodCaller(Target* aTarget, Method aMethod, Stored... aArguments)
      : mTarget(aTarget), mMethod(aMethod), mArguments(aArguments...) {}
  nsVorelMethodCaller(const nsVorelMethodCaller&) = delete;
  nsVorelMethodCaller& operator=(const nsVorelMethodCaller&) = delete;

  /// The method's result, where it gives one; NS_ERROR_NOT_AVAILABLE when a weak target has died.
  nsresult Call() {
    return mTarget.With([this](Target* aTarget) -> nsresult {
      const auto call = [&] {
        return std::apply([&](auto&... aArguments) { return (aTarget->*mMethod)(aArguments...); },
                          mArguments);
      };
      if constexpr (std::same_as<decltype(call()), nsresult>) return call();
      (void)call();
      return NS_OK;
    });
  }

 protected:
  virtual ~nsVorelMethodCaller() = default;

 private:
  detail::TargetHolder<Mode, Target> mTarget;
  Method mMethod;
  std::tuple<Stored...> mArguments;
};

template <int Mode, class Target, class Method, class... Stored>
class nsVorelRunnableMethodCaller final
    : public nsVorelMethodCaller<Mode, Target, Method, Stored...>,
      public nsImplements<nsVorelRunnableMethodCaller<Mode, Target, Method, Stored...>,
                          nsIRunnable> {
  using Caller = nsVorelMethodCaller<Mode, Target, Method, Stored...>;

 public:
  using Caller::Caller;
  nsresult Run() override { return this->Call(); }

 private:
  ~nsVorelRunnableMethodCaller() override = default;
};

// The three arities by the names under which they are known.
template <int Mode, class Target, class Method>
using nsVorelMethodCaller0 = nsVorelMethodCaller<Mode, Target, Method>;
template <int Mode, class Target, class Method, class A1>
using nsVorelMethodCaller1 = nsVorelMethodCaller<Mode, Target, Method, A1>;
template <int Mode, class Target, class Method, class A1, class A2>
using nsVorelMethodCaller2 = nsVorelMethodCaller<Mode, Target, Method, A1, A2>;
template <int Mode, class Target, class Method>
using nsVorelRunnableMethodCaller0 = nsVorelRunnableMethodCaller<Mode, Target, Method>;
template <int Mode, class Target, class Method, class A1>
using nsVorelRunnableMethodCaller1 = nsVorelRunnableMethodCaller<Mode, Target, Method, A1>;
template <int Mode, class Target, class Method, class A1, class A2>
using nsVorelRunnableMethodCaller2 = nsVorelRunnableMethodCaller<Mode, Target, Method, A1, A2>;

}  // namespace vorel::threads

/// Makes a caller whose arguments are stored as the types named: all of them, or none, and then as
/// the types of the method's own arguments.
template <int Mode, class... Stored, class Target, class Result, class Class, class... P>
nsCOMPtr<nsIRunnable> NS_NewRunnableMethodCaller(Target* aTarget, Result (Class::*aMethod)(P...),
                                                 std::type_identity_t<P>... aArguments) {
  using namespace vorel::threads;
  static_assert(sizeof...(Stored) == 0 || sizeof...(Stored) == sizeof...(P),
                "one that is forgotten could be kept as a reference that dies");
  if constexpr (sizeof...(Stored) == sizeof...(P))
    return nsCOMPtr<nsIRunnable>(
        MakeRefCounted<nsVorelRunnableMethodCaller<Mode, Target, decltype(aMethod), Stored...>>(
            aTarget, aMethod, aArguments...));
  else
    return nsCOMPtr<nsIRunnable>(
        MakeRefCounted<nsVorelRunnableMethodCaller<Mode, Target, decltype(aMethod), P...>>(
            aTarget, aMethod, aArguments...));
}
