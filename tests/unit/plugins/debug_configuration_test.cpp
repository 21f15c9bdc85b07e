#include "plugins/debug_configuration.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/token_functions.hpp>
#include <locale>
#include <string>
#include <vector>

#include "tests/double/recorder.h"
#include "tests/support/own_process.h"
#include "tests/support/scratch_root.h"

namespace bootforge::test {
namespace {

using doubles::logLine;
using doubles::records;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kPath = "/etc/nimbus/bootforge/debug.conf";

class DebugConfiguration : public testing::Test {
 protected:
  void SetUp() override { doubles::reset(); }

  static std::vector<DebugEntry> load(const std::string& text) {
    writeFile(kPath, text);
    const std::list<DebugEntry> entries = loadDebugEntries();
    return {entries.begin(), entries.end()};
  }

  /// The names that one list of a line gives.
  static std::vector<std::string> namesIn(const std::string& field) {
    const auto entries = load("n:" + field + ":r:c");
    EXPECT_EQ(entries.size(), 1U) << field;
    if (entries.empty()) return {};
    return {entries[0].provides.begin(), entries[0].provides.end()};
  }

  static doubles::Record ignored(int number, const std::string& line) {
    return logLine(
        5, "ignoring malformed debug entry at line " + std::to_string(number) + ": " + line + "\n");
  }
};

TEST_F(DebugConfiguration, IsEmptyWithoutAFile) {
  EXPECT_THAT(loadDebugEntries(), IsEmpty());
  EXPECT_THAT(records(), IsEmpty());
}

TEST_F(DebugConfiguration, IsEmptyWhenTheFileCannotBeRead) {
  writeFile(kPath, "a:b:c:d\n", 0000);
  inChild([] {
    constexpr uid_t kSomebody = 54321;
    if (::geteuid() == 0 && ::setuid(kSomebody) != 0) return;  // nobody else in this namespace
    EXPECT_THAT(loadDebugEntries(), IsEmpty());
  });
  EXPECT_THAT(records(), IsEmpty());
}

TEST_F(DebugConfiguration, IsEmptyWhenTheFileIsNoFile) {
  writeFile("/etc/nimbus/bootforge/other", "");
  ASSERT_EQ(::mkdir(kPath, 0755), 0);
  EXPECT_THAT(loadDebugEntries(), IsEmpty());
  ASSERT_EQ(::rmdir(kPath), 0);
  ASSERT_EQ(::mkfifo(kPath, 0600), 0);
  EXPECT_THAT(loadDebugEntries(), IsEmpty());
  ASSERT_EQ(::unlink(kPath), 0);
  ASSERT_EQ(::symlink("/nowhere", kPath), 0);
  EXPECT_THAT(loadDebugEntries(), IsEmpty());
  EXPECT_THAT(records(), IsEmpty());
}

TEST_F(DebugConfiguration, IsEmptyForAnEmptyFile) {
  EXPECT_THAT(load(""), IsEmpty());
  EXPECT_THAT(records(), IsEmpty());
}

TEST_F(DebugConfiguration, GivesTheFourFieldsOfALine) {
  const auto entries = load("probe:ready:net,storage:/bin/echo hi\n");
  ASSERT_EQ(entries.size(), 1U);
  EXPECT_EQ(entries[0].name, "probe");
  EXPECT_THAT(entries[0].provides, ElementsAre("ready"));
  EXPECT_THAT(entries[0].requires_, ElementsAre("net", "storage"));
  EXPECT_EQ(entries[0].command, "/bin/echo hi");
  EXPECT_THAT(records(), IsEmpty());
}

TEST_F(DebugConfiguration, KeepsTheOrderOfItsLines) {
  std::string text;
  for (int i = 0; i < 100; ++i) text += std::to_string(i) + ":p:r:c\n";
  const auto entries = load(text);
  ASSERT_EQ(entries.size(), 100U);
  for (std::size_t i = 0; i < 100; ++i) EXPECT_EQ(entries[i].name, std::to_string(i));
}

TEST_F(DebugConfiguration, MayHoldTwoEntriesOfOneName) {
  EXPECT_EQ(load("a:p:r:c\na:p:r:c\n").size(), 2U);
}

TEST_F(DebugConfiguration, NeedsNoLineBreakAtItsEnd) {
  const auto entries = load("a:p:r:c\nb:p:r:last");
  ASSERT_EQ(entries.size(), 2U);
  EXPECT_EQ(entries[1].command, "last");
}

TEST_F(DebugConfiguration, MayHaveTheLineBreaksOfOthers) {
  const auto entries = load("a:p:r:one\r\nb:p:r:two\r\n");
  ASSERT_EQ(entries.size(), 2U);
  EXPECT_EQ(entries[0].command, "one");
  EXPECT_EQ(entries[1].command, "two");
}

TEST_F(DebugConfiguration, SkipsALineWhoseCommandHoldsAColon) {
  EXPECT_THAT(load("a:p:r:echo a:b\n"), IsEmpty());
  EXPECT_THAT(records(), ElementsAre(ignored(1, "a:p:r:echo a:b")));
}

TEST_F(DebugConfiguration, SkipsALineWithAnEmptyField) {
  EXPECT_THAT(load("a::r:c\nb:p::c\n:p:r:c\n"), IsEmpty());
  EXPECT_THAT(records(),
              ElementsAre(ignored(1, "a::r:c"), ignored(2, "b:p::c"), ignored(3, ":p:r:c")));
}

// Empty fields are dropped before they are counted.
TEST_F(DebugConfiguration, TakesALineThatHasFourFieldsBesideEmptyOnes) {
  const auto entries = load("::a::p:::r:c::\n");
  ASSERT_EQ(entries.size(), 1U);
  EXPECT_EQ(entries[0].name, "a");
  EXPECT_THAT(entries[0].provides, ElementsAre("p"));
  EXPECT_THAT(entries[0].requires_, ElementsAre("r"));
  EXPECT_EQ(entries[0].command, "c");
}

TEST_F(DebugConfiguration, CountsEveryLineAndLogsItTrimmed) {
  const auto entries = load("\n   \n# comment\na:p:r:c\n\t too:few \t\n::::\n100%s\n\n");
  EXPECT_EQ(entries.size(), 1U);
  EXPECT_THAT(records(), ElementsAre(ignored(1, ""), ignored(2, ""), ignored(3, "# comment"),
                                     ignored(5, "too:few"), ignored(6, "::::"), ignored(7, "100%s"),
                                     ignored(8, "")));
}

TEST_F(DebugConfiguration, KnowsNoComments) {
  const auto entries = load("#a:p:r:c\n");
  ASSERT_EQ(entries.size(), 1U);
  EXPECT_EQ(entries[0].name, "#a");
}

TEST_F(DebugConfiguration, TrimsTheLineAndTheListsOnly) {
  const auto entries = load(" \t name : p1 , p2 : r1 ,r2 : the command \v\f\n");
  ASSERT_EQ(entries.size(), 1U);
  EXPECT_EQ(entries[0].name, "name ");
  EXPECT_THAT(entries[0].provides, ElementsAre("p1 ", " p2"));
  EXPECT_THAT(entries[0].requires_, ElementsAre("r1 ", "r2"));
  EXPECT_EQ(entries[0].command, " the command");
}

// White space is a field, and an empty list.
TEST_F(DebugConfiguration, MayProvideAndRequireNothingByMeansOfBlanks) {
  const auto entries = load("a: :\t:c\n");
  ASSERT_EQ(entries.size(), 1U);
  EXPECT_THAT(entries[0].provides, IsEmpty());
  EXPECT_THAT(entries[0].requires_, IsEmpty());
}

TEST_F(DebugConfiguration, SplitsListsWithQuotesAndEscapes) {
  EXPECT_THAT(namesIn("a,b,c"), ElementsAre("a", "b", "c"));
  EXPECT_THAT(namesIn("\"a,b\",c"), ElementsAre("a,b", "c"));
  EXPECT_THAT(namesIn("'a,b',c"), ElementsAre("a,b", "c"));
  // Either kind of quote closes what the other has opened.
  EXPECT_THAT(namesIn("\"a,b',c"), ElementsAre("a,b", "c"));
  EXPECT_THAT(namesIn("a\\\\b,\\\"c\\',d\\ne"), ElementsAre("a\\b", "\"c'", "d\ne"));
  EXPECT_THAT(namesIn("x\"y,z\"w"), ElementsAre("xy,zw"));
  EXPECT_THAT(namesIn("a\\,b"), ElementsAre("a,b"));
}

TEST_F(DebugConfiguration, KeepsEmptyNames) {
  EXPECT_THAT(namesIn("a,"), ElementsAre("a", ""));
  EXPECT_THAT(namesIn(",a"), ElementsAre("", "a"));
  EXPECT_THAT(namesIn("a,,b"), ElementsAre("a", "", "b"));
  EXPECT_THAT(namesIn("\"\""), ElementsAre(""));
  EXPECT_THAT(namesIn("a,a"), ElementsAre("a", "a"));
}

// No quotes at this level, so a list cannot hold a colon either.
TEST_F(DebugConfiguration, CutsAtColonsWithinQuotes) {
  EXPECT_THAT(load("a:\"p:q\":r:c\n"), IsEmpty());
  EXPECT_THAT(records(), ElementsAre(ignored(1, "a:\"p:q\":r:c")));
}

TEST_F(DebugConfiguration, PassesAnyBytes) {
  const std::string bytes = "\x01\x7F\x80\xC3\xA4\xFF";
  const auto entries = load("n" + bytes + ":p" + bytes + ":r:c" + bytes + "c\n");
  ASSERT_EQ(entries.size(), 1U);
  EXPECT_EQ(entries[0].name, "n" + bytes);
  EXPECT_THAT(entries[0].provides, ElementsAre("p" + bytes));
  EXPECT_EQ(entries[0].command, "c" + bytes + "c");
  const auto zero = load(std::string("a\0b:p:r:c\n", 10));
  ASSERT_EQ(zero.size(), 1U);
  EXPECT_EQ(zero[0].name, std::string("a\0b", 3));
}

TEST_F(DebugConfiguration, TakesALineOfAnyLength) {
  const std::string text(1'000'000, 'x');
  const auto entries = load(text + ":p:r:" + text);
  ASSERT_EQ(entries.size(), 1U);
  EXPECT_EQ(entries[0].name, text);
  EXPECT_EQ(entries[0].command, text);
}

// The error leaves the loader, with all that was read before.
TEST_F(DebugConfiguration, EndsWithABadEscape) {
  const auto errorOf = [](const std::string& text) {
    try {
      load(text);
      return std::string("none");
    } catch (const boost::escaped_list_error& error) {
      return std::string(error.what());
    }
  };
  EXPECT_EQ(errorOf("a:p:r:c\nb:x\\y:r:c\n"), "unknown escape sequence");
  EXPECT_EQ(errorOf("b:p:r1,\\t:c\n"), "unknown escape sequence");
  EXPECT_EQ(errorOf("b:p\\:r:c\n"), "cannot end with escape");
  EXPECT_EQ(errorOf("b:p:r\\ :c\n"), "cannot end with escape") << "the blank comes off first";
}

// Lists are split only when the line has its four fields; names and commands are none.
TEST_F(DebugConfiguration, DoesNotMindABadEscapeElsewhere) {
  EXPECT_THAT(load("a:x\\y:r\n"), IsEmpty());
  EXPECT_THAT(records(), ElementsAre(ignored(1, "a:x\\y:r")));
  const auto entries = load("a\\:p:r:c\\x\\\n");
  ASSERT_EQ(entries.size(), 1U);
  EXPECT_EQ(entries[0].name, "a\\");
  EXPECT_EQ(entries[0].command, "c\\x\\");
}

/// Takes an underscore for white space.
class Underscores : public std::ctype<char> {
 public:
  Underscores() : std::ctype<char>(table()) {}

 private:
  static const mask* table() {
    static std::vector<mask> masks(classic_table(), classic_table() + table_size);
    masks['_'] = space;
    return masks.data();
  }
};

TEST_F(DebugConfiguration, IsTrimmedByTheGlobalLocale) {
  const std::locale before = std::locale::global(std::locale(std::locale(), new Underscores));
  const auto entries = load("__ a:_p_:r:c _\n");
  std::locale::global(before);
  ASSERT_EQ(entries.size(), 1U);
  EXPECT_EQ(entries[0].name, "a");
  EXPECT_THAT(entries[0].provides, ElementsAre("p"));
  EXPECT_EQ(entries[0].command, "c");
}

TEST_F(DebugConfiguration, IsReadAnewEachTime) {
  EXPECT_EQ(load("a:p:r:c\n").size(), 1U);
  EXPECT_EQ(load("a:p:r:c\nb:p:r:c\n").size(), 2U);
}

}  // namespace
}  // namespace bootforge::test
