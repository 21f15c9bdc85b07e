// Roots as nobody would make them on purpose: nothing in them holds the analyzer up, leads it out
// of the root, or is lost.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "analyze/image/wait_graph.h"
#include "analyze/planning/plan.h"
#include "analyze/verify/checks.h"
#include "tests/support/scratch_root.h"

namespace bootforge::analyze {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

constexpr const char* kSound =
    R"({"metadata": {"version": 1, "requires": [], "provides": []}, "operations": {"start": []}})";

class HostileRootTest : public ::testing::Test {
 protected:
  HostileRootTest() {
    options_.root = "/image";
    test::writeFile(inPlugins("sound.json"), kSound);
    test::writeFile("/outside/secret.json", kSound);
  }

  static std::string inPlugins(const std::string& name) {
    return "/image" + std::string(kDefaultPluginDirectory) + "/" + name;
  }

  static void link(const std::string& target, const std::string& name) {
    ASSERT_EQ(::symlink(target.c_str(), inPlugins(name).c_str()), 0);
  }

  /// Names of the plugins of a boot.
  std::vector<std::string> plugins() const {
    const Image image(options_);
    std::vector<std::string> names;
    for (const PluginFile& file : image.files()) {
      if (file.takesPart()) names.push_back(file.entry.baseName);
    }
    return names;
  }

  std::vector<std::string_view> rulesAbout(const std::string& name) const {
    const Image image(options_);
    std::vector<std::string_view> rules;
    for (const Finding& finding : verify(image, 0)) {
      if (finding.file == kDefaultPluginDirectory + ("/" + name)) {
        rules.push_back(finding.rule->name);
      }
    }
    return rules;
  }

  ImageOptions options_;
};

TEST_F(HostileRootTest, LinksDoNotLeadOutOfTheRoot) {
  link("/outside/secret.json", "absolute.json");
  link("../../../../../../../outside/secret.json", "dots.json");
  link("chain.json", "first.json");
  link("/usr/libexec/bootforge/plugins/absolute.json", "chain.json");
  ASSERT_EQ(::symlink("/outside", "/image/folder"), 0);
  link("/folder/secret.json", "folder.json");
  EXPECT_THAT(plugins(), ElementsAre("sound"));
  EXPECT_THAT(rulesAbout("dots.json"), ElementsAre("description-unreadable"));
}

TEST_F(HostileRootTest, LinksInsideTheRootAreFollowedAsABootFollowsThem) {
  link("/usr/libexec/bootforge/plugins/sound.json", "absolute.json");
  link("../../../../../../../usr/libexec/bootforge/plugins/sound.json", "dots.json");
  link("dots.json", "chain.json");
  EXPECT_THAT(plugins(), UnorderedElementsAre("sound", "absolute", "dots", "chain"));
}

TEST_F(HostileRootTest, WhatIsNoFileIsNotWaitedFor) {
  ASSERT_EQ(::mkfifo(inPlugins("pipe.json").c_str(), 0600), 0);
  ASSERT_EQ(::mkfifo(inPlugins("pipe.so").c_str(), 0600), 0);
  ASSERT_EQ(::mkdir(inPlugins("folder.json").c_str(), 0755), 0);
  link("no such file", "dangling.json");
  link("loop.json", "loop.json");
  EXPECT_THAT(plugins(), ElementsAre("sound"));
  for (const char* const name : {"pipe.json", "folder.json", "dangling.json", "loop.json"}) {
    EXPECT_THAT(rulesAbout(name), ElementsAre("description-unreadable")) << name;
  }
  EXPECT_THAT(rulesAbout("pipe.so"), ElementsAre("native-unloadable"));
}

TEST_F(HostileRootTest, FifosInTheOtherFoldersAreNotWaitedFor) {
  for (const char* const path : {"/image/usr/lib/nimbus/hypcli/x.json", "/image/etc/init.d/x",
                                 "/image/etc/nimbus/bootforge/debug.conf"}) {
    test::writeFile(path, "");
    ASSERT_EQ(::unlink(path), 0);
    ASSERT_EQ(::mkfifo(path, 0600), 0);
  }
  EXPECT_THAT(plugins(), ElementsAre("sound"));
  const Image image(options_);
  const Findings findings = verify(image, 0);
  EXPECT_TRUE(std::any_of(findings.begin(), findings.end(), [](const Finding& finding) {
    return finding.rule->name == "command-file-invalid";
  }));
}

TEST_F(HostileRootTest, ARootWithoutAnythingIsTold) {
  ASSERT_EQ(::mkdir("/empty", 0755), 0);
  options_.root = "/empty";
  Image image(options_);
  EXPECT_EQ(image.pluginDirectoryError(), ENOENT);
  EXPECT_FALSE(image.isEnumerated());
  const Findings findings = verify(image, 0);
  ASSERT_FALSE(findings.empty());
  for (const Finding& finding : findings) EXPECT_EQ(finding.rule->name, "folder-unreadable");
  const WaitGraph graph(image);
  EXPECT_THAT(planBoot(image, graph, false).order, IsEmpty());
}

TEST_F(HostileRootTest, NamesMayBeAnyBytes) {
  test::writeFile(inPlugins("\xFF\xFE.json"), kSound);
  test::writeFile(inPlugins("new\nline.json"), kSound);
  test::writeFile(inPlugins(std::string(250, 'x') + ".json"), kSound);
  test::writeFile(inPlugins(".json"), kSound);
  EXPECT_THAT(plugins(),
              UnorderedElementsAre("sound", "\xFF\xFE", "new\nline", std::string(250, 'x'), ""));
}

TEST_F(HostileRootTest, ADescriptionMayHave16MebibytesAndNoByteMore) {
  constexpr std::size_t kLimit = 16U << 20;
  std::string text = kSound;
  text.resize(kLimit, ' ');
  test::writeFile(inPlugins("large.json"), text);
  test::writeFile(inPlugins("larger.json"), text + ' ');
  EXPECT_THAT(plugins(), UnorderedElementsAre("sound", "large"));
  EXPECT_THAT(rulesAbout("larger.json"), ElementsAre("description-unreadable"));
}

TEST_F(HostileRootTest, AHundredThousandFilesAreReadAndPlanned) {
  constexpr std::size_t kFiles = 100'000;
  // Links are quicker to make than files; a file cannot have so many.
  constexpr std::size_t kLinks = 20'000;
  std::string original = inPlugins("sound.json");
  for (std::size_t i = 1; i < kFiles; ++i) {
    const std::string path = inPlugins(std::to_string(i) + ".json");
    if (i % kLinks == 0) {
      test::writeFile(path, kSound);
      original = path;
    } else {
      ASSERT_EQ(::link(original.c_str(), path.c_str()), 0);
    }
  }
  Image image(options_);
  const WaitGraph graph(image);
  EXPECT_EQ(planBoot(image, graph, false).order.size(), kFiles);
}

}  // namespace
}  // namespace bootforge::analyze
