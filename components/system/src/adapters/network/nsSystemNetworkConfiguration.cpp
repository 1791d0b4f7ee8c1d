#include "nsSystemNetworkConfiguration.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "nsIObserverService.h"
#include "nsServices.h"
#include "nsString.h"
#include "nsVorelMethodCaller.h"

namespace {

constexpr uint32_t kLongestTrial = 86'400;  // s
constexpr uint32_t kNextTry = 5'000;        // ms
constexpr const char16_t* kStateNames[] = {u"idle",         u"applying",    u"waiting",
                                           u"confirmed",    u"rolled-back", u"failed",
                                           u"rolling-back", u"refused"};
constexpr char kConfirm[] = "confirm", kRollback[] = "rollback";

std::string Lines(const std::vector<std::string>& aLines) {
  std::string text;
  for (const std::string& line : aLines) text += (text.empty() ? "" : "\n") + line;
  return text;
}

std::string MachineText(std::optional<uint32_t> aIgmpVersion) {
  return aIgmpVersion ? "igmp " + std::to_string(*aIgmpVersion) + "\n" : "";
}

// 24 is 255.255.255.0; nothing for what is no length.
std::optional<std::string> MaskOf(std::string_view aLength, bool aIsIPv6) {
  nsSocketAddress mask;
  if (aIsIPv6) mask.mFamily = nsSocketAddress::kIPv6;
  unsigned length = 0;
  const char* const end = aLength.data() + aLength.size();
  const auto [stop, error] = std::from_chars(aLength.data(), end, length);
  if (error != std::errc() || stop != end || length > NS_AddressSize(mask) * 8) return std::nullopt;
  for (unsigned bit = 0; bit < length; ++bit)
    mask.mBytes[bit / 8] = static_cast<uint8_t>(mask.mBytes[bit / 8] | 0x80u >> bit % 8);
  return NS_AddressText(mask);
}

}  // namespace

nsSystemNetworkConfiguration::nsSystemNetworkConfiguration(nsPlatformRef aPlatform)
    : mPlatform(std::move(aPlatform)),
      mLogger(NS_GetLogger("system.network.configuration")),
      mChange(mPlatform),
      mReading(mPlatform) {}

nsresult nsSystemNetworkConfiguration::InitSingleton() {
  nsresult rv;
  const auto os = do_GetService<nsIObserverService>(NS_OBSERVERSERVICE_CONTRACTID, &rv);
  if (NS_FAILED(rv)) return rv;
  rv = os->AddObserver(this, "xpcom-shutdown", false);
  if (NS_FAILED(rv)) return rv;
  bool isDamaged = false;
  const bool isLeft = mReading.Peek(&isDamaged);
  if (isDamaged)
    SYSTEM_LOG_ERROR(mLogger, "The state of network changes is damaged, and is begun anew");
  // The service is of use all the same when this fails.
  if (isLeft && NS_SUCCEEDED(Start([](nsNetworkChange& aChange) { return aChange.Recover(); })))
    SetState(STATE_ROLLING_BACK, "");
  return NS_OK;
}

// ---- Steps

nsresult nsSystemNetworkConfiguration::Start(std::function<Outcome(nsNetworkChange&)> aStep) {
  if (mIsBusy || mIsEnding) return NS_ERROR_IN_PROGRESS;
  const nsCOMPtr<nsSystemNetworkConfiguration> self(this);
  const nsresult rv = mThread.Start("NetworkChange", [self, step = std::move(aStep)] {
    self->mOutcome = step(self->mChange);
    const auto done = NS_NewRunnableMethodCaller<vorel::threads::eStrong>(
        self.get(), &nsSystemNetworkConfiguration::Done);
    (void)NS_DispatchToMainThread(done.get(), NS_DISPATCH_NORMAL);
  });
  mIsBusy = NS_SUCCEEDED(rv);
  return rv;
}

void nsSystemNetworkConfiguration::Done() {
  if (!mIsBusy) return;  // the end was first
  mThread.Join();
  mIsBusy = false;
  Settle(std::exchange(mOutcome, {}));
}

