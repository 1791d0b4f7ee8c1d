#include "nsNetworkChange.h"

#include <algorithm>

namespace {

// What the service that guards a change has more than the process that tries it.
constexpr uint32_t kGuardMargin = 15;  // s
constexpr std::chrono::seconds kServicePatience{30};
constexpr std::chrono::milliseconds kSlice{200};  // after which an end of the process is seen

bool IsInterface(const std::string& aRecord) {
  return aRecord != nsNetworkState::kResolver && aRecord != nsNetworkState::kIgmp;
}

std::string TextOf(const std::string& aRecord) {
  return aRecord == nsNetworkState::kResolver ? "name servers"
         : aRecord == nsNetworkState::kIgmp   ? "IGMP version"
                                              : aRecord;
}

std::string Lines(const std::vector<std::string>& aLines) {
  std::string text;
  for (const std::string& line : aLines) text += (text.empty() ? "" : "\n") + line;
  return text;
}

bool IsIPv6(const nsIPNet& aNet) { return aNet.mAddress.mFamily == nsSocketAddress::kIPv6; }

// The addresses, gateways and servers of an interface, as the pictures have them. Of IPv6 they tell
// addresses alone, and which of them come from a router.
nsInterfaceSettings LiveOf(const nsAdapterInfo& aInfo, const nsAdapterAddresses& aRecord) {
  nsInterfaceSettings live;
  live.mIsDhcp = aRecord.mFlags & nsAdapterAddresses::kDhcpEnabled;
  nsSocketAddress address, mask;
  for (const nsAdapterInfo::Address& entry : aInfo.mIpAddressList)
    if (entry.mIpAddress != "0.0.0.0" && NS_ReadAddress(entry.mIpAddress, &address) &&
        NS_ReadAddress(entry.mIpMask, &mask))
      live.mAddresses.push_back({address, NS_PrefixLengthOf(mask).value_or(0)});
  for (const nsUnicastAddress& each : aRecord.mUnicastAddresses)
    if (each.mAddress.mFamily == nsSocketAddress::kIPv6)
      live.mAddresses.push_back({each.mAddress, each.mOnLinkPrefixLength});
  for (const std::string& gateway : aInfo.mGatewayList)
    if (gateway != "0.0.0.0" && NS_ReadAddress(gateway, &address))
      live.mGateways.push_back(address);
  live.mServers = aRecord.mDnsServers;
  return live;
}

// Whether an interface has what it shall have, as far as the pictures tell: not its metrics, and
// none of the gateways of IPv6.
bool IsLive(const nsInterfaceSettings& aWanted, const nsInterfaceSettings& aLive) {
  if (aWanted.mIsDhcp) return aLive.mIsDhcp;
  const auto has = [](const auto& aList) {
    return [&](const nsIPNet& aNet) { return std::ranges::find(aList, aNet) != aList.end(); };
  };
  const auto isOurs = [&](const nsIPNet& aNet) {
    return IsIPv6(aNet) || has(aWanted.mAddresses)(aNet);
  };
  const bool isIPv4Wanted =
      std::ranges::any_of(aWanted.mAddresses, [](const nsIPNet& aNet) { return !IsIPv6(aNet); });
  return (!isIPv4Wanted || !aLive.mIsDhcp) && !aWanted.mMetric &&
         std::ranges::all_of(aWanted.mAddresses, has(aLive.mAddresses)) &&
         (!isIPv4Wanted || std::ranges::all_of(aLive.mAddresses, isOurs)) &&
         aWanted.mGateways == aLive.mGateways;
}

// Those of the families that are wanted.
bool AreLive(const std::vector<nsSocketAddress>& aWanted, std::vector<nsSocketAddress> aLive) {
  std::erase_if(aLive, [&](const nsSocketAddress& aServer) {
    return std::ranges::find(aWanted, aServer.mFamily, &nsSocketAddress::mFamily) == aWanted.end();
  });
  return aWanted == aLive;
}

void AddServers(const std::vector<nsSocketAddress>& aServers, std::vector<nsSocketAddress>* aAll) {
  for (const nsSocketAddress& server : aServers)
    if (std::ranges::find(*aAll, server) == aAll->end()) aAll->push_back(server);
}

}  // namespace

