// Manifest files, versions, libraries, and what the application says about itself.
#include <random>

#include "nsICategoryManager.h"
#include "nsIComponentManager.h"
#include "nsIComponentRegistrar.h"
#include "nsICrashReporter.h"
#include "nsIFactory.h"
#include "nsIModuleLoader.h"
#include "nsISimpleEnumerator.h"
#include "nsISupportsCString.h"
#include "nsIUTF8StringEnumerator.h"
#include "nsIXULAppInfo.h"
#include "nsIXULRuntime.h"
#include "nsTestHost.h"

namespace {

using Strings = std::vector<std::string>;
constexpr nsCID kA = "00000000-0000-0000-0000-00000000000a"_iid;
constexpr nsCID kLoader = "00000000-0000-0000-0000-00000000000c"_iid;

class Manifest : public nsHostTest {
 protected:
  Manifest() { mOptions.mApplicationDirectory = Path("app"); }
  void WriteManifest(std::string_view aText) { Write("app/chrome.manifest", aText); }
  static std::string Entry(const char* aName) {
    char* value = nullptr;
    const auto manager = do_GetService<nsICategoryManager>(NS_CATEGORYMANAGER_CONTRACTID);
    if (NS_FAILED(manager->GetCategoryEntry("cat", aName, &value))) return "-";
    const std::string text = value;
    NS_Free(value);
    return text;
  }
  static Strings Entries() {
    nsCOMPtr<nsISimpleEnumerator> entries;
    const auto manager = do_GetService<nsICategoryManager>(NS_CATEGORYMANAGER_CONTRACTID);
    EXPECT_EQ(NS_OK, manager->EnumerateCategory("cat", entries.getter_AddRefs()));
    const auto names = do_QueryInterface<nsIUTF8StringEnumerator>(entries);
    Strings result;
    for (bool more = true; NS_SUCCEEDED(names->HasMore(&more)) && more;) {
      nsCString name;
      EXPECT_EQ(NS_OK, names->GetNext(name));
      result.emplace_back(name.view());
    }
    return result;
  }
};

TEST_F(Manifest, LinesAreMisread) {
  WriteManifest(
      "# comment\r\n\r\ncategory cat one 1 # comment\rcategory\tcat \t two  2\n"
      "category cat one 3\nmanifest sub/more.manifest\ncontent x y\nskin\n"
      "category cat last 9");
  Write("app/sub/more.manifest", "category cat sub s\nmanifest ../chrome.manifest\n");
  Write("extra.manifest", "category cat extra e\n");
  mOptions.mManifests = {Path("extra.manifest"), Path("missing.manifest")};
  Start();
  EXPECT_EQ((Strings{"one", "two", "sub", "last", "extra"}), Entries());
  EXPECT_EQ("3", Entry("one"));
  EXPECT_EQ(Strings{"error: " + Path("missing.manifest") + ": NS_ERROR_FILE_NOT_FOUND"},
            nsTestLog::Take());
}

TEST_F(Manifest, WrongLineTakesOthersWithIt) {
  WriteManifest(
      "category cat one 1\nnonsense\ncategory cat\ncategory cat two 2 moon=full\n"
      "contract c {x}\nmanifest none.manifest\nbinary-component none.so\n"
      "contract d {00000000-0000-0000-0000-00000000000f}\ncategory cat three 3\n");
  Start();
  EXPECT_EQ((Strings{"one", "three"}), Entries());
  const std::string at = "error: " + Path("app/chrome.manifest:");
  Strings log = nsTestLog::Take();
  ASSERT_EQ(7u, log.size());
  EXPECT_TRUE(log[5].starts_with(at + "7: " + Path("app/none.so"))) << log[5];
  log.erase(log.begin() + 5);
  EXPECT_EQ((Strings{at + "2: unknown line \"nonsense\"", at + "3: \"category\" takes 3 arguments",
                     at + "4: unknown flag \"moon=full\"", at + "5: \"{x}\" is no class ID",
                     at + "6: none.manifest: NS_ERROR_FILE_NOT_FOUND",
                     at + "8: contract ID d names class {00000000-0000-0000-0000-00000000000f}, "
                          "which is not registered."}),
            log);
}

TEST_F(Manifest, ManifestsThatLeadFromOneToTheNextOverrunTheStack) {
  WriteManifest("manifest m0.manifest\n");
  for (int i = 0; i < 2000; ++i)
    Write("app/m" + std::to_string(i) + ".manifest", "category cat e" + std::to_string(i) +
                                                         " x\nmanifest m" + std::to_string(i + 1) +
                                                         ".manifest\n");
  Start();
  EXPECT_EQ(32u, Entries().size());
  EXPECT_EQ(Strings{"error: " + Path("app/m31.manifest:2: m32.manifest: manifests lead to one "
                                     "another too deeply")},
            nsTestLog::Take());
}

TEST_F(Manifest, FlagsLetTheWrongLinesThrough) {
  Write("app/application.ini", "[App]\nID=player@example\nVersion=3.5.2\n");
  WriteManifest(R"(
category cat a 1 os=Linux
category cat b 1 OS=linux
category cat c 1 os=WINNT
category cat d 1 os=WINNT os=Linux
category cat e 1 application=player@example appversion>=3.5
category cat f 1 application=other
category cat g 1 appversion<3.5
category cat h 1 appversion=3.5.2
category cat i 1 platformversion<=14.* platformversion>=99
category cat j 1 os=Linux appversion<1
category cat k 1 abi=Darwin_ppc-gcc3
category cat l 1 osversion>=2
)");
  Start();
  EXPECT_EQ((Strings{"a", "b", "d", "e", "h", "i", "l"}), Entries());
  EXPECT_EQ(Strings(), nsTestLog::Take());
}

TEST_F(Manifest, VersionsAreComparedAsTexts) {
  Write("app/application.ini", "[Gecko]\nVersion=9\n[App]\n Version = 1.10b2 \r\n");
  WriteManifest(R"(
category cat a 1 appversion>1.9
category cat b 1 appversion<1.10
category cat c 1 appversion>1.10b1
category cat d 1 appversion<1.10b10
category cat e 1 appversion<1.*
category cat f 1 appversion<1.10.0
category cat g 1 appversion>1.10a9
category cat h 1 appversion<1.10+
category cat no 1 appversion=1.10b02.1
category cat i 1 appversion=1.10b2.0.0
)");
  Start();
  EXPECT_EQ((Strings{"a", "b", "c", "d", "e", "f", "g", "h", "i"}), Entries());
}

TEST_F(Manifest, AnyBytesDoHarm) {
  std::mt19937 random(1);
  const std::string seed =
      "category cat a 1 appversion>=1\ncontract c {00000000-0000-0000-0000-00000000000f}\n"
      "component {00000000-0000-0000-0000-00000000000f} x.js\n# c\nmanifest chrome.manifest\n";
  for (int round = 0; round < 100; ++round) {
    std::string text = seed;
    for (int i = 0; i < 8; ++i) text[random() % text.size()] = static_cast<char>(random());
    WriteManifest(text + "\ncategory cat last 9");
    Start();
    EXPECT_EQ("9", Entry("last")) << text;
    mHost.Stop();
  }
}

TEST_F(Manifest, ContractLineMustFollowItsClass) {
  class Loader final : public nsImplements<Loader, nsIModuleLoader> {
   public:
    explicit Loader(Strings* aAsked) : mAsked(aAsked) {}
    nsresult GetFactory(const nsACString& aPath, const nsCID& aCID, nsIFactory**) override {
      mAsked->push_back(std::string(NS_View(aPath)) + " " + aCID.ToString());
      return NS_ERROR_FACTORY_NOT_REGISTERED;
    }
    ~Loader() override = default;

   private:
    Strings* mAsked;
  };
  Strings asked;
  nsTestModule module;
  module.Class(kLoader, "loader", [&](const nsIID& aIID, void** aResult) {
    return MakeRefCounted<Loader>(&asked)->QueryInterface(aIID, aResult);
  });
  module.Category("module-loader", "tst", "loader");
  mOptions.mModules.push_back(&module.Record());
  WriteManifest("contract c " + kA.ToString() + "\ncomponent " + kA.ToString() + " js/a.tst\n");
  Start();
  EXPECT_EQ(Strings(), nsTestLog::Take());
  EXPECT_EQ(Strings(), asked) << "not before the first object is wanted";
  nsresult rv;
  EXPECT_FALSE(do_CreateInstance<nsISupports>("c", &rv));
  EXPECT_EQ(NS_ERROR_FACTORY_NOT_REGISTERED, rv);
  EXPECT_EQ(Strings{Path("app/js/a.tst") + " " + kA.ToString()}, asked);
}

TEST_F(Manifest, LibraryIsLoadedTwiceOrNeverUnloaded) {
  // The test's own module library: its record counts what happens to it in the environment.
  const std::string library = VOREL_TEST_COMPONENT;
  unsetenv("VOREL_TEST_COMPONENT_STEPS");
  const auto steps = [] {
    const char* const value = getenv("VOREL_TEST_COMPONENT_STEPS");
    return std::string(value ? value : "");
  };
  WriteManifest("binary-component " + library + "\nbinary-component " + library +
                "\nmanifest again.manifest");
  Write("app/again.manifest", "binary-component " + library);
  for (int run = 0; run < 2; ++run) {
    unsetenv("VOREL_TEST_COMPONENT_STEPS");
    Start();
    EXPECT_EQ(Strings(), nsTestLog::Take());
    EXPECT_EQ("", steps());
    EXPECT_TRUE(do_GetService<nsISupports>("@vorel/test/component;1"));
    EXPECT_EQ("load made ", steps());
    mHost.Stop();
    EXPECT_EQ("load made gone unload ", steps());
  }
}

TEST_F(Manifest, LibraryThatIsNoModuleIsUsed) {
  WriteManifest("binary-component libm.so.6\nbinary-component " +
                Write("app/text.so", "no library") + "\ncategory cat last 9");
  Start();
  EXPECT_EQ(2u, nsTestLog::Take().size());
  EXPECT_EQ("9", Entry("last"));
}

TEST_F(Manifest, ChangesOfCategoriesAreNotAnnounced) {
  Start();
  Strings heard;
  const auto observer = MakeRefCounted<nsTestObserver>(
      [&](nsISupports* aSubject, std::string aTopic, std::string aData) {
        nsCString name;
        if (const auto string = do_QueryInterface<nsISupportsCString>(aSubject)) {
          EXPECT_EQ(NS_OK, string->GetData(name));
        }
        heard.push_back(aTopic + " " + std::string(name.view()) + " " + aData);
      });
  const auto service = do_GetService<nsIObserverService>(NS_OBSERVERSERVICE_CONTRACTID);
  for (const char* topic :
       {"xpcom-category-entry-added", "xpcom-category-entry-removed", "xpcom-category-cleared"})
    ASSERT_EQ(NS_OK, service->AddObserver(observer.get(), topic, false));
  const auto manager = do_GetService<nsICategoryManager>(NS_CATEGORYMANAGER_CONTRACTID);
  char* old = nullptr;
  EXPECT_EQ(NS_OK, manager->AddCategoryEntry("cat", "a", "1", false, false, &old));
  EXPECT_EQ(nullptr, old);
  EXPECT_EQ(NS_ERROR_INVALID_ARG, manager->AddCategoryEntry("cat", "a", "2", false, false, &old));
  EXPECT_EQ(NS_OK, manager->AddCategoryEntry("cat", "a", "2", false, true, &old));
  EXPECT_STREQ("1", old);
  NS_Free(old);
  EXPECT_EQ(NS_OK, manager->AddCategoryEntry("cat", "b", "1", false, true, nullptr));
  EXPECT_EQ(NS_OK, manager->DeleteCategoryEntry("cat", "b", false));
  EXPECT_EQ(NS_OK, manager->DeleteCategory("cat"));
  EXPECT_EQ(Strings(), heard) << "not from within the change";
  RunEvents();
  EXPECT_EQ((Strings{"xpcom-category-entry-added a cat", "xpcom-category-entry-removed a cat",
                     "xpcom-category-entry-added a cat", "xpcom-category-entry-added b cat",
                     "xpcom-category-entry-removed b cat", "xpcom-category-cleared  cat"}),
            heard);
}

TEST_F(Manifest, ApplicationIsAnother) {
  Write("app/application.ini",
        "[App]\nVendor=V\nName=Player\nVersion=1.2\nBuildID=7\nID=p@x\nnonsense\n");
  Start();
  const auto info = do_GetService<nsIXULAppInfo>("@mozilla.org/xre/app-info;1");
  nsCString text;
  EXPECT_EQ(NS_OK, info->GetName(text));
  EXPECT_EQ("Player", text.view());
  EXPECT_EQ(NS_OK, info->GetID(text));
  EXPECT_EQ("p@x", text.view());
  const auto runtime = do_GetService<nsIXULRuntime>("@mozilla.org/xre/runtime;1");
  EXPECT_TRUE(NS_SameObject(info.get(), runtime.get()));
  EXPECT_TRUE(NS_SameObject(
      info.get(), do_GetService<nsICrashReporter>("@mozilla.org/toolkit/crash-reporter;1").get()));
  EXPECT_EQ(NS_OK, runtime->GetOS(text));
  EXPECT_EQ("Linux", text.view());
}

}  // namespace
