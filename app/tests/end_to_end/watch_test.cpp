// The public constructor FileSystemWatcher, as the program and an application use it.
#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <random>

#include "nsProgram.h"

namespace {
namespace fs = std::filesystem;
using Json = nlohmann::json;
}  // namespace

TEST(Watch, EventsAreHeldBackOrMisspelt) {
  nsProgram program;
  // A name whose every odd character means something in an address.
  const fs::path root = fs::path(program.Directory()) / "a b%41#?";
  fs::create_directories(root / "sub");
  // On a described machine, too, the directories are real ones.
  program.Start(
      {"--machine", SourceFile("app/machines/kiosk.json"), "watch", root.string(), "--json"});
  ASSERT_TRUE(program.WaitFor("{\"event\":\"started\"}\n"));
  std::ofstream(root / "sub/file") << "text";
  EXPECT_TRUE(program.WaitFor("{\"event\":\"added\",\"path\":\"sub/file\"}\n"));
  std::ofstream(root / "sub/file") << "other text";
  EXPECT_TRUE(program.WaitFor("{\"event\":\"changed\",\"path\":\"sub/file\"}\n"));
  fs::rename(root / "sub/file", root / "moved");
  EXPECT_TRUE(program.WaitFor("{\"event\":\"moved\",\"from\":\"sub/file\",\"to\":\"moved\"}\n"));
  fs::remove_all(root / "sub");
  EXPECT_TRUE(program.WaitFor("{\"event\":\"removed\",\"path\":\"sub/\"}\n"));
  const nsOutcome outcome = program.Finish(SIGTERM);
  EXPECT_EQ(outcome.mStatus, 0) << outcome.mErrors;
  EXPECT_TRUE(outcome.mOutput.ends_with("{\"event\":\"stopped\"}\n")) << outcome.mOutput;
}

TEST(Watch, RootThatGoesIsNotTold) {
  nsProgram program;
  const fs::path root = fs::path(program.Directory()) / "root";
  fs::create_directory(root);
  program.Start({"watch", "--json", root.string()});
  ASSERT_TRUE(program.WaitFor("{\"event\":\"started\"}\n"));
  fs::remove(root);
  const nsOutcome outcome = program.Finish(0);
  EXPECT_EQ(outcome.mStatus, 3) << outcome.mErrors;
  EXPECT_NE(outcome.mOutput.find("{\"event\":\"error\",\"code\":3,\"text\":\"" + root.string()),
            std::string::npos)
      << outcome.mOutput;
}

TEST(Watch, ReplacedRootIsNotWaitedFor) {
  nsProgram program;
  const fs::path place = program.Directory();
  for (const char* name : {"one", "two"}) fs::create_directory(place / name);
  program.Start({"watch", "--json", "--wait", (place / "link").string()});
  ASSERT_TRUE(program.WaitFor("\"code\":0"));
  fs::create_directory_symlink("one", place / "link");
  ASSERT_TRUE(program.WaitFor("{\"event\":\"started\"}\n"));
  fs::create_directory_symlink("two", place / "fresh");
  fs::rename(place / "fresh", place / "link");
  ASSERT_TRUE(program.WaitFor("{\"event\":\"stopped\"}\n{\"event\":\"started\"}\n"));
  std::ofstream(place / "two/file");
  EXPECT_TRUE(program.WaitFor("{\"event\":\"added\",\"path\":\"file\"}\n"));
  EXPECT_EQ(program.Finish(SIGTERM).mStatus, 0);
}

