// What a command has to say.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace bootforge::analyze {

enum class Format { Text, Json };

/// How text for people is set.
struct TextStyle {
  std::size_t width = 100;  // columns; wider lines only where a name needs it
  bool colours = false;
};

struct Answer {
  int status = 0;                  // 1: the answer is bad
  std::string output;              // for standard output or a file; ends with a line break
  std::vector<std::string> notes;  // for standard error, a line each
};

}  // namespace bootforge::analyze
