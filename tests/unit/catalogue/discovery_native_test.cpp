// Shared objects, which pass through the same filters as descriptions.
#include "tests/unit/catalogue/discovery_fixture.h"
#include "tests/unit/catalogue/native_sample.h"

namespace bootforge {
namespace {

using doubles::logLine;
using doubles::records;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

class DiscoveryNative : public DiscoveryTest {
 protected:
  DiscoveryNative() {
    bootFlags = {"sample-on"};
    test::writeFile("/plugins/libnet.so", test::nativeSample());
  }
};

TEST_F(DiscoveryNative, ASharedObjectBecomesAPluginNamedWithoutLib) {
  discover("libnet.so");
  EXPECT_THAT(names(), ElementsAre("net"));
  EXPECT_EQ(plugins.front()->apiVersion(), 4);
  EXPECT_THAT(records(), IsEmpty());
}

TEST_F(DiscoveryNative, TheDenyListHoldsTheNameWithoutLib) {
  options.disabledPlugins = {"net"};
  discover("libnet.so");
  EXPECT_THAT(names(), IsEmpty());
  EXPECT_THAT(records(), ElementsAre(logLine(5, "ignoring plugin 'net' due to denylist.\n")));
}

TEST_F(DiscoveryNative, TheNameWithLibDeniesNothing) {
  options.disabledPlugins = {"libnet"};
  discover("libnet.so");
  EXPECT_THAT(names(), ElementsAre("net"));
  EXPECT_THAT(records(), IsEmpty());
}

TEST_F(DiscoveryNative, ItsFlagsAreLookedAt) {
  bootFlags.clear();
  discover("libnet.so");
  EXPECT_THAT(names(), IsEmpty());
  EXPECT_THAT(records(), ElementsAre(logLine(3,
                                             "ignoring plugin 'net', disabled due to missing "
                                             "required boot flags: sample-on .\n")));
}

TEST_F(DiscoveryNative, ItRunsOnce) {
  discover("libnet.so");
  EXPECT_THAT(runOnce, ElementsAre("net1.0"));
  discover("libnet.so");
  EXPECT_EQ(stateOf(*plugins.back()), Node::State::ForwardDone);
  EXPECT_THAT(records(), ElementsAre(logLine(5,
                                             "ignoring plugin 'net' because version '1.0'  has "
                                             "already been run.\n")));
}

TEST_F(DiscoveryNative, AFileThatIsNoSharedObjectIsInvalid) {
  test::writeFile("/plugins/libbad.so", "hello");
  discover("libbad.so");
  EXPECT_THAT(names(), IsEmpty());
  const std::vector<doubles::Record> all = records();
  ASSERT_EQ(all.size(), 2U);
  EXPECT_EQ(all[0].kind, doubles::Kind::kAlert);
  EXPECT_THAT(all[0].text, StartsWith("exception occurred whilst loading plugin libbad.so: plugin "
                                      "`/plugins/libbad.so' is invalid: /plugins/libbad.so: "));
  EXPECT_EQ(all[1], logLine(3, all[0].text + "\n"));
}

}  // namespace
}  // namespace bootforge
