// The directories of application and profile, and the lock on the latter.
#include <sys/wait.h>

#include "nsIFile.h"
#include "nsIProperties.h"
#include "nsTestHost.h"

namespace {

class Profile : public nsHostTest {
 protected:
  Profile() { mOptions.mProfileDirectory = Path("deep/profile"); }

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
