#include "plugins/native_plugin.h"

#include <dlfcn.h>
#include <elf.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <thread>

#include "graph/barrier_registry.h"
#include "graph/init_barrier.h"
#include "main/run_options.h"
#include "tests/double/faults.h"
#include "tests/double/recorder.h"
#include "tests/support/barriers.h"
#include "tests/support/scratch_root.h"
#include "tests/unit/native/shared_objects.h"

namespace bootforge::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

constexpr const char* kExecutor = "/usr/lib/nimbus/bootforge/nativeExecutor";

class NativePluginTest : public ::testing::Test {
 protected:
  NativePluginTest() {
    doubles::reset();
    doubles::resetFaults();
    RunOptions::instance().environment = environ;
  }
  ~NativePluginTest() override { doubles::resetFaults(); }

  /// Puts a sample in place and loads it under the name "x".
  NativePlugin load(const std::string& sample) {
    const std::string path = "/plugins/" + sample + ".so";
    writeFile(path, sharedObject(sample));
    return NativePlugin("x", path, test::barriers());
  }

  /// A program in the place of the native executor.
  void executor(const std::string& body) {
    writeFile(kExecutor, "#!/bin/sh\n" + body + "\n", 0755);
  }

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

  std::string loadFailure(const std::string& path) {
    return failureOf([&] { NativePlugin("x", path, test::barriers()); });
  }

  std::vector<std::string> namesOf(const Node::List& nodes) {
    std::vector<std::string> names;
    for (const Node* node : nodes) names.push_back(node->name());
    return names;
  }
};

TEST_F(NativePluginTest, TakesOverWhatTheRecordsSay) {
  const NativePlugin plugin = load("full");
  EXPECT_EQ(plugin.apiVersion(), 4);
  EXPECT_TRUE(plugin.runOnce());
  EXPECT_EQ(plugin.pluginVersion(), "2.5");
  EXPECT_THAT(plugin.requiredFlags(), ElementsAre("a", "b"));
  EXPECT_THAT(plugin.disablingFlags(), ElementsAre("z"));
  EXPECT_TRUE(plugin.supportsApplyHostProfile());
  ScopedLock lock(graphLock);
  EXPECT_THAT(namesOf(plugin.dependents()), ElementsAre("service-up", "extra-up"));
  EXPECT_THAT(namesOf(plugin.prerequisites()), ElementsAre("network-up", "storage-up"));
}

TEST_F(NativePluginTest, NullPointersAreEmptyLists) {
  const NativePlugin plugin = load("null_lists");
  EXPECT_EQ(plugin.apiVersion(), 3);
  EXPECT_FALSE(plugin.runOnce());
  EXPECT_EQ(plugin.pluginVersion(), "");
  EXPECT_THAT(plugin.requiredFlags(), IsEmpty());
  EXPECT_THAT(plugin.disablingFlags(), IsEmpty());
  EXPECT_FALSE(plugin.supportsApplyHostProfile());
  ScopedLock lock(graphLock);
  EXPECT_THAT(plugin.dependents(), IsEmpty());
  EXPECT_THAT(plugin.prerequisites(), IsEmpty());
}

TEST_F(NativePluginTest, AnyByteButZeroMeansRunOnce) {
  EXPECT_EQ(static_cast<int>(load("odd_run_once").runOnce()), 1);
}

TEST_F(NativePluginTest, VersionOneKnowsNoFlagsAndNoHostProfile) {
  NativePlugin plugin = load("version_one");
  EXPECT_EQ(plugin.apiVersion(), 1);
  EXPECT_FALSE(plugin.runOnce());
  EXPECT_EQ(plugin.pluginVersion(), "");
  EXPECT_THAT(plugin.requiredFlags(), IsEmpty());
  EXPECT_FALSE(plugin.supportsApplyHostProfile());
  EXPECT_EQ(failureOf([&] { plugin.applyHostProfile(); }),
            "method `NativePlugin::ApplyHostProfile' is not implemented");
}

TEST_F(NativePluginTest, WithoutAnEntryThereIsNoHostProfile) {
  NativePlugin plugin = load("null_lists");
  EXPECT_EQ(failureOf([&] { plugin.applyHostProfile(); }),
            "method `NativePlugin::ApplyHostProfile' is not implemented");
}

