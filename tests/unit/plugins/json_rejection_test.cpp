// Why a description is rejected.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "graph/barrier_registry.h"
#include "graph/init_barrier.h"
#include "tests/double/faults.h"
#include "tests/double/recorder.h"
#include "tests/support/barriers.h"
#include "tests/support/own_process.h"
#include "tests/unit/plugins/description.h"
#include "util/unique_fd.h"

namespace bootforge::test {
namespace {

constexpr const char* kNoObject = "plugin root is not an object";
constexpr const char* kNoFile = "no such file or directory";
constexpr const char* kVersionUnreadable = "metadata is corrupt (unable to parse version)";
constexpr const char* kVersionUnsupported = "Unsupported API version";

class JsonRejection : public testing::Test {
 protected:
  void SetUp() override {
    doubles::reset();
    doubles::resetFaults();
    descriptors_ = countOpenDescriptors();
  }
  void TearDown() override {
    EXPECT_THAT(doubles::records(), testing::IsEmpty());
    EXPECT_EQ(countOpenDescriptors(), descriptors_);
  }

 private:
  int descriptors_ = 0;
};

TEST_F(JsonRejection, NamesThePathAndNotThePlugin) {
  writeFile("/tmp/a b.json", "[]");
  try {
    const JSONPlugin plugin("other", "/tmp/a b.json", test::barriers());
    ADD_FAILURE() << "accepted";
  } catch (const InvalidPluginException& rejection) {
    EXPECT_STREQ(rejection.what(),
                 "plugin `/tmp/a b.json' is invalid: plugin root is not an object");
  }
}

TEST_F(JsonRejection, OfAFileThatCannotBeOpened) {
  EXPECT_EQ(rejectionOfFile("/tmp/missing.json"), kNoFile);
  EXPECT_EQ(rejectionOfFile("/tmp/missing/x.json"), kNoFile);
  EXPECT_EQ(rejectionOfFile(""), kNoFile);
  ASSERT_EQ(::symlink("/tmp/nowhere", "/tmp/dangling.json"), 0);
  EXPECT_EQ(rejectionOfFile("/tmp/dangling.json"), kNoFile);
}

TEST_F(JsonRejection, OfWhatIsNoRegularFile) {
  ASSERT_EQ(::mkdir("/tmp/folder.json", 0755), 0);
  EXPECT_EQ(rejectionOfFile("/tmp/folder.json"), kNoFile);
  ASSERT_EQ(::mkfifo("/tmp/fifo.json", 0600), 0);
  EXPECT_EQ(rejectionOfFile("/tmp/fifo.json"), kNoFile);
  EXPECT_EQ(rejectionOfFile("/dev/zero"), kNoFile);
  const UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strcpy(address.sun_path, "/tmp/socket.json");
  ASSERT_EQ(::bind(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  EXPECT_EQ(rejectionOfFile("/tmp/socket.json"), kNoFile);
}

TEST_F(JsonRejection, OfAFileThatMayNotBeRead) {
  writeFile("/tmp/secret.json", Description().text(), 0000);
  inChild([] {
    constexpr uid_t kSomebody = 54321;
    if (::geteuid() == 0 && ::setuid(kSomebody) != 0) return;  // nobody else in this namespace
    EXPECT_EQ(rejectionOfFile("/tmp/secret.json"), kNoFile);
  });
}

TEST_F(JsonRejection, OfAFileThatCannotBeRead) {
  writeFile("/tmp/damaged.json", Description().text());
  doubles::failCall("read", {EIO});
  EXPECT_EQ(rejectionOfFile("/tmp/damaged.json"), kNoFile);
}

TEST_F(JsonRejection, OfWhatIsNoJson) {
  for (const std::string text : {"",
                                 " ",
                                 "\n",
                                 "hello",
                                 "{",
                                 "}",
                                 "{]",
                                 "{\"metadata\"",
                                 "{\"metadata\":}",
                                 "{'a':1}",
                                 "{\"a\":1,}",
                                 "{\"a\" 1}",
                                 "{a:1}",
                                 "/* only a comment */",
                                 "// the same",
                                 "/",
                                 "/*",
                                 "\xEF\xBB\xBF{}",
                                 "\xFF\xFE{",
                                 "{\"a\":\"\n\"}",
                                 "{\"a\":\"\\x\"}",
                                 "{\"a\":\"\\ud800\"}",
                                 "{\"a\":01}",
                                 "{\"a\":+1}",
                                 "{\"a\":.5}",
                                 "{\"a\":NaN}",
                                 "{\"a\":tru}",
                                 "#!/bin/sh"}) {
    EXPECT_EQ(rejectionOfText(text), kNoObject) << text;
  }
  EXPECT_EQ(rejectionOfText(std::string("\0", 1)), kNoObject);
  EXPECT_EQ(rejectionOfText(std::string(100'000, '\0')), kNoObject);
}

// Wherever it ends too early.
TEST_F(JsonRejection, OfEveryBeginningOfADescription) {
  const std::string whole = thirdVersion().text();
  for (std::size_t length = 0; length < whole.size(); ++length) {
    ASSERT_EQ(rejectionOfText(whole.substr(0, length)), kNoObject) << length;
  }
  EXPECT_EQ(rejectionOfText(whole), "accepted");
}

TEST_F(JsonRejection, OfARootThatIsNoObject) {
  for (const char* text : {"[]", "[{}]", "\"{}\"", "3", "-1.5e3", "true", "false", "null",
                           "/* c */ [1, 2] {}", "1 {}"}) {
    EXPECT_EQ(rejectionOfText(text), kNoObject) << text;
  }
}

TEST_F(JsonRejection, OfMetadataThatIsNoObject) {
  for (const char* text :
       {"{}", R"({"operations":{"start":[]}})", R"({"metadata":[]})", R"({"metadata":null})",
        R"({"metadata":"{}"})", R"({"metadata":1})", R"({"Metadata":{"version":1}})"}) {
    EXPECT_EQ(rejectionOfText(text), "invalid metadata interface") << text;
  }
}

TEST_F(JsonRejection, OfAVersionThatIsNoNumber) {
  for (const char* version : {"", "\"3\"", "\"\"", "true", "null", "[1]", "{}"}) {
    EXPECT_EQ(rejectionOf({.version = version}), kVersionUnreadable) << version;
  }
}

TEST_F(JsonRejection, OfAVersionThatIsNotSupported) {
  for (const char* version : {"0",
                              "0.5",
                              "0.999999",
                              "-0",
                              "-0.0",
                              "-0.5",
                              "-1",
                              "-1.9",
                              "-4",
                              "5",
                              "5.0",
                              "5.99",
                              "50e-1",
                              "6",
                              "100",
                              "1e300",
                              "-1e300",
                              "1e-300",
                              "4294967297",
                              "4294967298",
                              "-4294967295",
                              "2147483648",
                              "9223372036854775807",
                              "9223372036854775808",
                              "-9223372036854775808",
                              "18446744073709551615",
                              "18446744073709551616",
                              "18446744073709551617",
                              "-18446744073709551615",
                              "99999999999999999999999999999999999999",
                              "1e308"}) {
    EXPECT_EQ(rejectionOf({.version = version}), kVersionUnsupported) << version;
  }
  EXPECT_EQ(rejectionOf({.version = std::string(1000, '9')}), kVersionUnsupported);
}

TEST_F(JsonRejection, OfMilestonesThatAreNoListOfStrings) {
  for (const char* value : {"", "null", "\"a\"", "{}", "1", "true"}) {
    EXPECT_EQ(rejectionOf({.required = value}), "metadata is corrupt (unable to parse requires)");
    EXPECT_EQ(rejectionOf({.provided = value}), "metadata is corrupt (unable to parse provides)");
  }
  for (const char* value : {R"(["a", 1])", "[null]", "[[]]", R"([["a"]])", "[{}]", "[true, 1]"}) {
    EXPECT_EQ(rejectionOf({.required = value}), "requires tag is not a string") << value;
    EXPECT_EQ(rejectionOf({.provided = value}), "provides tag is not a string") << value;
  }
}

/// A description of the third or fourth version with these members instead of the mandatory ones.
Description later(const std::string& version, const std::string& members) {
  return {.version = version, .moreMetadata = members};
}

TEST_F(JsonRejection, OfFlagsThatAreNoListOfStrings) {
  const std::string rest = R"(,"run_once":false,"plugin_version":"")";
  for (const char* version : {"3", "4"}) {
    for (const std::string key : {"required_flags", "disabling_flags"}) {
      for (const char* value : {"null", "\"a\"", "{}", "1"}) {
        EXPECT_EQ(rejectionOf(later(version, '"' + key + "\":" + value + rest)),
                  "metadata is corrupt (unable to parse " + key + ")");
      }
      for (const char* value : {R"(["a", 1])", "[null]"}) {
        EXPECT_EQ(rejectionOf(later(version, '"' + key + "\":" + value + rest)),
                  key + " tag is not a string");
      }
    }
  }
}

TEST_F(JsonRejection, OfARunOnceMarkThatIsMissingOrNoBoolean) {
  const std::string reason = "metadata is corrupt (unable to parse run_once)";
  for (const char* version : {"3", "4"}) {
    EXPECT_EQ(rejectionOf(later(version, R"("plugin_version":"")")), reason);
    for (const char* value : {"null", "1", "0", "\"true\"", "[]", "{}"}) {
      EXPECT_EQ(
          rejectionOf(later(version, std::string(R"("plugin_version":"","run_once":)") + value)),
          reason)
          << value;
    }
  }
  EXPECT_EQ(rejectionOf({.version = "2"}), "accepted");
}

TEST_F(JsonRejection, OfAPluginVersionThatIsMissingOrNoString) {
  const std::string reason = "metadata is corrupt (unable to parse plugin_version)";
  for (const char* version : {"3", "4"}) {
    EXPECT_EQ(rejectionOf(later(version, R"("run_once":true)")), reason);
    for (const char* value : {"null", "1.0", "true", "[\"1\"]", "{}"}) {
      EXPECT_EQ(
          rejectionOf(later(version, std::string(R"("run_once":true,"plugin_version":)") + value)),
          reason)
          << value;
    }
  }
  EXPECT_EQ(rejectionOf({.version = "2"}), "accepted");
}

TEST_F(JsonRejection, OfOperationsThatAreNoObject) {
  const std::string head = R"({"metadata":{"version":1,"requires":[],"provides":[]})";
  EXPECT_EQ(rejectionOfText(head + "}"), "invalid operations interface");
  for (const char* value : {"[]", "null", "\"start\"", "1"}) {
    EXPECT_EQ(rejectionOfText(head + ",\"operations\":" + value + "}"),
              "invalid operations interface");
  }
}

TEST_F(JsonRejection, OfAStartThatIsNoListOfStrings) {
  for (const char* value : {"", "null", "\"a\"", "{}", "1"}) {
    EXPECT_EQ(rejectionOf({.start = value}), "operations is corrupt (unable to parse start)");
  }
  for (const char* value : {R"(["a", 1])", "[null]", "[[]]", R"([true, "a"])"}) {
    EXPECT_EQ(rejectionOf({.start = value}), "command is not a string") << value;
  }
}

TEST_F(JsonRejection, OfAHostProfileOperationThatIsNoListOfStrings) {
  for (const char* version : {"2", "3", "4"}) {
    Description description = thirdVersion();
    description.version = version;
    for (const char* value : {"null", "\"a\"", "{}", "1"}) {
      description.moreOperations = std::string("\"apply_host_profile\":") + value;
      EXPECT_EQ(rejectionOf(description),
                "operations is corrupt (unable to parse apply-host-profile)")
          << value;
    }
    for (const char* value : {R"(["a", 1])", "[null]"}) {
      description.moreOperations = std::string("\"apply_host_profile\":") + value;
      EXPECT_EQ(rejectionOf(description), "command is not a string") << value;
    }
  }
}

// Everything is wrong from some point on; each time the first of it is told.
TEST_F(JsonRejection, TellsTheFirstDefect) {
  Description bad{.version = "\"3\"",
                  .required = "1",
                  .provided = "1",
                  .moreMetadata = R"("required_flags":1,"disabling_flags":1,"run_once":1)",
                  .start = "1",
                  .moreOperations = R"("apply_host_profile":1)"};
  EXPECT_EQ(rejectionOf(bad), kVersionUnreadable);
  bad.version = "5";
  EXPECT_EQ(rejectionOf(bad), kVersionUnsupported);
  bad.version = "3";
  EXPECT_EQ(rejectionOf(bad), "metadata is corrupt (unable to parse requires)");
  bad.required = "[]";
  EXPECT_EQ(rejectionOf(bad), "metadata is corrupt (unable to parse provides)");
  bad.provided = "[]";
  EXPECT_EQ(rejectionOf(bad), "metadata is corrupt (unable to parse required_flags)");
  bad.moreMetadata = R"("disabling_flags":1,"run_once":1)";
  EXPECT_EQ(rejectionOf(bad), "metadata is corrupt (unable to parse disabling_flags)");
  bad.moreMetadata = R"("run_once":1)";
  EXPECT_EQ(rejectionOf(bad), "metadata is corrupt (unable to parse run_once)");
  bad.moreMetadata = R"("run_once":true)";
  EXPECT_EQ(rejectionOf(bad), "metadata is corrupt (unable to parse plugin_version)");
  bad.moreMetadata = R"("run_once":true,"plugin_version":"")";
  EXPECT_EQ(rejectionOf(bad), "operations is corrupt (unable to parse start)");
  bad.start = "[]";
  EXPECT_EQ(rejectionOf(bad), "operations is corrupt (unable to parse apply-host-profile)");
  bad.moreOperations.clear();
  EXPECT_EQ(rejectionOf(bad), "accepted");
}

// A list is checked whole before a name of it is used; earlier lists have been used by then.
TEST_F(JsonRejection, LeavesTheMilestonesThatItHasUsedAndNoEdges) {
  EXPECT_EQ(rejectionOf({.required = R"(["rejected-a", 1])"}), "requires tag is not a string");
  EXPECT_EQ(test::barriers().lookupBarrier("rejected-a", false), nullptr);
  EXPECT_EQ(rejectionOf({.required = R"(["rejected-b"])", .provided = R"(["rejected-c", 1])"}),
            "provides tag is not a string");
  ASSERT_NE(test::barriers().lookupBarrier("rejected-b", false), nullptr);
  EXPECT_EQ(test::barriers().lookupBarrier("rejected-c", false), nullptr);
  EXPECT_EQ(rejectionOf({.required = R"(["rejected-d", "rejected-d"])",
                         .provided = R"(["rejected-e"])",
                         .start = "[1]"}),
            "command is not a string");
  for (const char* name : {"rejected-b", "rejected-d", "rejected-e"}) {
    const InitBarrier* const milestone = test::barriers().lookupBarrier(name, false);
    ASSERT_NE(milestone, nullptr) << name;
    EXPECT_EQ(prerequisitesOf(*milestone), "");
    EXPECT_EQ(dependentsOf(*milestone), "");
  }
}

}  // namespace
}  // namespace bootforge::test
