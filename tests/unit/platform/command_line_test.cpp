#include "platform/linux/command_line.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "platform/autocli.h"

namespace bootforge::test {
namespace {

using Words = std::vector<std::string>;
using Pairs = std::vector<std::pair<std::string, std::string>>;

Words split(const std::string& line) {
  Words words;
  EXPECT_TRUE(host_linux::splitWords(line, &words)) << line;
  return words;
}

bool isUnterminated(const std::string& line) {
  Words words;
  return !host_linux::splitWords(line, &words);
}

TEST(Words, AreSeparatedByAnyNumberOfBlanks) {
  EXPECT_EQ(split("network ip"), (Words{"network", "ip"}));
  EXPECT_EQ(split("  network\t\n ip  "), (Words{"network", "ip"}));
  EXPECT_EQ(split(""), Words{});
  EXPECT_EQ(split(" \t\n"), Words{});
}

TEST(Words, KeepAllBytesBetweenSingleQuotes) {
  EXPECT_EQ(split(R"('a "b" \c  $d')"), (Words{R"(a "b" \c  $d)"}));
}

TEST(Words, KnowABackslashBetweenDoubleQuotesOnlyBeforeWhatItProtects) {
  EXPECT_EQ(split(R"("a\"b" "c\\d" "e\$f" "g\`h")"), (Words{"a\"b", "c\\d", "e$f", "g`h"}));
  EXPECT_EQ(split(R"("a\nb" "it\'s")"), (Words{"a\\nb", "it\\'s"}));
}

TEST(Words, TakeTheByteAfterABackslashAsItIs) {
  EXPECT_EQ(split(R"(a\ b \' \" \\ \n)"), (Words{"a b", "'", "\"", "\\", "n"}));
}

TEST(Words, GoOnAcrossQuotes) { EXPECT_EQ(split(R"(a'b c'"d e"\ f)"), (Words{"ab cd e f"})); }

TEST(Words, MayBeEmptyWhenQuoted) {
  EXPECT_EQ(split("''"), (Words{""}));
  EXPECT_EQ(split("a '' \"\" b"), (Words{"a", "", "", "b"}));
}

TEST(Words, AreJoinedAcrossAnEscapedLineBreak) {
  EXPECT_EQ(split("a\\\nb"), (Words{"ab"}));
  EXPECT_EQ(split("\"a\\\nb\""), (Words{"ab"}));
  EXPECT_EQ(split("a \\\n b"), (Words{"a", "b"}));
}

TEST(Words, AreNeverExpanded) {
  EXPECT_EQ(split("$HOME * ~ `ls` #no ; | > &"),
            (Words{"$HOME", "*", "~", "`ls`", "#no", ";", "|", ">", "&"}));
}

TEST(Words, AreJoinedWithOneBlankEachEmptyOnesToo) {
  EXPECT_EQ(host_linux::joinWords({"network", "ip", "set"}), "network ip set");
  EXPECT_EQ(host_linux::joinWords({"", "a", "", "b"}), " a  b");
  EXPECT_EQ(host_linux::joinWords({}), "");
}

TEST(Words, KeepBytesThatAreNoText) {
  std::string line("\xff\x00\x01", 3);
  EXPECT_EQ(split(line), (Words{line}));
}

TEST(Words, AreNoneWhenAQuoteOrABackslashHasNoEnd) {
  for (const char* line : {"'", "\"", "\\", "a 'b", "a \"b", "a\\", "\"a\\", "\"a\\\"", "'a\\"}) {
    EXPECT_TRUE(isUnterminated(line)) << line;
  }
}

/// The public face of the grammar.
class Parser : public testing::Test {
 protected:
  void parse(const std::string& line) {
    good_ = parser_.ParseString(line);
    errors_ = parser_.GetParseErrors();
    auto path = parser_.GetCommandPath();
    path_.assign(path.begin(), path.end());
    parameters_ = parser_.GetCommandParameters();
    EXPECT_EQ(good_, errors_.empty());
  }

  CppTools::AutoCli::OptionParser parser_;
  bool good_ = false;
  Words errors_;
  Words path_;
  Pairs parameters_;
};

TEST_F(Parser, TakesTheWordsBeforeTheFirstOptionAsThePath) {
  parse("network ip set -i eth0 --address=10.0.0.1/24");
  EXPECT_TRUE(good_);
  EXPECT_EQ(path_, (Words{"network", "ip", "set"}));
  EXPECT_EQ(parameters_, (Pairs{{"i", "eth0"}, {"address", "10.0.0.1/24"}}));
}

TEST_F(Parser, KnowsAllFourWaysToGiveAValue) {
  parse("x --one=1 --two 2 -t 3 -f=4");
  EXPECT_EQ(parameters_, (Pairs{{"one", "1"}, {"two", "2"}, {"t", "3"}, {"f", "4"}}));
}

TEST_F(Parser, TakesAnOptionBeforeAnotherOptionOrTheEndAsAFlag) {
  parse("x --force -v --name=n --last");
  EXPECT_EQ(parameters_,
            (Pairs{{"force", "true"}, {"v", "true"}, {"name", "n"}, {"last", "true"}}));
}

TEST_F(Parser, KeepsTheOrderAndRepetitionOfParameters) {
  parse("x -b 1 -a 2 -b 3");
  EXPECT_EQ(parameters_, (Pairs{{"b", "1"}, {"a", "2"}, {"b", "3"}}));
}

TEST_F(Parser, TakesEverythingAfterTheFirstEqualsSignAsTheValue) {
  parse("x --rule=a=b --empty= -c==");
  EXPECT_EQ(parameters_, (Pairs{{"rule", "a=b"}, {"empty", ""}, {"c", "="}}));
}

TEST_F(Parser, TakesAValueThatBeginsWithADashAfterAnEqualsSignOnly) {
  parse("x --offset=-5 --other -5");
  EXPECT_EQ(parameters_, (Pairs{{"offset", "-5"}, {"other", "true"}, {"5", "true"}}));
}

TEST_F(Parser, TakesQuotedValues) {
  parse(R"(x --text "two words" -e '' --more='a b')");
  EXPECT_EQ(parameters_, (Pairs{{"text", "two words"}, {"e", ""}, {"more", "a b"}}));
}

TEST_F(Parser, AcceptsAPathAloneAndOptionsAlone) {
  parse("network ip list");
  EXPECT_TRUE(good_);
  EXPECT_EQ(path_.size(), 3U);
  parse("--help");
  EXPECT_TRUE(good_);
  EXPECT_EQ(path_, Words{});
  EXPECT_EQ(parameters_, (Pairs{{"help", "true"}}));
}

TEST_F(Parser, RefusesAnEmptyLine) {
  for (const char* line : {"", "  \t\n"}) {
    parse(line);
    EXPECT_EQ(errors_, (Words{"the command line is empty"}));
  }
}

TEST_F(Parser, RefusesAQuoteWithoutAnEnd) {
  parse("x --text 'a b");
  EXPECT_EQ(errors_, (Words{"a quote without an end"}));
  EXPECT_TRUE(path_.empty());
}

TEST_F(Parser, NamesEachWordAfterAValueThatIsNoOption) {
  parse("x --name value one -f=1 two");
  EXPECT_EQ(errors_, (Words{"'one' follows a value and is no option",
                            "'two' follows a value and is no option"}));
}

TEST_F(Parser, RefusesAnOptionWithoutAName) {
  for (const char* word : {"-", "--", "-=v", "--=v"}) {
    parse(std::string("x ") + word);
    EXPECT_EQ(errors_, (Words{"an option without a name: '" + std::string(word) + "'"}));
  }
}

TEST_F(Parser, ForgetsTheLineBefore) {
  parse("x --name value one");
  EXPECT_FALSE(good_);
  parse("y");
  EXPECT_TRUE(good_);
  EXPECT_EQ(path_, (Words{"y"}));
  EXPECT_TRUE(parameters_.empty());
}

TEST_F(Parser, HasNothingBeforeTheFirstLine) {
  EXPECT_TRUE(parser_.GetParseErrors().empty());
  EXPECT_TRUE(parser_.GetCommandPath().empty());
  EXPECT_TRUE(parser_.GetCommandParameters().empty());
}

}  // namespace
}  // namespace bootforge::test
