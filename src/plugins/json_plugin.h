// A plugin that a JSON description defines.
#pragma once

#include <string>
#include <vector>

#include "plugins/plugin.h"

namespace bootforge {

/// Read and validated whole by the constructor, immutable afterwards. Its operations are lists of
/// management-CLI command lines, which the CLI executor process carries out.
class JSONPlugin : public Plugin {
 public:
  /// Throws InvalidPluginException, naming the path, when the description is unusable. Milestones
  /// that it had named by then stay registered.
  JSONPlugin(std::string name, const std::string& path);

  void start() override;
  /// True from API version 2 on, when the description defines the operation.
  bool supportsApplyHostProfile() const override;
  void applyHostProfile() override;

 private:
  using Commands = std::vector<std::string>;

  void runCommands(const char* method, const Commands& commands);

  Commands startCommands_;
  bool hasApplyHostProfile_ = false;
  Commands applyHostProfileCommands_;
};

}  // namespace bootforge