std::string nsNetworkChange::Because(nsresult aResult) const {
  if (aResult == NS_ERROR_FILE_ACCESS_DENIED)
    return "this process has no right to change the network's settings";
  if (aResult == NS_ERROR_FILE_IS_LOCKED) return "another process has settings on trial";
  const std::string more = Port().Reason();
  if (aResult == NS_ERROR_OFFLINE) return more.empty() ? "its service is not there" : more;
  return std::string(NS_ResultName(aResult)) + (more.empty() ? "" : ": " + more);
}

// ---- Reading

nsresult nsNetworkChange::ReadPictures(std::vector<Picture>* aPictures) {
  std::vector<nsAdapterInfo> infos;
  std::vector<nsAdapterAddresses> records;
  const auto reading = mPlatform->mNetwork->Read();
  nsresult rv = reading->GetAdaptersInfo(&infos);
  if (rv == NS_ERROR_NOT_AVAILABLE) rv = NS_OK;  // no interface is no failure
  if (NS_SUCCEEDED(rv)) rv = reading->GetAdaptersAddresses(0, 0, &records);
  if (NS_FAILED(rv)) return rv;
  std::vector<Picture> pictures;
  for (nsAdapterInfo& info : infos) {
    const auto record =
        std::ranges::find(records, info.mAdapterName, &nsAdapterAddresses::mAdapterName);
    if (record != records.end() && record->mIfType != nsAdapterAddresses::kLoopback)
      pictures.push_back({std::move(info), *record});
  }
  *aPictures = std::move(pictures);
  return NS_OK;
}

nsresult nsNetworkChange::ReadStored(std::vector<nsStoredSettings>* aStored, Strings* aProblems,
                                     std::optional<uint32_t>* aIgmpVersion) {
  std::vector<Picture> pictures;
  nsresult rv = ReadPictures(&pictures);
  if (NS_FAILED(rv)) return rv;
  std::vector<nsStoredSettings> all;
  Strings problems;
  for (const Picture& picture : pictures) {
    const std::string& name = picture.mInfo.mAdapterName;
    bool isWritten = false;
    rv = mPlatform->mRegistry->IsWritten(NS_TcpipInterfaceKey(name), &isWritten);
    if (NS_FAILED(rv)) return rv;
    if (!isWritten) continue;
    nsSettingTexts texts;
    rv = NS_ReadSettingTexts(*mPlatform->mRegistry, name, &texts);
    if (NS_FAILED(rv)) return rv;
    all.push_back(NS_ParseSettings(name, texts, &problems));
  }
  NS_CheckSettings(all, &problems);
  std::optional<uint32_t> igmp;
  rv = NS_ReadStoredIgmp(*mPlatform->mRegistry, &igmp, &problems);
  if (NS_FAILED(rv)) return rv;
  if (aIgmpVersion) *aIgmpVersion = igmp;
  *aStored = std::move(all);
  *aProblems = std::move(problems);
  return NS_OK;
}

nsresult nsNetworkChange::ReadLive(const std::string& aName, nsInterfaceSettings* aSettings) {
  std::vector<Picture> pictures;
  if (const nsresult rv = ReadPictures(&pictures); NS_FAILED(rv)) return rv;
  for (const Picture& picture : pictures) {
    if (picture.mInfo.mAdapterName != aName) continue;
    *aSettings = LiveOf(picture.mInfo, picture.mRecord);
    return NS_OK;
  }
  return NS_ERROR_FILE_NOT_FOUND;
}

nsresult nsNetworkChange::LoadState() {
  std::string text;
  const nsresult rv = Port().LoadState(&text);
  if (rv == NS_ERROR_FILE_NOT_FOUND) {
    mState = {};
    return NS_OK;
  }
  if (NS_FAILED(rv)) return rv;
  mState = nsNetworkState::Parse(text).value_or(nsNetworkState());
  return NS_OK;
}

