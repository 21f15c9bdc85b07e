// Parsing of command lines, each as if it were the process's first.
#pragma once

#include <getopt.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "main/command_line.h"
#include "main/run_options.h"
#include "tests/double/recorder.h"

namespace bootforge {

class CommandLineTest : public testing::Test {
 protected:
  static constexpr std::int64_t kUntouchedSeed = 12345678901;

  CommandLineTest() { doubles::reset(); }
  ~CommandLineTest() override { options = RunOptions(); }

  /// Parses these words after the program's name into `line` and `options`. They must be good.
  void parse(const std::vector<std::string>& words) {
    std::optional<CommandLine> parsed = tryToParse(words);
    ASSERT_TRUE(parsed.has_value());
    line = *parsed;
  }

  /// Whether there is no usage error. What that is on standard error is not this test's matter.
  bool isUnderstood(const std::vector<std::string>& words) {
    testing::internal::CaptureStderr();
    const bool good = tryToParse(words).has_value();
    testing::internal::GetCapturedStderr();
    return good;
  }

  std::optional<CommandLine> tryToParse(std::vector<std::string> words) {
    options = RunOptions();
    options.randomSeed = kUntouchedSeed;
    words.insert(words.begin(), "bootforge");
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    optind = 0;  // glibc's way to begin anew
    return parseCommandLine(static_cast<int>(words.size()), arguments.data());
  }

  CommandLine line;
  RunOptions& options = RunOptions::instance();
};

}  // namespace bootforge
