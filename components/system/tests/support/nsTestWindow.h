// An application's window as the manager is told of it: a window, its widget, the widgets above.
#pragma once

#include "nsIBaseWindowSkeleton.h"
#include "nsIWidgetSkeleton.h"
#include "nsIXULWindowSkeleton.h"
#include "nsImplements.h"

/// A widget of a native handle, inside of another one, which may be null.
class nsTestWidget final : public nsIWidgetSkeleton<nsImplements<nsTestWidget, nsIWidget>> {
 public:
  explicit nsTestWidget(void* aHandle, nsIWidget* aParent = nullptr)
      : mHandle(aHandle), mParent(aParent) {}
  nsIWidget* GetParent() override { return mParent.get(); }
  void* GetNativeData(uint32_t aKind) override {
    return aKind == NS_NATIVE_WIDGET ? mHandle : nullptr;
  }

 private:
  ~nsTestWidget() override = default;
  void* const mHandle;
  const nsCOMPtr<nsIWidget> mParent;
};

/// A window that has nothing to show: it is no nsIBaseWindow.
class nsTestBareWindow final
    : public nsIXULWindowSkeleton<nsImplements<nsTestBareWindow, nsIXULWindow>> {
  ~nsTestBareWindow() override = default;
};

/// A window with a main widget, which may be null. Counts how often it is asked for that.
class nsTestWindow final
    : public nsIXULWindowSkeleton<
          nsIBaseWindowSkeleton<nsImplements<nsTestWindow, nsIXULWindow, nsIBaseWindow>>> {
 public:
  explicit nsTestWindow(nsIWidget* aWidget) : mWidget(aWidget) {}
  nsresult GetMainWidget(nsIWidget** aWidget) override {
    ++mAsked;
    nsCOMPtr<nsIWidget>(mWidget).forget(aWidget);
    return NS_OK;
  }
  int mAsked = 0;

 private:
  ~nsTestWindow() override = default;
  const nsCOMPtr<nsIWidget> mWidget;
};
