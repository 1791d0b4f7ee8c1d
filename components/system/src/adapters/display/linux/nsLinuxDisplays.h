// Displays of an X server.
#pragma once

#include "nsDdcMonitors.h"
#include "nsDisplayStore.h"
#include "nsLock.h"
#include "nsPlatformDisplays.h"
#include "nsRandr.h"

/// A card is an output of the server that something is connected to; its number is the output's
/// place among all that the server has, which stays with the connector. It is attached to the
/// desktop while it shows something. Modes are told as of a picture that is not turned, and depths
/// are those of the screen, which a running server does not change.
///
/// The server is the one that DISPLAY names. Without one there are no cards; one that starts, or
/// starts again, is found by the next look. Nothing waits longer than some seconds for it.
///
/// Brightness is the server's backlight property of the output where it has one, else the display
/// itself is asked for brightness and contrast, which nothing waits for: they come as a change.
///
/// Stored settings are in the configuration store. The first application of a session has them set
/// by RestoreSettings.
class nsLinuxDisplays final : public nsPlatformDisplays {
 public:
  explicit nsLinuxDisplays(
      std::shared_ptr<nsPlatformRegistry> aRegistry,
      std::unique_ptr<nsDdcMonitors> aMonitors = std::make_unique<nsDdcMonitors>());

  nsresult ReadDevice(const std::string& aCard, uint32_t aIndex, uint32_t aFlags,
                      nsDisplayDevice* aDevice) override;
  nsresult ReadSettings(const std::string& aCard, uint32_t aIndex,
                        nsDisplaySettings* aSettings) override;
  nsresult ChangeSettings(const std::string& aCard, nsDisplaySettings* aSettings, uint32_t aFlags,
                          nsVideoParameters* aParameters) override;
  nsresult AwaitParameters(uint32_t aMilliseconds) override;
  nsresult RestoreSettings() override;
  std::shared_ptr<nsEventSource> NewChanges() override;

 private:
  /// An output that shows something: what can be asked for its settings.
  struct Active {
    const nsRandrOutput* mOutput;
    const nsRandrCrtc* mCrtc;
    const nsRandrMode* mMode;
  };

  void Look() NS_REQUIRES(mLock);
  void LookAtMonitors() NS_REQUIRES(mLock);
  bool Connect() NS_REQUIRES(mLock);
  std::vector<const nsRandrOutput*> Cards() const NS_REQUIRES(mLock);
  const nsRandrOutput* FindCard(const std::string& aCard) const NS_REQUIRES(mLock);
  std::optional<Active> FindActive(const std::string& aCard) const NS_REQUIRES(mLock);
  std::string CardName(const nsRandrOutput& aOutput) const NS_REQUIRES(mLock);
  nsDisplaySettings CurrentSettings(const Active& aActive) const NS_REQUIRES(mLock);
  nsStoredDisplay ReadStored(const nsRandrOutput& aOutput) const;
  /// Puts what is to change into the crtc; the reason when the output can't.
  bool Plan(const Active& aActive, const nsDisplaySettings& aSettings, nsRandrCrtc* aCrtc,
            std::string* aReason) const NS_REQUIRES(mLock);
  nsresult Refuse(const Active& aActive, const std::string& aReason) const;
  nsresult ChangeMode(const Active& aActive, const nsDisplaySettings& aSettings, uint32_t aFlags)
      NS_REQUIRES(mLock);
  bool SetParameters(const nsRandrOutput& aOutput, const nsDdcMonitor::Values& aValues,
                     std::chrono::milliseconds aLimit) NS_REQUIRES(mLock);
  nsresult ReadParameters(const Active& aActive, bool aStored, nsVideoParameters* aParameters);
  nsresult ChangeParameters(const Active& aActive, const nsVideoParameters& aParameters,
                            uint32_t aFlags) NS_REQUIRES(mLock);

  const nsDisplayStore mStore;
  nsMutex mLock;  // guards what follows
  const std::unique_ptr<nsDdcMonitors> mMonitors;
  std::unique_ptr<nsRandr> mServer NS_GUARDED_BY(mLock);  // null without one
  nsRandrPicture mPicture NS_GUARDED_BY(mLock);
  bool mToldNoServer NS_GUARDED_BY(mLock) = false;
};
