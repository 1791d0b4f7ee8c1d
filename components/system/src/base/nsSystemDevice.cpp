#include "nsSystemDevice.h"

#include <new>

#include "nsClassInfoOfAll.h"
#include "nsString.h"

namespace {

class nsSystemDevice final : public nsImplements<nsSystemDevice, nsISystemDevice> {
 public:
  static constexpr nsClassInfoRecord kClassInfo =
      NS_ClassInfoOfAll<"", nsImplementsWith>("dddc59c1-9fc3-49af-8c91-9c2c8d8a219b"_iid);

  nsSystemDevice(const nsAString& aName, const nsAString& aLabel) : mName(aName), mLabel(aLabel) {}

  nsresult GetName(nsAString& aName) override { return NS_Give(mName, aName); }
  nsresult GetLabel(nsAString& aLabel) override { return NS_Give(mLabel, aLabel); }
  nsresult Reserved5(void*) override { return NS_ERROR_NOT_IMPLEMENTED; }
  nsresult Reserved6(void*, void*) override { return NS_ERROR_NOT_IMPLEMENTED; }

 private:
  ~nsSystemDevice() override = default;

  const nsString mName;
  const nsString mLabel;
};

}  // namespace

nsresult NewSystemDevice(nsISystemDevice** aDevice, const nsAString& aName,
                         const nsAString& aLabel) {
  nsCOMPtr<nsSystemDevice> device(new (std::nothrow) nsSystemDevice(aName, aLabel));
  if (!device) return NS_ERROR_OUT_OF_MEMORY;
  device.forget(aDevice);
  return NS_OK;
}
