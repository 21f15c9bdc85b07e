#include "cli/command_execution.h"

#include <list>
#include <memory>
#include <utility>
#include <vector>

#include "cli/hypcli_dispatcher.h"
#include "platform/autocli.h"
#include "platform/log.h"
#include "util/exception.h"

namespace bootforge {
namespace {

using CppTools::AutoCli::CommandInput;
using CppTools::AutoCli::CommandOutput;
using CppTools::AutoCli::OptionParser;

void parse(OptionParser& parser, const std::string& text) {
  if (parser.ParseString(text)) return;
  const std::vector<std::string> errors = parser.GetParseErrors();
  if (errors.empty()) return;
  for (const std::string& error : errors) {
    Log_Level(2, "Executor was unable to parse command: %s\n", error.c_str());
  }
  throw Exception("Executor failed to parse command " + text);
}

}  // namespace

void executeCommandText(const std::string& text) {
  OptionParser parser;
  parse(parser, text);

  const std::shared_ptr<CommandInput> input = CommandInput::New();
  const std::shared_ptr<CommandOutput> output = CommandOutput::New();
  const auto parameters = parser.GetCommandParameters();
  std::list<std::string> path = parser.GetCommandPath();
  input->SetDispatcher("bootforge");
  input->SetCommandPath(path);
  for (const auto& [name, value] : parameters) input->AddParameter(name, value);

  HypcliDispatcher::instance().ExecuteCommand(input, output);
  if (!output->HasError()) return;
  for (const std::string& error : output->GetErrors()) {
    Log_Level(2, "execution of '%s' failed : %s\n", text.c_str(), error.c_str());
  }
  throw Exception("Executor failed to execute command: " + text);
}

}  // namespace bootforge