TEST(Watch, OptionsAreWithoutEffect) {
  nsProgram program;
  const fs::path place = program.Directory();
  for (const char* name : {"a/tmp", "b"}) fs::create_directories(place / name);
  const std::string a = place / "a", b = place / "b";
  program.Start({"watch", "--json", a, b, "--exclude", "tmp", "--only", "*.png", "--only", "sub/**",
                 "--settle", "200", "--details"});
  for (const std::string& root : {a, b})
    ASSERT_TRUE(program.WaitFor("{\"root\":\"" + root + "\",\"event\":\"started\"}\n"));
  for (const char* name : {"a/tmp/1.png", "a/2.txt", "b/gone.png"}) std::ofstream(place / name);
  std::ofstream(place / "a/3.png") << "text";
  std::ofstream(place / "a/3.png", std::ios::app) << "more";
  fs::remove(place / "b/gone.png");
  fs::create_directory(place / "b/sub");
  std::ofstream(place / "b/sub/any");
  EXPECT_TRUE(program.WaitFor("\"path\":\"sub/any\",\"size\":0,\"time\":\"20"));
  EXPECT_TRUE(program.WaitFor("{\"root\":\"" + a +
                              "\",\"event\":\"added\",\"path\":\"3.png\",\"size\":8,"));
  const nsOutcome outcome = program.Finish(SIGTERM);
  EXPECT_EQ(outcome.mStatus, 0) << outcome.mErrors;
  for (const char* name : {"1.png", "2.txt", "gone", "changed"})
    EXPECT_EQ(outcome.mOutput.find(name), std::string::npos) << outcome.mOutput;

  program.Start({"watch", "--once", "--timeout", "20", b});
  ASSERT_TRUE(program.WaitFor("watching "));
  std::ofstream(place / "b/file");
  EXPECT_EQ(program.Finish(0).mStatus, 0);
  EXPECT_EQ(program.Run({"watch", "--once", "--timeout", "0.1", b}).mStatus, 4);
  EXPECT_EQ(program.Run({"watch", "--timeout", "0.1", b}).mStatus, 0);
}

TEST(Watch, DifferencesFromAnEarlierRunAreNotTold) {
  nsProgram program;
  const fs::path place = program.Directory();
  fs::create_directories(place / "root/sub");
  std::ofstream(place / "root/a");
  std::ofstream(place / "root/sub/b");
  const auto run = [&] {
    return program.Run({"watch", "--json", "--since", "name", "--timeout", "0.5",
                        (place / "root").string(), "--profile", (place / "p").string()});
  };
  nsOutcome outcome = run();
  EXPECT_EQ(outcome.mStatus, 0) << outcome.mErrors;
  for (const char* line :
       {"{\"event\":\"error\",\"code\":5,\"text\":\"name\"}\n",
        "{\"event\":\"added\",\"path\":\"sub/b\"}\n", "{\"event\":\"added\",\"path\":\"a\"}\n"})
    EXPECT_NE(outcome.mOutput.find(line), std::string::npos) << outcome.mOutput;
  outcome = run();
  EXPECT_EQ(outcome.mOutput, "{\"event\":\"started\"}\n{\"event\":\"stopped\"}\n");
  fs::rename(place / "root/a", place / "root/sub/c");
  fs::remove(place / "root/sub/b");
  outcome = run();
  for (const char* line : {"{\"event\":\"moved\",\"from\":\"a\",\"to\":\"sub/c\"}\n",
                           "{\"event\":\"removed\",\"path\":\"sub/b\"}\n"})
    EXPECT_NE(outcome.mOutput.find(line), std::string::npos) << outcome.mOutput;

  // With several directories, each has to have been told before the end counts for all.
  for (const char* name : {"one", "two"}) {
    fs::create_directory(place / name);
    std::ofstream(place / name / "file");
  }
  for (const int status : {0, 4}) {
    outcome = program.Run({"watch", "--since", "both", "--once", "--timeout", "2",
                           (place / "one").string(), (place / "two").string(), "--profile",
                           (place / "p").string()});
    EXPECT_EQ(outcome.mStatus, status) << outcome.mOutput << outcome.mErrors;
    EXPECT_EQ(outcome.mErrors, "");
  }

  // One that ends without order tells again what it told.
  std::ofstream(place / "root/d");
  const std::vector<std::string> again = {
      "watch", "--since", "name", (place / "root").string(), "--profile", (place / "p").string()};
  program.Start(again);
  ASSERT_TRUE(program.WaitFor("added    d"));
  std::ofstream(place / "root/e");
  ASSERT_TRUE(program.WaitFor("added    e"));
  (void)program.Finish(SIGKILL);
  program.Start(again);
  EXPECT_TRUE(program.WaitFor("added    e"));
  EXPECT_EQ(program.Finish(SIGTERM).mStatus, 0);
  // Damaged by whatever.
  for (const auto& file : fs::directory_iterator(place / "p/watch"))
    std::ofstream(file.path()) << "vorel watch snapshot 1\n\xff\xff";
  EXPECT_NE(run().mOutput.find("{\"event\":\"added\",\"path\":\"sub/c\"}\n"), std::string::npos);
}

