#include "reading/json_text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "reading/place.h"

namespace bootforge::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Kind = JsonText::Kind;

/// Every value and key, as "KIND@OFFSET", keys as "KEY@OFFSET", in the order of the text.
std::string outline(const JsonText& json, const JsonText::Value& value) {
  static const char* const kNames[] = {"null", "bool", "number", "string", "array", "object"};
  std::string text = kNames[static_cast<int>(value.kind())];
  text += '@' + std::to_string(value.at());
  if (!value.isArray() && !value.isObject()) return text;
  for (const JsonText::Entry& entry : json.entries(value)) {
    text += ' ';
    if (value.isObject()) text += std::string(entry.key) + '@' + std::to_string(entry.keyAt) + '=';
    text += outline(json, entry.value);
  }
  return text + (value.isObject() ? " }" : " ]");
}
std::string outline(const std::string& text) {
  const JsonText json(text);
  return json.isValid() ? outline(json, json.root()) : json.error();
}

std::string errorOf(const std::string& text) {
  const JsonText json(text);
  return json.error() + '@' + std::to_string(json.errorAt());
}

std::string nested(std::size_t depth) { return std::string(depth, '[') + std::string(depth, ']'); }

TEST(JsonText, KnowsThePlaceOfEveryValueAndKey) {
  EXPECT_EQ(outline(R"( {"a": null, "b":true ,"c" : -1.5e3, "d":"x", "e":[ 1,[],{} , false]})"),
            "object@1 a@2=null@7 b@13=bool@17 c@23=number@29 d@37=string@41 "
            "e@46=array@50 number@52 array@54 ] object@57 } bool@62 ] }");
  EXPECT_EQ(outline("\n\t\r 7"), "number@4");
  EXPECT_EQ(outline(R"([["",""],1,"\n",{"":2},true])"),
            "array@0 array@1 string@2 string@5 ] number@9 string@11 object@16 @17=number@20 } "
            "bool@23 ]");
  EXPECT_EQ(outline(R"("a")"), "string@0");
}

TEST(JsonText, ReadsTheValuesThemselves) {
  const JsonText json(R"([true, false, -2, 3.5, 18446744073709551615, "x"])");
  ASSERT_TRUE(json.isValid());
  std::vector<JsonText::Value> values;
  for (const JsonText::Entry& entry : json.entries(json.root())) values.push_back(entry.value);
  ASSERT_EQ(values.size(), 6U);
  EXPECT_TRUE(values[0].boolean());
  EXPECT_FALSE(values[1].boolean());
  EXPECT_EQ(values[2].number(), -2);
  EXPECT_EQ(values[3].number(), 3.5);
  EXPECT_EQ(values[4].number(), 18446744073709551615.0);
  EXPECT_EQ(values[5].string(), "x");
}

TEST(JsonText, StringsWithEscapesAreReadAndThoseBehindThemKeepTheirPlaces) {
  const JsonText json(R"(["a\"b", "\u0041\ud83d\ude00\u0000", "", "\\", "plain"])");
  std::vector<std::string> strings;
  std::vector<std::size_t> places;
  for (const JsonText::Entry& entry : json.entries(json.root())) {
    strings.emplace_back(entry.value.string());
    places.push_back(entry.value.at());
  }
  EXPECT_THAT(strings,
              ElementsAre("a\"b", std::string("A\xF0\x9F\x98\x80\0", 6), "", "\\", "plain"));
  EXPECT_THAT(places, ElementsAre(1, 9, 37, 41, 47));
}

TEST(JsonText, KeysWithEscapesAreRead) {
  EXPECT_EQ(outline(R"({"a\tb": 1, "\u0063": 2})"), "object@0 a\tb@1=number@9 c@12=number@22 }");
}

TEST(JsonText, KeepsBytesInsideStringsThatAreNoUtf8) {
  const JsonText json("[\"\xFF\x80\", 1]");
  EXPECT_EQ(outline("[\"\xFF\x80\", 1]"), "array@0 string@1 number@7 ]");
  EXPECT_EQ((*json.entries(json.root()).begin()).value.string(), "\xFF\x80");
}

