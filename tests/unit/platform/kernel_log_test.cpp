#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "platform/hvkctl.h"
#include "tests/support/scratch_root.h"
#include "tests/unit/platform/child.h"
#include "tests/unit/platform/wrapped_calls.h"

namespace bootforge::test {
namespace {

using HostCtl::Lib::HostCtlException;

void kernelMessage(const std::string& text) {
  HvkCtl::Util::Sysinfo node(HvkCtl::Util::kSystemLogNode);
  node.AddInput(text);
  node.Set();
}

/// The text of the exception that a message ends in; "none" when it went well.
std::string failureOf(const std::string& text) {
  try {
    kernelMessage(text);
  } catch (const HostCtlException& error) {
    return error.what();
  }
  return "none";
}

/// A file in the place of the device, which keeps all messages.
class KernelLog : public testing::Test {
 protected:
  void SetUp() override { writeFile("/dev/kmsg", ""); }
  static std::string content() { return readFile("/dev/kmsg"); }
};

TEST_F(KernelLog, GetsTheLevelTheNameAndTheText) {
  kernelMessage("Activating plugin x");
  EXPECT_EQ(content(), "<6>bootforge: Activating plugin x\n");
}

TEST_F(KernelLog, GetsAnAlertAtTheAlertLevel) {
  HvkCtl::System::SystemInfoImpl().SetSystemAlert("cycle: a, b");
  EXPECT_EQ(content(), "<1>bootforge: cycle: a, b\n");
}

TEST_F(KernelLog, GetsOneNewlineAtTheEndWhateverTheTextHad) {
  kernelMessage("one\n");
  kernelMessage("two\n\n");
  kernelMessage("\n");
  EXPECT_EQ(content(), "<6>bootforge: one\n<6>bootforge: two\n<6>bootforge: \n");
}

TEST_F(KernelLog, GetsATextOfSeveralLinesInOneWriteSoThatItStaysOneRecord) {
  Finished child = runInChild([] {
    writeBehaviour = {};
    kernelMessage("first\n<0>forged\n");
    EXPECT_EQ(writeBehaviour.calls, 1);
  });
  EXPECT_EQ(child.status, 0) << child.out;
  EXPECT_EQ(content(), "<6>bootforge: first\n<0>forged\n");
}

TEST_F(KernelLog, GetsAllInputsOfASetAsOneMessageAndNoneTwice) {
  HvkCtl::Util::Sysinfo node(HvkCtl::Util::kSystemLogNode);
  node.AddInput("a");
  node.AddInput("b");
  node.Set();
  node.AddInput("c");
  node.Set();
  EXPECT_EQ(content(), "<6>bootforge: ab\n<6>bootforge: c\n");
}

TEST_F(KernelLog, GetsALongTextCutSoThatTheKernelTakesIt) {
  const std::string fits(960, 'x');
  kernelMessage(fits + "\n\n");
  kernelMessage(fits + "y");
  HvkCtl::System::SystemInfoImpl().SetSystemAlert(std::string(5'000, 'z') + "\n");
  EXPECT_EQ(content(), "<6>bootforge: " + fits + "\n" +  //
                           "<6>bootforge: " + std::string(957, 'x') + "...\n" +
                           "<1>bootforge: " + std::string(957, 'z') + "...\n");
}

TEST_F(KernelLog, CutsALongTextBetweenCharacters) {
  const std::string euro = "\xe2\x82\xac";
  for (std::size_t before : {957U, 956U, 955U, 954U}) {
    kernelMessage(std::string(before, 'x') + euro + euro + euro);
    kernelMessage(std::string(before, 'x') + "\xf0\x9f\x98\x80" + euro + euro);
  }
  std::string expected;
  auto add = [&](std::size_t count, const std::string& last) {
    expected += "<6>bootforge: " + std::string(count, 'x') + last + "...\n";
  };
  add(957, ""), add(957, "");
  add(956, ""), add(956, "");
  add(955, ""), add(955, "");
  add(954, euro), add(954, "");
  EXPECT_EQ(content(), expected);
}

TEST_F(KernelLog, CutsWhatIsNoTextAnywhere) {
  kernelMessage(std::string(2'000, '\x80'));
  EXPECT_EQ(content(), "<6>bootforge: " + std::string(957, '\x80') + "...\n");
}

TEST_F(KernelLog, IsOpenedForEachMessage) {
  kernelMessage("first");
  ASSERT_EQ(rename("/dev/kmsg", "/dev/old"), 0);
  writeFile("/dev/kmsg", "");
  int before = countOpenDescriptors();
  kernelMessage("second");
  EXPECT_EQ(countOpenDescriptors(), before);
  EXPECT_EQ(content(), "<6>bootforge: second\n");
}

TEST_F(KernelLog, SurvivesAnInterruptedWrite) {
  Finished child = runInChild([] {
    writeBehaviour = {.failures = 1, .error = EINTR};
    kernelMessage("text");
  });
  EXPECT_EQ(child.status, 0);
  EXPECT_EQ(content(), "<6>bootforge: text\n");
}

TEST_F(KernelLog, ThrowsWhenTheKernelTakesOnlyAPart) {
  Finished child = runInChild([] {
    writeBehaviour = {.most = 5};
    EXPECT_EQ(failureOf("text"), "Input/output error");
  });
  EXPECT_EQ(child.status, 0) << child.out;
}

TEST(KernelLogFailure, IsTheTextOfTheSystemErrorWhenThereIsNoDevice) {
  int before = countOpenDescriptors();
  EXPECT_EQ(failureOf("text"), "No such file or directory");
  EXPECT_THROW(HvkCtl::System::SystemInfoImpl().SetSystemAlert("text"), HostCtlException);
  EXPECT_EQ(countOpenDescriptors(), before);
}

TEST(KernelLogFailure, IsTheTextOfTheSystemErrorWhenTheWriteFails) {
  ASSERT_EQ(symlink("full", "/dev/kmsg"), 0);
  int before = countOpenDescriptors();
  EXPECT_EQ(failureOf("text"), "No space left on device");
  EXPECT_EQ(countOpenDescriptors(), before);
}

TEST(KernelLogFailure, DoesNotWaitForTheReaderOfAFifo) {
  ASSERT_EQ(mkfifo("/dev/kmsg", 0600), 0);
  EXPECT_EQ(failureOf("text"), "No such device or address");
}

TEST(KernelLogFailure, ComesFromANodeThatThereIsNot) {
  writeFile("/dev/kmsg", "");
  HvkCtl::Util::Sysinfo node("system/other");
  node.AddInput("text");
  EXPECT_THROW(node.Set(), HostCtlException);
  EXPECT_EQ(readFile("/dev/kmsg"), "");
}

}  // namespace
}  // namespace bootforge::test
