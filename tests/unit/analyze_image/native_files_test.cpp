// Shared objects among the other plugins of an image: what the loader would not take does not run.
#include <elf.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "analyze/image/wait_graph.h"
#include "analyze/planning/plan.h"
#include "tests/support/scratch_root.h"
#include "tests/unit/analyze_image/object_writer.h"
#include "tests/unit/native/shared_objects.h"

namespace bootforge::analyze {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

constexpr std::size_t kMachine = EI_NIDENT + 2;  // the place of e_machine

class NativeFilesTest : public ::testing::Test {
 protected:
  NativeFilesTest() { options_.selection.bootFlags = {"a", "b"}; }

  static void put(const std::string& name, const std::string& object) {
    test::writeFile(std::string(kDefaultPluginDirectory) + "/" + name, object);
  }

  std::vector<std::string> plugins() const {
    std::vector<std::string> names;
    Image image(options_);
    const WaitGraph graph(image);
    for (const Step& step : planBoot(image, graph, false).order) {
      if (graph.kind(step.node) == WaitGraph::Kind::Plugin) names.push_back(graph.name(step.node));
    }
    return names;
  }

  ImageOptions options_;
};

TEST_F(NativeFilesTest, AnObjectForAnotherMachineDoesNotRun) {
  std::string foreign = test::sharedObject("full");
  const std::string ours = foreign;
  foreign[kMachine] = static_cast<char>(foreign[kMachine] == EM_X86_64 ? EM_AARCH64 : EM_X86_64);
  put("one.so", ours);
  put("other.so", ours);
  put("foreign.so", foreign);
  EXPECT_THAT(plugins(), UnorderedElementsAre("one", "other"));
}

TEST_F(NativeFilesTest, BetweenTwoMachinesTheOtherFilesOfTheImageDecide) {
  const auto objectFor = [](std::uint16_t machine) {
    test::ObjectWriter writer(machine);
    writer.addRecords();
    return writer.finish();
  };
  // An image of its own: below the root of the tests stand programs of the host.
  options_.root = "/image";
  const std::string plugin = options_.root + kDefaultPluginDirectory;
  test::writeFile(plugin + "/arm.so", objectFor(EM_AARCH64));
  test::writeFile(plugin + "/intel.so", objectFor(EM_X86_64));
  // Links are not counted, and every file between them is: one less, and both machines are as many,
  // of which the lower number wins.
  std::filesystem::create_directories(options_.root + "/opt");
  for (int number = 0; number < 10; ++number) {
    const std::string place = options_.root + "/opt/" + std::to_string(number);
    test::writeFile(place, objectFor(EM_AARCH64));
    std::filesystem::create_symlink(plugin + "/intel.so", place + "-link");
    if (number > 0) {
      test::writeFile(options_.root + "/srv/" + std::to_string(number), objectFor(EM_X86_64));
    }
  }
  EXPECT_THAT(plugins(), ElementsAre("arm"));
}

TEST_F(NativeFilesTest, FoldersOfTheLoadersConfigurationAreLookedInto) {
  put("x.so", test::sharedObject("with_library"));
  test::writeFile("/etc/ld.so.conf", "# none\n/opt/libraries=libc6\n");
  EXPECT_THAT(plugins(), IsEmpty());
  test::writeFile("/opt/libraries/libm.so.6", "");
  EXPECT_THAT(plugins(), ElementsAre("x"));
}

TEST_F(NativeFilesTest, AnObjectForNoMachineDoesNotRun) {
  std::string object = test::sharedObject("full");
  object.replace(kMachine, 2, 2, '\0');
  put("x.so", object);
  EXPECT_THAT(plugins(), IsEmpty());
}

TEST_F(NativeFilesTest, AnObjectThatLacksALibraryDoesNotRun) {
  put("x.so", test::sharedObject("with_library"));
  EXPECT_THAT(plugins(), IsEmpty());
  test::writeFile("/usr/lib/libm.so.6", "");
  EXPECT_THAT(plugins(), ElementsAre("x"));
}

}  // namespace
}  // namespace bootforge::analyze