std::optional<nsNetworkState> nsNetworkChange::PeekState() {
  std::string text;
  if (NS_FAILED(Port().LoadState(&text))) return nsNetworkState();
  return nsNetworkState::Parse(text);
}

bool nsNetworkChange::Peek(bool* aIsDamaged) {
  const auto state = PeekState();
  *aIsDamaged = !state;
  return state && state->mPhase != nsNetworkState::eNone;
}

std::optional<nsInterfaceSettings> nsNetworkChange::Confirmed(const std::string& aName) {
  const auto state = PeekState();
  if (!state || !state->mConfirmed.contains(aName)) return std::nullopt;
  return state->mConfirmed.at(aName);
}

std::optional<uint32_t> nsNetworkChange::ConfirmedIgmp() {
  return PeekState().value_or(nsNetworkState()).mIgmpVersion;
}

nsresult nsNetworkChange::ReadLiveIgmp(uint32_t* aVersion) {
  const nsresult rv = Port().ReadIgmpVersion(aVersion);
  // What is held to nothing speaks the newest one.
  if (NS_SUCCEEDED(rv) && *aVersion == 0) *aVersion = 3;
  return rv;
}

// ---- What is to be done

nsresult nsNetworkChange::CheckServers(std::vector<nsSocketAddress>* aServers) {
  if (aServers->empty()) return NS_OK;
  std::vector<nsSocketAddress> live;
  if (const nsresult rv = Port().ReadServers(&live); NS_FAILED(rv)) return rv;
  if (AreLive(*aServers, live)) aServers->clear();
  return NS_OK;
}

// It is kept by this system, and by no other.
nsresult nsNetworkChange::CheckIgmp(std::optional<uint32_t>* aVersion, bool aIsConfirmed) {
  if (!*aVersion) return NS_OK;
  uint32_t live = 0;
  if (const nsresult rv = ReadLiveIgmp(&live); NS_FAILED(rv)) return rv;
  if (aIsConfirmed && **aVersion == live) *aVersion = std::nullopt;
  return NS_OK;
}

bool nsNetworkChange::AwaitService(const std::string& aName) {
  const auto service = mState.mServices.find(aName);
  if (service == mState.mServices.end()) return true;
  for (;;) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        mStart + kServicePatience - std::chrono::steady_clock::now());
    const bool isLast = left <= kSlice || mIsEnding;
    const auto slice = isLast ? std::max(left, left.zero()) : kSlice;
    const nsresult rv =
        Port().AwaitService(service->second, mIsEnding ? 0 : static_cast<uint32_t>(slice.count()));
    if (rv != NS_ERROR_OFFLINE || isLast) return NS_SUCCEEDED(rv);
  }
}

bool nsNetworkChange::AwaitServices() {
  bool haveCome = false;
  for (const auto& [name, record] : mState.mRecords) {
    const auto service = mState.mServices.find(name);
    if (service == mState.mServices.end() ||
        Port().AwaitService(service->second, 0) != NS_ERROR_OFFLINE)
      continue;
    if (!AwaitService(name)) return false;
    haveCome = true;
  }
  return haveCome;
}

