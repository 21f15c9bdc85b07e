// A small image below the tests' scratch root, and what is said about it.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "analyze/image/image.h"
#include "analyze/verify/finding.h"

namespace bootforge::analyze::test {

/// A description as the tests write it: each part is JSON text on a line of its own.
struct Text {
  std::string version = "1";
  std::string required = "[]";
  std::string provided = "[]";
  std::string start = "[]";
  std::string metadata = "";    // further keys, each with a comma in front
  std::string operations = "";  // likewise

  /// Line 2 has the version, 3 what is required, 4 what is provided, 6 the commands.
  std::string json() const;
};

/// A description of version 3, in which the flags and the run-once keys mean something.
Text thirdVersion(const std::string& metadata = "");

/// A command file: the commands are given as JSON text, one a line from line 2 on.
std::string commandFile(const std::string& nameSpace, const std::vector<std::string>& commands);

/// A sound image in /image without plugins or commands, to which a test adds what it is about.
class ImageTest : public testing::Test {
 protected:
  static constexpr const char* kRoot = "/image";
  static constexpr const char* kPlugins = "/usr/libexec/bootforge/plugins";
  static constexpr const char* kCommands = "/usr/lib/nimbus/hypcli";

  ImageTest();

  /// Writes a file of the image.
  void put(const std::string& path, const std::string& text, mode_t mode = 0644);
  void putPlugin(const std::string& name, const std::string& text);
  void putPlugin(const std::string& name, const Text& text) { putPlugin(name, text.json()); }
  /// A command "host run" with a program and a time limit, and its file.
  void putCommand();

  /// Names the files to be read, which fixes their order; the folder's own is any.
  void readInThisOrder(const std::vector<std::string>& files) { options_.plugins = files; }

  Findings findings() const;

  /// The findings as lines "SEVERITY RULE FILE:LINE:COLUMN SUBJECT: MESSAGE", in their order. The
  /// plugin folder is written PLUGINS and the command folder COMMANDS.
  std::vector<std::string> told() const;
  /// Those of one rule.
  std::vector<std::string> told(const std::string& rule) const;
  /// The additional help of the only finding of a rule.
  std::string helpOf(const std::string& rule) const;

  ImageOptions options_;
  uid_t owner_ = 0;
};

}  // namespace bootforge::analyze::test
