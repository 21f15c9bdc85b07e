#include "platform/autocli.h"

#include "platform/linux/command_line.h"
#include "platform/linux/command_registry.h"
#include "platform/linux/command_runner.h"

namespace CppTools::AutoCli {

struct OptionParser::State {
  host_linux::CommandLine line;
};

OptionParser::OptionParser() : state_(std::make_unique<State>()) {}

OptionParser::~OptionParser() = default;

bool OptionParser::ParseString(const std::string& line) {
  state_->line = host_linux::parseLine(line);
  return state_->line.errors.empty();
}

std::vector<std::string> OptionParser::GetParseErrors() const { return state_->line.errors; }

std::list<std::string> OptionParser::GetCommandPath() const {
  return {state_->line.path.begin(), state_->line.path.end()};
}

std::vector<std::pair<std::string, std::string>> OptionParser::GetCommandParameters() const {
  return state_->line.parameters;
}

struct Dispatcher::State {
  host_linux::CommandRegistry registry;
};

Dispatcher::Dispatcher() : state_(std::make_unique<State>()) {}

Dispatcher::~Dispatcher() = default;

void Dispatcher::AddExternalDirectory(const std::string& directory) {
  state_->registry.addDirectory(directory);
}

void Dispatcher::ExecuteCommand(std::shared_ptr<CommandInput> input,
                                std::shared_ptr<CommandOutput> output) {
  const std::list<std::string>& path = input->GetCommandPath();
  const host_linux::BoundCommand bound =
      host_linux::bindCommand(state_->registry, {path.begin(), path.end()}, input->GetParameters());
  std::vector<std::string> errors =
      bound.errors.empty() ? host_linux::runCommand(bound) : bound.errorTexts();
  for (std::string& error : errors) output->AddError(std::move(error));
}

}  // namespace CppTools::AutoCli
