#include "analyze/recorded/message_line.h"

#include <gtest/gtest.h>

namespace bootforge::analyze {
namespace {

/// "TIME|PROCESS|TEXT", or "none".
std::string readLine(std::string_view line) {
  const std::optional<MessageLine> message = readMessageLine(line);
  if (!message) return "none";
  return std::string(message->time) + '|' + std::string(message->process) + '|' +
         std::string(message->text);
}

TEST(MessageLine, HasTheTimeThatItsLogWrites) {
  EXPECT_EQ(readLine("bootforge: text"), "||text");
  EXPECT_EQ(readLine("Mar  5 07:04:09 host bootforge[123]: a: b"), "Mar  5 07:04:09|123|a: b");
  EXPECT_EQ(readLine("<30>Mar 15 07:04:09.25 host bootforge: x"), "Mar 15 07:04:09.25||x");
  EXPECT_EQ(readLine("2024-03-05T07:04:09.5+01:00 host bootforge[1]: x"),
            "2024-03-05T07:04:09.5+01:00|1|x");
  EXPECT_EQ(readLine("2024-03-05 07:04:09.5 host bootforge[1]: x"), "2024-03-05 07:04:09.5|1|x");
  EXPECT_EQ(readLine("<4>[    1.234567] bootforge: x"), "1.234567||x");
  EXPECT_EQ(readLine("4,12,345,-;bootforge: x"), "345||x");
}

TEST(MessageLine, HasNoTimeWhereNoneIsMeant) {
  EXPECT_EQ(readLine("Mar x5 07:04:09 host bootforge: x"), "||x");
  EXPECT_EQ(readLine("M4r  5 07:04:09 host bootforge: x"), "||x");
  EXPECT_EQ(readLine("2024-03-05T07:04 host bootforge: x"), "||x");
  EXPECT_EQ(readLine("<4 bootforge: x"), "||x");
  EXPECT_EQ(readLine("[1 bootforge: x"), "||x");
  EXPECT_EQ(readLine("4;bootforge: x"), "||x");
}

TEST(MessageLine, IsOursByTheNameBeforeTheColon) {
  EXPECT_EQ(readLine("bootforge[]: x"), "none");
  EXPECT_EQ(readLine("bootforge[12: x"), "none");
  EXPECT_EQ(readLine("bootforge[12]x: x"), "none");
  EXPECT_EQ(readLine("bootforge[12"), "none");
  EXPECT_EQ(readLine("mybootforge: x"), "none");
  EXPECT_EQ(readLine("bootforge-analyze: x"), "none");
  EXPECT_EQ(readLine("bootforge:x"), "none");
  EXPECT_EQ(readLine("bootforge says bootforge[7]: x"), "|7|x");
  EXPECT_EQ(readLine("\tbootforge: "), "||");
}

TEST(MessageLine, IsReadWithoutItsColours) {
  EXPECT_EQ(withoutColours("\x1B[1;31mred\x1B[0m and plain\r"), "red and plain");
  EXPECT_EQ(withoutColours("\r\x1B[\r"), "\r");
  EXPECT_EQ(withoutColours("cut \x1B[12"), "cut ");
  EXPECT_EQ(withoutColours(""), "");
}

}  // namespace
}  // namespace bootforge::analyze
