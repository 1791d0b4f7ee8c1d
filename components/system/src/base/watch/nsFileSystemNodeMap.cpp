#include "nsFileSystemNodeMap.h"

#include <functional>
#include <utility>

#include "nsSystemFileSystemNode.h"

namespace {

// An eighth stays free, so that what is not there is soon known.
constexpr size_t PlacesFor(size_t aCount) { return aCount + aCount / 7 + 1; }

}  // namespace

nsFileSystemNodeMap::nsFileSystemNodeMap() = default;
nsFileSystemNodeMap::nsFileSystemNodeMap(const nsFileSystemNodeMap& aOther) = default;
nsFileSystemNodeMap::~nsFileSystemNodeMap() = default;

// The upper bits of a product, so that any number of places will do.
size_t nsFileSystemNodeMap::PlaceOf(std::u16string_view aName) const {
  const uint64_t hash = std::hash<std::u16string_view>()(aName) >> 32;
  return static_cast<size_t>((hash * mItems.size()) >> 32);
}

nsFileSystemNodeMap::const_iterator nsFileSystemNodeMap::find(std::u16string_view aName) const {
  if (mItems.empty()) return end();
  for (size_t at = PlaceOf(aName); mItems[at].second; at = Next(at))
    if (mItems[at].first.view() == aName)
      return {mItems.data() + at, mItems.data() + mItems.size()};
  return end();
}

void nsFileSystemNodeMap::reserve(size_t aCount) {
  if (PlacesFor(aCount) > mItems.size()) Resize(PlacesFor(aCount));
}

void nsFileSystemNodeMap::Resize(size_t aPlaces) {
  std::vector<Item> items(aPlaces);
  items.swap(mItems);
  for (Item& item : items) {
    if (!item.second) continue;
    size_t at = PlaceOf(item.first.view());
    while (mItems[at].second) at = Next(at);
    mItems[at].first = item.first;
    mItems[at].second = std::move(item.second);
  }
}

void nsFileSystemNodeMap::emplace(const nsString& aName, nsCOMPtr<nsSystemFileSystemNode> aNode) {
  if (contains(aName.view())) return;
  if (PlacesFor(mCount + 1) > mItems.size()) Resize(PlacesFor(mCount + 1 + mCount / 2));
  size_t at = PlaceOf(aName.view());
  while (mItems[at].second) at = Next(at);
  mItems[at].first = aName;
  mItems[at].second = std::move(aNode);
  ++mCount;
}

void nsFileSystemNodeMap::erase(const_iterator aAt) {
  if (aAt == end()) return;
  auto hole = static_cast<size_t>(&*aAt - mItems.data());
  const nsCOMPtr<nsSystemFileSystemNode> node = std::move(mItems[hole].second);
  // Whoever stands behind it, and not nearer to the place that its name leads to, moves up.
  for (size_t at = Next(hole); mItems[at].second; at = Next(at)) {
    const size_t wanted = PlaceOf(mItems[at].first.view());
    const bool isBetween =
        hole <= at ? hole < wanted && wanted <= at : hole < wanted || wanted <= at;
    if (isBetween) continue;
    mItems[hole].first = mItems[at].first;
    mItems[hole].second = std::move(mItems[at].second);
    mItems[at].second = nullptr;
    hole = at;
  }
  mItems[hole].first = nsString();
  mItems[hole].second = nullptr;
  --mCount;
}
