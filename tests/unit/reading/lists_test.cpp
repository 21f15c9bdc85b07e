// What lists of init scripts and of debug injections say.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "reading/debug_configuration.h"
#include "reading/init_scripts.h"

namespace bootforge::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> initList(const std::string& text) {
  std::vector<std::string> lines;
  for (const InitListLine& line : readInitList(text)) {
    lines.push_back(line.path + ' ' + std::to_string(line.priority) + '@' +
                    std::to_string(line.at));
  }
  return lines;
}

std::vector<std::string> debugList(const std::string& text) {
  std::vector<std::string> lines;
  for (const DebugLine& line : readDebugConfiguration(text)) {
    std::string what = std::to_string(line.number) + '@' + std::to_string(line.at) + ' ';
    if (line.isMalformed()) what += "malformed " + line.text;
    if (!line.badEscape.empty()) what += "bad";
    if (line.entry) {
      what += line.entry->name + '|';
      for (const std::string& name : line.entry->provides) what += name + ';';
      what += '|';
      for (const std::string& name : line.entry->requires_) what += name + ';';
      what += '|' + line.entry->command;
    }
    lines.push_back(what);
  }
  return lines;
}

TEST(InitList, BlankLinesAreLeftOutAndPlacesKept) {
  EXPECT_THAT(initList("/a 5\n\n  \n /b\t-7 more\n/c 10"),
              ElementsAre("/a 5@0", "/b -7@9", "/c 10@21"));
  EXPECT_THAT(initList(""), IsEmpty());
}

TEST(InitList, PriorityThatCannotBeReadIsZero) {
  EXPECT_THAT(initList("/a\n/b x\n/c 5x\n"), ElementsAre("/a 0@0", "/b 0@3", "/c 5@8"));
}

TEST(InitList, PriorityBeyondItsRangeIsTheNearest) {
  EXPECT_THAT(initList("/a 99999999999\n/b -99999999999\n"),
              ElementsAre("/a 2147483647@0", "/b -2147483648@15"));
}

TEST(StartPriority, IsTheFirstNumberBehindTheLevels) {
  EXPECT_EQ(startPriorityIn("#!/bin/sh\n# chkconfig: 2345 20 80\n"), 20);
  EXPECT_EQ(startPriorityIn("#chkconfig: - 5 6"), 5);
  EXPECT_EQ(startPriorityIn("# chkconfig: 1 2 3\n# chkconfig: 1 7 8\n"), 2);
  EXPECT_EQ(startPriorityIn("# chkconfig: 1 -2 3 more words\n"), -2);
}

TEST(StartPriority, LinesThatOnlyLookLikeItAreNone) {
  EXPECT_EQ(startPriorityIn(""), std::nullopt);
  EXPECT_EQ(startPriorityIn("chkconfig: 1 2 3\n"), std::nullopt);
  EXPECT_EQ(startPriorityIn(" # chkconfig: 1 2 3\n"), std::nullopt);
  EXPECT_EQ(startPriorityIn("# chkconfig: 1 2\n"), std::nullopt);
  EXPECT_EQ(startPriorityIn("# chkconfig: 1 2 x\n"), std::nullopt);
  EXPECT_EQ(startPriorityIn("# chkconfig 1 2 3\n"), std::nullopt);
  EXPECT_EQ(startPriorityIn("# chkconfig: 1 2x 3\n"), std::nullopt);
}

TEST(StartNumber, IsThatOfALinkToTheScript) {
  EXPECT_EQ(startNumberOf("S20sshd", "sshd"), 20);
  EXPECT_EQ(startNumberOf("S05sshd", "sshd"), 5);
  EXPECT_EQ(startNumberOf("K20sshd", "sshd"), std::nullopt);
  EXPECT_EQ(startNumberOf("Ssshd", "sshd"), std::nullopt);
  EXPECT_EQ(startNumberOf("S20xsshd", "sshd"), std::nullopt);
  EXPECT_EQ(startNumberOf("S20", "sshd"), std::nullopt);
}

TEST(LsbHeader, BeginsALine) {
  EXPECT_TRUE(hasLsbHeader("#!/bin/sh\n### BEGIN INIT INFO\n"));
  EXPECT_TRUE(hasLsbHeader("### BEGIN INIT INFO"));
  EXPECT_FALSE(hasLsbHeader(" ### BEGIN INIT INFO\n"));
  EXPECT_FALSE(hasLsbHeader("## BEGIN INIT INFO\n"));
}

TEST(DebugConfiguration, EntriesAreReadWithTheirPlaces) {
  EXPECT_THAT(debugList("one:a,b:c:run it\n  two: : \"x,y\" :true  \n"),
              ElementsAre("1@0 one|a;b;|c;|run it", "2@19 two||x,y;|true"));
}

TEST(DebugConfiguration, BlankLinesCountAndLinesWithoutFourFieldsAreMalformed) {
  EXPECT_THAT(debugList("\n  x:y\na:b:c:d:e\n"),
              ElementsAre("1@0 malformed ", "2@3 malformed x:y", "3@7 malformed a:b:c:d:e"));
}

TEST(DebugConfiguration, BadEscapeDoesNotKeepLaterLinesFromBeingRead) {
  EXPECT_THAT(debugList("one:a\\x:b:c\ntwo:a:b\\:c\n"), ElementsAre("1@0 bad", "2@12 bad"));
  EXPECT_THAT(debugList("one:a\\q:b:c\ntwo:a:b:c"), ElementsAre("1@0 bad", "2@12 two|a;|b;|c"));
}

TEST(DebugConfiguration, EscapesStandForQuotesCommasBackslashesAndNewlines) {
  EXPECT_THAT(debugList("one:a\\\\b:c\\\"d,e\\nf\\,:g"),
              ElementsAre("1@0 one|a\\b;|c\"d;e\nf,;|g"));
}

}  // namespace
}  // namespace bootforge::test
