// What all kinds of plugins share, and what they throw.
#include "plugins/plugin.h"

#include <gtest/gtest.h>

#include <exception>
#include <string>
#include <type_traits>

#include "plugins/exceptions.h"

namespace bootforge::test {
namespace {

class PlainPlugin : public Plugin {
 public:
  explicit PlainPlugin(std::string name) : Plugin(std::move(name)) {}
  PlainPlugin(std::string name, std::uint32_t schedulingClass)
      : Plugin(std::move(name), schedulingClass) {}
  void start() override {}
  bool supportsApplyHostProfile() const override { return false; }
  void applyHostProfile() override {}
};

TEST(Plugin, HasNothingDeclaredAtFirst) {
  const PlainPlugin plugin("network");
  EXPECT_EQ(plugin.name(), "network");
  EXPECT_EQ(plugin.apiVersion(), -1);
  EXPECT_FALSE(plugin.runOnce());
  EXPECT_EQ(plugin.pluginVersion(), "");
  EXPECT_TRUE(plugin.requiredFlags().empty());
  EXPECT_TRUE(plugin.disablingFlags().empty());
  EXPECT_EQ(plugin.activationStart().tv_sec, 0);
  EXPECT_EQ(plugin.activationStart().tv_usec, 0);
  EXPECT_EQ(plugin.activationEnd().tv_sec, 0);
  EXPECT_EQ(plugin.activationEnd().tv_usec, 0);
  EXPECT_EQ(plugin.activationDuration(), 0);
  EXPECT_EQ(plugin.dotAttributes(), "");
}

TEST(Plugin, IsOfTheFirstClassUnlessItIsGivenAnother) {
  EXPECT_EQ(PlainPlugin("network").schedulingClass(), 1U);
  EXPECT_EQ(PlainPlugin("network", 3).schedulingClass(), 3U);
}

TEST(Exceptions, HaveTheTextThatTheyWereGiven) {
  EXPECT_STREQ(Exception("any text, 100%s").what(), "any text, 100%s");
  EXPECT_STREQ(Exception("").what(), "");
}

TEST(Exceptions, NameAnOperationThatIsNotImplemented) {
  EXPECT_STREQ(NotImplementedException("DaemonPlugin::Restart").what(),
               "method `DaemonPlugin::Restart' is not implemented");
}

TEST(Exceptions, NameAMethodThatFailed) {
  EXPECT_STREQ(MethodFailedException("ntpd", "start", "no such file").what(),
               "ntpd->start() failed: no such file");
}

TEST(Exceptions, NameAPluginThatIsInvalid) {
  EXPECT_STREQ(InvalidPluginException("x", "Unsupported API version").what(),
               "plugin `x' is invalid: Unsupported API version");
}

TEST(Exceptions, AreOneFamily) {
  static_assert(std::is_base_of_v<std::exception, Exception>);
  static_assert(std::is_base_of_v<Exception, NotImplementedException>);
  static_assert(std::is_base_of_v<Exception, MethodFailedException>);
  static_assert(std::is_base_of_v<Exception, InvalidPluginException>);
  // Nobody catches one of them as another.
  static_assert(!std::is_base_of_v<MethodFailedException, NotImplementedException>);
  static_assert(!std::is_base_of_v<NotImplementedException, InvalidPluginException>);
}

}  // namespace
}  // namespace bootforge::test