TEST_F(NativePluginTest, ARecordOfVersionTwoIsNotReadBeyondItsEnd) {
  const NativePlugin plugin = load("ends_at_page");
  EXPECT_EQ(plugin.apiVersion(), 2);
  EXPECT_FALSE(plugin.runOnce());
  ScopedLock lock(graphLock);
  EXPECT_THAT(namesOf(plugin.dependents()), ElementsAre("edge-reached"));
}

TEST_F(NativePluginTest, AnObjectIsBoundLazilyAndUnloadedAgain) {
  EXPECT_EQ(load("unresolved").apiVersion(), 1);
  load("full");
  failureOf([&] { load("version_five"); });
  failureOf([&] { load("no_metadata"); });
  for (const std::string sample : {"unresolved", "full", "version_five", "no_metadata"}) {
    const std::string path = "/plugins/" + sample + ".so";
    EXPECT_EQ(::dlopen(path.c_str(), RTLD_LAZY | RTLD_NOLOAD), nullptr) << sample;
  }
}

TEST_F(NativePluginTest, OtherVersionsAreUnsupportedAndLinkNothing) {
  for (const std::string sample : {"version_zero", "version_five", "version_garbage"}) {
    EXPECT_EQ(failureOf([&] { load(sample); }),
              "plugin `/plugins/" + sample + ".so' is invalid: Unsupported API version");
  }
  EXPECT_EQ(test::barriers().lookupBarrier("never-linked", false), nullptr);
}

TEST_F(NativePluginTest, AMissingSymbolIsNamedWithItsObject) {
  EXPECT_THAT(failureOf([&] { load("no_metadata"); }),
              StartsWith("Failed loading symbol: metadata Located at: /plugins/no_metadata.so "
                         "Reason: /plugins/no_metadata.so: undefined symbol: metadata"));
  EXPECT_THAT(failureOf([&] { load("no_operations"); }),
              StartsWith("Failed loading symbol: operations Located at: "
                         "/plugins/no_operations.so Reason: /plugins/no_operations.so: undefined "
                         "symbol: operations"));
}

TEST_F(NativePluginTest, WhatIsNoSharedObjectIsInvalidForTheLoadersReason) {
  writeFile("/plugins/text.so", std::string(1000, 'x'));
  EXPECT_EQ(loadFailure("/plugins/text.so"),
            "plugin `/plugins/text.so' is invalid: /plugins/text.so: invalid ELF header");
  writeFile("/plugins/empty.so", "");
  EXPECT_EQ(loadFailure("/plugins/empty.so"),
            "plugin `/plugins/empty.so' is invalid: /plugins/empty.so: file too short");
  EXPECT_THAT(loadFailure("/plugins"),
              HasSubstr("plugin `/plugins' is invalid: /plugins: cannot read file data"));
  EXPECT_THAT(loadFailure("/plugins/none.so"),
              StartsWith("plugin `/plugins/none.so' is invalid: /plugins/none.so: cannot open "
                         "shared object file: No such file or directory"));
}

TEST_F(NativePluginTest, AnObjectForAnotherMachineIsInvalid) {
  std::string bytes = sharedObject("full");
  bytes[EI_CLASS] = ELFCLASS32;
  writeFile("/plugins/narrow.so", bytes);
  EXPECT_EQ(loadFailure("/plugins/narrow.so"),
            "plugin `/plugins/narrow.so' is invalid: /plugins/narrow.so: wrong ELF class: "
            "ELFCLASS32");
}

TEST_F(NativePluginTest, AnObjectThatIsCutAnywhereIsInvalid) {
  const std::string whole = sharedObject("full");
  for (std::size_t size = 0; size < endOfSegments(whole); size += 199) {
    SCOPED_TRACE(size);
    writeFile("/plugins/cut.so", whole.substr(0, size));
    EXPECT_THAT(loadFailure("/plugins/cut.so"),
                StartsWith("plugin `/plugins/cut.so' is invalid: /plugins/cut.so: "));
  }
}

TEST_F(NativePluginTest, AnObjectWithoutItsSectionHeadersIsWhole) {
  const std::string whole = sharedObject("full");
  writeFile("/plugins/stripped.so", whole.substr(0, endOfSegments(whole)));
  EXPECT_EQ(NativePlugin("x", "/plugins/stripped.so", test::barriers()).pluginVersion(), "2.5");
}

