// The CLI framework of the double.
#include "platform/autocli.h"

#include <sstream>

#include "tests/double/recorder.h"
#include "tests/double/script.h"

namespace CppTools::AutoCli {
namespace {

using bootforge::doubles::append;
using bootforge::doubles::Kind;
using bootforge::doubles::Parse;
using bootforge::doubles::script;

Parse parseSimply(const std::string& line) {
  Parse result;
  std::istringstream words(line);
  for (std::string word; words >> word;) {
    if (word.compare(0, 2, "--") != 0) {
      result.path.push_back(word);
      continue;
    }
    const std::size_t equals = word.find('=');
    if (equals == std::string::npos) {
      result.parameters.emplace_back(word.substr(2), "true");
    } else {
      result.parameters.emplace_back(word.substr(2, equals - 2), word.substr(equals + 1));
    }
  }
  return result;
}

std::string joined(const std::list<std::string>& path) {
  std::string text;
  for (const std::string& word : path) text += (text.empty() ? "" : " ") + word;
  return text;
}

}  // namespace

struct OptionParser::State {
  Parse parse;
};

OptionParser::OptionParser() : state_(std::make_unique<State>()) {}
OptionParser::~OptionParser() = default;

bool OptionParser::ParseString(const std::string& line) {
  const auto scripted = script().parses.find(line);
  state_->parse = scripted == script().parses.end() ? parseSimply(line) : scripted->second;
  return state_->parse.succeeds;
}

std::vector<std::string> OptionParser::GetParseErrors() const { return state_->parse.errors; }
std::list<std::string> OptionParser::GetCommandPath() const { return state_->parse.path; }
std::vector<std::pair<std::string, std::string>> OptionParser::GetCommandParameters() const {
  return state_->parse.parameters;
}

struct Dispatcher::State {};

Dispatcher::Dispatcher() : state_(std::make_unique<State>()) {
  append(Kind::kCli, 0, "Dispatcher");
}
Dispatcher::~Dispatcher() = default;

void Dispatcher::AddExternalDirectory(const std::string& directory) {
  append(Kind::kCli, 0, "AddExternalDirectory " + directory);
  if (script().onAddExternalDirectory) script().onAddExternalDirectory(directory);
}

void Dispatcher::ExecuteCommand(std::shared_ptr<CommandInput> input,
                                std::shared_ptr<CommandOutput> output) {
  const std::string path = joined(input->GetCommandPath());
  std::string text = "ExecuteCommand " + input->GetDispatcher() + ": " + path;
  for (const auto& [name, value] : input->GetParameters()) text += " --" + name + "=" + value;
  append(Kind::kCli, 0, text);
  const auto scripted = script().commands.find(path);
  if (scripted != script().commands.end()) scripted->second(*input, *output);
}

}  // namespace CppTools::AutoCli
