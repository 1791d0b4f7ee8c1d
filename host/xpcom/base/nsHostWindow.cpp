#include "nsHostWindow.h"

namespace {

class HostWidget final : public nsIWidgetSkeleton<nsImplements<HostWidget, nsIWidget>> {
 public:
  void* GetNativeData(uint32_t aKind) override {
    return aKind == NS_NATIVE_WIDGET || aKind == NS_NATIVE_WINDOW ? this : nullptr;
  }

 private:
  ~HostWidget() override = default;
};

}  // namespace

nsHostWindow::nsHostWindow() : mWidget(MakeRefCounted<HostWidget>()) {}

nsresult nsHostWindow::GetMainWidget(nsIWidget** aMainWidget) {
  nsCOMPtr<nsIWidget>(mWidget).forget(aMainWidget);
  return NS_OK;
}
