// What command files define.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace host_linux {

struct Parameter {
  std::string name;
  std::string shortName;  // one letter, or empty
  std::string summary;
  bool required = false;
  bool flag = false;
};

/// A run of text, or the place of a parameter's value, in an argument of a program.
struct Piece {
  std::string text;
  std::optional<std::size_t> parameter;  // an index into Command::parameters
};

struct Command {
  std::string summary;
  std::vector<Parameter> parameters;
  std::string program;  // an absolute path
  std::vector<std::vector<Piece>> arguments;
  std::optional<double> timeout;  // seconds, above 0; none for no limit
};

/// The index of the parameter of that name or short name.
std::optional<std::size_t> findParameter(const std::vector<Parameter>& parameters,
                                         const std::string& name);

/// Reads "addr={address}" with `{{` and `}}` for braces. Throws std::invalid_argument when a brace
/// has no partner or what it holds is no parameter's name.
std::vector<Piece> parseArgument(const std::string& text, const std::vector<Parameter>& parameters);

}  // namespace host_linux
