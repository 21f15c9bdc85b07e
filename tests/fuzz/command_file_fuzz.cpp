// Any bytes as a command file: refused with a reason, or every command in it keeps what the reader
// promises to those who run it.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "platform/linux/command_file.h"

namespace {

void require(bool condition) {
  if (!condition) std::abort();
}

bool isArgument(const std::string& text) { return text.find('\0') == std::string::npos; }

void check(const host_linux::Command& command) {
  require(command.program.starts_with('/') && isArgument(command.program));
  for (const auto& pieces : command.arguments) {
    for (const host_linux::Piece& piece : pieces) {
      require(isArgument(piece.text));
      require(!piece.parameter || *piece.parameter < command.parameters.size());
    }
  }
  for (const host_linux::Parameter& parameter : command.parameters) {
    require(!parameter.name.empty() && parameter.shortName.size() <= 1);
    // A name or a short name finds its own parameter and no other.
    for (const std::string& name : {parameter.name, parameter.shortName}) {
      if (name.empty()) continue;
      auto found = host_linux::findParameter(command.parameters, name);
      require(found && &command.parameters[*found] == &parameter);
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  try {
    host_linux::CommandFile file =
        host_linux::parseCommandFile({reinterpret_cast<const char*>(data), size});
    require(!file.nameSpace.empty());
    for (const host_linux::CommandFile::Definition& definition : file.commands) {
      require(!definition.word.empty());
      require(definition.at < size && definition.programAt < size);
      check(definition.command);
    }
  } catch (const std::invalid_argument& error) {
    require(*error.what() != '\0');
  }
  return 0;
}