nsresult nsNetworkChange::MakePlan(Plan* aPlan) {
  Plan plan;
  std::vector<nsStoredSettings> all;
  std::vector<Picture> pictures;
  nsresult rv = ReadStored(&all, &plan.mProblems, &plan.mIgmpVersion);
  if (NS_SUCCEEDED(rv)) rv = ReadPictures(&pictures);
  if (NS_FAILED(rv)) return rv;
  for (const nsStoredSettings& stored : all) {
    const auto& [name, wanted] = stored;
    const auto picture = std::ranges::find(
        pictures, name, [](const Picture& aOne) { return aOne.mInfo.mAdapterName; });
    // Nothing is stored of it, or it has gone in between.
    if (picture == pictures.end() || (!wanted.mIsDhcp && wanted.mAddresses.empty())) continue;
    (void)AwaitService(name);  // another one may have its place meanwhile
    nsInterfaceWay way;
    rv = Port().FindWay(name, &way);
    if (NS_FAILED(rv)) return rv;
    plan.mServices[name] = way.mService;
    const nsInterfaceSettings live = LiveOf(picture->mInfo, picture->mRecord);
    const auto confirmed = mState.mConfirmed.find(name);
    const bool isConfirmed = confirmed != mState.mConfirmed.end() && confirmed->second == wanted;
    if (!way.mTakesServers) AddServers(wanted.mServers, &plan.mServers);
    const bool hasServers =
        !way.mTakesServers || wanted.mServers.empty() || AreLive(wanted.mServers, live.mServers);
    nsInterfaceSettings told = wanted;
    if (isConfirmed) told.mMetric = std::nullopt;
    if (IsLive(told, live) && (isConfirmed || (way.mOutlivesStart && hasServers))) continue;
    if (wanted.mIsDhcp && way.mDhcpClient.empty())
      plan.mProblems.push_back(
          name +
          ": DHCP is stored, and nothing here gets leases for it: no DHCP client runs, nor "
          "a network service that has one");
    else if (!wanted.mIsDhcp && way.mService.empty() && !way.mDhcpClient.empty())
      plan.mProblems.push_back(name + ": a fixed address is stored, and " + way.mDhcpClient +
                               " has the interface; stop it first");
    else
      plan.mInterfaces.emplace_back(name, wanted);
  }
  rv = CheckServers(&plan.mServers);
  if (NS_FAILED(rv)) return rv;
  rv = CheckIgmp(&plan.mIgmpVersion, mState.mIgmpVersion == plan.mIgmpVersion);
  if (rv == NS_ERROR_FILE_NOT_FOUND)
    plan.mProblems.push_back("IGMPVersion is stored, and this system can't be held to one");
  else if (NS_FAILED(rv))
    return rv;
  *aPlan = std::move(plan);
  return NS_OK;
}

nsresult nsNetworkChange::TakeRecords(const Plan& aPlan, uint32_t aGuard,
                                      nsNetworkState::Records* aRecords) {
  for (const auto& [name, settings] : aPlan.mInterfaces) {
    std::string record;
    if (const nsresult rv = Port().ReadInterface(name, aGuard, &record); NS_FAILED(rv)) return rv;
    aRecords->emplace_back(name, std::move(record));
  }
  if (!aPlan.mServers.empty()) {
    std::string record;
    if (const nsresult rv = Port().ReadResolver(&record); NS_FAILED(rv)) return rv;
    aRecords->emplace_back(nsNetworkState::kResolver, std::move(record));
  }
  if (aPlan.mIgmpVersion) {
    uint32_t version = 0;
    nsresult rv = Port().ReadIgmpVersion(&version);
    // A change that changes nothing: a right that lacks is told here.
    if (NS_SUCCEEDED(rv)) rv = Port().WriteIgmpVersion(version);
    if (NS_FAILED(rv)) return rv;
    aRecords->emplace_back(nsNetworkState::kIgmp, std::to_string(version));
  }
  return NS_OK;
}

nsresult nsNetworkChange::WriteAll(const Plan& aPlan, std::string* aStep) {
  for (size_t i = 0; i < aPlan.mInterfaces.size(); ++i) {
    const auto& [name, settings] = aPlan.mInterfaces[i];
    *aStep = name;
    const nsresult rv = Port().WriteInterface(name, mState.mRecords[i].second, settings);
    if (NS_FAILED(rv)) return rv;
  }
  *aStep = TextOf(std::string(nsNetworkState::kResolver));
  if (!aPlan.mServers.empty())
    if (const nsresult rv = Port().WriteResolver(aPlan.mServers); NS_FAILED(rv)) return rv;
  *aStep = TextOf(std::string(nsNetworkState::kIgmp));
  return aPlan.mIgmpVersion ? Port().WriteIgmpVersion(*aPlan.mIgmpVersion) : NS_OK;
}

// ---- The steps

void nsNetworkChange::Release() { (void)Port().UnlockState(); }

