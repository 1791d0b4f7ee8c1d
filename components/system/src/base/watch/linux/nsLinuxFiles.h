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
};
