// What the contract suites of files and of directory changes run on.
#pragma once

#include <algorithm>
#include <map>
#include <memory>
#include <string>

#include "nsContract.h"
#include "nsPlatformDirectoryChanges.h"
#include "nsPlatformFiles.h"

/// Something to change and the two ports that tell of it. Names are relative to the root, with "/".
class nsDisk {
 public:
  virtual ~nsDisk() = default;
  std::string Lacks() const { return ""; }
  virtual nsPlatformFiles& Files() = 0;
  virtual nsPlatformDirectoryChanges& Changes() = 0;
  virtual std::u16string Root() = 0;
  virtual void MakeDirectory(const std::u16string& aName) = 0;
  virtual void Write(const std::u16string& aName) = 0;
  virtual void MakeLink(const std::u16string& aName) = 0;
  virtual void Rename(const std::u16string& aName, const std::u16string& aNewName) = 0;
  virtual void Remove(const std::u16string& aName) = 0;

  std::u16string Native(std::u16string aName) {
    std::replace(aName.begin(), aName.end(), u'/', Files().Separator());
    return aName;
  }
  nsString Path(const std::u16string& aName = u"") {
    return aName.empty() ? Root() : Root() + Files().Separator() + Native(aName);
  }
};

class FilesContract : public nsContractTest<nsDisk> {
 protected:
  using Entries = std::map<std::u16string, nsPlatformFiles::Entry>;

  Entries List(const std::u16string& aName = u"") {
    Entries entries;
    std::unique_ptr<nsPlatformFiles::Listing> listing;
    EXPECT_EQ(mMachine->Files().OpenListing(mMachine->Path(aName), false, &listing), NS_OK);
    while (listing && listing->HasMore()) {
      nsPlatformFiles::Entry entry;
      EXPECT_EQ(listing->GetNext(&entry), NS_OK);
      EXPECT_TRUE(entries.emplace(entry.mLeafName.view(), entry).second) << "told twice";
    }
    return entries;
  }
  nsresult OpenListing(const std::u16string& aName) {
    std::unique_ptr<nsPlatformFiles::Listing> listing;
    return mMachine->Files().OpenListing(mMachine->Path(aName), false, &listing);
  }
};

class DirectoryChangesContract : public FilesContract {
 protected:
  void SetUp() override {
    FilesContract::SetUp();
    if (mMachine) mReader = mMachine->Changes().NewReader();
  }

  std::unique_ptr<nsPlatformDirectoryReader> mReader;
};