TEST_F(NativePluginTest, APointerThatLeadsNowhereIsAFault) {
  writeFile("/plugins/wild.so", sharedObject("wild_version"));
  EXPECT_EQ(loadFailure("/plugins/wild.so"),
            "plugin `/plugins/wild.so' is invalid: a pointer in its records leads nowhere");
}

TEST_F(NativePluginTest, AFifoIsNotWaitedOn) {
  writeFile("/plugins/keep", "");
  ASSERT_EQ(::mkfifo("/plugins/pipe.so", 0600), 0);
  EXPECT_EQ(loadFailure("/plugins/pipe.so"),
            "plugin `/plugins/pipe.so' is invalid: /plugins/pipe.so: cannot open shared object "
            "file: No such device or address");
}

TEST_F(NativePluginTest, TheExecutorIsGivenTheObjectTheNameAndTheMethod) {
  executor("echo \"$0\" \"$@\" >> /tmp/calls");
  NativePlugin plugin = load("full");
  plugin.start();
  plugin.applyHostProfile();
  const std::string call = std::string(kExecutor) + " /plugins/full.so x ";
  EXPECT_EQ(readFile("/tmp/calls"), call + "start\n" + call + "apply_host_profile\n");
}

TEST_F(NativePluginTest, ItsEndIsJudged) {
  NativePlugin plugin = load("full");
  executor("exit 1");
  EXPECT_EQ(failureOf([&] { plugin.start(); }), "x->start() failed: exited with code 1");
  executor("kill -11 $$");
  EXPECT_EQ(failureOf([&] { plugin.applyHostProfile(); }),
            "x->apply_host_profile() failed: exited with signal: 11");
}

TEST_F(NativePluginTest, AnExecutorThatCannotBeStartedIsAFailure) {
  NativePlugin plugin = load("full");
  EXPECT_EQ(failureOf([&] { plugin.start(); }),
            "x->start() failed: failed to spawn: No such file or directory");
}

TEST_F(NativePluginTest, StreamsThatCannotBeHandedOnAreAFailure) {
  executor("echo ran > /tmp/ran");
  NativePlugin plugin = load("full");
  doubles::failCall("spawn_init", {.error = ENOMEM});
  EXPECT_EQ(failureOf([&] { plugin.start(); }),
            "x->start() failed: failed to init file actions: Cannot allocate memory");
  for (int stream = 0; stream < 3; ++stream) {
    doubles::failCall("spawn_dup2", {.error = ENOMEM, .skip = stream});
    EXPECT_EQ(failureOf([&] { plugin.applyHostProfile(); }),
              "x->apply_host_profile() failed: failed to add dup2 file actionsCannot allocate "
              "memory");
  }
  EXPECT_FALSE(exists("/tmp/ran"));
}

TEST_F(NativePluginTest, AnEndThatCannotBeLearntIsAFailure) {
  executor("exit 0");
  NativePlugin plugin = load("full");
  doubles::failCall("waitpid", {.error = ECHILD});
  EXPECT_EQ(failureOf([&] { plugin.start(); }), "x->start() failed: failed to read exit status");
}

TEST_F(NativePluginTest, AnInterruptedWaitGoesOn) {
  executor("exit 0");
  NativePlugin plugin = load("full");
  doubles::failCall("waitpid", {.error = EINTR, .times = 3});
  plugin.start();
  EXPECT_EQ(doubles::callCount("waitpid"), 4);
}

TEST_F(NativePluginTest, SeveralMayRunAtOnce) {
  // Each end of the FIFO waits for the other.
  ASSERT_EQ(::mkfifo("/tmp/meet", 0600), 0);
  executor("case $3 in start) echo met > /tmp/meet;; *) read word < /tmp/meet;; esac");
  NativePlugin plugin = load("full");
  std::thread other([&] { plugin.applyHostProfile(); });
  plugin.start();
  other.join();
}

TEST_F(NativePluginTest, NothingIsLeftOpen) {
  executor("exit 0");
  const int before = countOpenDescriptors();
  NativePlugin plugin = load("full");
  plugin.start();
  failureOf([&] { load("version_five"); });
  EXPECT_EQ(countOpenDescriptors(), before);
}

}  // namespace
}  // namespace bootforge::test
