// The window of a host that shows nothing: what the system's messages to windows are for.
#pragma once

#include "nsIBaseWindowSkeleton.h"
#include "nsIWidgetSkeleton.h"
#include "nsIXULWindowSkeleton.h"
#include "nsImplements.h"

/// A window without a screen. Its widget has itself for a native handle: there is no other window
/// behind it. All else of these interfaces is NS_ERROR_NOT_IMPLEMENTED. Main thread.
class nsHostWindow final
    : public nsIXULWindowSkeleton<
          nsIBaseWindowSkeleton<nsImplements<nsHostWindow, nsIXULWindow, nsIBaseWindow>>> {
 public:
  nsHostWindow();
  nsresult GetMainWidget(nsIWidget** aMainWidget) override;

 private:
  ~nsHostWindow() override = default;
  const nsCOMPtr<nsIWidget> mWidget;
};
