// The children of a directory in a snapshot, by name.
#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

#include "nsCOMPtr.h"
#include "nsString.h"

class nsSystemFileSystemNode;

/// Ordinal, case-sensitive comparison. The order is none. There is an entry for each file of a
/// watched tree, so that it is kept small: one array, in which an entry stands at the place that
/// its name leads to, or at the next free one behind it.
class nsFileSystemNodeMap {
 public:
  struct Item {
    nsString first;
    nsCOMPtr<nsSystemFileSystemNode> second;  // null: the place is free
  };
  class const_iterator {
   public:
    const_iterator() = default;
    const_iterator(const Item* aItem, const Item* aEnd) : mItem(aItem), mEnd(aEnd) { Skip(); }
    const Item& operator*() const { return *mItem; }
    const Item* operator->() const { return mItem; }
    const_iterator& operator++() {
      ++mItem;
      Skip();
      return *this;
    }
    const_iterator operator++(int) {
      const const_iterator before = *this;
      ++*this;
      return before;
    }
    bool operator==(const const_iterator& aOther) const { return mItem == aOther.mItem; }

   private:
    void Skip() {
      while (mItem != mEnd && !mItem->second) ++mItem;
    }
    const Item* mItem = nullptr;
    const Item* mEnd = nullptr;
  };

  nsFileSystemNodeMap();
  nsFileSystemNodeMap(const nsFileSystemNodeMap& aOther);
  nsFileSystemNodeMap& operator=(const nsFileSystemNodeMap&) = delete;
  ~nsFileSystemNodeMap();

  const_iterator begin() const { return {mItems.data(), mItems.data() + mItems.size()}; }
  const_iterator end() const {
    return {mItems.data() + mItems.size(), mItems.data() + mItems.size()};
  }
  size_t size() const { return mCount; }
  bool empty() const { return mCount == 0; }
  const_iterator find(std::u16string_view aName) const;
  bool contains(std::u16string_view aName) const { return find(aName) != end(); }

  /// Room for so many entries in all.
  void reserve(size_t aCount);
  /// Keeps the present entry of that name, if there is one. The node is not null.
  void emplace(const nsString& aName, nsCOMPtr<nsSystemFileSystemNode> aNode);
  void erase(std::u16string_view aName) { erase(find(aName)); }
  /// Nothing for the end.
  void erase(const_iterator aAt);

 private:
  size_t PlaceOf(std::u16string_view aName) const;
  size_t Next(size_t aPlace) const { return aPlace + 1 == mItems.size() ? 0 : aPlace + 1; }
  void Resize(size_t aPlaces);

  std::vector<Item> mItems;
  size_t mCount = 0;
};
