// The whole of it: host, library, script and program, run as a user would.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>

#include "nsProgram.h"

namespace {

using Json = nlohmann::json;

Json PictureOf(const nsOutcome& aOutcome) {
  EXPECT_EQ(aOutcome.mStatus, 0) << aOutcome.mErrors;
  return Json::parse(aOutcome.mOutput, nullptr, false);
}

/// Of processors, and of programs that have ended.
double SecondsOfChildren() {
  rusage used;
  (void)getrusage(RUSAGE_CHILDREN, &used);
  return static_cast<double>(used.ru_utime.tv_sec) +
         static_cast<double>(used.ru_utime.tv_usec) / 1e6;
}

}  // namespace

TEST(Program, KioskShowsDisksThatAreNotExternal) {
  nsProgram program;
  const Json picture =
      PictureOf(program.Run({"--machine", SourceFile("app/machines/kiosk.json"), "--json"}));
  ASSERT_TRUE(picture.is_object());
  std::multiset<std::string> volumes;
  for (const Json& adapter : picture["adapters"]) {
    if (adapter["device"].is_null()) continue;
    EXPECT_EQ(adapter["device"], (Json{{"name", "mass-storage"}, {"label", "mass storage"}}));
    ASSERT_EQ(adapter["connectors"].size(), 1u);
    EXPECT_EQ(adapter["connectors"][0]["name"], "usb");
    EXPECT_EQ(adapter["connectors"][0]["mask"], "*");
    const std::string directory = adapter["directory"];
    volumes.insert(directory.substr(directory.rfind('/') + 1));
  }
  // Not the internal disk, the optical drive and the share.
  EXPECT_EQ(volumes, (std::multiset<std::string>{"archive", "stick"}));
}

TEST(Program, BindingsLackAProfileOrPointElsewhere) {
  nsProgram program;
  const Json picture =
      PictureOf(program.Run({"--machine", SourceFile("app/machines/kiosk.json"), "--json"}));
  ASSERT_TRUE(picture.is_object());
  std::multiset<std::string> bindings;
  for (const Json& binding : picture["bindings"]) {
    const std::string directory =
        picture["adapters"][binding["adapter"].get<size_t>()]["directory"];
    bindings.insert(binding["profile"].get<std::string>() + " " +
                    directory.substr(directory.rfind('/') + 1));
  }
  EXPECT_EQ(
      bindings,
      (std::multiset<std::string>{
          "richmedia-player player", "manifest-downloader player", "medias-reader .medias-reader",
          "software-manager software", "addon-manager addons",
          "storage-external-richmedia-player-injector stick",
          "storage-external-medias-reader-injector stick", "storage-external-medias-reader stick",
          "storage-external-richmedia-player-injector archive",
          "storage-external-medias-reader-injector archive",
          "storage-external-medias-reader archive"}));
}

TEST(Program, PictureOfThisMachineWritesToTheProfile) {
  nsProgram program;
  const nsOutcome outcome = program.Run({"--json", "--profile", program.Directory() + "/none"});
  EXPECT_TRUE(PictureOf(outcome).is_object());
  EXPECT_NE(access((program.Directory() + "/none").c_str(), F_OK), 0);
}

TEST(Program, WrongArgumentsEndWithAnythingButOneLineAndStatus2) {
  nsProgram program;
  const std::vector<std::vector<std::string>> wrong = {
      {"--jsn"},          {"--log", "loud"},
      {"missing.js"},     {"--machine", "missing.json"},
      {"--machine", "."}, {"--app", "missing"},
      {"watch"},          {"watch", program.Write("file", "")}};
  for (const auto& arguments : wrong) {
    const nsOutcome outcome = program.Run(arguments);
    EXPECT_EQ(outcome.mStatus, 2) << arguments[0];
    EXPECT_EQ(outcome.mOutput, "");
    EXPECT_TRUE(outcome.mErrors.starts_with("vorel: ")) << outcome.mErrors;
    EXPECT_EQ(std::count(outcome.mErrors.begin(), outcome.mErrors.end(), '\n'), 1)
        << outcome.mErrors;
  }
}

