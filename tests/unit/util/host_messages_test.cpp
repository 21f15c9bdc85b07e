// Lines in the kernel's log and alerts: what becomes of them when the host does not take them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <syslog.h>

#include <string>

#include "tests/double/recorder.h"
#include "tests/double/script.h"
#include "util/kernel_log.h"
#include "util/system_alert.h"

namespace bootforge::test {
namespace {

using doubles::kernelLine;
using doubles::logLine;
using doubles::records;
using doubles::script;
using doubles::syslogLine;
using testing::ElementsAre;

class KernelLog : public testing::Test {
 protected:
  void SetUp() override { doubles::reset(); }
};

TEST_F(KernelLog, GetsTheFormattedText) {
  kernelLog("plugin %s took %d%%", "network", 50);
  EXPECT_THAT(records(), ElementsAre(kernelLine("plugin network took 50%")));
}

TEST_F(KernelLog, GetsATextOfAnyLength) {
  const std::string text(100'000, 'x');
  kernelLog("%s.", text.c_str());
  EXPECT_THAT(records(), ElementsAre(kernelLine(text + ".")));
}

TEST_F(KernelLog, GetsAnEmptyTextToo) {
  kernelLog("%s", "");
  EXPECT_THAT(records(), ElementsAre(kernelLine("")));
}

TEST_F(KernelLog, ThatFailsLeavesItsTextToSyslog) {
  script().onKernelLog = doubles::throwsError("no %s device");
  kernelLog("Activating %s.", "100%s");
  EXPECT_THAT(records(),
              ElementsAre(syslogLine(LOG_ERR, "Exception occurred while logging msg: no %s device"),
                          syslogLine(LOG_ERR, "Activating 100%s.")));
}

TEST_F(KernelLog, ThatFailsInAnUnknownWayLeavesItsTextToSyslog) {
  script().onKernelLog = doubles::throwsOther();
  kernelLog("Activating %s.", "network");
  EXPECT_THAT(records(), ElementsAre(syslogLine(LOG_ERR, "Unexpected exception while logging msg"),
                                     syslogLine(LOG_ERR, "Activating network.")));
}

class SystemAlert : public KernelLog {};

TEST_F(SystemAlert, IsRaisedWithItsText) {
  raiseSystemAlert("100%s broken");
  EXPECT_THAT(records(), ElementsAre(doubles::alert("100%s broken")));
}

TEST_F(SystemAlert, ThatFailsIsALineInTheLog) {
  script().onAlert = doubles::throwsError("no device");
  raiseSystemAlert("broken");
  EXPECT_THAT(records(), ElementsAre(logLine(3, "unable to raise system alert: no device.\n")));
}

TEST_F(SystemAlert, ThatFailsInAnUnknownWayIsALineInTheLog) {
  script().onAlert = doubles::throwsOther();
  raiseSystemAlert("broken");
  EXPECT_THAT(records(), ElementsAre(logLine(3, "unable to raise system alert.\n")));
}

}  // namespace
}  // namespace bootforge::test