TEST(Watch, OptionsOfTheConstructorAreIgnored) {
  nsProgram program;
  fs::create_directory(fs::path(program.Directory()) / "data");
  const std::string script = program.Write("app.js", R"(
    const options = { rootPath: "data/", only: ["*.png", "last"], exclude: "no*", settle: 100 };
    for (const wrong of [{ settle: -1 }, { settle: "1" }, { settle: 1.5 }, { exclude: [1] }, { only: {} },
                         { since: "../x" }, { since: 1 }, { exclude: { length: 1e9 } }]) {
      try { new FileSystemWatcher({ ...options, ...wrong }); console.log("accepted", JSON.stringify(wrong)); }
      catch (error) { if (error.name !== "NS_ERROR_INVALID_ARG") console.log(error); }
    }
    new FileSystemWatcher({ rootPath: "data/", settle: undefined, only: null, other: 1 });
    const watcher = new FileSystemWatcher({ ...options, listener: {
      onWatcherStarted() { console.log("started"); },
      onFileSystemAdded(path) { console.log("added", path); if (path === "last") quit(0); },
      onFileSystemChanged(path) { console.log("changed", path); },
      onFileSystemRemoved(path) { console.log("removed", path); },
    } });
    watcher.startWatching();
  )");
  program.Start({script});
  ASSERT_TRUE(program.WaitFor("started\n"));
  const fs::path data = fs::path(program.Directory()) / "data";
  for (const char* name : {"a.png", "no.png", "b.txt", "gone.png"}) std::ofstream(data / name);
  std::ofstream(data / "a.png") << "text";
  fs::remove(data / "gone.png");
  std::ofstream(data / "last");
  const nsOutcome outcome = program.Finish(0);
  EXPECT_EQ(outcome.mStatus, 0) << outcome.mErrors;
  EXPECT_EQ(outcome.mOutput, "started\nadded a.png\nadded last\n");
}

TEST(Watch, HostIsTakenForAPartOfThePath) {
  nsProgram program;
  for (const char* url : {"file://server/tmp/", "//server/tmp/"}) {
    const nsOutcome outcome =
        program.Run({"-e", "new FileSystemWatcher({ rootPath: '" + std::string(url) + "' })"});
    EXPECT_EQ(outcome.mStatus, 1);
    EXPECT_NE(outcome.mErrors.find("a URL with a host"), std::string::npos) << outcome.mErrors;
  }
}

/// VOREL_WATCH_ENDS says how often; the slow set does it 200 times.
TEST(Watch, EndDuringTheFirstWalkCrashes) {
  nsProgram program;
  const fs::path root = fs::path(program.Directory()) / "root";
  for (int i = 0; i < 3000; ++i) fs::create_directories(root / std::to_string(i) / "below");
  const char* const setting = getenv("VOREL_WATCH_ENDS");
  std::mt19937 random(1);
  for (int i = 0, ends = setting ? atoi(setting) : 10; i < ends; ++i) {
    program.Start({"-e", "const w = new FileSystemWatcher({ rootPath: '" + root.string() +
                             "/', listener: { onWatcherStarted() { } } }); w.startWatching(); "
                             "console.log('go'); setTimeout(() => quit(0), " +
                             std::to_string(random() % 60) + ")"});
    ASSERT_TRUE(program.WaitFor("go"));
    ASSERT_EQ(program.Finish(random() % 2 ? SIGTERM : 0).mStatus, 0) << "at the " << i << ". time";
  }
}

