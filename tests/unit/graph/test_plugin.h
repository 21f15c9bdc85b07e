// A plugin whose operations are the test's.
#pragma once

#include <functional>
#include <string>
#include <utility>

#include "plugins/plugin.h"
#include "tests/support/barriers.h"

namespace bootforge::test {

class TestPlugin : public Plugin {
 public:
  explicit TestPlugin(std::string name) : Plugin(std::move(name)) {}
  TestPlugin(std::string name, std::uint32_t schedulingClass)
      : Plugin(std::move(name), schedulingClass) {}

  void provide(std::string_view milestone) { Plugin::provide(barriers(), milestone); }
  void require(std::string_view milestone) { Plugin::require(barriers(), milestone); }

  void start() override {
    if (onStart) onStart();
  }
  bool supportsApplyHostProfile() const override { return static_cast<bool>(onApplyHostProfile); }
  void applyHostProfile() override {
    if (onApplyHostProfile) onApplyHostProfile();
  }

  std::function<void()> onStart;
  /// With one, the plugin supports the operation.
  std::function<void()> onApplyHostProfile;
};

}  // namespace bootforge::test
