#include "nsMediaFilter.h"

#include <algorithm>

nsRecursiveMutex& NS_MediaStructureLock() {
  static nsRecursiveMutex sLock;
  return sLock;
}

namespace {

/// A name, cut to what the structure has room for.
template <size_t N>
void CopyName(std::u16string_view aName, char16_t (&aTo)[N]) {
  const size_t count = aName.copy(aTo, N - 1);
  aTo[count] = 0;
}

}  // namespace

// ---- Pins

nsMediaPin::nsMediaPin(nsMediaFilter& aFilter, PIN_DIRECTION aDirection, std::u16string aName,
                       std::vector<nsMediaType> aTypes)
    : mFilter(aFilter),
      mDirection(aDirection),
      mName(std::move(aName)),
      mTypes(std::move(aTypes)) {}
nsMediaPin::~nsMediaPin() = default;

bool nsMediaPin::Takes(const nsMediaType& aType) const {
  return mTypes.empty() || std::ranges::find(mTypes, aType) != mTypes.end();
}

nsresult nsMediaPin::CheckFree() const {
  if (mPeer) return VFW_E_ALREADY_CONNECTED;
  return mFilter.IsRunning() ? VFW_E_NOT_STOPPED : S_OK;
}

nsresult nsMediaPin::Connect(IPin* aReceivePin, const AM_MEDIA_TYPE* aType) {
  if (!aReceivePin) return E_POINTER;
  const nsAutoLock lock(NS_MediaStructureLock());
  PIN_DIRECTION other = PINDIR_OUTPUT;
  nsresult rv = aReceivePin->QueryDirection(&other);
  if (NS_FAILED(rv)) return rv;
  if (!IsOutput() || other == PINDIR_OUTPUT) return VFW_E_INVALID_DIRECTION;
  rv = CheckFree();
  if (NS_FAILED(rv)) return rv;
  for (const nsMediaType& type : Offers()) {
    if (aType && !type.Fits(*aType)) continue;
    const AM_MEDIA_TYPE full = type.Full();
    rv = aReceivePin->ReceiveConnection(this, &full);
    if (NS_SUCCEEDED(rv)) {
      mPeer = aReceivePin;
      mConnectedType = type;
      return S_OK;
    }
    if (rv != VFW_E_TYPE_NOT_ACCEPTED) return rv;
  }
  return VFW_E_NO_ACCEPTABLE_TYPES;
}

nsresult nsMediaPin::ReceiveConnection(IPin* aConnector, const AM_MEDIA_TYPE* aType) {
  if (!aConnector || !aType) return E_POINTER;
  if (IsOutput()) return VFW_E_INVALID_DIRECTION;
  const nsAutoLock lock(NS_MediaStructureLock());
  if (const nsresult rv = CheckFree(); NS_FAILED(rv)) return rv;
  const nsMediaType type = nsMediaType::Of(*aType);
  if (!Takes(type) || !TakesFrom(aConnector)) return VFW_E_TYPE_NOT_ACCEPTED;
  mPeer = aConnector;
  mConnectedType = type;
  return S_OK;
}

nsresult nsMediaPin::Disconnect() {
  nsCOMPtr<IPin> peer;  // let go of when the lock is no longer held
  const nsAutoLock lock(NS_MediaStructureLock());
  if (!mPeer) return S_FALSE;
  if (mFilter.IsRunning()) return VFW_E_NOT_STOPPED;
  peer.swap(mPeer);
  return S_OK;
}

nsresult nsMediaPin::ConnectedTo(IPin** aPin) {
  if (!aPin) return E_POINTER;
  nsCOMPtr<IPin> peer = Peer();
  if (!peer) return VFW_E_NOT_CONNECTED;
  peer.forget(aPin);
  return S_OK;
}

nsCOMPtr<IPin> nsMediaPin::Peer() const {
  const nsAutoLock lock(NS_MediaStructureLock());
  return mPeer;
}

nsMediaType nsMediaPin::ConnectedType() const {
  const nsAutoLock lock(NS_MediaStructureLock());
  return mConnectedType;
}

nsresult nsMediaPin::ConnectionMediaType(AM_MEDIA_TYPE* aType) {
  if (!aType) return E_POINTER;
  const nsAutoLock lock(NS_MediaStructureLock());
  if (!mPeer) return VFW_E_NOT_CONNECTED;
  *aType = mConnectedType.Full();
  return S_OK;
}

nsresult nsMediaPin::QueryPinInfo(PIN_INFO* aInfo) {
  if (!aInfo) return E_POINTER;
  nsCOMPtr<IBaseFilter>(&mFilter).forget(&aInfo->pFilter);
  aInfo->dir = mDirection;
  CopyName(mName, aInfo->achName);
  return S_OK;
}

