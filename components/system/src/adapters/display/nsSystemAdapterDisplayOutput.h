// A display output as an adapter: live, and as a view of what is stored.
#pragma once

#include <vector>

#include "nsISystemAdapterDisplayOutput.h"
#include "nsImplements.h"
#include "nsLock.h"
#include "nsLogger.h"
#include "nsPlatform.h"
#include "nsPlatformDisplays.h"
#include "nsSystemAdapterGeneric.h"
#include "nsSystemDisplayMode.h"

/// The live adapter and its view differ in mIsRegistered alone: which settings are read, and with
/// which flags they are written.
class nsSystemAdapterDisplayOutput final
    : public nsSystemAdapterBase<
          nsImplements<nsSystemAdapterDisplayOutput, nsISystemAdapterDisplayOutput>> {
 public:
  static constexpr nsClassInfoRecord kClassInfo =
      NS_ClassInfo<"", nsISystemAdapter, nsISystemAdapterDisplayOutput>(
          "1665863b-1453-451a-885a-0fb11db714f6"_iid);

  explicit nsSystemAdapterDisplayOutput(nsPlatformRef aPlatform);
  /// A live adapter of that card with that monitor, read and ready to be published.
  static nsresult Create(const nsPlatformRef& aPlatform, const nsDisplayDevice& aCard,
                         const nsDisplayDevice& aMonitor, nsSystemAdapterDisplayOutput** aResult);

  // For discovery, on the main thread.
  nsresult Init(const nsDisplayDevice& aCard, const nsDisplayDevice& aMonitor);
  /// Reads everything anew. Mode, rotation, depth, brightness and position count as modifications;
  /// and an output whose contrast is 0 always counts as modified.
  nsresult Update(const nsDisplayDevice& aCard, const nsDisplayDevice& aMonitor, bool* aModified);

  // nsISystemAdapterDisplayOutput
  nsresult GetRegistered(nsISystemAdapterDisplayOutput** aRegistered) override;
  nsresult GetPowerMode(uint32_t* aPowerMode) override;
  nsresult SetPowerMode(uint32_t aPowerMode) override;
  nsresult GetPosition(nsISystemDisplayPosition** aPosition) override;
  nsresult SetPosition(nsISystemDisplayPosition* aPosition) override;
  nsresult GetRotation(uint32_t* aRotation) override;
  nsresult SetRotation(uint32_t aRotation) override;
  nsresult GetBitsPerPixel(uint32_t* aBitsPerPixel) override;
  nsresult SetBitsPerPixel(uint32_t aBitsPerPixel) override;
  nsresult GetPortType(uint32_t* aPortType) override;
  nsresult SetPortType(uint32_t aPortType) override;
  nsresult GetBrightness(uint16_t* aBrightness) override;
  nsresult SetBrightness(uint16_t aBrightness) override;
  nsresult GetContrast(uint16_t* aContrast) override;
  nsresult SetContrast(uint16_t aContrast) override;
  nsresult GetGammas(nsISupports** aGammas) override;
  nsresult GetDisplayMode(nsISystemDisplayMode** aDisplayMode) override;
  nsresult SetDisplayMode(nsISystemDisplayMode* aDisplayMode) override;
  nsresult GetDisplayModesList(nsIArray** aDisplayModesList) override;
  nsresult GetRotationsList(uint32_t* aCount, uint32_t** aRotations) override;
  nsresult GetBitsPerPixelList(uint32_t* aCount, uint32_t** aBitsPerPixel) override;
  nsresult GetPortTypesList(uint32_t* aCount, uint32_t** aPortTypes) override;

 private:
  ~nsSystemAdapterDisplayOutput() override;

  /// Reads what the machine tells, the first time; whatever comes of that, later calls succeed.
  nsresult InitOutput();
  void ReadModes(const std::string& aSysPath);
  void ReadRotations();
  void ReadVideoParameters(const std::string& aSysPath);
  bool IsTurned() const { return mRotation == 90 || mRotation == 270; }

  /// Writes settings or parameters, as this object writes them; aFlags come on top.
  nsresult Change(nsDisplaySettings* aSettings, uint32_t aFlags, nsVideoParameters* aParameters);
  nsresult ChangePercent(uint32_t aFlag, uint16_t aValue, uint16_t* aField);
  bool IsPercent(uint16_t aValue) const;
  /// Read first where that has not been done.
  nsresult Get(const auto& aField, auto* aResult);
  nsresult GetList(const std::vector<uint32_t>& aList, uint32_t* aCount, uint32_t** aNumbers);

  const nsPlatformRef mPlatform;
  const nsCOMPtr<nsILog4Logger> mLogger;

  // Held by the operations of the view, the power mode, the position and the rotation, and by
  // Update. Only the view is theirs alone: the others read and write what they share with these
  // without it, all along, and are the main thread's.
  nsMutex mLock;
  nsCOMPtr<nsISystemAdapterDisplayOutput> mRegistered NS_GUARDED_BY(mLock);
  bool mIsRegistered = false;
  bool mInitialized = false;
  uint8_t mPowerMode = 1;
  nsCOMPtr<nsISystemDisplayPosition> mPosition;
  nsCOMPtr<nsISupports> mGammas;  // nothing sets it
  uint32_t mRotation = 0;
  uint32_t mBitsPerPixel = 0;
  uint32_t mPortType = 0;
  uint16_t mBrightness = 0;
  uint16_t mContrast = 0;
  nsCOMPtr<nsISystemDisplayMode> mCurrentMode;
  nsCOMArray<nsISystemDisplayMode> mModes;
  std::vector<uint32_t> mRotations;
  std::vector<uint32_t> mBitsPerPixelList;
  std::vector<uint32_t> mPortTypes;
  nsDisplayDevice mMonitorDevice;
};
