// Watching directories.
#include "nsIFileSystemWatcher.h"
#include "nsISystemFileSystemListener.h"
#include "nsISystemFileSystemListener2.h"
#include "nsISystemFileSystemWatcher.h"
#include "nsSystemScript.h"

namespace {

// Also the first part of the face of the listener that hears of moves.
template <class I>
class ListenerFace : public nsScriptFace<I> {
 public:
  using nsScriptFace<I>::nsScriptFace;
  nsresult OnWatcherStarted() override {
    return this
        ->template Call<"onWatcherStarted", &nsISystemFileSystemListener::OnWatcherStarted>();
  }
  nsresult OnWatcherStopped() override {
    return this
        ->template Call<"onWatcherStopped", &nsISystemFileSystemListener::OnWatcherStopped>();
  }
  nsresult OnWatcherError(uint32_t aCode, const nsAString& aText) override {
    return this->template Call<"onWatcherError", &nsISystemFileSystemListener::OnWatcherError>(
        aCode, aText);
  }
  nsresult OnFileSystemChanged(const nsAString& aPath) override {
    return this
        ->template Call<"onFileSystemChanged", &nsISystemFileSystemListener::OnFileSystemChanged>(
            aPath);
  }
  nsresult OnFileSystemRemoved(const nsAString& aPath) override {
    return this
        ->template Call<"onFileSystemRemoved", &nsISystemFileSystemListener::OnFileSystemRemoved>(
            aPath);
  }
  nsresult OnFileSystemAdded(const nsAString& aPath) override {
    return this
        ->template Call<"onFileSystemAdded", &nsISystemFileSystemListener::OnFileSystemAdded>(
            aPath);
  }
};

class MoveListenerFace : public ListenerFace<nsISystemFileSystemListener2> {
 public:
  using ListenerFace::ListenerFace;
  nsresult OnFileSystemMoved(const nsAString& aOldPath, const nsAString& aNewPath) override {
    return Call<"onFileSystemMoved", &nsISystemFileSystemListener2::OnFileSystemMoved>(aOldPath,
                                                                                       aNewPath);
  }
};

constexpr auto kFileSystemListener = nsBind<
    nsISystemFileSystemListener,
    nsMethod<"onWatcherStarted", &nsISystemFileSystemListener::OnWatcherStarted>,
    nsMethod<"onWatcherStopped", &nsISystemFileSystemListener::OnWatcherStopped>,
    nsMethod<"onWatcherError", &nsISystemFileSystemListener::OnWatcherError, "aCode", "aText">,
    nsMethod<"onFileSystemChanged", &nsISystemFileSystemListener::OnFileSystemChanged, "aPath">,
    nsMethod<"onFileSystemRemoved", &nsISystemFileSystemListener::OnFileSystemRemoved, "aPath">,
    nsMethod<"onFileSystemAdded", &nsISystemFileSystemListener::OnFileSystemAdded, "aPath">,
    nsImplementedBy<ListenerFace<nsISystemFileSystemListener>>>();

constexpr auto kFileSystemListener2 =
    nsBind<nsISystemFileSystemListener2,
           nsMethod<"onFileSystemMoved", &nsISystemFileSystemListener2::OnFileSystemMoved,
                    "aOldPath", "aNewPath">,
           nsImplementedBy<MoveListenerFace>>();

constexpr auto kFileSystemWatcher = nsBind<
    nsISystemFileSystemWatcher,
    nsMethod<"init", &nsISystemFileSystemWatcher::Init, "aListener", "aRootURL", "aIsRecursive">,
    nsMethod<"startWatching", &nsISystemFileSystemWatcher::StartWatching>,
    nsMethod<"stopWatching", &nsISystemFileSystemWatcher::StopWatching>,
    nsAttribute<"isWatching", &nsISystemFileSystemWatcher::GetIsWatching>,
    nsAttribute<"watchPath", &nsISystemFileSystemWatcher::GetWatchPath>,
    nsAttribute<"isSupported", &nsISystemFileSystemWatcher::GetIsSupported>>();

// What scripts make with new: it adds nothing of its own.
constexpr auto kScriptWatcher = nsBind<nsIFileSystemWatcher>();

}  // namespace

nsScriptTableList NS_WatcherTables() {
  return {kFileSystemListener, kFileSystemListener2, kFileSystemWatcher, kScriptWatcher};
}