nsNetworkChange::Outcome nsNetworkChange::Try(uint32_t aSeconds) {
  const auto refused = [&](nsresult aResult, const std::string& aReason) {
    Release();
    return Outcome{End::eRefused, aResult, aReason};
  };
  nsresult rv = Port().LockState();
  if (NS_FAILED(rv)) return {End::eRefused, rv, Because(rv)};
  rv = LoadState();
  if (NS_FAILED(rv)) return refused(rv, "can't read the state of network changes: " + Because(rv));
  if (mState.mPhase != nsNetworkState::eNone) {
    // Of a process that died since this one started.
    Outcome left = Recover();
    if (left.mEnd == End::eFailed) return left;
    rv = Port().LockState();
    if (NS_FAILED(rv)) return {End::eRefused, rv, Because(rv)};
  }
  Plan plan;
  rv = MakePlan(&plan);
  if (NS_FAILED(rv)) return refused(rv, "can't read the settings: " + Because(rv));
  if (!plan.mProblems.empty()) return refused(NS_ERROR_INVALID_ARG, Lines(plan.mProblems));
  if (plan.IsEmpty()) {
    Release();
    return {End::eInForce, NS_OK, "everything stored is in force already"};
  }
  nsNetworkState state = mState;
  state.mPhase = nsNetworkState::eTrial;
  for (const auto& [name, service] : plan.mServices)
    if (service.empty())
      state.mServices.erase(name);
    else
      state.mServices[name] = service;
  rv = TakeRecords(plan, aSeconds + kGuardMargin, &state.mRecords);
  if (NS_SUCCEEDED(rv)) rv = Port().SaveState(state.Format());
  if (NS_FAILED(rv)) {
    const std::string why = "can't keep a record of what is in force: " + Because(rv);
    // It may be there all the same: nothing was changed, and nothing is to be taken back.
    (void)Port().SaveState(mState.Format());
    for (const auto& [name, record] : state.mRecords)
      if (IsInterface(name)) (void)Port().ForgetInterface(name, record);
    return refused(rv, why);
  }
  mNext = mState.mConfirmed;
  for (const auto& [name, settings] : plan.mInterfaces) mNext[name] = settings;
  mNextIgmp = plan.mIgmpVersion ? plan.mIgmpVersion : mState.mIgmpVersion;
  mState = std::move(state);

  std::string step;
  rv = WriteAll(plan, &step);
  if (NS_SUCCEEDED(rv)) return {End::eOnTrial, NS_OK, ""};
  Outcome outcome = TakeBack(step + ": " + Because(rv));
  outcome.mResult = rv;
  return outcome;
}

nsNetworkChange::Outcome nsNetworkChange::Keep() {
  const auto failed = [&](nsresult aResult, const std::string& aStep) {
    return Outcome{End::eOnTrial, aResult, "can't keep " + aStep + ": " + Because(aResult)};
  };
  for (const auto& [name, record] : mState.mRecords) {
    if (!IsInterface(name)) continue;
    const nsresult rv = Port().KeepInterface(name, record);
    // What has gone has nothing to be kept.
    if (NS_FAILED(rv) && rv != NS_ERROR_FILE_NOT_FOUND) return failed(rv, name);
  }
  nsNetworkState state = mState;
  state.mConfirmed = mNext;
  state.mIgmpVersion = mNextIgmp;
  state.mPhase = nsNetworkState::eConfirmed;
  if (const nsresult rv = Port().SaveState(state.Format()); NS_FAILED(rv))
    return failed(rv, "the settings");
  mState = std::move(state);
  // It is decided: what remains is tidying up, which the next start does otherwise.
  Outcome outcome = Recover();
  outcome.mEnd = End::eConfirmed;
  return outcome;
}