void nsSystemNetworkConfiguration::Settle(const Outcome& aOutcome) {
  switch (aOutcome.mEnd) {
    case End::eNothing:
      SetState(STATE_IDLE, "");
      return;
    case End::eRefused:
      SetState(STATE_REFUSED, aOutcome.mReason);
      return;
    case End::eInForce:
    case End::eConfirmed:
      Disarm();
      SetState(STATE_CONFIRMED, aOutcome.mReason);
      return;
    case End::eTakenBack:
      Disarm();
      SetState(STATE_ROLLED_BACK, aOutcome.mReason);
      return;
    case End::eFailed: {
      // An end of the process leaves it to the next start.
      const bool isArmed = mIsStart || NS_SUCCEEDED(Arm(kNextTry));
      SetState(STATE_FAILED, aOutcome.mReason + (isArmed ? "" : "\nno timer for the next try"));
      return;
    }
    case End::eOnTrial:
      if (mState == STATE_APPLYING && NS_FAILED(Arm(mSeconds * 1000))) {
        (void)TakeBack("there is no timer");
        return;
      }
      if (mState == STATE_APPLYING) Listen();
      SetState(STATE_WAITING, aOutcome.mReason);
      if (std::exchange(mIsOver, false)) (void)TakeBack("not confirmed in time");
      return;
  }
}

nsresult nsSystemNetworkConfiguration::TakeBack(const std::string& aWhy) {
  const nsresult rv = Start([aWhy](nsNetworkChange& aChange) { return aChange.TakeBack(aWhy); });
  if (NS_SUCCEEDED(rv))
    SetState(STATE_ROLLING_BACK, aWhy);
  else if (rv != NS_ERROR_IN_PROGRESS)
    Settle({End::eFailed, rv, aWhy + "\nno thread to take it back"});
  return rv;
}

nsresult nsSystemNetworkConfiguration::Refuse(nsresult aResult, const std::string& aReason) {
  SetState(STATE_REFUSED, aReason);
  return aResult;
}

nsresult nsSystemNetworkConfiguration::Arm(uint32_t aMilliseconds) {
  Disarm();
  nsresult rv;
  mTimer = do_CreateInstance<nsITimer>(NS_TIMER_CONTRACTID, &rv);
  return mTimer ? mTimer->InitWithCallback(this, aMilliseconds, nsITimer::TYPE_ONE_SHOT) : rv;
}

void nsSystemNetworkConfiguration::Disarm() {
  if (mTimer) (void)mTimer->Cancel();
  mTimer = nullptr;
  mIsOver = false;
}

void nsSystemNetworkConfiguration::SetState(uint32_t aState, std::string aReason) {
  mState = aState;
  mReason = std::move(aReason);
  const std::u16string name = kStateNames[aState];
  const std::string line = NS_ToUtf8(name) + (mReason.empty() ? "" : ": " + mReason);
  if (aState == STATE_FAILED)
    SYSTEM_LOG_ERROR(mLogger, line);
  else if (aState == STATE_ROLLED_BACK || aState == STATE_REFUSED)
    SYSTEM_LOG_WARNING(mLogger, line);
  else
    SYSTEM_LOG_DEBUG(mLogger, line);
  if (aState != STATE_WAITING && aState != STATE_ROLLING_BACK) mRequestPump = nullptr;
  if (aState != STATE_ROLLING_BACK)
    for (const nsNetworkRequest& asker : std::exchange(mAskers, {}))
      asker.mAnswer(NS_ToUtf8(name) + "\n" + mReason);
  if (const auto observers = do_GetService<nsIObserverService>(NS_OBSERVERSERVICE_CONTRACTID))
    (void)observers->NotifyObservers(static_cast<nsISystemNetworkConfiguration*>(this),
                                     kNetworkConfigurationTopic, name.c_str());
}

// ---- Words of other processes

void nsSystemNetworkConfiguration::Listen() {
  const nsCOMPtr<nsSystemNetworkConfiguration> self(this);
  std::shared_ptr<nsEventSource> source;
  nsresult rv = mPlatform->mNetworkSettings->Listen(
      [self](nsNetworkRequest aRequest) {
        {
          const nsAutoLock lock(self->mLock);
          self->mRequests.push_back(std::move(aRequest));
        }
        const auto handle = NS_NewRunnableMethodCaller<vorel::threads::eStrong>(
            self.get(), &nsSystemNetworkConfiguration::HandleRequests);
        (void)NS_DispatchToMainThread(handle.get(), NS_DISPATCH_NORMAL);
      },
      &source);
  if (NS_SUCCEEDED(rv))
    rv = nsEventPump::Start("NetworkTrial", std::move(source), nullptr, nullptr, &mRequestPump);
  // It can still be confirmed by this process, and is taken back otherwise.
  if (NS_FAILED(rv))
    SYSTEM_LOG_WARNING(mLogger, "Other processes can't confirm: " + std::string(NS_ResultName(rv)));
}

