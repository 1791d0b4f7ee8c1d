// Directories by key.
#include <gtest/gtest.h>

#include "nsHost.h"
#include "nsIDirectoryService.h"
#include "nsIDirectoryServiceProvider.h"
#include "nsIProperties.h"
#include "nsImplements.h"
#include "nsServices.h"
#include "nsString.h"
#include "nsTemporaryDirectory.h"

namespace {

/// Knows one key.
class Provider final : public nsImplements<Provider, nsIDirectoryServiceProvider> {
 public:
  Provider(std::string aKey, std::string aPath, bool aPersistent)
      : mKey(std::move(aKey)), mPath(std::move(aPath)), mPersistent(aPersistent) {}
  nsresult GetFile(const char* aKey, bool* aPersistent, nsIFile** aResult) override {
    if (aKey != mKey) return NS_ERROR_FAILURE;
    *aPersistent = mPersistent;
    nsCOMPtr<nsILocalFile> file;
    const nsresult rv = NS_NewNativeLocalFile(nsCString(mPath), false, file.getter_AddRefs());
    file.forget(aResult);
    return rv;
  }
  std::string mKey, mPath;
  bool mPersistent;

 private:
  ~Provider() override = default;
};

class DirectoryService : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(NS_OK, mHost.Start({}));
    mService = do_GetService<nsIProperties>(NS_DIRECTORYSERVICE_CONTRACTID);
    ASSERT_TRUE(mService);
  }
  void TearDown() override {
    mService = nullptr;
    mHost.Stop();
  }
  std::string Get(const char* aKey) {
    nsCOMPtr<nsIFile> file;
    if (NS_FAILED(mService->Get(aKey, nsIFile::kIID, NS_OutVoid(file)))) return "(none)";
    nsCString path;
    EXPECT_EQ(NS_OK, file->GetNativePath(path));
    return std::string(path.view());
  }
  nsHost mHost;
  nsCOMPtr<nsIProperties> mService;
};

TEST_F(DirectoryService, AKeyOfTheSystemLeadsNowhere) {
  for (const char* key : {"Home", "TmpD", "CurWorkD", "CurProcD", "XCurProcD", "GreD"})
    EXPECT_TRUE(std::filesystem::is_directory(Get(key))) << key;
  EXPECT_EQ(std::filesystem::current_path(), Get("CurWorkD"));
  EXPECT_EQ(std::filesystem::canonical("/proc/self/exe").parent_path(), Get("CurProcD"));
  EXPECT_NE(std::string::npos, Get("XpcomLib").find("libvorelhost"));
  EXPECT_EQ("(none)", Get("NoSuchKey"));
}

TEST_F(DirectoryService, AFileThatWasHandedOutChangesTheKey) {
  const nsTemporaryDirectory dir;
  const auto file = dir.File("profile");
  ASSERT_EQ(NS_OK, mService->Set("TestD", file.get()));
  ASSERT_EQ(NS_OK, file->AppendNative(nsCString("x")));
  nsCOMPtr<nsIFile> out;
  ASSERT_EQ(NS_OK, mService->Get("TestD", nsIFile::kIID, NS_OutVoid(out)));
  ASSERT_EQ(NS_OK, out->AppendNative(nsCString("y")));
  EXPECT_EQ(dir / "profile", Get("TestD"));
  EXPECT_EQ(NS_ERROR_FAILURE, mService->Set("TestD", file.get()));
  bool has = false;
  EXPECT_EQ(NS_OK, mService->Has("TestD", &has));
  EXPECT_TRUE(has);
  EXPECT_EQ(NS_OK, mService->Undefine("TestD"));
  EXPECT_EQ(NS_ERROR_FAILURE, mService->Undefine("TestD"));
  EXPECT_EQ("(none)", Get("TestD"));
}

TEST_F(DirectoryService, AProviderIsNotAskedInItsTurn) {
  const auto service = do_QueryInterface<nsIDirectoryService>(mService);
  const auto first = MakeRefCounted<Provider>("TestD", "/first", true),
             second = MakeRefCounted<Provider>("TestD", "/second", false);
  ASSERT_EQ(NS_OK, service->RegisterProvider(first.get()));
  ASSERT_EQ(NS_OK, service->RegisterProvider(second.get()));
  EXPECT_EQ("/second", Get("TestD"));
  ASSERT_EQ(NS_OK, service->UnregisterProvider(second.get()));
  EXPECT_EQ("/first", Get("TestD"));
  first->mPath = "/changed";  // but it had said that its answer was for good
  EXPECT_EQ("/first", Get("TestD"));
  EXPECT_EQ(NS_ERROR_FAILURE, service->UnregisterProvider(second.get()));
}

}  // namespace