nsresult nsNetworkChange::Restore(const std::string& aName, const std::string& aRecord) {
  if (aName == nsNetworkState::kResolver) return Port().RestoreResolver(aRecord);
  if (aName != nsNetworkState::kIgmp) return Port().RestoreInterface(aName, aRecord);
  const bool isVersion = aRecord.size() == 1 && aRecord[0] >= '0' && aRecord[0] <= '3';
  return isVersion ? Port().WriteIgmpVersion(static_cast<uint32_t>(aRecord[0] - '0'))
                   : NS_ERROR_FILE_CORRUPTED;
}

std::vector<std::string> nsNetworkChange::RestoreAll(Strings* aAnew, nsresult* aResult) {
  Strings failures;
  // One that can't be put back keeps none of the others from it.
  for (auto at = mState.mRecords.rbegin(); at != mState.mRecords.rend(); ++at) {
    const auto& [name, record] = *at;
    const nsresult rv = Restore(name, record);
    if (rv == NS_ERROR_NOT_AVAILABLE && IsInterface(name)) {
      aAnew->push_back(name);
      continue;
    }
    // What has gone needs nothing put back.
    if (NS_SUCCEEDED(rv) || (IsInterface(name) && rv == NS_ERROR_FILE_NOT_FOUND)) continue;
    failures.push_back(TextOf(name) + ": " + Because(rv));
    if (NS_SUCCEEDED(*aResult)) *aResult = rv;
  }
  return failures;
}

nsNetworkChange::Outcome nsNetworkChange::TakeBack(const std::string& aWhy) {
  nsresult result = NS_OK;
  Strings anew;
  Strings failures = RestoreAll(&anew, &result);
  if (failures.empty()) {
    for (std::string& line : PutConfirmed(anew)) failures.push_back(std::move(line));
    if (!failures.empty()) result = NS_ERROR_FAILURE;
  }
  if (failures.empty()) {
    nsNetworkState state = mState;
    state.mPhase = nsNetworkState::eNone;
    state.mRecords.clear();
    result = Port().SaveState(state.Format());
    if (NS_SUCCEEDED(result)) {
      mState = std::move(state);
      Release();
      return {End::eTakenBack, NS_OK, aWhy};
    }
    failures.push_back("the state: " + Because(result));
  }
  failures.insert(failures.begin(), aWhy);
  return {End::eFailed, result, Lines(failures)};
}

nsNetworkChange::Outcome nsNetworkChange::Recover() {
  nsresult rv = Port().LockState();
  // The process that has it ends it.
  if (rv == NS_ERROR_FILE_IS_LOCKED) return {};
  if (NS_SUCCEEDED(rv)) rv = LoadState();
  if (NS_FAILED(rv)) {
    Release();
    return {End::eRefused, rv, "can't read the state of network changes: " + Because(rv)};
  }
  Outcome outcome = Finish();
  if (NS_FAILED(outcome.mResult) && AwaitServices()) outcome = Finish();
  if (outcome.mEnd != End::eFailed) Release();
  return outcome;
}

nsNetworkChange::Outcome nsNetworkChange::Finish() {
  if (mState.mPhase == nsNetworkState::eTrial)
    return TakeBack("the process that tried the settings ended without confirming them");
  Outcome outcome;
  if (mState.mPhase == nsNetworkState::eConfirmed) {
    outcome = {End::eConfirmed, NS_OK, ""};
    for (const auto& [name, record] : mState.mRecords) {
      if (!IsInterface(name)) continue;
      const nsresult rv = Port().ForgetInterface(name, record);
      if (NS_FAILED(rv) && rv != NS_ERROR_FILE_NOT_FOUND) {
        // The settings stay all the same, and the next start tries this again.
        outcome.mResult = rv;
        outcome.mReason = "what is left of " + name + " can't be removed: " + Because(rv);
      }
    }
    nsNetworkState state = mState;
    state.mPhase = nsNetworkState::eNone;
    state.mRecords.clear();
    if (NS_SUCCEEDED(outcome.mResult)) outcome.mResult = Port().SaveState(state.Format());
    if (NS_SUCCEEDED(outcome.mResult)) mState = std::move(state);
  }
  return outcome;
}

