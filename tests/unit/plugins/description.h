// Descriptions of plugins, as the tests write them.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "graph/node.h"
#include "plugins/exceptions.h"
#include "plugins/json_plugin.h"
#include "tests/support/barriers.h"
#include "tests/support/scratch_root.h"

namespace bootforge::test {

inline constexpr const char* kDescription = "/tmp/network.json";

/// The parts of a description, each as JSON text; an empty part is left out.
struct Description {
  std::string version = "1";
  std::string required = "[]";
  std::string provided = "[]";
  std::string moreMetadata = "";
  std::string start = "[]";
  std::string moreOperations = "";

  std::string text() const {
    const auto member = [](const std::string& key, const std::string& value) {
      return value.empty() ? std::string() : ",\"" + key + "\":" + value;
    };
    const auto and_ = [](const std::string& more) { return more.empty() ? "" : "," + more; };
    return "{\"metadata\":{\"comment\":0" + member("version", version) +
           member("requires", required) + member("provides", provided) + and_(moreMetadata) +
           "},\"operations\":{\"comment\":0" + member("start", start) + and_(moreOperations) + "}}";
  }
};

/// The version as the description has it from which on the further members are mandatory.
inline Description thirdVersion() {
  return {.version = "3", .moreMetadata = R"("run_once":false,"plugin_version":"")"};
}

inline std::unique_ptr<JSONPlugin> readPlugin(const std::string& text) {
  writeFile(kDescription, text);
  return std::make_unique<JSONPlugin>("network", kDescription, barriers());
}
inline std::unique_ptr<JSONPlugin> makePlugin(const Description& description) {
  return readPlugin(description.text());
}

/// Why the description at a path is rejected; without the part of the text that names the path.
inline std::string rejectionOfFile(const std::string& path) {
  try {
    const JSONPlugin plugin("network", path, barriers());
    return "accepted";
  } catch (const InvalidPluginException& rejection) {
    const std::string what = rejection.what();
    const std::string head = "plugin `" + path + "' is invalid: ";
    return what.starts_with(head) ? what.substr(head.size()) : "another text: " + what;
  }
}
inline std::string rejectionOfText(const std::string& text) {
  writeFile(kDescription, text);
  return rejectionOfFile(kDescription);
}
inline std::string rejectionOf(const Description& description) {
  return rejectionOfText(description.text());
}

/// The names of nodes, joined with blanks.
inline std::string namesOf(const Node::List& nodes) {
  std::string text;
  for (const Node* node : nodes) text += (text.empty() ? "" : " ") + node->name();
  return text;
}

inline std::string prerequisitesOf(const Node& node) {
  ScopedLock lock(graphLock);
  return namesOf(node.prerequisites());
}

inline std::string dependentsOf(const Node& node) {
  ScopedLock lock(graphLock);
  return namesOf(node.dependents());
}

}  // namespace bootforge::test
