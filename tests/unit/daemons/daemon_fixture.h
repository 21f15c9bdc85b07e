// Init scripts in the scratch root, and plugins that run them.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "graph/executor.h"
#include "graph/graph.h"
#include "main/run_options.h"
#include "plugins/legacy_daemon_plugin.h"
#include "tests/double/faults.h"
#include "tests/double/recorder.h"
#include "tests/double/script.h"
#include "tests/support/scratch_root.h"

namespace bootforge::test {

using doubles::alert;
using doubles::kernelLine;
using doubles::Kind;
using doubles::logLine;
using doubles::progress;
using doubles::records;
using ::testing::ElementsAre;

class DaemonTest : public ::testing::Test {
 protected:
  DaemonTest() {
    doubles::reset();
    doubles::resetFaults();
    RunOptions::instance().environment = environ;
  }
  ~DaemonTest() override { doubles::resetFaults(); }

  /// Writes an init script of that body; returns its path.
  std::string script(const std::string& name, const std::string& body) {
    const std::string path = "/etc/init.d/" + name;
    writeFile(path, "#!/bin/sh\n" + body + "\n", 0755);
    return path;
  }

  /// The text of what a call throws; a failure when it throws nothing.
  template <typename Call>
  std::string failureOf(Call call) {
    try {
      call();
    } catch (const std::exception& error) {
      return error.what();
    }
    ADD_FAILURE() << "nothing was thrown";
    return {};
  }

  void run(std::vector<Node*> nodes, bool reverse = false, int workers = 1) {
    Executor executor(workers, false);
    const Graph graph(std::move(nodes));
    reverse ? graph.runReverse(executor) : graph.runForward(executor);
  }
};

}  // namespace bootforge::test
