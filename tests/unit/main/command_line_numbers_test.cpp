// The two numbers on the command line.
#include <boost/lexical_cast/bad_lexical_cast.hpp>

#include "tests/unit/main/command_line_fixture.h"
#include "tests/unit/main/program.h"

namespace bootforge {
namespace {

using testing::ElementsAreArray;

using CommandLineNumbers = CommandLineTest;

TEST_F(CommandLineNumbers, ASeedIsASignedNumberOf32Bits) {
  const std::pair<const char*, std::int64_t> seeds[] = {
      {"5", 5},   {"+5", 5}, {"-5", -5}, {"2147483647", 2147483647}, {"-2147483648", -2147483648},
      {"007", 7}, {"0", 0},  {"-0", 0}};
  for (const auto& [text, seed] : seeds) {
    parse({std::string("--randomize=") + text});
    EXPECT_TRUE(options.randomize) << text;
    EXPECT_EQ(options.randomSeed, seed) << text;
  }
}

TEST_F(CommandLineNumbers, WithoutASeedTheOneFromTheBeginningStays) {
  parse({"--randomize"});
  EXPECT_TRUE(options.randomize);
  EXPECT_EQ(options.randomSeed, kUntouchedSeed);
}

TEST_F(CommandLineNumbers, ALaterOccurrenceWithoutASeedKeepsTheSeed) {
  parse({"--randomize=5", "--randomize"});
  EXPECT_EQ(options.randomSeed, 5);
}

TEST_F(CommandLineNumbers, WhatIsNoSeedIsAnError) {
  for (const char* text : {"", "x", "5x", " 5", "5 ", "+", "-", "++5", "+-5", "0x10", "1e3", "5.0",
                           "2147483648", "-2147483649", "99999999999999999999"}) {
    EXPECT_THROW(tryToParse({std::string("--randomize=") + text}), boost::bad_lexical_cast) << text;
  }
}

TEST_F(CommandLineNumbers, ATimeoutIsAnUnsignedNumberOf32Bits) {
  const std::pair<const char*, std::uint32_t> timeouts[] = {
      {"0", 0}, {"1", 1}, {"+5", 5}, {"040", 40}, {"4294967295", 4294967295U}};
  for (const auto& [text, timeout] : timeouts) {
    parse({std::string("--daemon-wait-timeout=") + text});
    EXPECT_EQ(options.daemonWaitTimeout, timeout) << text;
  }
}

TEST_F(CommandLineNumbers, WhatIsNoTimeoutIsAnError) {
  for (const char* text : {"", "x", "5s", " 5", "5 ", "-1", "-0", "+-1", "+", "1.5", "0x10",
                           "4294967296", "-4294967295"}) {
    EXPECT_THROW(tryToParse({std::string("--daemon-wait-timeout=") + text}),
                 boost::bad_lexical_cast)
        << text;
  }
}

using CommandLineNumbersRun = test::ProgramTest;

TEST_F(CommandLineNumbersRun, ANumberThatCannotBeReadEndsTheProgram) {
  std::vector<doubles::Record> expected = test::logSetUp();
  expected.push_back(doubles::logLine(3,
                                      "Failed to initialize bootforge: bad lexical cast: source "
                                      "type value could not be interpreted as target\n"));
  for (const char* word :
       {"--randomize=", "--randomize=x", "--randomize=2147483648",
        "--daemon-wait-timeout=", "--daemon-wait-timeout=-1", "--daemon-wait-timeout=4294967296"}) {
    doubles::reset();
    const test::Outcome outcome = bootforge({word, "--help"});
    EXPECT_EQ(outcome.status, 1) << word;
    EXPECT_EQ(outcome.out, "") << word;
    EXPECT_EQ(outcome.err, "") << word;
    EXPECT_THAT(doubles::records(), ElementsAreArray(expected)) << word;
  }
}

}  // namespace
}  // namespace bootforge