TEST(JsonText, CommentsAreAllowedAndMoveNothing) {
  EXPECT_EQ(outline("// \"{\n{/* , */\"a\"/***/:/* \n */1// end\n}"), "object@6 a@14=number@30 }");
  EXPECT_EQ(outline(R"(["// no comment", "/*", "\"//", 1])"),
            "array@0 string@1 string@18 string@24 number@32 ]");
}

TEST(JsonText, OfEqualKeysTheLastOneCounts) {
  const JsonText json(R"({"a": 1, "b": 2, "a": 3, "\u0061": 4})");
  EXPECT_EQ(outline(json, json.root()),
            "object@0 a@1=number@6 b@9=number@14 a@17=number@22 a@25=number@35 }");
  JsonText::Value found = json.root();
  ASSERT_TRUE(json.find(json.root(), "a", &found));
  EXPECT_EQ(found.number(), 4);
  EXPECT_FALSE(json.find(json.root(), "c", &found));
  std::vector<std::size_t> places;
  for (const JsonText::Entry& entry : json.lastEntries(json.root())) places.push_back(entry.keyAt);
  EXPECT_THAT(places, ElementsAre(9, 25));
}

TEST(JsonText, TextBehindTheValueIsToldFromBlanksAndComments) {
  const JsonText trailing("{} /* x */ y");
  EXPECT_TRUE(trailing.hasTrailingText());
  EXPECT_EQ(trailing.end(), 11U);
  EXPECT_FALSE(JsonText("{} /* x */ \n // y").hasTrailingText());
  EXPECT_FALSE(JsonText("{").hasTrailingText());
  EXPECT_TRUE(JsonText("{}}").hasTrailingText());
}

TEST(JsonText, FaultsOfSyntaxHaveAPlace) {
  EXPECT_EQ(errorOf(""), "incomplete JSON@0");
  EXPECT_EQ(errorOf("  "), "incomplete JSON@2");
  EXPECT_EQ(errorOf("{\"a\""), "incomplete JSON@4");
  EXPECT_EQ(errorOf("[1,]"), "syntax error@3");
  EXPECT_EQ(errorOf("{\"a\" 1}"), "syntax error@5");
  EXPECT_EQ(errorOf("{a: 1}"), "syntax error@1");
  EXPECT_EQ(errorOf("\xEF\xBB\xBF{}"), "syntax error@0");
  EXPECT_EQ(errorOf("[1 /* never closed"), "incomplete JSON@18");
}

TEST(JsonText, NestsAsDeepAsTheLimitAndNoDeeper) {
  const JsonText deep(nested(4096));
  EXPECT_TRUE(deep.isValid()) << deep.error();
  const JsonText deeper(nested(4097));
  EXPECT_EQ(deeper.error(), "too deep");
  EXPECT_EQ(deeper.errorAt(), 4096U);
}

TEST(JsonText, ManyValuesHaveTheirPlaces) {
  std::string text = "[";
  for (int i = 0; i < 100000; ++i) text += "\"ab\",";
  text += "0]";
  const JsonText json(text);
  std::size_t count = 0;
  for (const JsonText::Entry& entry : json.entries(json.root())) {
    ASSERT_EQ(entry.value.at(), 1 + 5 * count);
    ++count;
  }
  EXPECT_EQ(count, 100001U);
}

TEST(Place, CountsLinesAndCharactersFromOne) {
  const auto at = [](const std::string& text, std::size_t offset) {
    const Place place = placeOf(text, offset);
    return std::to_string(place.line) + ':' + std::to_string(place.column);
  };
  EXPECT_EQ(at("", 0), "1:1");
  EXPECT_EQ(at("abc", 2), "1:3");
  EXPECT_EQ(at("abc", 3), "1:4");
  EXPECT_EQ(at("a\nb", 1), "1:2");
  EXPECT_EQ(at("a\nb", 2), "2:1");
  EXPECT_EQ(at("\n\n", 2), "3:1");
  EXPECT_EQ(at("a\r\nb", 3), "2:1");
  EXPECT_EQ(at("\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80x", 9), "1:4");
  EXPECT_EQ(at("\t\xFFx", 2), "1:3");
  EXPECT_EQ(at("x", 100), "1:2");
}

}  // namespace
}  // namespace bootforge::test
