// What the tests of discovery share.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "catalogue/catalogue.h"
#include "catalogue/discovery.h"
#include "main/run_options.h"
#include "tests/double/faults.h"
#include "tests/double/recorder.h"
#include "tests/double/script.h"
#include "tests/support/scratch_root.h"
#include "util/graph_lock.h"

namespace bootforge {

inline constexpr const char* kPluginFolder = "/plugins/";
inline constexpr const char* kDebugFile = "/etc/nimbus/bootforge/debug.conf";

/// Members of a description's "metadata", as JSON.
struct Metadata {
  std::string requires_ = "[]";
  std::string provides = "[]";
  std::string requiredFlags = "[]";
  std::string disablingFlags = "[]";
  std::string runOnce = "false";
  std::string pluginVersion = "\"\"";
  std::string apiVersion = "4";

  std::string description() const {
    return R"({"metadata": {"version": )" + apiVersion + R"(, "requires": )" + requires_ +
           R"(, "provides": )" + provides + R"(, "required_flags": )" + requiredFlags +
           R"(, "disabling_flags": )" + disablingFlags + R"(, "run_once": )" + runOnce +
           R"(, "plugin_version": )" + pluginVersion + R"(}, "operations": {"start": []}})";
  }
};

/// The inputs of discovery, empty, and what it made of them.
class DiscoveryTest : public testing::Test {
 protected:
  DiscoveryTest() {
    doubles::reset();
    doubles::resetFaults();
    options.pluginDirectory = "/plugins";
  }
  ~DiscoveryTest() override { doubles::resetFaults(); }

  static void writePlugin(const std::string& fileName, const Metadata& metadata = {}) {
    test::writeFile(kPluginFolder + fileName, metadata.description());
  }

  void discover(const std::string& fileName) {
    selection.denied = options.disabledPlugins;
    discoverPlugin(fileName, options.pluginDirectory, selection, catalogue);
  }

  std::vector<std::string> names() const {
    std::vector<std::string> result;
    for (const auto& plugin : plugins) result.push_back(plugin->name());
    return result;
  }

  static Node::State stateOf(const Node& node) {
    ScopedLock lock(graphLock);
    return node.state();
  }

  Catalogue catalogue;
  PluginList& plugins = catalogue.plugins;
  Selection selection;
  std::set<std::string>& bootFlags = selection.bootFlags;
  std::set<std::string>& runOnce = selection.runOnce;
  RunOptions options;
};

}  // namespace bootforge