void nsSystemNetworkConfiguration::HandleRequests() {
  std::vector<nsNetworkRequest> requests;
  {
    const nsAutoLock lock(mLock);
    requests.swap(mRequests);
  }
  for (nsNetworkRequest& request : requests) {
    const bool isConfirm = request.mWord == kConfirm;
    if (mState != STATE_WAITING || mIsBusy || mIsEnding ||
        (!isConfirm && request.mWord != kRollback)) {
      request.mAnswer("refused\n" +
                      std::string(mIsBusy ? "something else is under way" : "nothing is on trial"));
      continue;
    }
    const nsresult rv = isConfirm ? Confirm() : Rollback();
    if (NS_SUCCEEDED(rv))
      mAskers.push_back(std::move(request));
    else
      request.mAnswer("refused\n" + std::string(NS_ResultName(rv)));
  }
}

// ---- The interface

nsresult nsSystemNetworkConfiguration::GetState(uint32_t* aState) {
  *aState = mState;
  return NS_OK;
}

nsresult nsSystemNetworkConfiguration::GetReason(nsACString& aReason) {
  NS_Assign(aReason, mReason);
  return NS_OK;
}

nsresult nsSystemNetworkConfiguration::Check(nsACString& aProblems) {
  std::vector<nsStoredSettings> stored;
  std::vector<std::string> problems;
  if (const nsresult rv = mReading.ReadStored(&stored, &problems); NS_FAILED(rv)) return rv;
  NS_Assign(aProblems, Lines(problems));
  return NS_OK;
}

nsresult nsSystemNetworkConfiguration::CheckSettings(const nsAString& aInterface, bool aDhcp,
                                                     const nsACString& aAddress,
                                                     const nsACString& aGateway,
                                                     const nsACString& aServers,
                                                     nsACString& aProblems) {
  const std::string name = NS_ToUtf8(aInterface);
  std::vector<nsStoredSettings> all;
  std::vector<std::string> problems;
  if (const nsresult rv = mReading.ReadStored(&all, &problems); NS_FAILED(rv)) return rv;
  problems.clear();  // those of the others are not asked for

  nsSettingTexts texts;
  texts.mIsDhcp = aDhcp;
  const std::string address(NS_View(aAddress)), gateway(NS_View(aGateway));
  std::string servers(NS_View(aServers));
  if (!address.empty()) {
    const size_t slash = address.find('/');
    const std::string host = address.substr(0, slash);
    const std::string mask = slash == address.npos ? "" : address.substr(slash + 1);
    texts.mAddresses = {host};
    texts.mMasks = {MaskOf(mask, host.find(':') != host.npos).value_or(mask)};
  }
  if (!gateway.empty()) texts.mGateways = {gateway};
  for (servers += ','; !servers.empty();) {
    const size_t comma = servers.find(',');
    if (comma != 0) texts.mServers.push_back(servers.substr(0, comma));
    servers.erase(0, comma + 1);
  }
  std::erase_if(all, [&](const nsStoredSettings& aOne) { return aOne.mName == name; });
  all.push_back(NS_ParseSettings(name, texts, &problems));
  if (!aDhcp && address.empty()) problems.push_back(name + ": it has neither DHCP nor an address");
  std::vector<std::string> together;
  NS_CheckSettings(all, &together);
  std::ranges::copy_if(together, std::back_inserter(problems),
                       [&](const std::string& aLine) { return aLine.starts_with(name + ": "); });
  NS_Assign(aProblems, Lines(problems));
  return NS_OK;
}

nsresult nsSystemNetworkConfiguration::GetStoredSettings(const nsAString& aInterface,
                                                         nsACString& aSettings) {
  std::vector<nsStoredSettings> all;
  std::vector<std::string> problems;
  std::optional<uint32_t> igmp;
  const nsresult rv = mReading.ReadStored(&all, &problems, &igmp);
  if (NS_FAILED(rv)) return rv;
  if (NS_View(aInterface).empty()) {
    NS_Assign(aSettings, MachineText(igmp));
    return NS_OK;
  }
  const auto found = std::ranges::find(all, NS_ToUtf8(aInterface), &nsStoredSettings::mName);
  NS_Assign(aSettings, found == all.end() ? "" : NS_SettingsText(found->mSettings));
  return NS_OK;
}

