#include "nsSimulatedWindowEvents.h"

#include <utility>

class nsSimulatedWindowEvents::Source final : public nsEventSource {
 public:
  explicit Source(std::shared_ptr<nsSimulatedWindowEvents> aEvents) : mEvents(std::move(aEvents)) {}
  void Wait() override {
    nsAutoLock lock(mEvents->mLock);
    mEvents->mChanged.Wait(lock, [this]() NS_REQUIRES(mEvents->mLock) {
      return !mEvents->mMessages.empty() || mEvents->mIsWoken;
    });
    mEvents->mIsWoken = false;
  }
  bool Consume() override { return mEvents->Deliver(); }
  void Wake() override {
    const nsAutoLock lock(mEvents->mLock);
    mEvents->mIsWoken = true;
    mEvents->mChanged.NotifyAll();
  }

 private:
  const std::shared_ptr<nsSimulatedWindowEvents> mEvents;
};

nsSimulatedWindowEvents::nsSimulatedWindowEvents(nsSimulatedCallsRef aCalls)
    : nsSimulatedPort(std::move(aCalls), "WindowEvents") {}

// ---- The system's side

void nsSimulatedWindowEvents::Send(uint32_t aMessage, uintptr_t aWParam,
                                   const nsDeviceBroadcast* aBroadcast) {
  const bool isInterface =
      aBroadcast && aBroadcast->mDeviceType == nsDeviceBroadcast::kDeviceInterface;
  const nsAutoLock lock(mLock);
  for (const auto& [window, procedure] : mProcedures)
    if (!isInterface || mListening.contains(window))
      mMessages.push_back({window, procedure, aMessage, aWParam, aBroadcast != nullptr,
                           aBroadcast ? *aBroadcast : nsDeviceBroadcast()});
  mChanged.NotifyAll();
}

namespace {

constexpr uintptr_t kArrival = nsWindowMessage::kDeviceArrival;
constexpr uintptr_t kRemoval = nsWindowMessage::kDeviceRemoveComplete;

nsDeviceBroadcast Volume(char aLetter) {
  return {nsDeviceBroadcast::kVolume, 1u << (aLetter - 'A'), {}};
}
nsDeviceBroadcast Interface(const std::string& aName) {
  return {nsDeviceBroadcast::kDeviceInterface, 0, aName};
}

std::vector<std::string> ReadNames(const nsMachineValue& aValue) {
  std::vector<std::string> names;
  for (const nsMachineValue& name : aValue.AsArray()) names.push_back(name.AsString());
  return names;
}

}  // namespace

void nsSimulatedWindowEvents::VolumeArrived(char aLetter) {
  const nsDeviceBroadcast broadcast = Volume(aLetter);
  Send(nsWindowMessage::kDeviceChange, kArrival, &broadcast);
}
void nsSimulatedWindowEvents::VolumeRemoved(char aLetter) {
  const nsDeviceBroadcast broadcast = Volume(aLetter);
  Send(nsWindowMessage::kDeviceChange, kRemoval, &broadcast);
}
void nsSimulatedWindowEvents::DisplayChanged() {
  Send(nsWindowMessage::kDisplayChange, 0, nullptr);
}
void nsSimulatedWindowEvents::Plug(const std::string& aName) {
  const nsDeviceBroadcast broadcast = Interface(aName);
  Send(nsWindowMessage::kDeviceChange, kArrival, &broadcast);
}
void nsSimulatedWindowEvents::Unplug(const std::string& aName) {
  const nsDeviceBroadcast broadcast = Interface(aName);
  Send(nsWindowMessage::kDeviceChange, kRemoval, &broadcast);
}

void nsSimulatedWindowEvents::DestroyWindow(nsWindowHandle aWindow) {
  const nsAutoLock lock(mLock);
  mDestroyed.insert(aWindow);
}

