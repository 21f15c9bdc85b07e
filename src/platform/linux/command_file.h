// Command files: JSON, with comments, one namespace a file.
//
//     {
//       "namespace": "network ip",
//       "commands": {
//         "set": {
//           "summary": "Give an interface an address",
//           "parameters": {
//             "interface": {"short": "i", "required": true, "summary": "interface name"},
//             "replace": {"flag": true}
//           },
//           "exec": ["/usr/sbin/ip", "addr", "add", "dev", "{interface}"],
//           "timeout": 10
//         }
//       }
//     }
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/command.h"
#include "reading/json_text.h"

namespace host_linux {

struct CommandFile {
  /// What is said about a file, with the place in words, and the offset in bytes of the value, or
  /// of the object that lacks it.
  struct Finding {
    std::string text;
    std::size_t at;
  };
  struct Definition {
    std::string word;
    Command command;
    std::size_t at;         // of the command's object
    std::size_t programAt;  // of the program in it
  };

  std::vector<std::string> nameSpace;
  std::vector<Definition> commands;
  /// Why the file is a bad one: all of it, in the order in which it is looked at.
  std::vector<Finding> faults;
  /// What is no mistake but means nothing: keys that are not known.
  std::vector<Finding> remarks;
};

/// Reads a command file. Never fails: what is wrong stands in it. What could be read is there.
CommandFile readCommandFile(const bootforge::JsonText& json);

/// As above, but throws std::invalid_argument with the first fault of a bad file.
CommandFile parseCommandFile(std::string_view text);

}  // namespace host_linux