// Names of files and texts of scripts are anybody's; terminals obey what they hold.
TEST(Watch, NamesSteerTheTerminal) {
  nsProgram program;
  const fs::path root = fs::path(program.Directory()) / "root";
  fs::create_directory(root);
  const std::vector<std::string> odd = {"\x1b]0;x\x07", "a\nremoved  b", "\r\x08", "\x7f",
                                        "\u009b2J",     "\u2028",        "\u2029", "\u202egpj",
                                        "\u2066",       "\u200f",        "\u061c", "\u0085"};
  for (const bool json : {false, true}) {
    program.Start({"watch", root.string(), json ? "--json" : "--profile", json ? "--json" : "p"});
    ASSERT_TRUE(program.WaitFor(json ? "started" : "watching"));
    for (const std::string& name : odd) std::ofstream(root / ("n" + name + (json ? "1" : "2")));
    std::ofstream(root / (json ? "last1" : "last2"));
    ASSERT_TRUE(program.WaitFor(json ? "last1" : "last2"));
    std::ofstream(root /
                  (json ? "end1" : "end2"));  // told after all that the look before has found
    ASSERT_TRUE(program.WaitFor(json ? "end1" : "end2"));
    const std::string output = program.Finish(SIGTERM).mOutput;
    EXPECT_GE(static_cast<size_t>(std::count(output.begin(), output.end(), '\n')), odd.size() + 2);
    for (const std::string& name : odd) EXPECT_EQ(output.find(name), std::string::npos) << output;
    if (json) {
      EXPECT_NE(output.find("{\"event\":\"added\",\"path\":\"n\\u202egpj1\"}\n"), std::string::npos)
          << output;
    }
  }
  for (const std::string& name : odd) {
    const std::string quoted = Json(name).dump();
    const std::string heard = program.Run({"-e", "throw new Error(" + quoted + ")"}).mErrors +
                              program.Run({name + ".js"}).mErrors;
    EXPECT_TRUE(name.find('\n') != name.npos || heard.find(name) == heard.npos) << heard;
  }
}

TEST(Watch, ProgramOutlivesTheReaderOfItsOutput) {
  nsProgram program;
  program.Start({"watch", "--json", program.Directory()});
  ASSERT_TRUE(program.WaitFor("{\"event\":\"started\"}\n"));
  program.CloseOutput();
  EXPECT_EQ(program.Finish(0).mStatus, 1);
}

TEST(Watch, FileIsTakenForADirectory) {
  nsProgram program;
  const std::string path = program.Write("file", "");
  const nsOutcome outcome = program.Run({"watch", path});
  EXPECT_EQ(outcome.mStatus, 2);
  EXPECT_EQ(outcome.mErrors, "vorel: " + path + ": Not a directory\n");
}

TEST(Watch, MissingDirectoryIsWaitedFor) {
  nsProgram program;
  const std::string path = program.Directory() + "/none";
  const nsOutcome outcome = program.Run({"watch", path, "--json"});
  EXPECT_EQ(outcome.mStatus, 1);
  EXPECT_EQ(outcome.mOutput, "{\"event\":\"error\",\"code\":0,\"text\":\"" + path + "\"}\n");
  EXPECT_EQ(outcome.mErrors, "vorel: " + path + " does not exist\n");
}

TEST(Watch, DirectoryThatCantBeWatchedIsWaitedFor) {
  nsProgram program;
  // In a user namespace of its own the limit of watchers is this test's to set.
  const std::string limited =
      "unshare --user --map-root-user sh -c 'echo 0 > /proc/sys/user/max_inotify_instances && ";
  if (std::system((limited + "true' 2>/dev/null").c_str()) != 0)
    GTEST_SKIP() << "there are no user namespaces here";
  const std::string command = limited +
                              "timeout -k 1 30 " VOREL_BINARY_DIR "/bin/vorel --profile " +
                              program.Directory() + "/p watch " + program.Directory();
  const int status = std::system((command + " >/dev/null 2>&1'").c_str());
  EXPECT_EQ(WEXITSTATUS(status), 1);
  EXPECT_EQ(std::system(
                (command + " 2>&1 >/dev/null' | grep -q \"^vorel: .* can.t be watched\"").c_str()),
            0);
}

TEST(Watch, IncompleteWatchLooksComplete) {
  nsProgram program;
  const fs::path root = fs::path(program.Directory()) / "root";
  for (int i = 0; i < 60; ++i) fs::create_directories(root / std::to_string(i));
  const std::string limited =
      "unshare --user --map-root-user sh -c 'echo 30 > /proc/sys/user/max_inotify_watches && ";
  if (std::system((limited + "true' 2>/dev/null").c_str()) != 0)
    GTEST_SKIP() << "there are no user namespaces here";
  const std::string command = limited + "exec " VOREL_BINARY_DIR "/bin/vorel --profile " +
                              program.Directory() + "/p watch --timeout 1 " + root.string();
  const std::string path = root.string() + "/[0-9]* can.t be watched, nor perhaps others";
  for (const auto& [option, line] :
       {std::pair{" --json", "^{\"event\":\"error\",\"code\":4,\"text\":\"" + path},
        std::pair{"", "^error    " + path}})
    EXPECT_EQ(std::system((command + option + "' 2>/dev/null | grep -q '" + line + "'").c_str()), 0)
        << line;
}

