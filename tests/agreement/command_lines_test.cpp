// Drawn command lines: what the executor's request handler refuses is what verify finds, and the
// other way round.
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "analyze/verify/checks.h"
#include "cli/control_socket.h"
#include "cli/request_handler.h"
#include "tests/support/scratch_root.h"
#include "util/unique_fd.h"

namespace bootforge::analyze {
namespace {

constexpr int kLines = 20'000;
constexpr const char* kFolder = "/usr/lib/nimbus/hypcli";
constexpr const char* kCommands = R"({"namespace": "a b", "commands": {
  "set": {"exec": ["/bin/true", "{name}", "x{size}", "{both}"], "timeout": 60, "parameters": {
    "name": {"short": "n", "required": true}, "size": {"short": "s"}, "both": {"short": "b"},
    "quick": {"flag": true, "short": "q"}, "must": {"flag": true, "required": true}}},
  "run": {"exec": ["/bin/true"], "timeout": 60},
  "stop": {"exec": ["/bin/true"], "timeout": 60}}})";
constexpr const char* kMoreCommands = R"({"namespace": "a", "commands": {
  "b": {"exec": ["/bin/true", "{p}"], "timeout": 60, "parameters": {"p": {}}},
  "é": {"exec": ["/bin/true"], "timeout": 60}}})";

class Drawing {
 public:
  explicit Drawing(unsigned seed) : random_(seed) {}

  std::string line() {
    const unsigned kind = below(20);
    if (kind == 0) return stop();
    if (kind == 1) return longLine();
    std::string line = kind < 12 ? good() : std::string();
    const unsigned count = kind < 12 ? below(3) : below(7);
    for (unsigned i = 0; i < count; ++i) line += gap() + piece();
    if (below(4) == 0) spoil(line);
    return line;
  }

 private:
  unsigned below(unsigned end) { return static_cast<unsigned>(random_() % end); }

  template <typename Choices>
  std::string oneOf(const Choices& choices) {
    return choices[below(static_cast<unsigned>(std::size(choices)))];
  }

  std::string good() {
    static const char* const kGood[] = {"a b run",
                                        "a b set -n 1 --must",
                                        "a b set --name=x --must -q",
                                        "a b",
                                        "a b --p=1",
                                        "'a' \"b\" r\\un",
                                        "a b set --must --name x -s=2 --both 3",
                                        "a \xC3\xA9",
                                        "a b stop"};
    return oneOf(kGood);
  }

  std::string piece() {
    static const char* const kPieces[] = {
        "a",       "b",      "set",         "run",       "-n",          "--name",    "--name=",
        "-n=1",    "--must", "--must=true", "--must=no", "--must true", "--must no", "-q",
        "--quick", "--size", "--x",         "-",         "--",          "-=",        "--=1",
        "''",      "\"\"",   "'a b'",       "\"a b\"",   "\\",          "\\\n",      "'",
        "\"",      "-s -1",  "--p",         "=",         "1",           "\xFF",      "\xC3\xA9",
        "$x",      "`x`",    ";",           "stop",      "--both='-x'", "\\-n",      "\"-n\"",
        "-n\\ 1"};
    return oneOf(kPieces);
  }

  std::string gap() {
    static const char* const kGaps[] = {" ", " ", " ", "  ", "\t", "\n", "\r", "\v", ""};
    return oneOf(kGaps);
  }

  std::string stop() {
    static const char* const kStops[] = {"stop", "STOP",   "Stop a b run", "sToPped", " stop",
                                         "sto",  "'stop'", "st",           "stop\t",  "\"stop\" x"};
    return oneOf(kStops);
  }

  std::string longLine() {
    const std::string head = oneOf(std::vector<std::string>{
        "a b set --must -n ", "a b run ", "stop", "'", "a b set --must -n 1 --both=", ""});
    const std::size_t length = 1015 + below(16);
    std::string line = head;
    const char filler = oneOf(std::vector<std::string>{"x", " ", "-", "'", "\xC3"})[0];
    line.resize(std::max(length, head.size()), filler);
    return line;
  }

  void spoil(std::string& line) {
    const std::size_t at = below(static_cast<unsigned>(line.size()) + 1);
    switch (below(4)) {
      case 0:
        line.insert(at, 1, '\0');
        break;
      case 1:
        line.resize(at);
        break;
      case 2:
        line.insert(at, piece());
        break;
      default:
        line.insert(at, 1, static_cast<char>(below(256)));
    }
  }

  std::mt19937 random_;
};

/// What becomes of a line in a boot.
enum class Outcome { Runs, Refused, Stops };

