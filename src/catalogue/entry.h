// What the name of a file in the plugin directory says.
#pragma once

#include <string>

namespace bootforge {

struct Entry {
  enum class Kind { Native, Json, Debug, UnknownType, NoType };

  Kind kind;
  std::string baseName;   // the plugin's name: without the extension and a leading "lib"
  std::string extension;  // without its dot; empty where there is none
};

/// Takes a name apart. Extensions are compared exactly, case included.
Entry entryOf(const std::string& fileName);

}  // namespace bootforge