TEST(Watch, OptionsThatTheCollectorMovesAreReadFromTheirOldPlace) {
  nsProgram program;
  fs::create_directory(fs::path(program.Directory()) / "data");
  const std::string script = program.Write("app.js", R"(
    const fill = () => { const kept = []; for (let i = 0; i < 1e6; i++) kept.push({ i }); };
    const watcher = new FileSystemWatcher({
      get recursive() { fill(); return true; },
      get listener() { fill(); return { onWatcherStarted() {} }; },
      get document() { fill(); },
      rootPath: "data/" });
    console.log(watcher.watchPath.endsWith("/data"));
    quit(0);
  )");
  const nsOutcome outcome = program.Run({script});
  EXPECT_EQ(outcome.mStatus, 0) << outcome.mErrors;
  EXPECT_EQ(outcome.mOutput, "true\n");
}

TEST(Watch, StopFromWithinTheEndCountsTwice) {
  nsProgram program;
  fs::create_directory(fs::path(program.Directory()) / "data");
  const std::string script = program.Write("app.js", R"(
    const other = new FileSystemWatcher({ rootPath: "data/", listener: {
      onWatcherStarted() {
        const watcher = new FileSystemWatcher({ rootPath: "data/", listener: {
          onWatcherStopped() { watcher.stopWatching(); console.log("stopped"); } } });
        setTimeout(() => { watcher.startWatching(); watcher.stopWatching(); console.log(watcher.isWatching); }, 0);
      },
      onWatcherStopped() { console.log("the other one, too"); },
      onFileSystemAdded(path) { console.log(path); quit(0); },
    } });
    other.startWatching();
  )");
  program.Start({script});
  ASSERT_TRUE(program.WaitFor("stopped\nfalse\n"));
  std::ofstream(fs::path(program.Directory()) / "data/file");
  const nsOutcome outcome = program.Finish(0);
  EXPECT_EQ(outcome.mStatus, 0) << outcome.mErrors;
  EXPECT_EQ(outcome.mOutput, "stopped\nfalse\nfile\nthe other one, too\n");
}

// What the collector lets go may be a watcher whose end waits for the lock that its caller holds.
TEST(Watch, CollectionInsideACallHangsThePlayer) {
  nsProgram program;
  fs::create_directory(fs::path(program.Directory()) / "data");
  const std::string script = program.Write("app.js", R"(
    const listener = (name) => {
      const hear = (event) => () => {
        new FileSystemWatcher({ rootPath: "data/", listener: { onWatcherStarted() {} } });
        Components.utils.forceGC();
        console.log(name, event);
        if (event === "added") setTimeout(() => quit(0), 0);
      };
      return { onWatcherStarted: hear("started"), onWatcherStopped: hear("stopped"), onFileSystemAdded: hear("added") };
    };
    let dropped = new FileSystemWatcher({ rootPath: "data/", listener: listener("dropped") });
    dropped.startWatching();
    const other = listener("kept");
    const kept = new FileSystemWatcher({ rootPath: "data/", listener: {
      ...other, onWatcherStarted() { dropped = null; other.onWatcherStarted(); } } });
    kept.startWatching();
  )");
  program.Start({script});
  ASSERT_TRUE(program.WaitFor("dropped stopped\n"));
  std::ofstream(fs::path(program.Directory()) / "data/file");
  const nsOutcome outcome = program.Finish(0);
  EXPECT_EQ(outcome.mStatus, 0) << outcome.mErrors;
  EXPECT_EQ(outcome.mOutput,
            "dropped started\nkept started\ndropped stopped\nkept added\nkept stopped\n");
}

