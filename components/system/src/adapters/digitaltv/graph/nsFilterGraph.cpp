#include "nsFilterGraph.h"

#include <algorithm>

namespace {

/// The filter that a pin belongs to; null when it does not tell.
nsCOMPtr<IBaseFilter> FilterOf(IPin* aPin) {
  PIN_INFO info{};
  nsCOMPtr<IBaseFilter> filter;
  if (aPin && NS_SUCCEEDED(aPin->QueryPinInfo(&info))) *filter.getter_AddRefs() = info.pFilter;
  return filter;
}

std::vector<nsCOMPtr<IPin>> PinsOf(IBaseFilter* aFilter) {
  std::vector<nsCOMPtr<IPin>> pins;
  nsCOMPtr<IEnumPins> each;
  if (NS_FAILED(aFilter->EnumPins(each.getter_AddRefs()))) return pins;
  nsCOMPtr<IPin> pin;
  while (each->Next(1, pin.getter_AddRefs(), nullptr) == S_OK) pins.push_back(std::move(pin));
  return pins;
}

nsCOMPtr<IPin> PeerOf(IPin* aPin) {
  nsCOMPtr<IPin> peer;
  (void)aPin->ConnectedTo(peer.getter_AddRefs());
  return peer;
}

}  // namespace

nsFilterGraph::~nsFilterGraph() {
  (void)Stop();
  while (!mFilters.empty()) {
    const nsCOMPtr<IBaseFilter> filter = mFilters.back().mFilter;
    if (NS_FAILED(RemoveFilter(filter.get()))) {
      // One that somebody else has set running.
      (void)filter->Stop();
      (void)RemoveFilter(filter.get());
    }
  }
}

size_t nsFilterGraph::IndexOf(IBaseFilter* aFilter) const {
  const auto found = std::ranges::find(mFilters, aFilter,
                                       [](const Entry& aEntry) { return aEntry.mFilter.get(); });
  return static_cast<size_t>(found - mFilters.begin());
}

bool nsFilterGraph::HasName(std::u16string_view aName) const {
  return std::ranges::find(mFilters, aName, &Entry::mName) != mFilters.end();
}

nsresult nsFilterGraph::AddFilter(IBaseFilter* aFilter, const char16_t* aName) {
  if (!aFilter) return E_POINTER;
  const nsAutoLock lock(NS_MediaStructureLock());
  if (IndexOf(aFilter) < mFilters.size()) return E_INVALIDARG;
  const std::u16string wanted = aName ? aName : u"";
  std::u16string name = wanted;
  for (int number = 1; name.empty() || HasName(name); ++number) {
    const std::string digits = std::to_string(10000 + number).substr(1);
    name = wanted + (wanted.empty() ? u"" : u" ") + std::u16string(digits.begin(), digits.end());
  }
  const nsresult rv = aFilter->JoinFilterGraph(this, name.c_str());
  if (NS_FAILED(rv)) return rv;
  const bool isOwn = name == wanted;
  mFilters.push_back({aFilter, std::move(name)});
  return isOwn ? S_OK : VFW_S_DUPLICATE_NAME;
}

nsresult nsFilterGraph::RemoveFilter(IBaseFilter* aFilter) {
  if (!aFilter) return E_POINTER;
  nsCOMPtr<IBaseFilter> removed;  // let go of when the lock is no longer held
  const nsAutoLock lock(NS_MediaStructureLock());
  const size_t index = IndexOf(aFilter);
  if (index == mFilters.size()) return VFW_E_NOT_IN_GRAPH;
  FILTER_STATE state = State_Stopped;
  if (NS_SUCCEEDED(aFilter->GetState(0, &state)) && state != State_Stopped)
    return VFW_E_NOT_STOPPED;
  for (const auto& pin : PinsOf(aFilter)) {
    if (const nsCOMPtr<IPin> peer = PeerOf(pin.get())) (void)peer->Disconnect();
    (void)pin->Disconnect();
  }
  removed = std::move(mFilters[index].mFilter);
  mFilters.erase(mFilters.begin() + static_cast<ptrdiff_t>(index));
  (void)aFilter->JoinFilterGraph(nullptr, nullptr);
  return S_OK;
}