/// As the orchestrator sends it and the executor takes it.
Outcome outcomeOf(const std::string& line) {
  const std::string sent = line.c_str();
  if (sent.empty()) return Outcome::Refused;  // it is never sent
  int ends[2];
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) std::abort();
  const UniqueFd client(ends[0]);
  UniqueFd server(ends[1]);
  const ssize_t length = ::send(client.get(), sent.data(), sent.size(), 0);
  EXPECT_EQ(length, static_cast<ssize_t>(sent.size()));
  if (handleRequest(server)) return Outcome::Stops;
  CommandStatus status = 0;
  EXPECT_EQ(::recv(client.get(), &status, sizeof status, 0), ssize_t{sizeof status});
  return status == 0 ? Outcome::Runs : Outcome::Refused;
}

/// A description with one command to a line of its text, the first one on line 2.
std::string describe(const std::vector<std::string>& lines) {
  std::string text =
      R"({"metadata": {"version": 1, "requires": [], "provides": []}, "operations": {"start": [)";
  const char* separator = "\n";
  for (const std::string& line : lines) {
    text += separator;
    text += '"';
    for (const char c : line) {
      const auto byte = static_cast<unsigned char>(c);
      if (byte < ' ') {
        char escape[8];
        std::snprintf(escape, sizeof escape, "\\u%04x", byte);
        text += escape;
      } else {
        if (c == '"' || c == '\\') text += '\\';
        text += c;
      }
    }
    text += '"';
    separator = ",\n";
  }
  return text + "]}}";
}

std::string shown(const std::string& line) {
  std::string text;
  for (const char c : line) {
    char byte[8];
    std::snprintf(byte, sizeof byte, std::isprint(static_cast<unsigned char>(c)) ? "%c" : "\\x%02x",
                  static_cast<unsigned char>(c));
    text += byte;
  }
  return text;
}

class CommandLineAgreement : public ::testing::Test {
 protected:
  CommandLineAgreement() {
    for (const char* const folder : {"/int", "/int/ext", "/ext"}) {
      test::writeFile(kFolder + std::string(folder) + "/nothing", "");
    }
    test::writeFile(std::string(kFolder) + "/a-b.json", kCommands);
    test::writeFile(std::string(kFolder) + "/a.json", kMoreCommands);
  }

  /// The rules that verify applies to each line.
  std::vector<std::set<std::string_view>> judge(const std::vector<std::string>& lines) {
    test::writeFile(std::string(kDefaultPluginDirectory) + "/x.json", describe(lines));
    const Image image({});
    EXPECT_TRUE(image.files().at(0).hasPlugin());
    Reporter reporter;
    checkCommandLines(image, readCommands(image.root()), reporter);
    std::vector<std::set<std::string_view>> rules(lines.size());
    for (const Finding& finding : reporter.take()) {
      if (finding.rule->severity != Severity::Error) continue;
      rules.at(finding.line.value() - 2).insert(finding.rule->name);
    }
    return rules;
  }
};

TEST_F(CommandLineAgreement, VerifyFindsWhatTheExecutorRefuses) {
  const char* const given = std::getenv("BOOTFORGE_SEED");
  const unsigned seed =
      given != nullptr ? static_cast<unsigned>(std::strtoul(given, nullptr, 10)) : 1;
  std::printf("BOOTFORGE_SEED=%u draws these lines again\n", seed);
  Drawing drawing(seed);
  std::vector<std::string> lines;
  for (int i = 0; i < kLines; ++i) lines.push_back(drawing.line());
  const auto rules = judge(lines);

  std::size_t counts[3] = {};
  std::size_t cut = 0;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    SCOPED_TRACE(shown(lines[i]));
    const Outcome outcome = outcomeOf(lines[i]);
    ++counts[static_cast<int>(outcome)];
    const bool isLong = std::string(lines[i].c_str()).size() > kRequestLimit;
    EXPECT_EQ(rules[i].contains("command-is-stop"), outcome == Outcome::Stops);
    EXPECT_EQ(rules[i].contains("command-too-long"), isLong);
    cut += isLong;
    // What is left of a line that is cut may be good or bad.
    if (!isLong) {
      EXPECT_EQ(rules[i].empty(), outcome == Outcome::Runs);
    }
    if (HasFailure()) break;
  }
  EXPECT_GT(counts[static_cast<int>(Outcome::Runs)], kLines / 10U);
  EXPECT_GT(counts[static_cast<int>(Outcome::Refused)], kLines / 10U);
  EXPECT_GT(counts[static_cast<int>(Outcome::Stops)], kLines / 100U);
  EXPECT_GT(cut, kLines / 100U);
}

}  // namespace
}  // namespace bootforge::analyze
