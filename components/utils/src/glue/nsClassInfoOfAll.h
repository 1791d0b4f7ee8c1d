// The class info of a class that shows script all that it implements, from the one list that it
// has.
#pragma once

#include "nsImplements.h"

namespace vorel::detail {
template <ClassName Name, class Implements>
struct ClassInfoOfAll;

template <ClassName Name, class Count, class Class, class... I>
struct ClassInfoOfAll<Name, nsImplementsWith<Count, Class, I...>> {
  static consteval nsClassInfoRecord With(const nsCID& aClassID) {
    return NS_ClassInfo<Name, I...>(aClassID);
  }
};
}  // namespace vorel::detail

/// NS_ClassInfo with the interfaces of nsImplements, in their order. Stands in the class, where
/// nsImplementsWith is the base, list and all:
///   class nsThing final : public nsImplements<nsThing, nsIThing, nsIOther> {
///     static constexpr nsClassInfoRecord kClassInfo =
///         NS_ClassInfoOfAll<"Thing", nsImplementsWith>("..."_iid);
template <vorel::detail::ClassName Name, class Implements>
consteval nsClassInfoRecord NS_ClassInfoOfAll(const nsCID& aClassID) {
  return vorel::detail::ClassInfoOfAll<Name, Implements>::With(aClassID);
}
