// Findings as text and for other programs.

#include "analyze/verify/render.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/json/parse.hpp>
#include <optional>
#include <set>

#include "analyze/verify/reporter.h"

namespace bootforge::analyze::test {
namespace {

namespace json = boost::json;

using testing::HasSubstr;
using testing::Not;

Findings findingIn(const std::string& file, const std::string& text, std::size_t offset,
                   const std::string& subject = "a", const std::string& message = "m") {
  Reporter reporter;
  TextReporter(reporter, file, text).add("command-no-timeout", offset, subject, message);
  return reporter.take();
}

std::string plain(const Findings& findings) { return renderText(findings, false); }

/// The line that is shown and the one with the caret.
std::string excerptOf(const std::string& text, std::size_t offset,
                      std::optional<std::size_t> width = {}) {
  const std::string all = renderText(findingIn("/f", text, offset), false, width);
  const std::size_t begin = all.find('\n') + 1;
  return all.substr(begin, all.find('\n', all.find('^')) - begin);
}

TEST(RenderText, NoFindingsAreSaid) { EXPECT_EQ(plain({}), "no findings\n"); }

TEST(RenderText, FindingHasItsPlaceItsLineACaretAndItsHelp) {
  Findings findings = findingIn("/f", "one\n  two\n", 6, "a", "it hangs");
  findings.front().help = "Look there.";
  EXPECT_EQ(plain(findings),
            "/f:2:3: note: it hangs [command-no-timeout]\n"
            "      two\n"
            "      ^\n"
            "    Look there.\n"
            "    If its program hangs, so does the boot. Give it \"timeout\": SECONDS.\n"
            "0 errors, 0 warnings, 1 note\n");
}

TEST(RenderText, FindingWithoutAPlaceOrAFileHasNoLine) {
  Reporter reporter;
  reporter.add("debug-active", "/f", "a", "m");
  reporter.add("debug-active", "", "a", "m");
  const std::string text = plain(reporter.take());
  EXPECT_THAT(text, HasSubstr("/f: warning: m ["));
  EXPECT_THAT(text, HasSubstr("image: warning: m ["));
  EXPECT_THAT(text, Not(HasSubstr("^")));
}

TEST(RenderText, CaretStandsBelowWideAndControlCharacters) {
  EXPECT_EQ(excerptOf("\xE4\xB8\xAD\tx!", 5), "    \xE4\xB8\xAD\\x09x!\n           ^");
  EXPECT_EQ(excerptOf("\xFF!", 1), "    \xEF\xBF\xBD!\n     ^");
}

TEST(RenderText, LongLinesAreCutOnBothSidesBetweenCharacters) {
  std::string line;
  for (int i = 0; i < 200; ++i) line += "\xC3\xA9";
  const std::string shown = excerptOf(line, 200);
  EXPECT_THAT(shown, testing::StartsWith("    ...\xC3\xA9"));
  EXPECT_THAT(shown, HasSubstr("\xC3\xA9...\n"));
  EXPECT_EQ(shown.substr(shown.find('\n')), "\n" + std::string(4 + 3 + 30, ' ') + '^');
}

TEST(RenderText, LinesAndHelpAreFittedToATerminal) {
  const Findings findings = findingIn("/f", std::string(50, 'x'), 5);
  EXPECT_EQ(renderText(findings, false, 40),
            "/f:1:6: note: m [command-no-timeout]\n"
            "    xxxxxxxxxxxxxxxxxxxxxxxxxxxxxx...\n"
            "         ^\n"
            "    If its program hangs, so does the\n"
            "    boot. Give it \"timeout\": SECONDS.\n"
            "0 errors, 0 warnings, 1 note\n");
  EXPECT_EQ(excerptOf(std::string(50, 'x'), 40, 40),
            "    ..." + std::string(25, 'x') + "\n" + std::string(4 + 3 + 15, ' ') + '^');
}

TEST(RenderText, ColoursAreThereWhenTheyAreWanted) {
  EXPECT_THAT(renderText(findingIn("/f", "x", 0), true, 80), HasSubstr("\033[1;36mnote\033[0m"));
  EXPECT_THAT(renderText(findingIn("/f", "x", 0), false, 80), Not(HasSubstr("\033")));
}

TEST(RenderJson, AbsentPlacesAreNullAndBytesValidUtf8) {
  Reporter reporter;
  reporter.add("debug-active", "", "\xFF", "\x1B");
  const json::value value = json::parse(renderJson(reporter.take()));
  const json::object& finding = value.at("findings").as_array().front().as_object();
  for (const char* key : {"file", "line", "column"}) EXPECT_TRUE(finding.at(key).is_null()) << key;
  EXPECT_EQ(finding.at("subject").as_string(), "\xEF\xBF\xBD");
  EXPECT_EQ(finding.at("message").as_string(), "\x1B");
  EXPECT_EQ(value.at("counts").at("warning").as_int64(), 1);
  EXPECT_EQ(value.at("counts").at("error").as_int64(), 0);
}

TEST(RenderSarif, PathsAreRelativeReferencesAndNotesAreIncluded) {
  const json::value value = json::parse(renderSarif(findingIn("/a b/100%\xFF:.json", "\n x", 2)));
  const json::value& run = value.at("runs").as_array().front();
  const json::value& result = run.at("results").as_array().front();
  EXPECT_EQ(result.at("level").as_string(), "note");
  EXPECT_EQ(result.at("ruleId").as_string(), "command-no-timeout");
  const json::value& place = result.at("locations").as_array().front().at("physicalLocation");
  EXPECT_EQ(place.at("artifactLocation").at("uri").as_string(), "a%20b/100%25%FF%3A.json");
  EXPECT_EQ(place.at("region").at("startLine").as_int64(), 2);
  EXPECT_EQ(place.at("region").at("startColumn").as_int64(), 2);
  EXPECT_EQ(run.at("columnKind").as_string(), "unicodeCodePoints");
  const auto index = static_cast<std::size_t>(result.at("ruleIndex").as_int64());
  EXPECT_EQ(run.at("tool").at("driver").at("rules").at(index).at("id").as_string(),
            "command-no-timeout");
}

TEST(RenderSarif, FindingWithoutAFileHasNoLocation) {
  Reporter reporter;
  reporter.add("debug-active", "", "a", "m");
  const json::value value = json::parse(renderSarif(reporter.take()));
  const json::value& result = value.at("runs").as_array().front().at("results").as_array().front();
  EXPECT_EQ(result.as_object().count("locations"), 0U);
}

TEST(RenderGithub, WhatWouldEndACommandIsEscapedAndNotesAreNotices) {
  const std::string text = renderGithub(findingIn("/a:b,c%.json", "\n x", 2, "a", "one\ntwo, 50%"));
  EXPECT_THAT(text, testing::StartsWith(
                        "::notice title=command-no-timeout,file=a%3Ab%2Cc%25.json,line=2,col=2::"
                        "one%0Atwo, 50%25%0A"));
  EXPECT_EQ(text.find('\n'), text.size() - 1);
}

TEST(Rules, EachIsThereOnceWithItsWords) {
  std::set<std::string_view> names;
  for (const Rule& rule : allRules()) {
    EXPECT_TRUE(names.insert(rule.name).second) << rule.name;
    EXPECT_FALSE(rule.summary.empty()) << rule.name;
    EXPECT_FALSE(rule.help.empty()) << rule.name;
    EXPECT_EQ(&ruleNamed(rule.name), &rule);
  }
  EXPECT_EQ(names.size(), 37U);
}

}  // namespace
}  // namespace bootforge::analyze::test
