#include "nsSystemNetworkConfiguration.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "nsIObserverService.h"
#include "nsPlatformNetwork.h"
#include "nsServices.h"
#include "nsString.h"

namespace {

constexpr uint32_t kLongestTrial = 86'400;  // s
constexpr uint32_t kNextTry = 5'000;        // ms
constexpr char kJournalHead[] = "vorel network change 1\n";
constexpr char kJournalEnd[] = "end\n";
constexpr const char16_t* kStateNames[] = {u"idle",      u"applying",    u"waiting",
                                           u"confirmed", u"rolled-back", u"failed"};

std::string Lines(const std::vector<std::string>& aLines) {
  std::string text;
  for (const std::string& line : aLines) text += (text.empty() ? "" : "\n") + line;
  return text;
}

std::string NameOf(nsresult aRv) { return std::string(NS_ResultName(aRv)); }

// The addresses and gateways of an interface, as the second picture has them.
nsInterfaceSettings LiveOf(const nsAdapterInfo& aInfo) {
  nsInterfaceSettings live;
  nsIPv4Bytes address, mask;
  for (const nsAdapterInfo::Address& entry : aInfo.mIpAddressList)
    if (entry.mIpAddress != "0.0.0.0" && NS_ReadIPv4(entry.mIpAddress, &address) &&
        NS_ReadIPv4(entry.mIpMask, &mask))
      live.mAddresses.push_back({address, NS_PrefixLengthOf(mask).value_or(0)});
  for (const std::string& gateway : aInfo.mGatewayList)
    if (gateway != "0.0.0.0" && NS_ReadIPv4(gateway, &address)) live.mGateways.push_back(address);
  return live;
}

bool IsSame(nsInterfaceSettings aA, nsInterfaceSettings aB) {
  std::ranges::sort(aA.mAddresses);
  std::ranges::sort(aB.mAddresses);
  return aA.mAddresses == aB.mAddresses && aA.mGateways == aB.mGateways;
}

bool TakeNumber(std::string_view* aText, char aEnd, size_t* aNumber) {
  const auto [end, error] = std::from_chars(aText->data(), aText->data() + aText->size(), *aNumber);
  if (error != std::errc() || end == aText->data() + aText->size() || *end != aEnd) return false;
  aText->remove_prefix(static_cast<size_t>(end - aText->data()) + 1);
  return true;
}

}  // namespace

nsSystemNetworkConfiguration::nsSystemNetworkConfiguration(nsPlatformRef aPlatform)
    : mPlatform(std::move(aPlatform)), mLogger(NS_GetLogger("system.network.configuration")) {}

nsresult nsSystemNetworkConfiguration::InitSingleton() {
  nsresult rv;
  const auto os = do_GetService<nsIObserverService>(NS_OBSERVERSERVICE_CONTRACTID, &rv);
  if (NS_FAILED(rv)) return rv;
  rv = os->AddObserver(this, "xpcom-shutdown", false);
  if (NS_FAILED(rv)) return rv;

  nsPlatformNetworkSettings& port = *mPlatform->mNetworkSettings;
  std::string text;
  rv = port.LoadJournal(&text);
  if (rv == NS_ERROR_FILE_NOT_FOUND || rv == NS_ERROR_FILE_IS_LOCKED) return NS_OK;
  if (NS_FAILED(rv)) {
    // The service is of use all the same: it tells why it refuses.
    SYSTEM_LOG_ERROR(mLogger, "Can't read the journal of network changes: " + NameOf(rv));
    return NS_OK;
  }
  if (!ParseJournal(text, &mRecords)) {
    SYSTEM_LOG_ERROR(mLogger, "The journal of network changes is damaged, and is dropped");
    rv = port.DropJournal();
    if (NS_FAILED(rv)) SYSTEM_LOG_ERROR(mLogger, "Can't drop it: " + NameOf(rv));
    return NS_OK;
  }
  (void)TakeBack("the process that tried the settings ended without confirming them");
  return NS_OK;
}

// ---- The journal: lengths before names and records, which may have any bytes

std::string nsSystemNetworkConfiguration::FormatJournal(const Records& aRecords) {
  std::string text = kJournalHead;
  for (const auto& [name, record] : aRecords)
    text += "record " + std::to_string(name.size()) + " " + std::to_string(record.size()) + "\n" +
            name + record + "\n";
  return text + kJournalEnd;
}