void nsSimulatedWindowEvents::SetListenError(uint32_t aError) {
  const nsAutoLock lock(mLock);
  mListenError = aError;
}

// Nobody asks which devices there are, so that those of the beginning say nothing.
void nsSimulatedWindowEvents::ReadFacts(const nsMachineValue& aValue) { (void)ReadNames(aValue); }

std::function<void()> nsSimulatedWindowEvents::ReadChange(const nsMachineValue& aValue) {
  std::vector<std::string> gone, come;
  aValue.AsObject([&](nsMachineObject& aObject) {
    if (const nsMachineValue* names = aObject.Optional("remove")) gone = ReadNames(*names);
    if (const nsMachineValue* names = aObject.Optional("insert")) come = ReadNames(*names);
  });
  return [this, gone, come] {
    for (const std::string& name : gone) Unplug(name);
    for (const std::string& name : come) Plug(name);
  };
}

// ---- The port

bool nsSimulatedWindowEvents::IsWindow(nsWindowHandle aWindow) {
  if (NS_FAILED(Enter("IsWindow"))) return false;
  const nsAutoLock lock(mLock);
  return aWindow && !mDestroyed.contains(aWindow);
}

nsresult nsSimulatedWindowEvents::ReadProcedure(nsWindowHandle aWindow,
                                                FormerProcedure* aProcedure) {
  if (nsresult rv = Enter("ReadProcedure"); NS_FAILED(rv)) return rv;
  if (!aWindow) return NS_ERROR_INVALID_ARG;
  *aProcedure = kFormerProcedure;
  return NS_OK;
}

nsresult nsSimulatedWindowEvents::ReplaceProcedure(nsWindowHandle aWindow, Procedure aProcedure) {
  if (nsresult rv = Enter("ReplaceProcedure"); NS_FAILED(rv)) return rv;
  if (!aWindow) return NS_ERROR_INVALID_ARG;
  const nsAutoLock lock(mLock);
  mProcedures[aWindow] = aProcedure;
  return NS_OK;
}

uint32_t nsSimulatedWindowEvents::ListenForDevices(nsWindowHandle aWindow,
                                                   const nsDeviceInterfaceFilter& aFilter,
                                                   uint32_t aFlags) {
  constexpr uint32_t kInvalidParameter = 87;
  if (NS_FAILED(Enter("ListenForDevices"))) return 1;
  const nsAutoLock lock(mLock);
  if (mListenError) return mListenError;
  if (aFilter.mSize != sizeof aFilter ||
      aFilter.mDeviceType != nsDeviceBroadcast::kDeviceInterface || aFlags != kAllInterfaceClasses)
    return kInvalidParameter;
  mListening.insert(aWindow);
  return 0;
}

intptr_t nsSimulatedWindowEvents::CallProcedure(FormerProcedure aProcedure,
                                                const nsWindowMessage& aMessage) {
  if (NS_FAILED(Enter("CallProcedure")) || aProcedure != kFormerProcedure) return 0;
  Record("CallProcedure " + std::to_string(aMessage.mMessage) + " " +
         std::to_string(aMessage.mWParam));
  return kFormerAnswer;
}

std::vector<std::shared_ptr<nsEventSource>> nsSimulatedWindowEvents::NewEvents() {
  if (NS_FAILED(Enter("NewEvents"))) return {};
  return {std::make_shared<Source>(shared_from_this())};
}

// One at a time, and without the lock: what is called may send messages, or end all this.
bool nsSimulatedWindowEvents::Deliver() {
  bool any = false;
  for (;;) {
    Message message;
    {
      const nsAutoLock lock(mLock);
      if (mMessages.empty()) return any;
      message = std::move(mMessages.front());
      mMessages.pop_front();
    }
    any = true;
    (void)message.mProcedure({message.mWindow, message.mMessage, message.mWParam,
                              message.mHasBroadcast ? &message.mBroadcast : nullptr, 0});
  }
}
