// What verify says about debug injections, init scripts and who may write what root runs.

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "tests/support/scratch_root.h"
#include "tests/unit/analyze/image_fixture.h"

namespace bootforge::analyze::test {
namespace {

namespace fs = std::filesystem;

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr const char* kDebug = "/etc/nimbus/bootforge/debug.conf";
constexpr const char* kLsb = "### BEGIN INIT INFO\n";

class VerifyDebug : public ImageTest {};

TEST_F(VerifyDebug, InjectionsAreActiveAtTheFirst) {
  put(kDebug, "\nno entry\n  one:::true\ntwo: : :true\nthree:a: :true\n");
  EXPECT_THAT(told(), ElementsAre("warning debug-active /etc/nimbus/bootforge/debug.conf:4:1 two: "
                                  "the image has 2 debug injections"));
}

TEST_F(VerifyDebug, OneInjectionIsOne) {
  put(kDebug, "one: : :true");
  EXPECT_THAT(told(), ElementsAre(HasSubstr(":1:1 one: the image has 1 debug injection")));
}

TEST_F(VerifyDebug, EveryBadEscapeIsFound) {
  put(kDebug, "one:a\\x:b:c\n two: :b\\:c\nthree: : :true\n");
  EXPECT_THAT(
      told(),
      ElementsAre(HasSubstr("error debug-invalid /etc/nimbus/bootforge/debug.conf:1:1 one:"),
                  HasSubstr("error debug-invalid /etc/nimbus/bootforge/debug.conf:2:2 two:"),
                  HasSubstr("warning debug-active /etc/nimbus/bootforge/debug.conf:3:1 "
                            "three:")));
}

TEST_F(VerifyDebug, MissingEmptyAndUnreadableConfigurationsInjectNothing) {
  EXPECT_THAT(told(), IsEmpty());
  put(kDebug, "");
  EXPECT_THAT(told(), IsEmpty());
  fs::remove(std::string(kRoot) + kDebug);
  fs::create_directory(std::string(kRoot) + kDebug);
  EXPECT_THAT(told(), IsEmpty());
}

class VerifyInit : public ImageTest {
 protected:
  VerifyInit() { put("/bin/sh", "", 0755); }

