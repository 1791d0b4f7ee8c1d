// Preferences: values, branches, observers, files.
#include <sys/stat.h>

#include <chrono>
#include <future>
#include <random>

#include "nsIFile.h"
#include "nsILocalFile.h"
#include "nsIPrefBranch.h"
#include "nsIPrefService.h"
#include "nsISupportsString.h"
#include "nsITimer.h"
#include "nsTestHost.h"

namespace {

using Strings = std::vector<std::string>;

class Prefs : public nsHostTest {
 protected:
  Prefs() {
    mOptions.mApplicationDirectory = Path("app");
    mOptions.mProfileDirectory = Path("profile");
  }
  void StartAll() {
    Start();
    ASSERT_EQ(NS_OK, mHost.StartProfile());
    mRoot = Branch("");
  }
  void Stop() {
    mRoot = nullptr;
    mHost.Stop();
  }
  static nsCOMPtr<nsIPrefBranch> Branch(const char* aRoot, bool aDefault = false) {
    const auto service = do_GetService<nsIPrefService>(NS_PREFSERVICE_CONTRACTID);
    nsCOMPtr<nsIPrefBranch> branch;
    EXPECT_EQ(NS_OK, aDefault ? service->GetDefaultBranch(aRoot, branch.getter_AddRefs())
                              : service->GetBranch(aRoot, branch.getter_AddRefs()));
    return branch;
  }
  static std::string Char(const nsCOMPtr<nsIPrefBranch>& aBranch, const char* aName) {
    char* value = nullptr;
    if (const nsresult rv = aBranch->GetCharPref(aName, &value); NS_FAILED(rv))
      return std::string(NS_ResultName(rv));
    const std::string text = value;
    NS_Free(value);
    return text;
  }
  std::string Char(const char* aName) { return Char(mRoot, aName); }
  static Strings Children(const nsCOMPtr<nsIPrefBranch>& aBranch, const char* aStart) {
    uint32_t count = 99;
    char** names = nullptr;
    EXPECT_EQ(NS_OK, aBranch->GetChildList(aStart, &count, &names));
    const Strings children(names, names + count);
    for (uint32_t i = 0; i < count; ++i) NS_Free(names[i]);
    NS_Free(names);
    return children;
  }
  void WriteApp(std::string_view aText) { Write("app/defaults/preferences/app.js", aText); }
  void WriteUser(std::string_view aText) { Write("profile/prefs.js", aText); }

