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
//           "exec": ["/usr/sbin/ip", "addr", "add", "dev", "{interface}"]
//         }
//       }
//     }
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/linux/command.h"

namespace host_linux {

struct CommandFile {
  std::vector<std::string> nameSpace;
  std::vector<std::pair<std::string, Command>> commands;
  /// What is no mistake but means nothing: keys that are not known, each with its place.
  std::vector<std::string> remarks;
};

/// Reads the text of a command file. Throws std::exception, which says what is wrong and where,
/// unless all of it is good.
CommandFile parseCommandFile(std::string_view text);

}  // namespace host_linux
