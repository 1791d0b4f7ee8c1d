// The directories of application and profile, and the lock on the latter.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/wait.h>

#include <filesystem>
#include <fstream>

#include "nsIFile.h"
#include "nsIPrefBranch.h"
#include "nsIPrefService.h"
#include "nsIProperties.h"
#include "nsServices.h"
#include "nsTestHost.h"

namespace {

class Profile : public nsHostTest {
 protected:
  Profile() { mOptions.mProfileDirectory = Path("deep/profile"); }

  static std::string ReadText(const std::string& aPath) {
    std::ifstream in(aPath);
    return {std::istreambuf_iterator<char>(in), {}};
  }

  std::string DirectoryOf(const char* aKey) {
    nsCOMPtr<nsIFile> file;
    const auto service = do_GetService<nsIProperties>(NS_DIRECTORYSERVICE_CONTRACTID);
    if (NS_FAILED(service->Get(aKey, nsIFile::kIID, NS_OutVoid(file)))) return "-";
    nsCString path;
    EXPECT_EQ(NS_OK, file->GetNativePath(path));
    return std::string(path.view());
  }
};

TEST_F(Profile, TwoProcessesUseOneProfile) {
  // The other process is started before this one has threads.
  mOptions.mModules.clear();
  int holder[2], go[2];
  ASSERT_EQ(0, pipe(holder) | pipe(go));
  const pid_t child = fork();
  if (child == 0) {
    nsHost host;
    char byte = NS_SUCCEEDED(host.Start(mOptions)) ? 'y' : 'n';
    (void)!write(holder[1], &byte, 1);
    (void)!read(go[0], &byte, 1);
    _exit(0);  // without Stop: the lock must end with the process
  }
  char byte = 0;
  ASSERT_EQ(1, read(holder[0], &byte, 1));
  ASSERT_EQ('y', byte);
  EXPECT_EQ(NS_ERROR_FILE_IS_LOCKED, mHost.Start(mOptions));
  EXPECT_EQ("The profile " + Path("deep/profile") + " is in use by process " +
                std::to_string(child) + ".",
            mHost.Error());
  EXPECT_EQ(nullptr, nsHost::Current());
  mOptions.mProfileReadOnly = true;
  EXPECT_EQ(NS_OK, mHost.Start(mOptions)) << "who only reads may share";
  mHost.Stop();
  mOptions.mProfileReadOnly = false;
  ASSERT_EQ(1, write(go[1], "", 1));
  waitpid(child, nullptr, 0);
  EXPECT_EQ(NS_OK, mHost.Start(mOptions)) << "a lock of a dead process";
  for (const int fd : {holder[0], holder[1], go[0], go[1]}) close(fd);
}

TEST_F(Profile, ProfileIsOpenToOthersOrItsLockLeadsElsewhere) {
  Start();
  EXPECT_EQ(std::filesystem::status(Path("deep/profile")).permissions(),
            std::filesystem::perms::owner_all);
  mHost.Stop();
  const std::string other = Write("other", "kept");
  std::filesystem::remove(Path("deep/profile/.parentlock"));
  std::filesystem::create_symlink(other, Path("deep/profile/.parentlock"));
  EXPECT_EQ(NS_ERROR_FILE_ACCESS_DENIED, mHost.Start(mOptions));
  EXPECT_NE(std::string::npos, mHost.Error().find(".parentlock")) << mHost.Error();
  EXPECT_EQ("kept", ReadText(other));
}

// Whoever removes the lock of a running program lets another one in, and both would save.
TEST_F(Profile, LockThatIsRemovedIsNotMissed) {
  Start();
  ASSERT_EQ(NS_OK, mHost.StartProfile());
  const auto prefs = do_GetService<nsIPrefService>(NS_PREFSERVICE_CONTRACTID);
  const auto branch = do_QueryInterface<nsIPrefBranch>(prefs);
  const std::string file = Path("deep/profile/prefs.js"), lock = Path("deep/profile/.parentlock");
  ASSERT_EQ(NS_OK, branch->SetIntPref("first", 1));
  std::filesystem::remove(lock);
  EXPECT_EQ(NS_OK, prefs->SavePrefFile(nullptr));
  EXPECT_TRUE(std::filesystem::exists(lock)) << "taken again";
  EXPECT_NE(std::string::npos, ReadText(file).find("first"));

  std::filesystem::remove(lock);
  const int other = open(lock.c_str(), O_RDWR | O_CREAT, 0600);
  ASSERT_EQ(0, flock(other, LOCK_EX | LOCK_NB));
  ASSERT_EQ(NS_OK, branch->SetIntPref("second", 2));
  EXPECT_EQ(NS_ERROR_FILE_IS_LOCKED, prefs->SavePrefFile(nullptr));
  EXPECT_EQ(std::string::npos, ReadText(file).find("second"));
  close(other);
  EXPECT_EQ(NS_OK, prefs->SavePrefFile(nullptr));
}

TEST_F(Profile, SaveThatFailsIsASuccess) {
  std::filesystem::create_directories(Path("deep/profile/prefs.js"));
  Start();
  ASSERT_EQ(NS_OK, mHost.StartProfile());
  const auto prefs = do_GetService<nsIPrefService>(NS_PREFSERVICE_CONTRACTID);
  ASSERT_EQ(NS_OK, do_QueryInterface<nsIPrefBranch>(prefs)->SetIntPref("a", 1));
  EXPECT_NE(NS_OK, prefs->SavePrefFile(nullptr));
}

TEST_F(Profile, ProfileThatIsAFileIsUsed) {
  mOptions.mProfileDirectory = Write("file", "");
  EXPECT_NE(NS_OK, mHost.Start(mOptions));
  EXPECT_TRUE(mHost.Error().starts_with("The profile " + Path("file") + " can't be used: "));
}

TEST_F(Profile, DirectoriesAreUnknownToTheDirectoryService) {
  mOptions.mApplicationDirectory = Path("app");
  mOptions.mFiles = {{"VorelMachine", Write("machine.json", "{}")}};
  Start();
  EXPECT_EQ(Path("app"), DirectoryOf("XCurProcD"));
  EXPECT_EQ(Path("app/defaults"), DirectoryOf("DefRt"));
  EXPECT_EQ(Path("deep/profile"), DirectoryOf("ProfD"));
  EXPECT_EQ(Path("machine.json"), DirectoryOf("VorelMachine"));
}

TEST_F(Profile, DirectoriesOfTheLastRunAreStillThere) {
  Start();
  mHost.Stop();
  mOptions.mProfileDirectory.clear();
  Start();
  EXPECT_EQ("-", DirectoryOf("ProfD"));
  EXPECT_EQ("-", DirectoryOf("VorelMachine"));
}

}  // namespace
