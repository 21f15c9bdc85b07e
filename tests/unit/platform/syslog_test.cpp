#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <boost/regex.hpp>
#include <cstring>
#include <string>

#include "platform/dictionary.h"
#include "platform/log.h"
#include "tests/support/scratch_root.h"
#include "tests/unit/platform/child.h"

namespace bootforge::test {
namespace {

/// The syslog daemon's end of /dev/log.
class Syslog : public testing::Test {
 protected:
  void SetUp() override {
    socket_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ASSERT_GE(socket_, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, "/dev/log");
    ASSERT_EQ(bind(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  }
  void TearDown() override { close(socket_); }

  /// The next message, its time replaced; empty when there is none.
  std::string next() {
    char buffer[4096];
    ssize_t count = recv(socket_, buffer, sizeof buffer, MSG_DONTWAIT);
    if (count < 0) return "";
    std::string text(buffer, static_cast<std::size_t>(count));
    text = boost::regex_replace(
        text, boost::regex("^(<\\d+>)\\w{3} [ \\d]\\d \\d\\d:\\d\\d:\\d\\d "), "$1TIME ");
    return boost::regex_replace(text, boost::regex("\\[[0-9]+\\]"), "[PID]");
  }

  int socket_ = -1;
};

TEST_F(Syslog, HasTheFacilityDaemonAndAPriorityByLevel) {
  Finished child = runInChild([] {
    ASSERT_TRUE(Log_InitWithSyslogInt("bootforge", nullptr, 0));
    for (int level = 1; level <= 6; ++level) Log_Level(level, "%d\n", level);
  });
  EXPECT_EQ(child.status, 0) << child.out;
  EXPECT_EQ(next(), "<27>TIME bootforge[PID]: 1");
  EXPECT_EQ(next(), "<27>TIME bootforge[PID]: 2");
  EXPECT_EQ(next(), "<28>TIME bootforge[PID]: 3");
  EXPECT_EQ(next(), "<29>TIME bootforge[PID]: 4");
  EXPECT_EQ(next(), "<30>TIME bootforge[PID]: 5");
  EXPECT_EQ(next(), "") << "level 6 is below the threshold";
}

TEST_F(Syslog, TakesIdentityAndThresholdFromTheConfiguration) {
  runInChild([] {
    Dictionary* config = Dictionary_Create();
    Dict_SetString(config, "other", "log.syslogID");
    Dict_SetString(config, "error", "log.syslogLevel");
    ASSERT_TRUE(Log_InitWithSyslogInt("bootforge", config, 0));
    Dictionary_Free(config);
    Log_Level(3, "gone");
    Log_Level(2, "kept");
    Log_Syslog(LOG_WARNING, "gone");
  });
  EXPECT_EQ(next(), "<27>TIME other[PID]: kept");
  EXPECT_EQ(next(), "");
}

TEST_F(Syslog, GetsAMessageWithAnInnerNewlineAsOne) {
  runInChild([] {
    ASSERT_TRUE(Log_InitWithSyslogInt("bootforge", nullptr, 0));
    Log_Level(5, "first\nsecond\n\n");
  });
  EXPECT_EQ(next(), "<30>TIME bootforge[PID]: first\nsecond");
  EXPECT_EQ(next(), "");
}

TEST_F(Syslog, AloneGetsWhatIsMeantForIt) {
  Finished child = runInChild([] {
    ASSERT_TRUE(Log_InitWithSyslogInt("bootforge", nullptr, 0));
    ASSERT_TRUE(Log_AddOutput(Log_NewStdioOutput("bootforge", nullptr, 0)));
    Log_Syslog(LOG_ERR, "for %s\n", "syslog");
    Log_Syslog(LOG_DEBUG, "below the threshold\n");
  });
  EXPECT_EQ(next(), "<27>TIME bootforge[PID]: for syslog");
  EXPECT_EQ(next(), "");
  EXPECT_EQ(child.out, "");
}

TEST_F(Syslog, IsLetGoOfAndFoundAgain) {
  Finished child = runInChild([] {
    int before = countOpenDescriptors();
    ASSERT_TRUE(Log_InitWithSyslogInt("bootforge", nullptr, 0));
    EXPECT_EQ(countOpenDescriptors(), before) << "connected before the first message";
    Log_Level(5, "first");
    EXPECT_EQ(countOpenDescriptors(), before + 1);
    Log_Detach();
    EXPECT_EQ(countOpenDescriptors(), before);
    Log_Level(5, "second");
  });
  EXPECT_EQ(child.status, 0) << child.out;
  EXPECT_EQ(next(), "<30>TIME bootforge[PID]: first");
  EXPECT_EQ(next(), "<30>TIME bootforge[PID]: second");
}

TEST_F(Syslog, MayComeUpAfterTheFirstMessages) {
  ASSERT_EQ(rename("/dev/log", "/dev/log-later"), 0);
  Finished child = runInChild([] {
    ASSERT_TRUE(Log_InitWithSyslogInt("bootforge", nullptr, 0));
    Log_Level(2, "lost, and nothing hangs");
    ASSERT_EQ(rename("/dev/log-later", "/dev/log"), 0);
    Log_Level(2, "arrived");
  });
  EXPECT_EQ(child.status, 0) << child.out;
  EXPECT_EQ(child.err, "");
  EXPECT_EQ(next(), "<27>TIME bootforge[PID]: arrived");
}

TEST(SyslogSetUp, FailsForATextThatIsNoLevel) {
  Dictionary* config = Dictionary_Create();
  Dict_SetString(config, "loud", "log.syslogLevel");
  EXPECT_FALSE(Log_InitWithSyslogInt("bootforge", config, 0));
  Dictionary_Free(config);
}

TEST(Dictionary, ForgetsWhatWasClearedAndToleratesNone) {
  Dictionary* config = Dictionary_Create();
  Dict_SetString(config, "loud", "log.syslogLevel");
  Dictionary_Clear(config);
  Finished child = runInChild([&] { EXPECT_TRUE(Log_InitWithSyslogInt("x", config, 0)); });
  EXPECT_EQ(child.status, 0) << child.out;
  Dictionary_Free(config);
  Dict_SetString(nullptr, "value", "key");
  Dict_SetBool(nullptr, true, "key");
  Dictionary_Clear(nullptr);
  Dictionary_Free(nullptr);
}

}  // namespace
}  // namespace bootforge::test
