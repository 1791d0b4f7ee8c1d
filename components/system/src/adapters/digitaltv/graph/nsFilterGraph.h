// The graph: which filters belong together, and that they run and stop together.
#pragma once

#include <string>
#include <vector>

#include "IGraphBuilder.h"
#include "IMediaControl.h"
#include "nsLock.h"
#include "nsMediaFilter.h"

/// Connections are made as they are asked for, never by adding filters between. Any thread.
class nsFilterGraph final
    : public nsImplements<nsFilterGraph, IGraphBuilder, nsWithoutDispatch<IMediaControl>> {
 public:
  /// VFW_S_DUPLICATE_NAME for a name that a filter has, or none: the filter gets one of its own.
  /// E_INVALIDARG for a filter that is in a graph.
  nsresult AddFilter(IBaseFilter* aFilter, const char16_t* aName) override;
  /// Disconnects its pins. VFW_E_NOT_IN_GRAPH, and VFW_E_NOT_STOPPED for one that runs.
  nsresult RemoveFilter(IBaseFilter* aFilter) override;
  /// In the order of adding.
  nsresult EnumFilters(IEnumFilters** aEnum) override;
  nsresult FindFilterByName(const char16_t* aName, IBaseFilter** aFilter) override;
  /// VFW_E_NOT_IN_GRAPH unless both are; else what the pins say.
  nsresult ConnectDirect(IPin* aOut, IPin* aIn, const AM_MEDIA_TYPE* aType) override;
  nsresult Reconnect(IPin*) override { return E_NOTIMPL; }
  nsresult Disconnect(IPin* aPin) override;
  nsresult SetDefaultSyncSource() override { return E_NOTIMPL; }
  nsresult Connect(IPin* aOut, IPin* aIn) override { return ConnectDirect(aOut, aIn, nullptr); }
  nsresult Render(IPin*) override { return E_NOTIMPL; }
  nsresult RenderFile(const char16_t*, const char16_t*) override { return E_NOTIMPL; }
  nsresult AddSourceFilter(const char16_t*, const char16_t*, IBaseFilter**) override {
    return E_NOTIMPL;
  }
  nsresult SetLogFile(uintptr_t) override { return E_NOTIMPL; }
  nsresult Abort() override { return S_OK; }
  nsresult ShouldOperationContinue() override { return S_OK; }

  /// From the source on; when a filter can't, those that already do are stopped again.
  nsresult Run() override;
  nsresult Pause() override { return E_NOTIMPL; }
  /// From the end on. Waits for the streaming threads.
  nsresult Stop() override;
  nsresult GetState(int32_t aTimeout, int32_t* aState) override;
  nsresult RenderFile(char16_t*) override { return E_NOTIMPL; }
  nsresult AddSourceFilter(char16_t*, IDispatch**) override { return E_NOTIMPL; }
  nsresult get_FilterCollection(IDispatch**) override { return E_NOTIMPL; }
  nsresult get_RegFilterCollection(IDispatch**) override { return E_NOTIMPL; }
  nsresult StopWhenReady() override { return Stop(); }

 private:
  struct Entry {
    nsCOMPtr<IBaseFilter> mFilter;
    std::u16string mName;
  };
  using Filters = std::vector<nsCOMPtr<IBaseFilter>>;

  ~nsFilterGraph() override;
  size_t IndexOf(IBaseFilter* aFilter) const NS_REQUIRES(NS_MediaStructureLock());
  bool HasName(std::u16string_view aName) const NS_REQUIRES(NS_MediaStructureLock());
  Filters FromSource() const;
  void Visit(IBaseFilter* aFilter, Filters* aOrder) const NS_REQUIRES(NS_MediaStructureLock());

  std::vector<Entry> mFilters NS_GUARDED_BY(NS_MediaStructureLock());
  nsMutex mStateLock;  ///< of Run and Stop; taken before the structure lock
  bool mIsRunning NS_GUARDED_BY(mStateLock) = false;
};
