#include <gtest/gtest.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <string>

#include "platform/dictionary.h"
#include "platform/log.h"
#include "tests/support/scratch_root.h"
#include "tests/unit/platform/child.h"
#include "tests/unit/platform/syslog_fixture.h"

namespace bootforge::test {
namespace {

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

TEST_F(Syslog, IsSetUpAnewUnderAnotherName) {
  Finished child = runInChild([] {
    ASSERT_TRUE(Log_InitWithSyslogInt("first", nullptr, 0));
    Log_Level(5, "text");
    ASSERT_TRUE(Log_InitWithSyslogInt("second", nullptr, 0));
    Log_Level(5, "text");
  });
  EXPECT_EQ(child.status, 0) << child.out;
  EXPECT_EQ(next(), "<30>TIME first[PID]: text");
  EXPECT_EQ(next(), "<30>TIME second[PID]: text");
}

TEST_F(Syslog, HasTheLocalTime) {
  Finished child = runInChild([] {
    setenv("TZ", "FAR-14", 1);
    ASSERT_TRUE(Log_InitWithSyslogInt("bootforge", nullptr, 0));
    time_t before = time(nullptr);
    Log_Level(5, "text");
    time_t after = time(nullptr);
    char expected[2][32];
    for (int i = 0; i < 2; ++i) {
      strftime(expected[i], sizeof expected[i], "<30>%b %e %T ", localtime(i ? &after : &before));
    }
    writeFile("/before", expected[0]);
    writeFile("/after", expected[1]);
  });
  EXPECT_EQ(child.status, 0) << child.out;
  std::string message = nextAsItIs();
  EXPECT_TRUE(message.starts_with(readFile("/before")) || message.starts_with(readFile("/after")))
      << message;
}

TEST_F(Syslog, GetsControlCharactersAsTextButTabsAndNewlines) {
  Finished child = runInChild([] {
    ASSERT_TRUE(Log_InitWithSyslogInt("bootforge", nullptr, 0));
    Log_Level(5, "\x1b[2J\a\tkept\nkept\r\x7f");
    Log_Syslog(LOG_ERR, "\x1b and \xc2\x9b, not \xc2\xa0\n");
  });
  EXPECT_EQ(child.status, 0) << child.out;
  EXPECT_EQ(next(), "<30>TIME bootforge[PID]: \\x1b[2J\\x07\tkept\nkept\\x0d\\x7f");
  EXPECT_EQ(next(), "<27>TIME bootforge[PID]: \\x1b and \\xc2\\x9b, not \xc2\xa0");
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