  nsCOMPtr<nsIPrefBranch> mRoot;
};

TEST_F(Prefs, ValuesAreReadInAnotherWayThanTheyAreWritten) {
  WriteApp(R"(// a comment
# another
pref("text", "a \"quoted\" \\ text\n\x41\u00e9\ud83d\ude00 C:\dir"); pref('one', -2147483648);
/* a comment
   of two lines */ pref ( "yes" , true ) ;
pref("no",false);pref("plus", +7);)");
  StartAll();
  EXPECT_EQ(Strings(), nsTestLog::Take());
  EXPECT_EQ("a \"quoted\" \\ text\nA\xC3\xA9\xF0\x9F\x98\x80 C:\\dir", Char("text"));
  int32_t number = 0;
  EXPECT_EQ(NS_OK, mRoot->GetIntPref("one", &number));
  EXPECT_EQ(INT32_MIN, number);
  EXPECT_EQ(NS_OK, mRoot->GetIntPref("plus", &number));
  EXPECT_EQ(7, number);
  bool flag = false;
  EXPECT_EQ(NS_OK, mRoot->GetBoolPref("yes", &flag));
  EXPECT_TRUE(flag);
  EXPECT_EQ(NS_OK, mRoot->GetBoolPref("no", &flag));
  EXPECT_FALSE(flag);
}

TEST_F(Prefs, WrongLineTakesOthersWithIt) {
  WriteApp(
      "pref(\"a\", \"1\");\npref(\"b\" 2);\npref(\"c\", 99999999999);\nfunction(\"d\", 3);\n"
      "pref(\"e\", \"no end);\n\rpref(\"\", 1);\npref(\"a\", 5);\npref(\"f\", \"\\u0000\");\n"
      "pref(\"z\", \"last\");\n/* no end");
  StartAll();
  EXPECT_EQ("1", Char("a"));
  EXPECT_EQ("last", Char("z"));
  EXPECT_EQ((Strings{"a", "z"}), Children(mRoot, ""));
  const std::string at = "error: " + Path("app/defaults/preferences/app.js:");
  EXPECT_EQ(
      (Strings{at + "2: ',' is missing",
               at + "3: neither a text, nor a 32-bit integer, nor true or false: \"99999999999\"",
               at + "4: neither pref nor user_pref: \"function\"",
               at + "5: a text that does not end on its line",
               at + "7: a preference without a name", at + "8: a has a value of another type",
               at + "9: a character number that is none", at + "11: a comment that does not end"}),
      nsTestLog::Take());
}

TEST_F(Prefs, AFileThatIsNoneFloodsTheLogOrIsReadForEver) {
  std::string text;
  for (int i = 0; i < 1000; ++i) text += "x\n";
  for (int i = 0; i < 300000; ++i) text += "/*\n";
  WriteApp(text);
  Start();
  const Strings told = nsTestLog::Take();
  ASSERT_EQ(11u, told.size());
  EXPECT_TRUE(told.back().ends_with("app.js: too many lines are wrong, the rest is not read"))
      << told.back();
}

TEST_F(Prefs, AnyBytesDoHarm) {
  std::mt19937 random(1);
  const std::string seed = "pref(\"a.b\", \"x\\u0041\"); /* c */ user_pref('d', -12); // e\n";
  for (int round = 0; round < 200; ++round) {
    std::string text = seed + seed;
    for (int i = 0; i < 8; ++i) text[random() % text.size()] = static_cast<char>(random());
    WriteApp(text + "\npref(\"last\", true);");
    Start();
    mRoot = Branch("");
    int32_t type = 0;
    EXPECT_EQ(NS_OK, mRoot->GetPrefType("last", &type));
    // Only a comment that begins among the bytes may swallow the last line.
    if (text.find("/*", seed.size() + 30) == text.npos && text.rfind("/*") < text.rfind("*/")) {
      EXPECT_EQ(static_cast<int32_t>(nsIPrefBranch::PREF_BOOL), type) << text;
    }
    Stop();
  }
}

TEST_F(Prefs, DefaultFilesAreReadInAnotherOrder) {
  Write("app/defaults/preferences/b.js", "pref(\"x\", \"b\");");
  Write("app/defaults/preferences/a.js", "pref(\"x\", \"a\");");
  Write("app/defaults/preferences/c.txt", "pref(\"x\", \"c\");");
  StartAll();
  EXPECT_EQ("b", Char("x"));
}

TEST_F(Prefs, UserValueAndDefaultAreMixedUp) {
  WriteApp("pref(\"x\", \"default\");");
  WriteUser("user_pref(\"x\", \"mine\");");
  StartAll();
  const auto defaults = Branch("", true);
  EXPECT_EQ("mine", Char("x"));
  EXPECT_EQ("default", Char(defaults, "x"));
  bool has = false;
  EXPECT_EQ(NS_OK, mRoot->PrefHasUserValue("x", &has));
  EXPECT_TRUE(has);
  EXPECT_EQ(NS_OK, mRoot->LockPref("x"));
  EXPECT_EQ("default", Char("x"));
  EXPECT_EQ(NS_OK, mRoot->UnlockPref("x"));
  EXPECT_EQ("mine", Char("x"));
  EXPECT_EQ(NS_ERROR_UNEXPECTED, mRoot->SetIntPref("x", 1)) << "another type";
  EXPECT_EQ(NS_OK, mRoot->SetCharPref("x", "default"));
  EXPECT_EQ(NS_OK, mRoot->PrefHasUserValue("x", &has));
  EXPECT_FALSE(has) << "the default is no choice of the user's";
  EXPECT_EQ(NS_OK, mRoot->SetCharPref("only.mine", "1"));
  EXPECT_EQ(NS_OK, mRoot->ClearUserPref("only.mine"));
  EXPECT_EQ("NS_ERROR_UNEXPECTED", Char("only.mine"));
  EXPECT_EQ(Strings{"x"}, Children(mRoot, ""));
}

TEST_F(Prefs, FailedGetTouchesItsOutParameter) {
  WriteApp("pref(\"x\", \"text\");");
  StartAll();
  int32_t number = 42;
  bool flag = true;
  EXPECT_EQ(NS_ERROR_UNEXPECTED, mRoot->GetIntPref("x", &number));
  EXPECT_EQ(NS_ERROR_UNEXPECTED, mRoot->GetBoolPref("none", &flag));
  EXPECT_EQ(42, number);
  EXPECT_TRUE(flag);
  int32_t type = -1;
  EXPECT_EQ(NS_OK, mRoot->GetPrefType("none", &type));
  EXPECT_EQ(0, type);
}

TEST_F(Prefs, BranchForgetsOrRepeatsItsRoot) {
  WriteApp(
      "pref(\"a.b.c\", \"1\"); pref(\"a.b.d\", \"2\"); pref(\"a.bx\", \"3\"); pref(\"b\", \"4\");");
  StartAll();
  const auto branch = Branch("a.");
  EXPECT_EQ("1", Char(branch, "b.c"));
  EXPECT_EQ((Strings{"b.c", "b.d"}), Children(branch, "b."));
  EXPECT_EQ((Strings{"b.c", "b.d", "bx"}), Children(branch, ""));
  EXPECT_EQ(Strings(), Children(branch, "zzz"));
  EXPECT_EQ(NS_OK, branch->DeleteBranch("b."));
  EXPECT_EQ((Strings{"a.bx", "b"}), Children(mRoot, ""));
  const auto ipc = do_GetService<nsIPrefBranch>(VOREL_PREFS_CONTRACTID);
  ASSERT_TRUE(ipc);
  EXPECT_EQ(NS_OK, ipc->SetCharPref("b", "5"));
  EXPECT_EQ("5", Char("b"));
}

TEST_F(Prefs, ObserversHearTooMuchOrTooLittle) {
  WriteApp("pref(\"a.b\", 1); pref(\"a.c\", 1); pref(\"x\", 1);");
  StartAll();
  const auto branch = Branch("a.");
  Strings heard;
  const auto observer = MakeRefCounted<nsTestObserver>(
      [&](nsISupports* aSubject, std::string aTopic, std::string aData) {
        EXPECT_TRUE(NS_SameObject(aSubject, branch.get()));
        heard.push_back(aTopic + " " + aData);
      });
  ASSERT_EQ(NS_OK, branch->AddObserver("b", observer.get(), false));
  EXPECT_EQ(NS_OK, mRoot->SetIntPref("a.b", 2));
  EXPECT_EQ(NS_OK, mRoot->SetIntPref("a.b", 2));  // no change
  EXPECT_EQ(NS_OK, mRoot->SetIntPref("a.c", 2));
  EXPECT_EQ(NS_OK, mRoot->SetIntPref("x", 2));
  EXPECT_EQ(NS_OK, mRoot->LockPref("a.b"));
  EXPECT_EQ(NS_OK, mRoot->ClearUserPref("a.b"));  // still the default
  EXPECT_EQ((Strings{"nsPref:changed b", "nsPref:changed b"}), heard);
  EXPECT_EQ(NS_ERROR_FAILURE, mRoot->RemoveObserver("b", observer.get()));
  EXPECT_EQ(NS_OK, branch->RemoveObserver("b", observer.get()));
  EXPECT_EQ(NS_OK, mRoot->UnlockPref("a.b"));
  EXPECT_EQ(NS_OK, mRoot->SetIntPref("a.b", 3));
  EXPECT_EQ(2u, heard.size());
}

TEST_F(Prefs, WeakObserverIsKeptOrCalledAfterItsDeath) {
  StartAll();
  std::atomic<int> calls = 0;
  auto observer = MakeRefCounted<nsTestWeakObserver>(&calls);
  ASSERT_EQ(NS_OK, mRoot->AddObserver("", observer.get(), true));
  EXPECT_EQ(NS_OK, mRoot->SetIntPref("x", 1));
  observer = nullptr;
  EXPECT_EQ(NS_OK, mRoot->SetIntPref("x", 2));
  EXPECT_EQ(1, calls);
  const auto strong = MakeRefCounted<nsTestObserver>([](auto...) {});
  EXPECT_EQ(NS_ERROR_NO_INTERFACE, mRoot->AddObserver("", strong.get(), true));
}

TEST_F(Prefs, ComplexValuesAreCut) {
  StartAll();
  const auto string = do_CreateInstance<nsISupportsString>("@mozilla.org/supports-string;1");
  ASSERT_EQ(NS_OK, string->SetData(nsString(u"gr\u00fc\u00df")));
  EXPECT_EQ(NS_OK, mRoot->SetComplexValue("s", nsISupportsString::kIID, string.get()));
  EXPECT_EQ("gr\xC3\xBC\xC3\x9F", Char("s"));
  nsCOMPtr<nsISupportsString> again;
  ASSERT_EQ(NS_OK, mRoot->GetComplexValue("s", nsISupportsString::kIID, NS_OutVoid(again)));
  nsString data;
  EXPECT_EQ(NS_OK, again->GetData(data));
  EXPECT_TRUE(data.view() == u"gr\u00fc\u00df");
  EXPECT_EQ(NS_OK, mRoot->SetCharPref("f", "/tmp/file"));
  nsCOMPtr<nsILocalFile> file;
  ASSERT_EQ(NS_OK, mRoot->GetComplexValue("f", nsILocalFile::kIID, NS_OutVoid(file)));
  nsCString path;
  EXPECT_EQ(NS_OK, file->GetNativePath(path));
  EXPECT_EQ("/tmp/file", path.view());
}

TEST_F(Prefs, SettingsAreLostAtTheEnd) {
  StartAll();
  const std::string odd = "\"\\\n\r\xFF {1}; // \xC3\xA9";
  EXPECT_EQ(NS_OK, mRoot->SetCharPref("text", odd.c_str()));
  EXPECT_EQ(NS_OK, mRoot->SetIntPref("number", -5));
  EXPECT_EQ(NS_OK, mRoot->SetBoolPref("flag", true));
  EXPECT_EQ(NS_OK, Branch("", true)->SetBoolPref("default", true));
  Stop();
  for (const auto& entry : std::filesystem::directory_iterator(Path("profile")))
    EXPECT_FALSE(entry.path().native().ends_with(".tmp")) << entry.path();
  StartAll();
  EXPECT_EQ(Strings(), nsTestLog::Take());
  EXPECT_EQ(odd, Char("text"));
  EXPECT_EQ((Strings{"flag", "number", "text"}), Children(mRoot, ""));
}

TEST_F(Prefs, SaveNowSavesLater) {
  StartAll();
  EXPECT_EQ(NS_OK, mRoot->SetIntPref("x", 1));
  EXPECT_EQ("", Read("profile/prefs.js")) << "changes are collected";
  const auto service = do_GetService<nsIPrefService>(NS_PREFSERVICE_CONTRACTID);
  EXPECT_EQ(NS_OK, service->SavePrefFile(nullptr));
  EXPECT_TRUE(Read("profile/prefs.js").ends_with("user_pref(\"x\", 1);\n"));
  // Nothing has changed: what stands there is left alone.
  WriteUser("mine");
  EXPECT_EQ(NS_OK, service->SavePrefFile(nullptr));
  Stop();
  EXPECT_EQ("mine", Read("profile/prefs.js"));
}

TEST_F(Prefs, DamagedFileIsLost) {
  const std::string damaged = "user_pref(\"a\", \"1\");\nuser_pref(\"b\", ";
  WriteUser(damaged);
  StartAll();
  EXPECT_EQ("1", Char("a"));
  Stop();
  EXPECT_EQ(damaged, Read("profile/prefs.js.damaged"));
  EXPECT_TRUE(Read("profile/prefs.js").ends_with("user_pref(\"a\", \"1\");\n"));
  WriteUser("again");
  StartAll();
  Stop();
  EXPECT_EQ(damaged, Read("profile/prefs.js.damaged")) << "nor is the one before";
  EXPECT_EQ("again", Read("profile/prefs.js.damaged.1"));
}

TEST_F(Prefs, ReaderWritesToTheProfile) {
  WriteUser("damaged");
  mOptions.mProfileReadOnly = true;
  StartAll();
  EXPECT_EQ(NS_OK, mRoot->SetIntPref("x", 1));
  Stop();
  EXPECT_EQ("damaged", Read("profile/prefs.js"));
  EXPECT_FALSE(std::filesystem::exists(Path("profile/prefs.js.damaged")));
  EXPECT_FALSE(std::filesystem::exists(Path("profile/.parentlock")));
}

TEST_F(Prefs, UnreadableFileIsReplaced) {
  std::filesystem::create_directories(Path("profile/prefs.js"));  // a directory in its place
  StartAll();
  EXPECT_EQ(NS_OK, mRoot->SetIntPref("x", 1));
  Stop();
  EXPECT_EQ(Strings{"error: " + Path("profile/prefs.js") +
                    ": NS_ERROR_FILE_IS_DIRECTORY. Changes are not saved."},
            nsTestLog::Take());
}

TEST_F(Prefs, APipeInThePlaceOfTheFileIsWaitedFor) {
  std::filesystem::create_directories(Path("profile"));
  ASSERT_EQ(0, mkfifo(Path("profile/prefs.js").c_str(), 0600));
  StartAll();
  Stop();
  EXPECT_EQ(Strings{"error: " + Path("profile/prefs.js") +
                    ": NS_ERROR_FILE_UNKNOWN_TYPE. Changes are not saved."},
            nsTestLog::Take());
}

TEST_F(Prefs, AFailedSaveIsTheLastOne) {
  StartAll();
  std::filesystem::create_directories(Path("profile/prefs.js/in the way"));
  EXPECT_EQ(NS_OK, mRoot->SetIntPref("x", 1));
  const auto service = do_GetService<nsIPrefService>(NS_PREFSERVICE_CONTRACTID);
  EXPECT_NE(NS_OK, service->SavePrefFile(nullptr));
  std::filesystem::remove_all(Path("profile/prefs.js"));
  // Nobody changes anything any more, and nobody asks for it to be saved.
  const auto patience = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (Read("profile/prefs.js").empty() && std::chrono::steady_clock::now() < patience)
    RunEvents();
  EXPECT_TRUE(Read("profile/prefs.js").ends_with("user_pref(\"x\", 1);\n"));
}

TEST_F(Prefs, ATextWithAZeroIsCut) {
  StartAll();
  const auto text = do_CreateInstance<nsISupportsString>("@mozilla.org/supports-string;1");
  ASSERT_EQ(NS_OK, text->SetData(nsString(std::u16string_view(u"a\0b", 3))));
  EXPECT_EQ(NS_ERROR_INVALID_ARG, mRoot->SetComplexValue("x", nsISupportsString::kIID, text.get()));
  EXPECT_EQ("NS_ERROR_UNEXPECTED", Char("x"));
}

TEST_F(Prefs, OtherThreadsReachTheTable) {
  WriteApp("pref(\"x\", 1);");
  StartAll();
  int32_t number = 0;
  EXPECT_EQ(NS_ERROR_NOT_SAME_THREAD,
            std::async(std::launch::async, [&] { return mRoot->GetIntPref("x", &number); }).get());
}

}  // namespace
