// Arrays.
#pragma once

#include "nsCOMArray.h"
#include "nsClassInfo.h"
#include "nsIMutableArray.h"
#include "nsIWeakReference.h"
#include "nsImplements.h"

/// "@mozilla.org/array;1". Elements are held strongly, or weakly where so asked: a weak element
/// that has died reads as NS_ERROR_NULL_POINTER and is left out of enumerations. One thread at a
/// time.
template <class Class>
class nsArrayOf : public nsImplements<Class, nsIMutableArray> {
 public:
  nsresult GetLength(uint32_t* aLength) override;
  /// NS_ERROR_ILLEGAL_VALUE past the end.
  nsresult QueryElementAt(uint32_t aIndex, const nsIID& aIID, void** aResult) override;
  /// NS_ERROR_FAILURE when the element is not there.
  nsresult IndexOf(uint32_t aStart, nsISupports* aElement, uint32_t* aResult) override;
  /// Over the elements as they are now.
  nsresult Enumerate(nsISimpleEnumerator** aResult) override;
  /// NS_ERROR_NULL_POINTER without an element; NS_ERROR_FAILURE for a weak one that can't be weakly
  /// referenced.
  nsresult AppendElement(nsISupports* aElement, bool aWeak) override;
  nsresult RemoveElementAt(uint32_t aIndex) override;
  nsresult InsertElementAt(nsISupports* aElement, uint32_t aIndex, bool aWeak) override;
  nsresult ReplaceElementAt(nsISupports* aElement, uint32_t aIndex, bool aWeak) override;
  nsresult Clear() override;

 private:
  struct Element {
    nsCOMPtr<nsISupports> mStrong;
    nsCOMPtr<nsIWeakReference> mWeak;
    nsCOMPtr<nsISupports> Get() const;
  };
  static nsresult Hold(nsISupports* aObject, bool aWeak, Element* aElement);

  std::vector<Element> mElements;
};

class nsArray final : public nsArrayOf<nsArray> {
  ~nsArray() override = default;
};

/// "@vorel/array;1": the same with class info, so that script can index it.
class nsArrayCI final : public nsArrayOf<nsArrayCI> {
 public:
  static const nsClassInfoRecord kClassInfo;

 private:
  ~nsArrayCI() override = default;
};

inline constexpr nsCID NS_ARRAY_CID = "35c66fd1-95e9-4e0a-80c5-c3bd2b375481"_iid;
inline constexpr nsCID NS_ARRAYCI_CID = "5e5d0a5e-4bd8-4f0c-9a3c-2d6a1f8b7c10"_iid;
