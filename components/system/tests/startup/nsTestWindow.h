// An application's window as the manager is told of it: a window, its widget, the widgets above.
#pragma once

#include "nsIBaseWindow.h"
#include "nsIWidget.h"
#include "nsIXULWindow.h"
#include "nsImplements.h"

inline constexpr nsresult kNotOfThisTest = NS_ERROR_NOT_IMPLEMENTED;

/// A widget of a native handle, inside of another one, which may be null.
class nsTestWidget final : public nsImplements<nsTestWidget, nsIWidget> {
 public:
  explicit nsTestWidget(void* aHandle, nsIWidget* aParent = nullptr)
      : mHandle(aHandle), mParent(aParent) {}
  nsIWidget* GetParent() override { return mParent.get(); }
  void* GetNativeData(uint32_t aKind) override {
    return aKind == NS_NATIVE_WIDGET ? mHandle : nullptr;
  }

  nsIWidget* GetTopLevelWidget() override { return nullptr; }
#define NO(aSlot) \
  nsresult Reserved##aSlot() override { return kNotOfThisTest; }
  // clang-format off
  NO(3); NO(4); NO(5); NO(6); NO(7); NO(8); NO(9); NO(10); NO(11); NO(12); NO(13); NO(14); NO(17);
  NO(18); NO(19); NO(20); NO(21); NO(22); NO(23); NO(24); NO(25); NO(26); NO(27); NO(28); NO(29);
  NO(30); NO(31); NO(32); NO(33); NO(34); NO(35); NO(36); NO(37); NO(38); NO(39); NO(40); NO(41);
  NO(42); NO(43); NO(44); NO(45); NO(46); NO(47); NO(48); NO(49); NO(50); NO(51); NO(52); NO(53);
  NO(54); NO(55); NO(56); NO(57); NO(58); NO(59); NO(60); NO(61); NO(62); NO(63); NO(64); NO(65);
  NO(66); NO(67); NO(68); NO(69);
  // clang-format on
#undef NO

 private:
  ~nsTestWidget() override = default;
  void* const mHandle;
  const nsCOMPtr<nsIWidget> mParent;
};

#define NO(aOperation, ...) \
  nsresult aOperation(__VA_ARGS__) override { return kNotOfThisTest; }

/// A window that has nothing to show: it is no nsIBaseWindow.
template <class Class, class... Further>
class nsTestXULWindow : public nsImplements<Class, nsIXULWindow, Further...> {
 public:
  NO(GetDocShell, nsIDocShell**)
  NO(GetIntrinsicallySized, bool*)
  NO(SetIntrinsicallySized, bool)
  NO(GetPrimaryContentShell, nsIDocShellTreeItem**)
  NO(GetContentShellById, const char16_t*, nsIDocShellTreeItem**)
  NO(AddChildWindow, nsIXULWindow*)
  NO(RemoveChildWindow, nsIXULWindow*)
  NO(Center, nsIXULWindow*, bool, bool)
  NO(ShowModal)
  NO(GetZLevel, uint32_t*)
  NO(SetZLevel, uint32_t)
  NO(GetContextFlags, uint32_t*)
  NO(SetContextFlags, uint32_t)
  NO(GetChromeFlags, uint32_t*)
  NO(SetChromeFlags, uint32_t)
  NO(AssumeChromeFlagsAreFrozen)
  NO(CreateNewWindow, int32_t, nsIXULWindow**)
  NO(GetXULBrowserWindow, nsIXULBrowserWindow**)
  NO(SetXULBrowserWindow, nsIXULBrowserWindow*)
  NO(ApplyChromeFlags)
};

class nsTestBareWindow final : public nsTestXULWindow<nsTestBareWindow> {
  ~nsTestBareWindow() override = default;
};

/// A window with a main widget, which may be null. Counts how often it is asked for that.
class nsTestWindow final : public nsTestXULWindow<nsTestWindow, nsIBaseWindow> {
 public:
  explicit nsTestWindow(nsIWidget* aWidget) : mWidget(aWidget) {}
  nsresult GetMainWidget(nsIWidget** aWidget) override {
    ++mAsked;
    nsCOMPtr<nsIWidget>(mWidget).forget(aWidget);
    return NS_OK;
  }
  int mAsked = 0;

  NO(InitWindow, void*, nsIWidget*, int32_t, int32_t, int32_t, int32_t)
  NO(Create)
  NO(Destroy)
  NO(SetPosition, int32_t, int32_t)
  NO(GetPosition, int32_t*, int32_t*)
  NO(SetSize, int32_t, int32_t, bool)
  NO(GetSize, int32_t*, int32_t*)
  NO(SetPositionAndSize, int32_t, int32_t, int32_t, int32_t, bool)
  NO(GetPositionAndSize, int32_t*, int32_t*, int32_t*, int32_t*)
  NO(Repaint, bool)
  NO(GetParentWidget, nsIWidget**)
  NO(SetParentWidget, nsIWidget*)
  NO(GetParentNativeWindow, void**)
  NO(SetParentNativeWindow, void*)
  NO(GetVisibility, bool*)
  NO(SetVisibility, bool)
  NO(GetEnabled, bool*)
  NO(SetEnabled, bool)
  NO(SetFocus)
  NO(GetTitle, char16_t**)
  NO(SetTitle, const char16_t*)

 private:
  ~nsTestWindow() override = default;
  const nsCOMPtr<nsIWidget> mWidget;
};
#undef NO
