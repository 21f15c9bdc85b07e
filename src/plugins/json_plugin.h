// A plugin that a JSON description defines.
#pragma once

#include <optional>
#include <string>

#include "plugins/plugin.h"
#include "reading/description.h"

namespace bootforge {

/// Made of a description, whole, and immutable afterwards. Its operations are lists of
/// management-CLI command lines, which the CLI executor process carries out.
class JSONPlugin : public Plugin {
 public:
  /// Reads the description at the path. Throws InvalidPluginException, naming the path, when it is
  /// unusable. Milestones that it had named before its first fault stay registered.
  JSONPlugin(std::string name, const std::string& path, BarrierRegistry& barriers);
  /// Of a description that has been read; throws as above.
  JSONPlugin(std::string name, const std::string& path, Description description,
             BarrierRegistry& barriers);

  void start() override;
  /// True from API version 2 on, when the description defines the operation.
  bool supportsApplyHostProfile() const override;
  void applyHostProfile() override;

 private:
  void runCommands(const char* method, const Description::Strings& commands);

  Description::Strings startCommands_;
  std::optional<Description::Strings> applyHostProfileCommands_;
};

}  // namespace bootforge
