// Which file becomes which plugin.
#include "tests/unit/catalogue/discovery_fixture.h"

namespace bootforge {
namespace {

using doubles::logLine;
using doubles::records;
using test::writeFile;
using testing::ElementsAre;
using testing::IsEmpty;

using DiscoveryKinds = DiscoveryTest;

TEST_F(DiscoveryKinds, AJsonFileBecomesAPluginWithTheNameOfTheFile) {
  writePlugin("net.json");
  discover("net.json");
  EXPECT_THAT(names(), ElementsAre("net"));
  EXPECT_EQ(stateOf(*plugins.front()), Node::State::Idle);
  EXPECT_THAT(records(), IsEmpty());
}

TEST_F(DiscoveryKinds, PluginsAreAppendedInTheOrderOfTheCalls) {
  for (const char* file : {"b.json", "a.json", "c.json"}) writePlugin(file);
  for (const char* file : {"b.json", "a.json", "c.json", "a.json"}) discover(file);
  EXPECT_THAT(names(), ElementsAre("b", "a", "c", "a"));
}

TEST_F(DiscoveryKinds, AFileWithoutADotIsOfUnspecifiedType) {
  writePlugin("README");
  discover("README");
  EXPECT_THAT(names(), IsEmpty());
  EXPECT_THAT(records(),
              ElementsAre(logLine(3, "ignoring plugin 'README' of unspecified type...\n")));
}

TEST_F(DiscoveryKinds, TheLastDotBeginsTheExtension) {
  writePlugin("a.b.json");
  discover("a.b.json");
  EXPECT_THAT(names(), ElementsAre("a.b"));
  EXPECT_THAT(records(), IsEmpty());
}

TEST_F(DiscoveryKinds, AnyOtherExtensionIsOfUnknownType) {
  writePlugin("net.json.bak");
  discover("net.json.bak");
  discover("net.so.1");
  discover("json.txt");
  EXPECT_THAT(names(), IsEmpty());
  EXPECT_THAT(records(),
              ElementsAre(logLine(3, "ignoring plugin 'net.json.bak' of unknown type (bak)...\n"),
                          logLine(3, "ignoring plugin 'net.so.1' of unknown type (1)...\n"),
                          logLine(3, "ignoring plugin 'json.txt' of unknown type (txt)...\n")));
}

TEST_F(DiscoveryKinds, ADotAtTheEndBeginsAnEmptyExtension) {
  writePlugin("x.");
  discover("x.");
  EXPECT_THAT(names(), IsEmpty());
  EXPECT_THAT(records(), ElementsAre(logLine(3, "ignoring plugin 'x.' of unknown type ()...\n")));
}

TEST_F(DiscoveryKinds, ExtensionsAreComparedWithTheirCase) {
  for (const char* file : {"x.JSON", "x.Json", "x.SO", "x.Debug"}) {
    writePlugin(file);
    discover(file);
  }
  EXPECT_THAT(names(), IsEmpty());
  EXPECT_THAT(records(),
              ElementsAre(logLine(3, "ignoring plugin 'x.JSON' of unknown type (JSON)...\n"),
                          logLine(3, "ignoring plugin 'x.Json' of unknown type (Json)...\n"),
                          logLine(3, "ignoring plugin 'x.SO' of unknown type (SO)...\n"),
                          logLine(3, "ignoring plugin 'x.Debug' of unknown type (Debug)...\n")));
}

TEST_F(DiscoveryKinds, ALeadingLibIsDroppedOnce) {
  const std::vector<std::string> files = {"libnet.json", "liblibnet.json", "lib.json",
                                          "Libnet.json", "netlib.json"};
  for (const std::string& file : files) writePlugin(file);
  for (const std::string& file : files) discover(file);
  EXPECT_THAT(names(), ElementsAre("net", "libnet", "", "Libnet", "netlib"));
  EXPECT_THAT(records(), IsEmpty());
}

TEST_F(DiscoveryKinds, AFileThatIsNothingButAnExtensionHasAnEmptyName) {
  writePlugin(".json");
  discover(".json");
  EXPECT_THAT(names(), ElementsAre(""));
  EXPECT_THAT(records(), IsEmpty());
}

TEST_F(DiscoveryKinds, ANameIsJoinedToTheFolderAsAPath) {
  writePlugin("more/net.json");
  discover("more/net.json");
  discover("/more/net.json");
  EXPECT_THAT(names(), ElementsAre("more/net", "/more/net"));
  EXPECT_THAT(records(), IsEmpty());
}

// --- debug injections

TEST_F(DiscoveryKinds, ADebugFileAddsEveryInjectionOfItsName) {
  writeFile(kDebugFile,
            "probe:ready:net:/bin/echo one\n"
            "other:ready:net:/bin/echo two\n"
            "probe:late:ready:/bin/echo three\n");
  discover("probe.debug");
  EXPECT_THAT(names(), ElementsAre("probe", "probe"));
  EXPECT_THAT(records(), IsEmpty());
}

TEST_F(DiscoveryKinds, ADebugFileWithALeadingLibMeansTheNameWithoutIt) {
  writeFile(kDebugFile, "probe:ready:net:/bin/true\nlibprobe:ready:net:/bin/true\n");
  discover("libprobe.debug");
  EXPECT_THAT(names(), ElementsAre("probe"));
}

TEST_F(DiscoveryKinds, ADebugFileThatMatchesNoInjectionAddsAndLogsNothing) {
  writeFile(kDebugFile, "probe:ready:net:/bin/true\n");
  discover("prob.debug");
  discover(".debug");
  EXPECT_THAT(names(), IsEmpty());
  EXPECT_THAT(records(), IsEmpty());
}

TEST_F(DiscoveryKinds, ADebugFileWithoutAConfigurationAddsAndLogsNothing) {
  discover("probe.debug");
  EXPECT_THAT(names(), IsEmpty());
  EXPECT_THAT(records(), IsEmpty());
}

TEST_F(DiscoveryKinds, AnInjectionPassesThroughNoFilter) {
  writeFile(kDebugFile, "probe:ready:net:/bin/true\n");
  options.disabledPlugins = {"probe"};
  runOnce = {"probe"};
  discover("probe.debug");
  EXPECT_THAT(names(), ElementsAre("probe"));
  EXPECT_EQ(stateOf(*plugins.front()), Node::State::Idle);
  EXPECT_THAT(runOnce, ElementsAre("probe"));
  EXPECT_THAT(records(), IsEmpty());
}

TEST_F(DiscoveryKinds, TheInjectionsAreReadAnewByEachCall) {
  writeFile(kDebugFile, "probe:ready:net:/bin/true\n");
  discover("probe.debug");
  writeFile(kDebugFile, "probe2:ready:net:/bin/true\n");
  discover("probe2.debug");
  discover("probe.debug");
  EXPECT_THAT(names(), ElementsAre("probe", "probe2"));
}

TEST_F(DiscoveryKinds, TheInjectionsAreReadForEveryFileWithAnExtension) {
  writeFile(kDebugFile, "# nothing yet\n");
  writePlugin("net.json");
  discover("README");
  EXPECT_THAT(records(),
              ElementsAre(logLine(3, "ignoring plugin 'README' of unspecified type...\n")));
  doubles::reset();
  const auto malformed = logLine(5, "ignoring malformed debug entry at line 1: # nothing yet\n");
  discover("net.json");
  discover("none.debug");
  discover("note.txt");
  EXPECT_THAT(records(), ElementsAre(malformed, malformed, malformed,
                                     logLine(3,
                                             "ignoring plugin 'note.txt' of unknown type "
                                             "(txt)...\n")));
}

}  // namespace
}  // namespace bootforge
