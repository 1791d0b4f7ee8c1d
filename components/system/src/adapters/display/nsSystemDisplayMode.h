// Modes and places of displays, as values.
#pragma once

#include "nsClassInfoOfAll.h"
#include "nsISystemDisplayMode.h"
#include "nsISystemDisplayPosition.h"
#include "nsModuleClass.h"
#include "nsString.h"

class nsSystemDisplayMode final : public nsImplements<nsSystemDisplayMode, nsISystemDisplayMode> {
 public:
  static constexpr nsClassInfoRecord kClassInfo =
      NS_ClassInfoOfAll<"", nsImplementsWith>("e709bd7d-4ae7-4e0b-8721-28ae952baa98"_iid);

  nsSystemDisplayMode(const nsAString& aName, uint32_t aWidth, uint32_t aHeight,
                      uint32_t aFrequency, bool aInterlaced)
      : mName(aName),
        mWidth(aWidth),
        mHeight(aHeight),
        mFrequency(aFrequency),
        mInterlaced(aInterlaced) {}

  nsresult GetName(nsAString& aName) override;
  nsresult GetWidth(uint32_t* aWidth) override;
  nsresult GetHeight(uint32_t* aHeight) override;
  nsresult GetFrequency(uint32_t* aFrequency) override;
  nsresult GetInterlaced(bool* aInterlaced) override;
  nsresult Equals(nsISystemDisplayMode* aOther, bool* aEqual) override;

 private:
  ~nsSystemDisplayMode() override = default;

  const nsString mName;
  const uint32_t mWidth;
  const uint32_t mHeight;
  const uint32_t mFrequency;
  const uint32_t mInterlaced;
};

class nsSystemDisplayPosition final
    : public nsImplements<nsSystemDisplayPosition, nsISystemDisplayPosition> {
 public:
  static constexpr nsModuleClass kModuleClass{.mRow = 10,
                                              .mCID = "a6589da3-837b-46d6-9b01-d3cbce89ac00"_iid,
                                              .mContractID = "@vorel/systemdisplayposition;1",
                                              .mIsService = true};
  static constexpr nsClassInfoRecord kClassInfo =
      NS_ClassInfoOfAll<"", nsImplementsWith>(kModuleClass.mCID);

  nsSystemDisplayPosition() = default;
  nsSystemDisplayPosition(int32_t aX, int32_t aY) : mX(aX), mY(aY) {}

  nsresult Clone(nsISystemDisplayPosition** aClone) override;
  nsresult Equals(nsISystemDisplayPosition* aOther, bool* aEqual) override;
  nsresult GetX(int32_t* aX) override;
  nsresult SetX(int32_t aX) override;
  nsresult GetY(int32_t* aY) override;
  nsresult SetY(int32_t aY) override;

 private:
  ~nsSystemDisplayPosition() override = default;

  int32_t mX = 0;
  int32_t mY = 0;
};