bool nsSystemNetworkConfiguration::ParseJournal(std::string_view aText, Records* aRecords) {
  const auto take = [&](std::string_view aWord) {
    if (!aText.starts_with(aWord)) return false;
    aText.remove_prefix(aWord.size());
    return true;
  };
  if (!take(kJournalHead)) return false;
  Records records;
  while (take("record ")) {
    size_t name = 0, record = 0;
    if (!TakeNumber(&aText, ' ', &name) || !TakeNumber(&aText, '\n', &record)) return false;
    if (name > aText.size() || record > aText.size() - name) return false;
    records.emplace_back(aText.substr(0, name), aText.substr(name, record));
    aText.remove_prefix(name + record);
    if (!take("\n")) return false;
  }
  if (aText != kJournalEnd || records.empty()) return false;
  *aRecords = std::move(records);
  return true;
}

// ---- What is to be done

nsresult nsSystemNetworkConfiguration::MakePlan(Plan* aPlan) {
  std::vector<nsAdapterInfo> infos;
  std::vector<nsAdapterAddresses> records;
  const auto reading = mPlatform->mNetwork->Read();
  nsresult rv = reading->GetAdaptersInfo(&infos);
  if (rv == NS_ERROR_NOT_AVAILABLE) rv = NS_OK;  // no interface is no failure
  if (NS_SUCCEEDED(rv)) rv = reading->GetAdaptersAddresses(0, 0, &records);
  if (NS_FAILED(rv)) return rv;

  Plan plan;
  std::vector<nsStoredSettings> all;
  for (const nsAdapterInfo& info : infos) {
    const std::string& name = info.mAdapterName;
    const auto record = std::ranges::find(records, name, &nsAdapterAddresses::mAdapterName);
    if (record == records.end() || record->mIfType == nsAdapterAddresses::kLoopback) continue;
    // Opening a key that is not there yet would fill it with what others have configured.
    bool isStored = false;
    rv = mPlatform->mRegistry->HasKey(NS_TcpipInterfaceKey(name), &isStored);
    if (NS_FAILED(rv)) return rv;
    if (!isStored) continue;
    nsStoredSettings stored;
    rv = NS_ReadStoredSettings(*mPlatform->mRegistry, name, &stored, &plan.mProblems);
    if (NS_FAILED(rv)) return rv;

    for (const nsIPv4Bytes& server : stored.mServers)
      if (std::ranges::find(plan.mServers, server) == plan.mServers.end())
        plan.mServers.push_back(server);
    const bool liveDhcp = record->mFlags & nsAdapterAddresses::kDhcpEnabled;
    const nsInterfaceSettings live = LiveOf(info);
    const nsInterfaceSettings wanted{stored.mAddresses, stored.mGateways,
                                     stored.mMetric.value_or(0)};
    if (stored.mIsDhcp && !liveDhcp && !live.mAddresses.empty())
      plan.mProblems.push_back(name + ": DHCP is stored, and no client of the system runs here");
    else if (!stored.mIsDhcp && liveDhcp && !wanted.mAddresses.empty())
      plan.mProblems.push_back(name +
                               ": a fixed address is stored, and a DHCP client of the system has "
                               "the interface; stop it first");
    else if (!stored.mIsDhcp && !wanted.mAddresses.empty() &&
             // The pictures do not tell metrics: one that is stored is written each time.
             (stored.mMetric || !IsSame(live, wanted)))
      plan.mInterfaces.emplace_back(name, wanted);
    all.push_back(std::move(stored));
  }
  NS_CheckSettings(all, &plan.mProblems);
  if (!plan.mServers.empty()) {
    std::vector<nsIPv4Bytes> live;
    rv = mPlatform->mNetworkSettings->ReadServers(&live);
    if (NS_FAILED(rv)) return rv;
    if (live == plan.mServers) plan.mServers.clear();
  }
  *aPlan = std::move(plan);
  return NS_OK;
}