nsresult nsFilterGraph::EnumFilters(IEnumFilters** aEnum) {
  if (!aEnum) return E_POINTER;
  Filters filters;
  const nsAutoLock lock(NS_MediaStructureLock());
  for (const Entry& entry : mFilters) filters.push_back(entry.mFilter);
  MakeRefCounted<nsMediaEnum<IEnumFilters, nsCOMPtr<IBaseFilter>>>(std::move(filters))
      .forget(aEnum);
  return S_OK;
}

nsresult nsFilterGraph::FindFilterByName(const char16_t* aName, IBaseFilter** aFilter) {
  if (!aName || !aFilter) return E_POINTER;
  const nsAutoLock lock(NS_MediaStructureLock());
  for (const Entry& entry : mFilters)
    if (entry.mName == aName) {
      nsCOMPtr(entry.mFilter).forget(aFilter);
      return S_OK;
    }
  return VFW_E_NOT_FOUND;
}

nsresult nsFilterGraph::ConnectDirect(IPin* aOut, IPin* aIn, const AM_MEDIA_TYPE* aType) {
  if (!aOut || !aIn) return E_POINTER;
  const nsAutoLock lock(NS_MediaStructureLock());
  for (IPin* const pin : {aOut, aIn})
    if (IndexOf(FilterOf(pin).get()) == mFilters.size()) return VFW_E_NOT_IN_GRAPH;
  return aOut->Connect(aIn, aType);
}

nsresult nsFilterGraph::Disconnect(IPin* aPin) { return aPin ? aPin->Disconnect() : E_POINTER; }

// ---- Running

void nsFilterGraph::Visit(IBaseFilter* aFilter, Filters* aOrder) const {
  if (IndexOf(aFilter) == mFilters.size() ||
      std::ranges::find(*aOrder, nsCOMPtr(aFilter)) != aOrder->end())
    return;
  // Types lead one way only, from the antenna on, so that there are no circles.
  for (const auto& pin : PinsOf(aFilter)) {
    PIN_DIRECTION direction = PINDIR_OUTPUT;
    if (NS_FAILED(pin->QueryDirection(&direction)) || direction == PINDIR_OUTPUT) continue;
    if (const nsCOMPtr<IBaseFilter> before = FilterOf(PeerOf(pin.get()).get()))
      Visit(before.get(), aOrder);
  }
  aOrder->push_back(aFilter);
}

nsFilterGraph::Filters nsFilterGraph::FromSource() const {
  Filters order;
  const nsAutoLock lock(NS_MediaStructureLock());
  for (const Entry& entry : mFilters) Visit(entry.mFilter.get(), &order);
  return order;
}

nsresult nsFilterGraph::Run() {
  const nsAutoLock lock(mStateLock);
  const Filters order = FromSource();
  for (const auto& filter : order) {
    const nsresult rv = filter->Run(0);
    if (NS_SUCCEEDED(rv)) continue;
    for (auto each = order.rbegin(); each != order.rend(); ++each) (void)(*each)->Stop();
    mIsRunning = false;
    return rv;
  }
  mIsRunning = true;
  return S_OK;
}

nsresult nsFilterGraph::Stop() {
  const nsAutoLock lock(mStateLock);
  const Filters order = FromSource();
  nsresult result = S_OK;
  for (auto each = order.rbegin(); each != order.rend(); ++each)
    if (const nsresult rv = (*each)->Stop(); NS_FAILED(rv)) result = rv;
  mIsRunning = false;
  return result;
}

nsresult nsFilterGraph::GetState(int32_t, int32_t* aState) {
  if (!aState) return E_POINTER;
  const nsAutoLock lock(mStateLock);
  *aState = mIsRunning ? State_Running : State_Stopped;
  return S_OK;
}