  void script(const std::string& name, const std::string& text, mode_t mode = 0755) {
    put("/etc/init.d/" + name, text, mode);
  }
  void launcher(const std::string& name, const std::string& target) {
    const std::string folder = std::string(kRoot) + "/usr/lib/nimbus/bootforge/init.d";
    fs::create_directories(folder);
    fs::create_symlink(target, folder + '/' + name);
  }
  static std::string listed(const std::string& head = "#!/bin/sh\n") {
    return head + "# chkconfig: 2345 20 80\n";
  }
};

TEST_F(VerifyInit, GoodScriptHasNoFindings) {
  script("a", listed());
  script("b", listed("#! /bin/sh -e\n"));
  script("c", listed("\x7f"
                     "ELF"));
  EXPECT_THAT(told(), IsEmpty());
}

TEST_F(VerifyInit, ScriptThatCannotBeRunIsFoundWithoutDaemonsToo) {
  put("/bin/plain", "");
  script("a", listed(), 0644);
  script("b", listed("# none\n"));
  script("c", listed("#!/bin/none -x\n"));
  script("d", listed("#!/bin/plain\n"));
  script("e", listed("#! \n"));
  script("f", listed("#!/bin/sh\r\n"));
  script("g", listed("# none\n"), 0600);
  const std::string rule = "error init-script-unrunnable /etc/init.d/";
  const std::string reason = ": the init script cannot be run: ";
  const auto all =
      ElementsAre(rule + "a a" + reason + "it is not executable",
                  rule + "b b" + reason + "it has no interpreter line",
                  rule + "c c" + reason + "its interpreter /bin/none is missing",
                  rule + "d d" + reason + "its interpreter /bin/plain is not executable",
                  rule + "e e" + reason + "its interpreter line names no interpreter",
                  rule + "f f" + reason + "its interpreter /bin/sh\r is missing",
                  rule + "g g" + reason + "it is not executable, and it has no interpreter line");
  EXPECT_THAT(told(), all);
  options_.daemons = true;
  EXPECT_THAT(told(), all);
}

TEST_F(VerifyInit, ScriptsThatWouldNeverBeListedAreNotLookedAt) {
  script("a", "no priority");
  script("b c", listed("none"));
  fs::create_directory(std::string(kRoot) + "/etc/init.d/folder");
  fs::create_symlink("nowhere", std::string(kRoot) + "/etc/init.d/link");
  EXPECT_THAT(told(), IsEmpty());
}

TEST_F(VerifyInit, ScriptWithALinkOfARunLevelIsListed) {
  script("a", "x", 0644);
  script("b", "x", 0644);
  script("c", "x", 0644);
  for (const char* link : {"/etc/rc3.d/S20a", "/etc/rc2.d/S5b", "/etc/rc3.d/K20c"}) put(link, "");
  EXPECT_THAT(told(), ElementsAre(HasSubstr("/etc/init.d/a a:"), HasSubstr("/etc/init.d/b b:")));
}

TEST_F(VerifyInit, ScriptWithAnLsbHeaderNeedsALauncherLink) {
  script("a", listed() + kLsb);
  script("b", listed() + kLsb);
  script("c", listed() + kLsb);
  script("d", listed() + kLsb, 0644);
  script("e", "#!/bin/sh\n### BEGIN INIT INFO\n");
  launcher("b", "/usr/lib/nimbus/bootforge/launch");
  launcher("c", "/bin/true");
  const std::string rule = "warning init-script-no-launcher /etc/init.d/";
  const std::string reason = ": the init script has an LSB header and no launcher link";
  EXPECT_THAT(told("init-script-no-launcher"),
              ElementsAre(rule + "a a" + reason, rule + "c c" + reason, rule + "d d" + reason));
}

TEST_F(VerifyInit, ScriptsOfAListAreLookedAtInPlaceOfTheFolders) {
  script("a", "unlisted", 0755);
  script("b", listed(), 0644);
  launcher("a", "/usr/lib/nimbus/bootforge/launch");
  options_.initList = "/usr/lib/nimbus/bootforge/init.d/a 5\n/opt/none\n\n/opt//script 7\n";
  put("/opt/script", "#!/bin/sh\n", 0755);
  EXPECT_THAT(told(),
              ElementsAre("error init-script-unrunnable /etc/init.d/a a: the init script cannot be "
                          "run: it has no interpreter line",
                          "error init-script-unrunnable /opt/none none: the init script cannot be "
                          "run: there is no such file"));
}

TEST_F(VerifyInit, DaemonsStandInPlaceOfPluginsAndCommands) {
  putPlugin("a.json", "x");
  fs::remove_all(std::string(kRoot) + kCommands);
  script("a", "x");
  put(kDebug, "one: : :true");
  options_.daemons = true;
  EXPECT_THAT(told(), IsEmpty());
}

class VerifyOwners : public ImageTest {
 protected:
  static void change(const std::string& path, mode_t mode) {
    ASSERT_EQ(::chmod((kRoot + path).c_str(), mode), 0) << path;
  }
  static void give(const std::string& path, uid_t owner) {
    ASSERT_EQ(::chown((kRoot + path).c_str(), owner, 0), 0) << path;
  }
  static std::string inPlugins(const std::string& name) { return kPlugins + ('/' + name); }
};

TEST_F(VerifyOwners, EveryKindOfFileIsJudged) {
  putCommand();
  put("/bin/sh", "", 0755);
  putPlugin("a.json", Text{});
  putPlugin("b.so", "");
  putPlugin("c.debug", "");
  putPlugin("d.txt", "");
  put(kDebug, "");
  put("/etc/init.d/script", "#!/bin/sh\n# chkconfig: 1 2 3\n", 0755);
  for (const char* name : {"a.json", "b.so", "c.debug", "d.txt"}) change(inPlugins(name), 0666);
  change(std::string(kCommands) + "/host.json", 0620);
  change(kDebug, 0602);
  change("/etc/init.d/script", 0775);
  const std::string rule = "warning writable-by-others ";
  const auto line = [&](const std::string& path, const std::string& reason) {
    return rule + path + ' ' + path + ": " + reason;
  };
  EXPECT_THAT(told("writable-by-others"),
              ElementsAre(line("/etc/init.d/script", "its group may write it (mode 0775)"),
                          line(kDebug, "anybody may write it (mode 0602)"),
                          line("COMMANDS/host.json", "its group may write it (mode 0620)"),
                          line("PLUGINS/a.json", "anybody may write it (mode 0666)"),
                          line("PLUGINS/b.so", "anybody may write it (mode 0666)"),
                          line("PLUGINS/c.debug", "anybody may write it (mode 0666)")));
}

TEST_F(VerifyOwners, FoldersAboveAreJudgedOnce) {
  putPlugin("a.json", Text{});
  putPlugin("b.json", Text{});
  change("/", 0777);
  change("/usr", 0775);
  change("/usr/lib/nimbus", 01777);
  change(kPlugins, 0757);
  EXPECT_THAT(
      told(),
      ElementsAre("warning writable-by-others / /: anybody may write it (mode 0777)",
                  "warning writable-by-others /usr /usr: its group may write it (mode 0775)",
                  "warning writable-by-others /usr/lib/nimbus /usr/lib/nimbus: anybody may "
                  "write it (mode 1777)",
                  "warning writable-by-others PLUGINS PLUGINS: anybody may write it (mode "
                  "0757)"));
}

TEST_F(VerifyOwners, EmptyFoldersOfPluginsAndCommandsAreJudged) {
  change(std::string(kCommands) + "/int/ext", 0777);
  change(kPlugins, 0777);
  EXPECT_THAT(told(), ElementsAre(HasSubstr("COMMANDS/int/ext"), HasSubstr("PLUGINS")));
}

TEST_F(VerifyOwners, OwnerOtherThanRootIsFoundUnlessAccepted) {
  putPlugin("a.json", Text{});
  putPlugin("b.json", Text{});
  give(inPlugins("a.json"), 1000);
  give(inPlugins("b.json"), 1001);
  change(inPlugins("b.json"), 0664);
  EXPECT_THAT(told(),
              ElementsAre("warning writable-by-others PLUGINS/a.json PLUGINS/a.json: it belongs to "
                          "user 1000 (mode 0644)",
                          "warning writable-by-others PLUGINS/b.json PLUGINS/b.json: its group may "
                          "write it, and it belongs to user 1001 (mode 0664)"));
  owner_ = 1000;
  EXPECT_THAT(told(), ElementsAre(HasSubstr("PLUGINS/b.json:")));
}

TEST_F(VerifyOwners, LinksAreJudgedByTheirTarget) {
  put("/data/a", Text{}.json(), 0666);
  put("/data/b", Text{}.json(), 0644);
  fs::create_symlink("/data/a", std::string(kRoot) + inPlugins("a.json"));
  fs::create_symlink("/data/b", std::string(kRoot) + inPlugins("b.json"));
  EXPECT_THAT(told(), ElementsAre("warning writable-by-others PLUGINS/a.json PLUGINS/a.json: "
                                  "anybody may write it (mode 0666)"));
}

}  // namespace
}  // namespace bootforge::analyze::test
