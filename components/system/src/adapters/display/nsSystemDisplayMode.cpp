#include "nsSystemDisplayMode.h"

#include <new>

nsresult nsSystemDisplayMode::GetName(nsAString& aName) {
  NS_Assign(aName, mName);
  return NS_OK;
}
nsresult nsSystemDisplayMode::GetWidth(uint32_t* aWidth) {
  *aWidth = mWidth;
  return NS_OK;
}
nsresult nsSystemDisplayMode::GetHeight(uint32_t* aHeight) {
  *aHeight = mHeight;
  return NS_OK;
}
nsresult nsSystemDisplayMode::GetFrequency(uint32_t* aFrequency) {
  *aFrequency = mFrequency;
  return NS_OK;
}
nsresult nsSystemDisplayMode::GetInterlaced(bool* aInterlaced) {
  *aInterlaced = mInterlaced != 0;
  return NS_OK;
}

nsresult nsSystemDisplayMode::Equals(nsISystemDisplayMode* aOther, bool* aEqual) {
  uint32_t width = 0, height = 0, frequency = 0;
  bool interlaced = false;
  nsString name;
  *aEqual = aOther && NS_SUCCEEDED(aOther->GetWidth(&width)) && width == mWidth &&
            NS_SUCCEEDED(aOther->GetHeight(&height)) && height == mHeight &&
            NS_SUCCEEDED(aOther->GetFrequency(&frequency)) && frequency == mFrequency &&
            NS_SUCCEEDED(aOther->GetInterlaced(&interlaced)) && interlaced == (mInterlaced != 0) &&
            NS_SUCCEEDED(aOther->GetName(name)) && name == mName;
  return NS_OK;
}

nsresult nsSystemDisplayPosition::Clone(nsISystemDisplayPosition** aClone) {
  const nsCOMPtr<nsISystemDisplayPosition> clone(new (std::nothrow)
                                                     nsSystemDisplayPosition(mX, mY));
  if (!clone) return NS_ERROR_OUT_OF_MEMORY;
  nsCOMPtr<nsISystemDisplayPosition>(clone).forget(aClone);
  return NS_OK;
}

nsresult nsSystemDisplayPosition::Equals(nsISystemDisplayPosition* aOther, bool* aEqual) {
  int32_t x = 0, y = 0;
  *aEqual = aOther && NS_SUCCEEDED(aOther->GetX(&x)) && x == mX && NS_SUCCEEDED(aOther->GetY(&y)) &&
            y == mY;
  return NS_OK;
}

nsresult nsSystemDisplayPosition::GetX(int32_t* aX) {
  *aX = mX;
  return NS_OK;
}
nsresult nsSystemDisplayPosition::SetX(int32_t aX) {
  mX = aX;
  return NS_OK;
}
nsresult nsSystemDisplayPosition::GetY(int32_t* aY) {
  *aY = mY;
  return NS_OK;
}
nsresult nsSystemDisplayPosition::SetY(int32_t aY) {
  mY = aY;
  return NS_OK;
}