nsresult nsSystemNetworkConfiguration::TakeRecords(const Plan& aPlan, Records* aRecords) {
  nsPlatformNetworkSettings& port = *mPlatform->mNetworkSettings;
  Records records;
  for (const auto& [name, settings] : aPlan.mInterfaces) {
    std::string record;
    if (const nsresult rv = port.ReadInterface(name, &record); NS_FAILED(rv)) return rv;
    records.emplace_back(name, std::move(record));
  }
  if (!aPlan.mServers.empty()) {
    std::string record;
    if (const nsresult rv = port.ReadResolver(&record); NS_FAILED(rv)) return rv;
    records.emplace_back("", std::move(record));
  }
  *aRecords = std::move(records);
  return NS_OK;
}

nsresult nsSystemNetworkConfiguration::WriteAll(const Plan& aPlan, std::string* aStep) {
  nsPlatformNetworkSettings& port = *mPlatform->mNetworkSettings;
  for (const auto& [name, settings] : aPlan.mInterfaces) {
    *aStep = name;
    if (const nsresult rv = port.WriteInterface(name, settings); NS_FAILED(rv)) return rv;
  }
  *aStep = "name servers";
  return aPlan.mServers.empty() ? NS_OK : port.WriteResolver(aPlan.mServers);
}

// ---- The states

void nsSystemNetworkConfiguration::SetState(uint32_t aState, std::string aReason) {
  mState = aState;
  mReason = std::move(aReason);
  const std::u16string name = kStateNames[aState];
  const std::string line = NS_ToUtf8(name) + (mReason.empty() ? "" : ": " + mReason);
  if (aState == STATE_FAILED)
    SYSTEM_LOG_ERROR(mLogger, line);
  else if (aState == STATE_ROLLED_BACK)
    SYSTEM_LOG_WARNING(mLogger, line);
  else
    SYSTEM_LOG_DEBUG(mLogger, line);
  if (const auto observers = do_GetService<nsIObserverService>(NS_OBSERVERSERVICE_CONTRACTID))
    (void)observers->NotifyObservers(static_cast<nsISystemNetworkConfiguration*>(this),
                                     kNetworkConfigurationTopic, name.c_str());
}

nsresult nsSystemNetworkConfiguration::Refuse(nsresult aResult, const std::string& aReason) {
  mReason = aReason;
  SYSTEM_LOG_WARNING(mLogger, "refused: " + aReason);
  return aResult;
}

nsresult nsSystemNetworkConfiguration::Arm(uint32_t aMilliseconds) {
  if (mTimer) (void)mTimer->Cancel();
  nsresult rv;
  mTimer = do_CreateInstance<nsITimer>(NS_TIMER_CONTRACTID, &rv);
  return mTimer ? mTimer->InitWithCallback(this, aMilliseconds, nsITimer::TYPE_ONE_SHOT) : rv;
}

nsresult nsSystemNetworkConfiguration::TakeBack(const std::string& aWhy) {
  nsPlatformNetworkSettings& port = *mPlatform->mNetworkSettings;
  if (mTimer) (void)mTimer->Cancel();
  mTimer = nullptr;
  // One that can't be put back keeps none of the others from it.
  nsresult result = NS_OK;
  std::string failures;
  for (auto at = mRecords.rbegin(); at != mRecords.rend(); ++at) {
    const auto& [name, record] = *at;
    const nsresult rv =
        name.empty() ? port.RestoreResolver(record) : port.RestoreInterface(name, record);
    // What has gone needs nothing put back.
    if (NS_SUCCEEDED(rv) || (!name.empty() && rv == NS_ERROR_FILE_NOT_FOUND)) continue;
    failures += "\n" + (name.empty() ? "name servers" : name) + ": " + NameOf(rv);
    if (NS_SUCCEEDED(result)) result = rv;
  }
  if (NS_SUCCEEDED(result)) {
    result = port.DropJournal();
    if (NS_FAILED(result)) failures = "\nthe journal: " + NameOf(result);
  }
  if (NS_SUCCEEDED(result)) {
    mRecords.clear();
    SetState(STATE_ROLLED_BACK, aWhy);
    return NS_OK;
  }
  // An end of the process leaves it to the next start.
  if (NS_FAILED(Arm(kNextTry))) failures += "\nno timer for the next try";
  SetState(STATE_FAILED, aWhy + failures);
  return result;
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
  Plan plan;
  if (const nsresult rv = MakePlan(&plan); NS_FAILED(rv)) return rv;
  NS_Assign(aProblems, Lines(plan.mProblems));
  return NS_OK;
}

