#include "platform/linux/command_line.h"

#include <boost/algorithm/string/join.hpp>
#include <optional>

namespace host_linux {
namespace {

bool isOneOf(char c, std::string_view set) { return set.find(c) != std::string_view::npos; }

bool isOption(const std::string& word) { return word.starts_with('-'); }

/// Reads the option at `word`, and moves on to its value where that is a word of its own.
void readOption(const std::vector<std::string>& words, std::size_t& at, CommandLine& line) {
  const std::string& word = words[at];
  std::size_t start = word.starts_with("--") ? 2 : 1;
  std::size_t equals = word.find('=', start);
  std::string name = word.substr(start, equals - start);
  if (name.empty()) {
    line.errors.push_back("an option without a name: '" + word + "'");
    return;
  }
  std::string value = "true";
  if (equals != std::string::npos) {
    value = word.substr(equals + 1);
  } else if (at + 1 < words.size() && !isOption(words[at + 1])) {
    value = words[++at];
  } else {
    line.withoutValue.push_back(name);
  }
  line.parameters.emplace_back(std::move(name), std::move(value));
}

}  // namespace

bool splitWords(std::string_view line, std::vector<std::string>* words) {
  std::optional<std::string> word;  // none between words; '' is a word
  char quote = 0;                   // the kind of quotes that are open
  auto append = [&word](char c) { word ? word->push_back(c) : void(word.emplace(1, c)); };
  for (std::size_t i = 0; i < line.size(); ++i) {
    char c = line[i];
    if (quote && c == quote) {
      quote = 0;
    } else if (c == '\\' && quote != '\'') {
      if (++i == line.size()) return false;
      // Between double quotes it is a backslash unless it stands before what it can protect.
      if (quote && !isOneOf(line[i], "$`\"\\\n")) append(c);
      if (line[i] != '\n') append(line[i]);  // an escaped line break joins lines
    } else if (!quote && (c == '\'' || c == '"')) {
      quote = c;
      if (!word) word.emplace();
    } else if (quote || !isOneOf(c, " \t\n")) {
      append(c);
    } else if (word) {
      words->push_back(*std::exchange(word, {}));
    }
  }
  if (word) words->push_back(std::move(*word));
  return !quote;
}

CommandLine parseWords(const std::vector<std::string>& words) {
  CommandLine line;
  if (words.empty()) line.errors.emplace_back("the command line is empty");
  std::size_t at = 0;
  for (; at < words.size() && !isOption(words[at]); ++at) line.path.push_back(words[at]);
  for (; at < words.size(); ++at) {
    if (isOption(words[at])) {
      readOption(words, at, line);
    } else {
      line.errors.push_back("'" + words[at] + "' follows a value and is no option");
    }
  }
  return line;
}

CommandLine parseLine(std::string_view line) {
  std::vector<std::string> words;
  if (splitWords(line, &words)) return parseWords(words);
  CommandLine failed;
  failed.errors.emplace_back("a quote without an end");
  return failed;
}

std::string joinWords(const std::vector<std::string>& words) {
  return boost::algorithm::join(words, " ");
}

}  // namespace host_linux
