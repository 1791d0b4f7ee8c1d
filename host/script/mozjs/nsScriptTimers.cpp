#include "nsScriptTimers.h"

#include <js/CallAndConstruct.h>
#include <js/Conversions.h>
#include <js/GCVector.h>

#include "nsConvert.h"
#include "nsITimerCallback.h"
#include "nsImplements.h"
#include "nsScriptErrors.h"
#include "nsScriptRuntime.h"
#include "nsServices.h"

namespace {

class ScriptTimer final : public nsImplements<ScriptTimer, nsITimerCallback> {
 public:
  ScriptTimer(JSContext* cx, uint32_t aId, bool aRepeats, bool aComponent)
      : mId(aId), mRepeats(aRepeats), mComponent(aComponent), mFunction(cx), mArguments(cx) {}

  nsresult Notify(nsITimer*) override {
    nsScriptRuntime* const runtime = nsScriptRuntime::Current();
    if (!runtime || !mFunction || runtime->HasQuit()) return NS_OK;
    JSContext* const cx = runtime->Context();
    const nsCOMPtr<ScriptTimer> alive(this);
    nsScriptRuntime::Entry entry(runtime, mComponent, nsScriptRuntime::Caller::eLoop);
    if (!mRepeats) runtime->Timers().Clear(mId);
    JS::RootedValue function(cx, JS::ObjectValue(*mFunction)), result(cx);
    JS::RootedValueVector arguments(cx);
    for (const JS::Value& value : mArguments.get())
      if (!arguments.append(value)) return NS_ERROR_OUT_OF_MEMORY;
    if (!JS::Call(cx, JS::UndefinedHandleValue, function, arguments, &result) &&
        JS_IsExceptionPending(cx))
      runtime->Output().ReportException();
    return NS_OK;
  }

  JS::PersistentRootedObject& Function() { return mFunction; }
  JS::PersistentRooted<JS::GCVector<JS::Value, 0, js::SystemAllocPolicy>>& Arguments() {
    return mArguments;
  }

 private:
  ~ScriptTimer() override = default;
  const uint32_t mId;
  const bool mRepeats;
  const bool mComponent;
  JS::PersistentRootedObject mFunction;
  JS::PersistentRooted<JS::GCVector<JS::Value, 0, js::SystemAllocPolicy>> mArguments;
};

}  // namespace

void nsScriptTimers::Clear(uint32_t aId) {
  const auto found = mTimers.find(aId);
  if (found == mTimers.end()) return;
  const Timer timer = found->second;
  mTimers.erase(found);
  (void)timer.mTimer->Cancel();
  mLive -= timer.mKeepsAlive;
}

void nsScriptTimers::ClearAll() {
  for (auto& [id, timer] : mTimers) (void)timer.mTimer->Cancel();
  mTimers.clear();
  mLive = 0;
}

template <bool Repeats>
bool nsScriptTimers::Set(JSContext* cx, unsigned aArgc, JS::Value* aVp) {
  JS::CallArgs args = JS::CallArgsFromVp(aArgc, aVp);
  nsScriptRuntime* const runtime = nsScriptRuntime::Current();
  const char* const name = Repeats ? "setInterval" : "setTimeout";
  if (!args.get(0).isObject() || !JS::IsCallable(&args[0].toObject()))
    return NS_ThrowTypeError(cx, std::string(name) +
                                     ": argument 1 (callback): a function is expected, not " +
                                     NS_DescribeValue(cx, args.get(0)));
  double delay = 0;
  if (args.hasDefined(1) && !JS::ToNumber(cx, args[1], &delay)) return false;
  // Negative and missing delays mean: as soon as may be. An interval of 0 would leave no time for
  // anything else.
  if (!(delay >= (Repeats ? 1 : 0))) delay = Repeats ? 1 : 0;
  if (delay > 4294967295.0) delay = 4294967295.0;
  const auto timer = do_CreateInstance<nsITimer>(NS_TIMER_CONTRACTID);
  if (!timer) return NS_ThrowResult(cx, NS_ERROR_NOT_AVAILABLE, name, "there are no timers");
  nsScriptTimers& timers = runtime->Timers();
  const uint32_t id = timers.mNext++;
  const auto callback = MakeRefCounted<ScriptTimer>(cx, id, Repeats, runtime->InComponent());
  callback->Function() = &args[0].toObject();
  for (unsigned i = 2; i < args.length(); ++i)
    if (!callback->Arguments().get().append(args[i])) return false;
  const nsresult rv =
      timer->InitWithCallback(callback.get(), static_cast<uint32_t>(delay),
                              Repeats ? nsITimer::TYPE_REPEATING_SLACK : nsITimer::TYPE_ONE_SHOT);
  if (NS_FAILED(rv)) return NS_ThrowResult(cx, rv, name);
  timers.mTimers[id] = {timer, !runtime->InComponent()};
  timers.mLive += !runtime->InComponent();
  args.rval().setNumber(id);
  return true;
}

template bool nsScriptTimers::Set<false>(JSContext*, unsigned, JS::Value*);
template bool nsScriptTimers::Set<true>(JSContext*, unsigned, JS::Value*);

bool nsScriptTimers::Clear(JSContext*, unsigned aArgc, JS::Value* aVp) {
  JS::CallArgs args = JS::CallArgsFromVp(aArgc, aVp);
  args.rval().setUndefined();
  if (args.get(0).isNumber()) {
    const double id = args[0].toNumber();
    if (id > 0 && id <= 4294967295.0)
      nsScriptRuntime::Current()->Timers().Clear(static_cast<uint32_t>(id));
  }
  return true;
}