nsresult nsSystemNetworkConfiguration::GetLiveSettings(const nsAString& aInterface,
                                                       nsACString& aSettings) {
  if (NS_View(aInterface).empty()) {
    uint32_t igmp = 0;
    const nsresult rv = mReading.ReadLiveIgmp(&igmp);
    if (NS_SUCCEEDED(rv)) NS_Assign(aSettings, MachineText(igmp));
    return rv;
  }
  nsInterfaceSettings live;
  const nsresult rv = mReading.ReadLive(NS_ToUtf8(aInterface), &live);
  if (NS_FAILED(rv)) return rv;
  NS_Assign(aSettings, NS_SettingsText(live));
  return NS_OK;
}

nsresult nsSystemNetworkConfiguration::GetConfirmedSettings(const nsAString& aInterface,
                                                            nsACString& aSettings) {
  if (NS_View(aInterface).empty()) {
    NS_Assign(aSettings, MachineText(mReading.ConfirmedIgmp()));
    return NS_OK;
  }
  const auto confirmed = mReading.Confirmed(NS_ToUtf8(aInterface));
  NS_Assign(aSettings, confirmed ? NS_SettingsText(*confirmed) : "");
  return NS_OK;
}

nsresult nsSystemNetworkConfiguration::Apply(uint32_t aSeconds) {
  // What waits or could not be taken back has its own reason, which stays.
  if (mIsBusy || mIsEnding || IsOpen()) return NS_ERROR_IN_PROGRESS;
  if (aSeconds == 0 || aSeconds > kLongestTrial)
    return Refuse(NS_ERROR_INVALID_ARG, "a trial lasts 1 to 86400 seconds");
  std::vector<nsStoredSettings> stored;
  std::vector<std::string> problems;
  nsresult rv = mReading.ReadStored(&stored, &problems);
  if (NS_FAILED(rv))
    return Refuse(rv, "can't read the settings: " + std::string(NS_ResultName(rv)));
  if (!problems.empty()) return Refuse(NS_ERROR_INVALID_ARG, Lines(problems));
  mSeconds = aSeconds;
  mIsStart = false;
  rv = Start([aSeconds](nsNetworkChange& aChange) { return aChange.Try(aSeconds); });
  if (NS_SUCCEEDED(rv)) SetState(STATE_APPLYING, "");
  return rv;
}

nsresult nsSystemNetworkConfiguration::Confirm() {
  if (mState == STATE_WAITING)
    return Start([](nsNetworkChange& aChange) { return aChange.Keep(); });
  if (IsOpen()) return NS_ERROR_IN_PROGRESS;
  return Start([](nsNetworkChange& aChange) { return aChange.Ask(kConfirm); });
}

nsresult nsSystemNetworkConfiguration::Rollback() {
  if (IsOpen()) return TakeBack("asked for");
  return Start([](nsNetworkChange& aChange) { return aChange.Ask(kRollback); });
}

nsresult nsSystemNetworkConfiguration::ApplyConfirmed() {
  if (mIsBusy || mIsEnding || IsOpen()) return NS_ERROR_IN_PROGRESS;
  const nsresult rv = Start([](nsNetworkChange& aChange) { return aChange.Boot(); });
  mIsStart = NS_SUCCEEDED(rv);
  if (mIsStart) SetState(STATE_APPLYING, "");
  return rv;
}

nsresult nsSystemNetworkConfiguration::Notify(nsITimer*) {
  if (mIsBusy)
    mIsOver = true;
  else if (mState == STATE_WAITING)
    (void)TakeBack("not confirmed in time");
  else if (mState == STATE_FAILED)
    (void)TakeBack("tried again");
  return NS_OK;
}

nsresult nsSystemNetworkConfiguration::Observe(nsISupports*, const char*, const char16_t*) {
  mIsEnding = true;
  Disarm();
  mRequestPump = nullptr;  // its source holds this
  mChange.StopWaiting();
  if (mIsBusy) {
    if (mState == STATE_APPLYING) mPlatform->mNetworkSettings->Cancel();
    mThread.Join();
    mIsBusy = false;
    const Outcome outcome = std::exchange(mOutcome, {});
    if (outcome.mEnd != End::eOnTrial)
      Settle(outcome);
    else
      mState = STATE_WAITING;
  }
  Disarm();
  if (mState != STATE_WAITING) return NS_OK;
  // Nobody needs the main thread any more.
  Outcome outcome = mChange.TakeBack("the process ends");
  if (outcome.mResult == NS_ERROR_ABORT) outcome = mChange.TakeBack("the process ends");
  Settle(outcome);
  Disarm();
  return NS_OK;
}
