// Files by their status: identity is the inode and, where a volume uses its numbers again, their
// generation; the time is that of the last change of content, in nanoseconds.
#pragma once

#include "nsPlatformFiles.h"

class nsLinuxFiles final : public nsPlatformFiles {
 public:
  char16_t Separator() const override { return u'/'; }
  nsresult Exists(const nsAString& aPath, bool* aExists) override;
  nsresult ReadEntry(const nsAString& aPath, Entry* aEntry) override;
  nsresult OpenListing(const nsAString& aPath, bool aFollowLink,
                       std::unique_ptr<Listing>* aListing) override;
  /// Of most volumes made of their identifier; of those in memory, of a number of each mount.
  nsresult ReadVolume(const nsAString& aPath, uint64_t* aVolume) override;
  nsresult ReadKept(const nsAString& aPath, std::string* aContents) override;
  nsresult ReplaceKept(const nsAString& aPath, std::string_view aContents) override;
};