nsresult nsSystemNetworkConfiguration::Apply(uint32_t aSeconds) {
  // What waits or could not be taken back has its own reason, which stays.
  if (mState == STATE_APPLYING || !mRecords.empty()) return NS_ERROR_IN_PROGRESS;
  if (aSeconds == 0 || aSeconds > kLongestTrial)
    return Refuse(NS_ERROR_INVALID_ARG, "a trial lasts 1 to 86400 seconds");
  nsPlatformNetworkSettings& port = *mPlatform->mNetworkSettings;
  std::string service;
  nsresult rv = port.FindService(&service);
  if (NS_FAILED(rv)) return Refuse(rv, "can't tell whether a network service runs: " + NameOf(rv));
  if (!service.empty())
    return Refuse(NS_ERROR_NOT_AVAILABLE,
                  service + " manages this machine's interfaces: that is not supported yet");
  Plan plan;
  rv = MakePlan(&plan);
  if (NS_FAILED(rv)) return Refuse(rv, "can't read the settings: " + NameOf(rv));
  if (!plan.mProblems.empty()) return Refuse(NS_ERROR_INVALID_ARG, Lines(plan.mProblems));
  if (plan.mInterfaces.empty() && plan.mServers.empty()) {
    SetState(STATE_CONFIRMED, "everything stored is in force already");
    return NS_OK;
  }
  Records records;
  rv = TakeRecords(plan, &records);
  if (NS_FAILED(rv)) return Refuse(rv, "can't read what is in force: " + NameOf(rv));
  // A journal of a process that died since this one started, or that could not be read then, is
  // worth more than the change.
  std::string left;
  rv = port.LoadJournal(&left);
  if (NS_SUCCEEDED(rv) && ParseJournal(left, &mRecords)) {
    (void)TakeBack("another process ended without confirming its settings");
    return NS_ERROR_IN_PROGRESS;
  }
  if (NS_SUCCEEDED(rv) || rv == NS_ERROR_FILE_NOT_FOUND)
    rv = port.SaveJournal(FormatJournal(records));
  if (NS_FAILED(rv))
    return Refuse(rv, rv == NS_ERROR_FILE_IS_LOCKED
                          ? "another process has settings on trial"
                          : "can't keep a record of what is in force: " + NameOf(rv));
  mRecords = std::move(records);
  SetState(STATE_APPLYING, "");

  std::string step;
  rv = WriteAll(plan, &step);
  if (NS_SUCCEEDED(rv)) {
    step = "timer";
    rv = Arm(aSeconds * 1000);
  }
  if (NS_FAILED(rv)) {
    (void)TakeBack(step + ": " + NameOf(rv));
    return rv;
  }
  SetState(STATE_WAITING, "");
  return NS_OK;
}

nsresult nsSystemNetworkConfiguration::Confirm() {
  if (mState != STATE_WAITING) return NS_ERROR_NOT_AVAILABLE;
  if (const nsresult rv = mPlatform->mNetworkSettings->DropJournal(); NS_FAILED(rv))
    return Refuse(rv, "can't drop the record of what was in force before: " + NameOf(rv));
  if (mTimer) (void)mTimer->Cancel();
  mTimer = nullptr;
  mRecords.clear();
  SetState(STATE_CONFIRMED, "");
  return NS_OK;
}

nsresult nsSystemNetworkConfiguration::Rollback() {
  if (mState != STATE_WAITING && mState != STATE_FAILED) return NS_ERROR_NOT_AVAILABLE;
  return TakeBack("asked for");
}

nsresult nsSystemNetworkConfiguration::Notify(nsITimer*) {
  if (mState == STATE_WAITING) return TakeBack("not confirmed in time");
  if (mState == STATE_FAILED) return TakeBack("tried again");
  return NS_OK;
}

nsresult nsSystemNetworkConfiguration::Observe(nsISupports*, const char*, const char16_t*) {
  if (mState == STATE_WAITING) (void)TakeBack("the process ends");
  if (mTimer) (void)mTimer->Cancel();
  mTimer = nullptr;
  return NS_OK;
}
