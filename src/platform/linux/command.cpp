#include "platform/linux/command.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace host_linux {

std::optional<std::size_t> findParameter(const std::vector<Parameter>& parameters,
                                         const std::string& name) {
  // No short name is another parameter's name, so there is one answer at most.
  auto found =
      std::find_if(parameters.begin(), parameters.end(), [&name](const Parameter& parameter) {
        return parameter.name == name || (!name.empty() && parameter.shortName == name);
      });
  if (found == parameters.end()) return std::nullopt;
  return static_cast<std::size_t>(found - parameters.begin());
}

std::vector<Piece> parseArgument(const std::string& text,
                                 const std::vector<Parameter>& parameters) {
  std::vector<Piece> pieces;
  std::string literal;
  auto endLiteral = [&] {
    if (!literal.empty()) pieces.push_back({std::exchange(literal, {}), std::nullopt});
  };
  for (std::size_t i = 0; i < text.size(); ++i) {
    char c = text[i];
    if (c != '{' && c != '}') {
      literal += c;
    } else if (i + 1 < text.size() && text[i + 1] == c) {
      literal += c;
      ++i;
    } else {
      std::size_t end = text.find('}', i);
      if (c == '}') throw std::invalid_argument("a '}' without its '{'");
      if (end == std::string::npos) throw std::invalid_argument("a '{' without its '}'");
      std::string name = text.substr(i + 1, end - i - 1);
      auto named = std::find_if(parameters.begin(), parameters.end(),
                                [&name](const Parameter& other) { return other.name == name; });
      if (named == parameters.end()) {
        throw std::invalid_argument("'{" + name + "}' names no parameter of the command");
      }
      endLiteral();
      pieces.push_back({{}, static_cast<std::size_t>(named - parameters.begin())});
      i = end;
    }
  }
  endLiteral();
  return pieces;
}

}  // namespace host_linux