// Whatever it finds can be found again with the seed.
TEST(Program, HostileScriptCrashesIt) {
  for (const char* seed : {"1", "2", "3"}) {
    nsProgram program;
    const nsOutcome outcome =
        program.Run({"--machine", SourceFile("app/machines/kiosk.json"), "--log", "off",
                     SourceFile("app/tests/end_to_end/hostile.js"), seed, "3"});
    EXPECT_EQ(outcome.mStatus, 0) << seed << outcome.mErrors;
    EXPECT_TRUE(outcome.mOutput.starts_with("alive after ")) << seed << outcome.mOutput;
  }
}

TEST(Program, EndThatAScriptTellsCrashesTheMachine) {
  nsProgram program;
  const std::string machine = program.Write("machine.json", R"({
    "interfaces": [{"name": "eth0", "mac": "02-00-5E-10-00-01"}],
    "changes": [{"after": 0.1, "interfaces": {"set": [{"name": "eth0", "status": "down"}]}},
                {"after": 10, "interfaces": {"remove": ["eth0"]}}]})");
  const nsOutcome outcome = program.Run({"--machine", machine, program.Write("app.js", R"(
    systemManager.addAdapterListener({
      onAdapterChanged() {
        Components.classes["@mozilla.org/observer-service;1"]
          .getService(Components.interfaces.nsIObserverService).notifyObservers(null, "xpcom-shutdown", null);
        setTimeout(() => quit(3), 0);
      },
    });)")});
  EXPECT_EQ(outcome.mStatus, 3) << outcome.mErrors;
}

TEST(Program, LostOutputEndsWithSuccessOrInAFileOfTheProfile) {
  nsProgram program;
  const std::string vorel = VOREL_BINARY_DIR "/bin/vorel --profile " + program.Directory() + " ";
  for (const std::string task :
       {"-e 1+1", "-e 'console.log(1)'", "--version", "--json", "--watch", "watch ."}) {
    for (const char* output : {" >&-", " >/dev/full", " >&- <&-"}) {
      const int status = std::system((vorel + task + output + " 2>/dev/null").c_str());
      EXPECT_EQ(WEXITSTATUS(status), 1) << task << output;
    }
  }
}

TEST(Program, RemovedWorkingDirectoryCrashesIt) {
  nsProgram program;
  const std::string gone = program.Directory() + "/gone";
  const int status =
      std::system(("mkdir " + gone + " && cd " + gone + " && rmdir " + gone +
                   " && " VOREL_BINARY_DIR "/bin/vorel --profile relative >/dev/null 2>&1")
                      .c_str());
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST(Program, BrokenMachineFileIsTakenForAnEmptyMachine) {
  nsProgram program;
  const std::string file = program.Write(
      "bad.json", "{\n  \"volumes\": [\n    {\"letter\": \"C\", \"knd\": \"fixed\"}\n  ]\n}\n");
  const nsOutcome outcome = program.Run({"--machine", file});
  EXPECT_EQ(outcome.mStatus, 1);
  EXPECT_EQ(outcome.mOutput, "");
  EXPECT_NE(outcome.mErrors.find("bad.json:3: "), std::string::npos) << outcome.mErrors;
  program.Write("app.js", "console.log('runs')");
  // Nothing runs on another machine than the one that was meant, and one line says why.
  for (const char* task : {"--json", "shell", "app.js"}) {
    const nsOutcome each = program.Run({"--machine", file, task});
    EXPECT_EQ(each.mStatus, 1);
    EXPECT_EQ(each.mOutput, "");
    EXPECT_EQ(std::count(each.mErrors.begin(), each.mErrors.end(), '\n'), 1) << each.mErrors;
  }
}

TEST(Program, SmallStackCrashesADeepScript) {
  nsProgram program;
  const std::string script = program.Write("deep.js", R"(
    const deep = () => { try { deep(); } finally { ++deep.ends; } };
    deep.ends = 0;
    try { deep(); } catch (error) { console.log(error.message, deep.ends > 100); }
    const timers = Components.classes["@mozilla.org/observer-service;1"].getService(Components.interfaces.nsIObserverService);
    const observer = { observe() { timers.notifyObservers(null, "deep", null); } };
    timers.addObserver(observer, "deep", false);
    timers.notifyObservers(null, "deep", null);
    quit(3);
  )");
  const int status = std::system(("ulimit -s 512 && HOME=" + program.Directory() +
                                  " " VOREL_BINARY_DIR "/bin/vorel --log off " + script +
                                  " 2>/dev/null | grep -q 'too much recursion true'")
                                     .c_str());
  EXPECT_EQ(WEXITSTATUS(status), 0);
  const int end =
      std::system(("ulimit -s 512 && HOME=" + program.Directory() +
                   " " VOREL_BINARY_DIR "/bin/vorel --log off " + script + " >/dev/null 2>&1")
                      .c_str());
  EXPECT_EQ(WEXITSTATUS(end), 3);
}

TEST(Program, FilesOfAnApplicationStopItWhenTheyAreDamaged) {
  nsProgram program;
  program.Write("app/chrome.manifest", "\xff\xfe garbage\ncategory a\ncategory good entry value\n");
  program.Write("app/defaults/preferences/a.js", "pref(\"x\", 1;\npref(\"good.one\", 7);\n");
  const std::string script = program.Write(
      "app/main.js",
      "console.log(Components.classes['@mozilla.org/preferences-service;1']"
      ".getService(Components.interfaces.nsIPrefBranch).getIntPref('good.one')); quit(0)");
  const nsOutcome outcome = program.Run({"--app", program.Directory() + "/app", script});
  EXPECT_EQ(outcome.mStatus, 0) << outcome.mErrors;
  EXPECT_EQ(outcome.mOutput, "7\n");
  EXPECT_NE(outcome.mErrors.find("chrome.manifest:2"), std::string::npos) << outcome.mErrors;
  EXPECT_NE(outcome.mErrors.find("a.js:1"), std::string::npos) << outcome.mErrors;
}

TEST(Program, SecondProcessOnAProfileCorruptsIt) {
  nsProgram first;
  const std::string profile = first.Directory() + "/profile";
  first.Start({"--profile", profile, "-e", "console.log('ready'); setInterval(() => {}, 1000)"});
  ASSERT_TRUE(first.WaitFor("ready"));
  nsProgram second;
  const nsOutcome refused = second.Run({"--profile", profile, "-e", "1"});
  EXPECT_EQ(refused.mStatus, 1);
  EXPECT_NE(refused.mErrors.find(profile), std::string::npos) << refused.mErrors;
  EXPECT_EQ(std::count(refused.mErrors.begin(), refused.mErrors.end(), '\n'), 1) << refused.mErrors;
  // Looking at the machine takes nothing from the application that runs.
  EXPECT_EQ(second.Run({"--profile", profile, "--json"}).mStatus, 0);
  EXPECT_EQ(first.Finish(SIGTERM).mStatus, 0);
}

TEST(Program, SettingIsLostBetweenTwoRuns) {
  nsProgram program;
  const std::string prefs =
      "const p = "
      "Components.classes['@vorel/ipc/prefs;1'].getService(Components.interfaces.nsIPrefBranch);";
  EXPECT_EQ(program.Run({"-e", prefs + "p.setCharPref('a.b', 'caf\u00e9'); undefined"}).mStatus, 0);
  EXPECT_EQ(program.Run({"-e", prefs + "p.getCharPref('a.b')"}).mOutput, "caf\u00e9\n");
}

TEST(Program, SettingsThatAreNotKeptAreLostInSilence) {
  const std::string heard =
      "env -u HOME -u XDG_DATA_HOME " VOREL_BINARY_DIR "/bin/vorel -e 1 2>&1 >/dev/null | grep -q ";
  EXPECT_EQ(std::system((heard + "'settings are not kept'").c_str()), 0);
}

TEST(Program, ANameThatIsNotUtf8IsToldAsOneThatCantBeOpened) {
  nsProgram program;
  const std::string path = program.Write("odd-\xff-\xc3\xa4.txt", "found");
  const std::string script = program.Write("odd.js", R"(
    function open(path) {
      const file = Components.classes['@mozilla.org/file/local;1']
          .createInstance(Components.interfaces.nsILocalFile);
      file.initWithPath(path);
      return file;
    }
    const file = open(arguments[0]);
    const entries = file.parent.directoryEntries;
    while (entries.hasMoreElements()) {
      const entry = entries.getNext().QueryInterface(Components.interfaces.nsIFile);
      if (entry.leafName.startsWith('odd-'))
        console.log(open(entry.path).exists(), entry.path === file.path, entry.equals(file));
    })");
  const nsOutcome outcome = program.Run({script, path});
  EXPECT_EQ(outcome.mOutput, "true true true\n") << outcome.mErrors;
}

TEST(Program, StoreIsWrittenBelowTheWorkingDirectory) {
  nsProgram program;
  const std::string script = program.Write(
      "app.js",
      "for (const adapter of systemManager.adapters) try { adapter.registered.label = 'x'; }"
      " catch (error) {} quit(0)");
  const int status =
      std::system(("cd " + program.Directory() +
                   " && env -u XDG_STATE_HOME -u XDG_DATA_HOME HOME=relative " VOREL_BINARY_DIR
                   "/bin/vorel --log off " +
                   script + " 2>/dev/null")
                      .c_str());
  EXPECT_EQ(WEXITSTATUS(status), 0);
  EXPECT_NE(access((program.Directory() + "/relative").c_str(), F_OK), 0);
}

TEST(Program, ScriptErrorIsReportedWithoutPlaceOrStatus) {
  nsProgram program;
  const std::string script = program.Write("app.js", "const a = 1;\n\nnoSuchThing();\n");
  const nsOutcome outcome = program.Run({script});
  EXPECT_EQ(outcome.mStatus, 1);
  EXPECT_NE(outcome.mErrors.find("app.js:3"), std::string::npos) << outcome.mErrors;
  EXPECT_NE(outcome.mErrors.find("noSuchThing"), std::string::npos) << outcome.mErrors;
  EXPECT_EQ(program.Run({"-e", "quit(7)"}).mStatus, 7);
}

// At the limit each collection finds room for a few objects more. In processor time, as the machine
// may be busy.
TEST(Program, MemoryThatIsOutIsNotToldForMinutes) {
  nsProgram program;
  const std::string script = program.Write("app.js", R"(
    const attempts = [() => { const all = []; for (let i = 0;; ++i) all.push({ i }); },
                      () => { const all = new Map(); for (let i = 0;; ++i) all.set("k" + i, { i }); },
                      () => { let all = null; for (let i = 0;; ++i) all = { all, i }; },
                      () => { const all = {}; for (let i = 0;; ++i) all["k" + i] = i; }];
    for (const attempt of [...attempts, ...attempts])
      try { attempt(); } catch (error) { console.log(error); }
    const kept = Array.from({ length: 1e5 }, (_, i) => ({ i }));
    for (let i = 0; i < 4e6; ++i) kept[i % kept.length] = { i };  // what can be collected is no reason
    quit(kept.length === 1e5 ? 0 : 1);
  )");
  const double begin = SecondsOfChildren();
  const nsOutcome outcome = program.Run({"--heap", "16", script});
  EXPECT_EQ(outcome.mStatus, 0) << outcome.mErrors;
  std::string told;
  for (int i = 0; i < 8; ++i) told += "out of memory\n";
  EXPECT_EQ(outcome.mOutput, told);
  EXPECT_LT(SecondsOfChildren() - begin, 30);
  // The application's own limit, which a number of the command line overrides.
  program.Write("application/defaults/preferences/a.js",
                "pref(\"vorel.script.heap-limit\", 16);\n");
  const std::string fill =
      "try { const a = []; while (a.length < 1e6) a.push({ n: a.length }); 'room' } catch (e) { e "
      "}";
  const std::string application = program.Directory() + "/application";
  EXPECT_EQ(program.Run({"--app", application, "-e", fill}).mOutput, "out of memory\n");
  EXPECT_EQ(program.Run({"--app", application, "--heap", "256", "-e", fill}).mOutput, "room\n");
}

// Names of properties are not collected where they are made.
TEST(Program, ScriptThatHasBeenToldOfMemoryHasNoRoomToSayIt) {
  nsProgram program;
  const std::string script = program.Write("app.js", R"(
    const fill = (all) => { for (let i = 0;; ++i) all.set("k" + i, { i }); };
    const all = new Map();
    for (let round = 0; round < 4; ++round) {
      try { fill(all); }
      catch (error) { console.log(error, all.size > 1e4, [1, 2].map((n) => n + 1).join()); }
    }
    setTimeout(() => { all.clear(); }, 20);
    setTimeout(() => { console.log(Array.from({ length: 2e5 }, (_, i) => ({ i })).length); }, 40);
    setTimeout(() => { const all = []; for (let i = 0;; ++i) all.push({ i }); }, 60);
    setTimeout(() => { fill(new Map()); }, 80);
    setTimeout(() => { quit(4); }, 100);
  )");
  const nsOutcome outcome = program.Run({"--heap", "16", script});
  std::string told;
  for (int i = 0; i < 4; ++i) told += "out of memory true 2,3\n";
  EXPECT_EQ(outcome.mOutput, told + "200000\n");
  EXPECT_EQ(outcome.mStatus, 4);
  // That of the names may have no place.
  EXPECT_TRUE(outcome.mErrors.find("app.js:10: out of memory\nvorel: ") != std::string::npos &&
              outcome.mErrors.ends_with("out of memory\n"))
      << outcome.mErrors;
}

TEST(Program, ChangeIsNotOneObjectInALineBehindThePicture) {
  nsProgram program;
  const std::string machine = program.Write("machine.json", R"({
    "interfaces": [{"name": "eth0", "label": "wired", "mac": "02-00-5E-10-00-01"}],
    "changes": [{"after": 0.2, "interfaces": {"set": [{"name": "eth0", "status": "down"}]}}]})");
  program.Start({"--machine", machine, "--watch", "--json"});
  ASSERT_TRUE(program.WaitFor("adapter-changed"));
  const nsOutcome outcome = program.Finish(SIGINT);
  EXPECT_EQ(outcome.mStatus, 0) << outcome.mErrors;
  std::istringstream lines(outcome.mOutput);
  std::string picture, change;
  ASSERT_TRUE(std::getline(lines, picture) && std::getline(lines, change));
  EXPECT_EQ(Json::parse(picture)["adapters"][0]["operStatus"], 1);
  const Json event = Json::parse(change);
  EXPECT_EQ(event["event"], "adapter-changed");
  EXPECT_EQ(event["adapter"]["label"], "wired");
  EXPECT_EQ(event["adapter"]["operStatus"], 2);
}

TEST(Program, NameFromTheMachineIsTakenForANumber) {
  nsProgram program;
  const std::string machine = program.Write("machine.json", R"({"interfaces": [
    {"name": "eth0", "label": "\u000112", "description": "\"\u00011", "mac": "02-00-5E-10-00-01",
     "speed": 9223372036854775807}]})");
  const Json adapter = PictureOf(program.Run({"--machine", machine, "--json"}))["adapters"][0];
  EXPECT_EQ(adapter["label"], "\u000112");
  for (const char* none : {"reservedCounterA", "reservedCounterB", "isAlwaysFalse", "dhcpv4Server",
                           "isDnsDhcpEnabled", "igmpVersion"})
    EXPECT_FALSE(adapter.contains(none)) << none << " is no fact";
  EXPECT_EQ(adapter["description"], "\"\u00011");
  EXPECT_EQ(adapter["transmitLinkSpeed"], 9223372036854775807);
}

