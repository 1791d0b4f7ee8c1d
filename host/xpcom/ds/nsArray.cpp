#include "nsArray.h"

#include "nsISupportsWeakReference.h"

const nsClassInfoRecord nsArrayCI::kClassInfo = {NS_ClassInterfaces<nsIArray, nsIMutableArray>,
                                                 NS_NamedHelper<"Array">, 0, NS_ARRAYCI_CID};

template <class Class>
nsCOMPtr<nsISupports> nsArrayOf<Class>::Element::Get() const {
  if (!mWeak) return mStrong;
  nsCOMPtr<nsISupports> alive;
  (void)mWeak->QueryReferent(nsISupports::kIID, NS_OutVoid(alive));
  return alive;
}

template <class Class>
nsresult nsArrayOf<Class>::Hold(nsISupports* aObject, bool aWeak, Element* aElement) {
  if (!aObject) return NS_ERROR_NULL_POINTER;
  Element element;
  if (aWeak) {
    const auto source = do_QueryInterface<nsISupportsWeakReference>(aObject);
    if (!source || NS_FAILED(source->GetWeakReference(element.mWeak.getter_AddRefs())))
      return NS_ERROR_FAILURE;
  } else {
    element.mStrong = aObject;
  }
  *aElement = std::move(element);
  return NS_OK;
}

template <class Class>
nsresult nsArrayOf<Class>::GetLength(uint32_t* aLength) {
  if (!aLength) return NS_ERROR_NULL_POINTER;
  *aLength = static_cast<uint32_t>(mElements.size());
  return NS_OK;
}

template <class Class>
nsresult nsArrayOf<Class>::QueryElementAt(uint32_t aIndex, const nsIID& aIID, void** aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  if (aIndex >= mElements.size()) return NS_ERROR_ILLEGAL_VALUE;
  const auto element = mElements[aIndex].Get();
  return element ? element->QueryInterface(aIID, aResult) : NS_ERROR_NULL_POINTER;
}

template <class Class>
nsresult nsArrayOf<Class>::IndexOf(uint32_t aStart, nsISupports* aElement, uint32_t* aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  for (size_t i = aStart; i < mElements.size(); ++i) {
    if (!NS_SameObject(mElements[i].Get().get(), aElement)) continue;
    *aResult = static_cast<uint32_t>(i);
    return NS_OK;
  }
  return NS_ERROR_FAILURE;
}

template <class Class>
nsresult nsArrayOf<Class>::Enumerate(nsISimpleEnumerator** aResult) {
  if (!aResult) return NS_ERROR_NULL_POINTER;
  nsCOMArray<nsISupports> elements;
  for (const Element& element : mElements)
    if (auto object = element.Get()) elements.push_back(std::move(object));
  return NS_NewArrayEnumerator(aResult, elements);
}

template <class Class>
nsresult nsArrayOf<Class>::AppendElement(nsISupports* aElement, bool aWeak) {
  return InsertElementAt(aElement, static_cast<uint32_t>(mElements.size()), aWeak);
}

template <class Class>
nsresult nsArrayOf<Class>::RemoveElementAt(uint32_t aIndex) {
  if (aIndex >= mElements.size()) return NS_ERROR_INVALID_ARG;
  // Dropped only when the list is whole again: its end may call back.
  const Element removed = std::move(mElements[aIndex]);
  mElements.erase(mElements.begin() + aIndex);
  return NS_OK;
}

template <class Class>
nsresult nsArrayOf<Class>::InsertElementAt(nsISupports* aElement, uint32_t aIndex, bool aWeak) {
  if (aIndex > mElements.size()) return NS_ERROR_INVALID_ARG;
  Element element;
  if (const nsresult rv = Hold(aElement, aWeak, &element); NS_FAILED(rv)) return rv;
  mElements.insert(mElements.begin() + aIndex, std::move(element));
  return NS_OK;
}

template <class Class>
nsresult nsArrayOf<Class>::ReplaceElementAt(nsISupports* aElement, uint32_t aIndex, bool aWeak) {
  if (aIndex >= mElements.size()) return NS_ERROR_INVALID_ARG;
  Element element;
  if (const nsresult rv = Hold(aElement, aWeak, &element); NS_FAILED(rv)) return rv;
  std::swap(mElements[aIndex], element);
  return NS_OK;
}

template <class Class>
nsresult nsArrayOf<Class>::Clear() {
  std::vector<Element> removed;
  removed.swap(mElements);
  return NS_OK;
}

template class nsArrayOf<nsArray>;
template class nsArrayOf<nsArrayCI>;
