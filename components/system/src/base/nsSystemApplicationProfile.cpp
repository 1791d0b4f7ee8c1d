#include "nsSystemApplicationProfile.h"

#include <new>

#include "nsClassInfoOfAll.h"
#include "nsString.h"

namespace {

class nsSystemApplicationProfile final
    : public nsImplements<nsSystemApplicationProfile, nsISystemApplicationProfile> {
 public:
  static constexpr nsClassInfoRecord kClassInfo =
      NS_ClassInfoOfAll<"", nsImplementsWith>("aa7b2f11-8adc-421d-9139-c53c58f9629b"_iid);

  nsSystemApplicationProfile(const nsAString& aName, const nsAString& aLabel,
                             const nsAString& aDescription)
      : mName(aName), mLabel(aLabel), mDescription(aDescription) {}

  nsresult GetName(nsAString& aName) override { return NS_Give(mName, aName); }
  nsresult GetDescription(nsAString& aDescription) override {
    return NS_Give(mDescription, aDescription);
  }
  nsresult GetLabel(nsAString& aLabel) override { return NS_Give(mLabel, aLabel); }

 private:
  ~nsSystemApplicationProfile() override = default;

  const nsString mName;
  const nsString mLabel;
  const nsString mDescription;
};

}  // namespace

nsresult NewSystemApplicationProfile(nsISystemApplicationProfile** aProfile, const nsAString& aName,
                                     const nsAString& aLabel, const nsAString& aDescription) {
  nsCOMPtr<nsSystemApplicationProfile> profile(
      new (std::nothrow) nsSystemApplicationProfile(aName, aLabel, aDescription));
  if (!profile) return NS_ERROR_OUT_OF_MEMORY;
  profile.forget(aProfile);
  return NS_OK;
}