// A binding may be in force on any adapter that its class chooses.
TEST(Program, BindingStaysWhenItsAdapterGoes) {
  nsProgram program;
  program.Write("application/chrome.manifest", R"(
component {6f0a5b4e-6c0b-4a6c-9a55-9a3c1df3b6a2} upload.js
contract @test/upload;1 {6f0a5b4e-6c0b-4a6c-9a55-9a3c1df3b6a2}
category vorel-application-profile-binding storage-external-medias-reader.mass-storage.usb.* @test/upload;1
)");
  program.Write("application/upload.js", R"(
class Upload {
  adapter = null;
  applicationProfile = null;
  init(adapter, profile, branch) {
    this.adapter = [...systemManager.adapters].find(({ label }) => label === "wired");
    this.applicationProfile = profile;
  }
  isEnabled() { return true; }
}
const NSGetFactory = () => Upload;
)");
  program.Write("application/defaults/preferences/test.js", R"(
pref("vorel.app-profile.storage-external-medias-reader.mass-storage.usb.*.authorized", true);
)");
  const std::string application = program.Directory() + "/application";
  const std::string machine = program.Write("machine.json", R"({
    "volumes": [{"letter": "E", "kind": "removable", "bus": "usb", "root": "stick"}],
    "interfaces": [{"name": "eth0", "label": "wired", "mac": "02-00-5E-10-00-01"}],
    "changes": [{"after": 0.2, "interfaces": {"remove": ["eth0"]}}]})");

  program.Start({"--machine", machine, "--app", application, "--watch", "--json"});
  ASSERT_TRUE(program.WaitFor("binding-removed"));
  std::istringstream lines(program.Finish(SIGINT).mOutput);
  std::string picture, first, second;
  ASSERT_TRUE(std::getline(lines, picture) && std::getline(lines, first) &&
              std::getline(lines, second));
  EXPECT_EQ(Json::parse(picture)["bindings"],
            (Json{{{"profile", "storage-external-medias-reader"}, {"adapter", 0}}}));
  EXPECT_EQ(Json::parse(first)["event"], "adapter-removed");
  const Json event = Json::parse(second);
  EXPECT_EQ(event["event"], "binding-removed");
  EXPECT_EQ(event["binding"]["profile"], "storage-external-medias-reader");
  EXPECT_EQ(event["binding"]["adapter"]["label"], "wired");

  // An application hears the same, and has the last word.
  const nsOutcome outcome =
      program.Run({"--machine", machine, "--app", application, program.Write("app.js", R"(
    const adapters = { onAdapterRemoved: ({ label }) => console.log("-", label) };
    const bindings = {
      onProfileBindingRemoved({ applicationProfile, adapter }) {
        console.log("-", applicationProfile.name, "on", adapter.label);
        systemManager.removeAdapterListener(adapters);
        systemManager.removeProfileBindingListener(bindings);
        quit(7);
      },
    };
    systemManager.addAdapterListener(adapters);
    systemManager.addProfileBindingListener(bindings);)")});
  EXPECT_EQ(outcome.mOutput, "- wired\n- storage-external-medias-reader on wired\n");
  EXPECT_EQ(outcome.mStatus, 7) << outcome.mErrors;
}

TEST(Program, ObjectIsAnInstanceOfAClassThatSharesAnInterface) {
  nsProgram program;
  EXPECT_EQ(program
                .Run({"-e",
                      "[systemManager, systemMaintenance].map((object) =>"
                      " `${object instanceof SystemManager} ${object instanceof SystemMaintenance}`"
                      ").join()"})
                .mOutput,
            "true false,false true\n");
}

TEST(Program, InterruptedFollowerDiesByTheSignal) {
  nsProgram program;
  program.Start({"--machine", SourceFile("app/machines/kiosk.json"), "--watch"});
  ASSERT_TRUE(program.WaitFor("addon-manager"));
  EXPECT_EQ(program.Finish(SIGINT).mStatus, 0);
}
