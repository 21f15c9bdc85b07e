// The terminals that the operator's prompt works on, played.
#pragma once

#include <string>
#include <vector>

namespace bootforge::test {

struct TerminalCalls {
  bool activates = true;    // VT_ACTIVATE succeeds
  bool isTerminal = false;  // tcgetattr(3) succeeds
  int failingChange = 0;    // which call of tcsetattr(3) fails, counted from 1; 0 for none
  /// What /dev/console was asked for, and how often: "activate 1", "wait 1".
  std::vector<std::string> requests{};
  /// What standard input was changed to, failing changes included: "keys" is neither canonical mode
  /// nor echo, "lines" is both.
  std::vector<std::string> changes{};
};

/// To be set and read by tests. Processes that are forked have a copy.
TerminalCalls& terminalCalls();

}  // namespace bootforge::test