nsresult nsMediaPin::QueryDirection(PIN_DIRECTION* aDirection) {
  if (!aDirection) return E_POINTER;
  *aDirection = mDirection;
  return S_OK;
}

nsresult nsMediaPin::QueryId(char16_t** aId) {
  if (!aId) return E_POINTER;
  char16_t* const id = NS_MediaText(mName);
  if (!id) return E_OUTOFMEMORY;
  *aId = id;
  return S_OK;
}

nsresult nsMediaPin::QueryAccept(const AM_MEDIA_TYPE* aType) {
  if (!aType) return E_POINTER;
  const nsAutoLock lock(NS_MediaStructureLock());
  return Takes(nsMediaType::Of(*aType)) ? S_OK : S_FALSE;
}

nsresult nsMediaPin::EnumMediaTypes(IEnumMediaTypes** aEnum) {
  if (!aEnum) return E_POINTER;
  const nsAutoLock lock(NS_MediaStructureLock());
  MakeRefCounted<nsMediaEnum<IEnumMediaTypes, nsMediaType>>(Offers()).forget(aEnum);
  return S_OK;
}

// ---- Filters

nsMediaFilter::nsMediaFilter() = default;
nsMediaFilter::~nsMediaFilter() = default;

nsresult nsMediaFilter::GetClassID(nsCID* aClass) {
  if (!aClass) return E_POINTER;
  *aClass = mClass;
  return S_OK;
}

nsresult nsMediaFilter::Run(int64_t) {
  const nsAutoLock lock(mStateLock);
  if (IsRunning()) return S_OK;
  mState = State_Running;
  const nsresult rv = OnRun();
  if (NS_FAILED(rv)) {
    OnStop();
    mState = State_Stopped;
  }
  return rv;
}

nsresult nsMediaFilter::Stop() {
  const nsAutoLock lock(mStateLock);
  if (!IsRunning()) return S_OK;
  OnStop();
  mState = State_Stopped;
  return S_OK;
}

nsresult nsMediaFilter::GetState(uint32_t, FILTER_STATE* aState) {
  if (!aState) return E_POINTER;
  *aState = mState;
  return S_OK;
}

nsresult nsMediaFilter::EnumPins(IEnumPins** aEnum) {
  if (!aEnum) return E_POINTER;
  std::vector<nsCOMPtr<IPin>> pins;
  const nsAutoLock lock(NS_MediaStructureLock());
  for (const auto& pin : mPins) pins.emplace_back(pin.get());
  MakeRefCounted<nsMediaEnum<IEnumPins, nsCOMPtr<IPin>>>(std::move(pins)).forget(aEnum);
  return S_OK;
}

nsresult nsMediaFilter::FindPin(const char16_t* aId, IPin** aPin) {
  if (!aId || !aPin) return E_POINTER;
  const nsAutoLock lock(NS_MediaStructureLock());
  for (const auto& pin : mPins)
    if (pin->Name() == aId) {
      nsCOMPtr<IPin>(pin.get()).forget(aPin);
      return S_OK;
    }
  return VFW_E_NOT_FOUND;
}

nsresult nsMediaFilter::QueryFilterInfo(FILTER_INFO* aInfo) {
  if (!aInfo) return E_POINTER;
  const nsAutoLock lock(NS_MediaStructureLock());
  nsCOMPtr<IFilterGraph>(mGraph).forget(&aInfo->pGraph);
  CopyName(mName, aInfo->achName);
  return S_OK;
}

nsresult nsMediaFilter::JoinFilterGraph(IFilterGraph* aGraph, const char16_t* aName) {
  const nsAutoLock lock(NS_MediaStructureLock());
  // Only one graph runs and stops it.
  if (aGraph && mGraph && aGraph != mGraph) return E_INVALIDARG;
  mGraph = aGraph;
  mName = aName ? aName : u"";
  return S_OK;
}

void nsMediaFilter::RemovePin(nsMediaPin& aPin) {
  const nsAutoLock lock(NS_MediaStructureLock());
  const auto found = std::ranges::find(mPins, &aPin, &std::unique_ptr<nsMediaPin>::get);
  if (found == mPins.end()) return;
  mRemovedPins.push_back(std::move(*found));
  mPins.erase(found);
}

nsMediaPin* nsMediaFilter::PinOfName(std::u16string_view aName, PIN_DIRECTION aDirection) const {
  const nsAutoLock lock(NS_MediaStructureLock());
  for (const auto& pin : mPins)
    if (pin->Name() == aName && pin->IsOutput() == (aDirection == PINDIR_OUTPUT)) return pin.get();
  return nullptr;
}