std::vector<std::string> nsNetworkChange::PutConfirmed(const Strings& aNames) {
  Strings failures;
  std::vector<nsSocketAddress> servers;
  const auto failed = [&](const std::string& aName, nsresult aResult) {
    failures.push_back(
        aName + ": " +
        (aResult == NS_ERROR_FILE_NOT_FOUND ? "there is no such interface" : Because(aResult)));
  };
  for (const auto& [name, settings] : mState.mConfirmed) {
    nsInterfaceWay way;
    nsresult rv = Port().FindWay(name, &way);
    if (NS_SUCCEEDED(rv) && !way.mTakesServers) AddServers(settings.mServers, &servers);
    if (std::ranges::find(aNames, name) == aNames.end()) continue;
    // One that the service of then has kept, it puts into force itself.
    const auto then = mState.mServices.find(name);
    const bool isTheirs = then == mState.mServices.end() || then->second == way.mService;
    if (NS_SUCCEEDED(rv) && way.mOutlivesStart && isTheirs) continue;
    if (NS_SUCCEEDED(rv) && settings.mIsDhcp && way.mDhcpClient.empty() && !isTheirs) {
      failures.push_back(name + ": DHCP was confirmed, and " + then->second + " is not there");
      continue;
    }
    std::string record;
    if (NS_SUCCEEDED(rv)) rv = Port().ReadInterface(name, 0, &record);
    if (NS_SUCCEEDED(rv)) rv = Port().WriteInterface(name, record, settings);
    if (NS_FAILED(rv)) failed(name, rv);
  }
  std::optional<uint32_t> igmp = mState.mIgmpVersion;
  nsresult rv = CheckIgmp(&igmp, true);
  if (NS_SUCCEEDED(rv) && igmp) rv = Port().WriteIgmpVersion(*igmp);
  if (NS_FAILED(rv)) failures.push_back("IGMP version: " + Because(rv));
  if (aNames.empty() || servers.empty()) return failures;
  rv = CheckServers(&servers);
  if (NS_SUCCEEDED(rv) && !servers.empty()) rv = Port().WriteResolver(servers);
  if (NS_FAILED(rv)) failed("name servers", rv);
  return failures;
}

nsNetworkChange::Outcome nsNetworkChange::Boot() {
  Outcome outcome = Recover();
  if (outcome.mEnd == End::eFailed || outcome.mEnd == End::eRefused) return outcome;
  nsresult rv = Port().LockState();
  if (NS_SUCCEEDED(rv)) rv = LoadState();
  if (NS_FAILED(rv)) {
    Release();
    return {End::eRefused, rv, Because(rv)};
  }
  Strings names, notes;
  if (!outcome.mReason.empty()) notes.push_back(outcome.mReason);
  for (const auto& [name, settings] : mState.mConfirmed) {
    names.push_back(name);
    if (!AwaitService(name))
      notes.push_back(name + ": " + mState.mServices[name] +
                      ", which managed it, is not there: its settings are put into force without");
  }
  const Strings failures = PutConfirmed(names);
  const bool isAnything = !names.empty() || mState.mIgmpVersion;
  Release();
  if (!failures.empty()) return {End::eFailed, NS_ERROR_FAILURE, Lines(failures)};
  return {End::eConfirmed, NS_OK, isAnything ? Lines(notes) : "nothing was confirmed yet"};
}

nsNetworkChange::Outcome nsNetworkChange::Ask(const std::string& aWord) {
  std::string answer;
  const nsresult rv = Port().Ask(aWord, &answer);
  if (rv == NS_ERROR_NOT_AVAILABLE) return {End::eRefused, rv, "nothing is on trial"};
  if (NS_FAILED(rv)) return {End::eRefused, rv, Because(rv)};
  const size_t end = answer.find('\n');
  const std::string state = answer.substr(0, end);
  const std::string reason = end == answer.npos ? "" : answer.substr(end + 1);
  if (state == "confirmed") return {End::eConfirmed, NS_OK, reason};
  if (state == "rolled-back") return {End::eTakenBack, NS_OK, reason};
  return {End::eRefused, NS_ERROR_FAILURE, reason};
}