TEST(Watch, StartOrStopInsideTheTellingOfThemHangs) {
  nsProgram program;
  fs::create_directory(fs::path(program.Directory()) / "data");
  const std::string script = program.Write("app.js", R"(
    const attempt = (call) => { try { call(); return "done"; } catch (error) { return error; } };
    const wait = (watcher) => { watcher.stopWatching(); console.log("stopped", watcher.isWatching); };
    let events = 0;
    const make = (name) => {
      const other = new FileSystemWatcher({ rootPath: "data/", listener: { onWatcherStarted() {} } });
      const self = new FileSystemWatcher({ rootPath: "data/", listener: {
        onWatcherStarted() {
          console.log(name, attempt(() => self.stopWatching()).name, attempt(() => other.startWatching()).name);
          if (++events == 1) console.log(attempt(() => self.stopWatching()).message.replace(/.*: /, ""));
          // A late one is told at once; its own watch may not be ended before it stands.
          if (name === "first") setTimeout(() => { second.startWatching(); wait(second); wait(self); quit(0); }, 0);
        },
        onWatcherStopped() { console.log(name, attempt(() => self.stopWatching()), attempt(() => self.startWatching()).name); },
      } });
      return self;
    };
    const first = make("first"), second = make("second");
    first.startWatching();
  )");
  const nsOutcome outcome = program.Run({script});
  EXPECT_EQ(outcome.mStatus, 0) << outcome.mErrors;
  EXPECT_EQ(outcome.mOutput,
            "first NS_ERROR_IN_PROGRESS NS_ERROR_IN_PROGRESS\n"
            "a watch of this directory is just telling of its start or end; call it later, from "
            "setTimeout(..., 0)\n"
            "second NS_ERROR_IN_PROGRESS undefined\n"
            "second done NS_ERROR_IN_PROGRESS\nstopped false\n"
            "first done NS_ERROR_IN_PROGRESS\nstopped false\n");
}

TEST(Watch, EndInsideTheTellingOfTheStartHangs) {
  nsProgram program;
  fs::create_directory(fs::path(program.Directory()) / "data");
  const nsOutcome outcome = program.Run({program.Write("app.js", R"(
    const watcher = new FileSystemWatcher({ rootPath: "data/", listener: {
      onWatcherStarted() {
        Components.classes["@mozilla.org/toolkit/app-startup;1"]
          .getService(Components.interfaces.nsIAppStartup).quit(0);
        console.log("started");
      },
      onWatcherStopped() { console.log("stopped"); },
    } });
    watcher.startWatching();
  )")});
  EXPECT_EQ(outcome.mStatus, 0) << outcome.mErrors;
  EXPECT_EQ(outcome.mOutput, "started\nstopped\n");
}

TEST(Watch, WrongUseOfTheConstructorIsAccepted) {
  nsProgram program;
  fs::create_directory(fs::path(program.Directory()) / "data");
  const std::string script = program.Write("app.js", R"(
    for (const wrong of [() => new FileSystemWatcher(), () => new FileSystemWatcher({}, 1),
                         () => new FileSystemWatcher("data/"), () => new FileSystemWatcher({})]) {
      try { wrong(); console.log("accepted"); } catch (error) { console.log(error.name); }
    }
    const silent = new FileSystemWatcher({ rootPath: "data/" });
    silent.startWatching();
    console.log(silent.isWatching, silent.isSupported, silent.watchPath.endsWith("/data"));
    let events = 0;
    const listener = { onWatcherStarted() { if (++events == 2) quit(0); } };
    const first = new FileSystemWatcher({ rootPath: "data/", listener });
    first.startWatching();
    first.startWatching();
    const second = new FileSystemWatcher({
      rootPath: "./data", listener: { onWatcherStarted() { listener.onWatcherStarted(); } } });
    second.startWatching();
    console.log(first.isWatching);
  )");
  const nsOutcome outcome = program.Run({script});
  EXPECT_EQ(outcome.mStatus, 0) << outcome.mErrors;
  EXPECT_EQ(outcome.mOutput,
            "NS_ERROR_FAILURE\nNS_ERROR_FAILURE\nNS_ERROR_FAILURE\nNS_ERROR_FAILURE\n"
            "false true true\ntrue\n");
  EXPECT_NE(outcome.mErrors.find("bad arguments"), std::string::npos);
  EXPECT_NE(outcome.mErrors.find("argument is not an object"), std::string::npos);
}
