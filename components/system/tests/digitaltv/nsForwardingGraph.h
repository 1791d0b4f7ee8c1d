// A graph that hands on what it is asked.
#pragma once

#include "IBaseFilter.h"
#include "IEnumFilters.h"
#include "IGraphBuilder.h"
#include "IPin.h"
#include "nsImplements.h"

/// Class overrides what it does otherwise; what the receiver never asks of a graph is not handed
/// on.
template <class Class>
class nsForwardingGraph : public nsImplements<Class, IGraphBuilder> {
 public:
  nsresult AddFilter(IBaseFilter* aFilter, const char16_t* aName) override {
    return mGraph->AddFilter(aFilter, aName);
  }
  nsresult RemoveFilter(IBaseFilter* aFilter) override { return mGraph->RemoveFilter(aFilter); }
  nsresult EnumFilters(IEnumFilters** aEnum) override { return mGraph->EnumFilters(aEnum); }
  nsresult FindFilterByName(const char16_t* aName, IBaseFilter** aFilter) override {
    return mGraph->FindFilterByName(aName, aFilter);
  }
  nsresult ConnectDirect(IPin* aOut, IPin* aIn, const AM_MEDIA_TYPE* aType) override {
    return mGraph->ConnectDirect(aOut, aIn, aType);
  }
  nsresult Reconnect(IPin* aPin) override { return mGraph->Reconnect(aPin); }
  nsresult Disconnect(IPin* aPin) override { return mGraph->Disconnect(aPin); }
  nsresult SetDefaultSyncSource() override { return E_NOTIMPL; }
  nsresult Connect(IPin*, IPin*) override { return E_NOTIMPL; }
  nsresult Render(IPin*) override { return E_NOTIMPL; }
  nsresult RenderFile(const char16_t*, const char16_t*) override { return E_NOTIMPL; }
  nsresult AddSourceFilter(const char16_t*, const char16_t*, IBaseFilter**) override {
    return E_NOTIMPL;
  }
  nsresult SetLogFile(uintptr_t) override { return E_NOTIMPL; }
  nsresult Abort() override { return E_NOTIMPL; }
  nsresult ShouldOperationContinue() override { return E_NOTIMPL; }

 protected:
  explicit nsForwardingGraph(nsCOMPtr<IGraphBuilder> aGraph) : mGraph(std::move(aGraph)) {}
  ~nsForwardingGraph() override = default;

  const nsCOMPtr<IGraphBuilder> mGraph;
};
