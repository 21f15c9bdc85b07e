#include "analyze/recorded/messages_reader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "analyze/recorded/message_line.h"

namespace bootforge::analyze {
namespace {

using Outcome = PluginMessages::Outcome;
using testing::IsEmpty;

BootMessages read(const std::string& capture, const std::vector<std::string>& names = {},
                  WhichRun which = WhichRun::Last) {
  KnownNames known;
  for (const std::string& name : names) known.add(name);
  return readMessages(capture, known, which);
}

std::string timeOf(const std::string& line) {
  const auto message = readMessageLine(line);
  return message ? std::string(message->time) : "no message";
}

TEST(MessageLine, TimeIsTakenFromEveryFormat) {
  EXPECT_EQ(timeOf("2026-03-05T07:04:09.000Z info bootforge[412]: x"), "2026-03-05T07:04:09.000Z");
  EXPECT_EQ(timeOf("2026-03-05T07:04:09.123456+01:00 host bootforge[412]: x"),
            "2026-03-05T07:04:09.123456+01:00");
  EXPECT_EQ(timeOf("Mar  5 07:04:09 host bootforge[412]: x"), "Mar  5 07:04:09");
  EXPECT_EQ(timeOf("Mar  5 07:04:09 host daemon.info bootforge[412]: x"), "Mar  5 07:04:09");
  EXPECT_EQ(timeOf("Mar 05 07:04:09 host kernel: bootforge: x"), "Mar 05 07:04:09");
  EXPECT_EQ(timeOf("Mar 05 07:04:09.123456 host kernel: bootforge: x"), "Mar 05 07:04:09.123456");
  EXPECT_EQ(timeOf("[   12.345678] bootforge: x"), "12.345678");
  EXPECT_EQ(timeOf("<6>[   12.345678] bootforge: x"), "12.345678");
  EXPECT_EQ(timeOf("[   12.345678][    T1] bootforge: x"), "12.345678");
  EXPECT_EQ(timeOf("kern  :info  : [   12.345678] bootforge: x"), "12.345678");
  EXPECT_EQ(timeOf("[Thu Mar  5 07:04:09 2026] bootforge: x"), "Thu Mar  5 07:04:09 2026");
  EXPECT_EQ(timeOf("2026-03-05T07:04:09,000000+00:00 bootforge: x"),
            "2026-03-05T07:04:09,000000+00:00");
  EXPECT_EQ(timeOf("6,1234,5678000,-;bootforge: x"), "5678000");
  EXPECT_EQ(timeOf("<14>Mar  5 07:04:09 bootforge[1]: x"), "Mar  5 07:04:09");
  EXPECT_EQ(timeOf("bootforge: x"), "");
  EXPECT_EQ(timeOf("<6>bootforge: x"), "");
}

TEST(MessageLine, ForeignLinesAreNone) {
  for (const char* line : {"", "bootforge", "bootforge[]: x", "bootforge[12: x", "bootforge x",
                           "mybootforge: x", "[   12.3] other: bootforge:x", "bootforge[1a]: x"}) {
    EXPECT_EQ(readMessageLine(line), std::nullopt) << line;
  }
}

TEST(MessagesReader, KernelLogTellsEverything) {
  const BootMessages messages = read(
      "[    1.0] bootforge: Activating Bootforge plugin a.\n"
      "[    1.5] usb 1-1: new device\n"
      "[    2.0] bootforge: Activating Bootforge plugin b.\r\n"
      "[    3.0] bootforge: Bootforge plugin a activated.\n"
      "[    4.0] bootforge: Bootforge plugin b activation failed: b->start() failed: no: disk\n"
      "\x1B[32m[    5.0] \x1B[0mbootforge: Activating Bootforge plugin c.\x1B[0m\n");
  EXPECT_TRUE(messages.readable);
  EXPECT_TRUE(messages.tellsSuccess);
  ASSERT_EQ(messages.plugins.size(), 3U);
  EXPECT_EQ(messages.plugins.at("a").outcome, Outcome::Activated);
  EXPECT_EQ(messages.plugins.at("a").since, "1.0");
  EXPECT_EQ(messages.plugins.at("b").outcome, Outcome::Failed);
  EXPECT_EQ(messages.plugins.at("b").reason, "b->start() failed: no: disk");
  EXPECT_EQ(messages.plugins.at("c").outcome, Outcome::None);
  EXPECT_TRUE(messages.plugins.at("c").begun);
  EXPECT_EQ(messages.plugins.at("c").since, "5.0");
}

TEST(MessagesReader, StandardOutputTellsOfFailuresOnly) {
  const std::string stamp = "2026-03-05T07:04:09.000Z ";
  const BootMessages messages =
      read(stamp + "info bootforge[412]: Launching Executor\n" + stamp +
           "info bootforge[412]: executing start plugin: a\n" + stamp +
           "info bootforge[412]: executing host profile plugin: b\n" + stamp +
           "error bootforge[412]: Method invocation failed: b->apply_host_profile() failed: why\n" +
           stamp + "info bootforge[412]: skipping plugin c (interactive mode request)\n" + stamp +
           "info bootforge[412]: executing start plugin: d\n" + stamp +
           "error bootforge[412]: unhandled exception whilst processing d: bad: alloc\n" + stamp +
           "info bootforge[412]: executing start plugin: e\n" + stamp +
           "error bootforge[412]: ignoring unknown exception whilst processing e ...\n");
  EXPECT_FALSE(messages.tellsSuccess);
  EXPECT_EQ(messages.plugins.at("a").outcome, Outcome::None);
  EXPECT_EQ(messages.plugins.at("b").outcome, Outcome::Failed);
  EXPECT_EQ(messages.plugins.at("b").reason, "b->apply_host_profile() failed: why");
  EXPECT_EQ(messages.plugins.at("c").outcome, Outcome::Skipped);
  EXPECT_EQ(messages.plugins.at("d").reason, "bad: alloc");
  EXPECT_EQ(messages.plugins.at("e").reason, "unknown exception");
}

TEST(MessagesReader, TraceTellsOfSuccessToo) {
  const std::string head = "Mar  5 07:04:09 host bootforge[412]: ";
  const BootMessages messages =
      read(head + "starting execution of plugin: a\n" + head + "executing start plugin: a\n" +
           head + "completed execution of plugin: a (took 12 us)\n" + head +
           "starting execution of plugin: b\n" + head +
           "Method invocation failed: b->start() failed: why\n" + head +
           "completed execution of plugin: b (took 12 us)\n");
  EXPECT_TRUE(messages.tellsSuccess);
  EXPECT_EQ(messages.plugins.at("a").outcome, Outcome::Activated);
  EXPECT_EQ(messages.plugins.at("b").outcome, Outcome::Failed);
}

TEST(MessagesReader, DaemonThatHasStartedIsActivated) {
  const std::string head = "Mar  5 07:04:09 host bootforge[412]: ";
  const BootMessages messages = read(head + "executing start plugin: sshd\n" + head +
                                     "sshd started.\n" + head + "something else started.\n");
  ASSERT_EQ(messages.plugins.size(), 1U);
  EXPECT_EQ(messages.plugins.at("sshd").outcome, Outcome::Activated);
}

TEST(MessagesReader, NamesAreFoundHoweverTheyAreWritten) {
  const std::vector<std::string> names = {"tab\there", "back\\slash", "x activation failed: y",
                                          "p->start() failed: q"};
  const BootMessages messages = read(
      "bootforge: Activating Bootforge plugin tab\\x09here.\n"
      "bootforge[1]: executing start plugin: tab#011here\n"
      "bootforge: Activating Bootforge plugin back\\x5cslash.\n"
      "bootforge: Bootforge plugin x activation failed: y activation failed: z\n"
      "bootforge[1]: Method invocation failed: p->start() failed: q->start() failed: r\n",
      names);
  std::vector<std::string> found;
  for (const auto& [name, plugin] : messages.plugins) found.push_back(name);
  EXPECT_THAT(found, testing::UnorderedElementsAreArray(names));
  EXPECT_EQ(messages.plugins.at("x activation failed: y").reason, "z");
}

TEST(MessagesReader, LastRunWithKnownPluginsCounts) {
  const std::string capture =
      "bootforge[10]: Launching Executor\nbootforge[10]: executing start plugin: a\n"
      "bootforge[10]: Method invocation failed: a->start() failed: first\n"
      "bootforge[10]: executing start plugin: b\n"
      "bootforge[10]: Launching Executor\nbootforge[10]: executing start plugin: a\n"
      "bootforge[77]: executing start plugin: sshd\n";
  EXPECT_EQ(read(capture, {"a", "b"}).plugins.at("a").outcome, Outcome::None);
  EXPECT_EQ(read(capture, {"sshd"}).plugins.size(), 1U);
  EXPECT_EQ(read(capture, {"a", "b"}, WhichRun::MostMentions).plugins.at("a").outcome,
            Outcome::Failed);
}

TEST(MessagesReader, SecondBeginningIsAnotherRun) {
  const std::string line = "bootforge: Activating Bootforge plugin a.\n";
  const std::string capture = line + "bootforge: Bootforge plugin a activated.\n" + line;
  EXPECT_EQ(read(capture, {"a"}).plugins.at("a").outcome, Outcome::None);
  EXPECT_EQ(read(capture, {"a", "a"}).plugins.at("a").outcome, Outcome::Activated)
      << "two plugins of one name";
}

TEST(MessagesReader, CutLinesAreNotBelieved) {
  const std::string whole =
      "bootforge: Activating Bootforge plugin net.\n"
      "bootforge: Bootforge plugin net activated.\n"
      "bootforge[1]: executing start plugin: network\n";
  for (std::size_t from = 0; from < whole.size(); ++from) {
    for (std::size_t to = from; to <= whole.size(); ++to) {
      for (const auto& [name, plugin] : read(whole.substr(from, to - from)).plugins) {
        EXPECT_TRUE(name == "net" || name == "network") << name;
      }
    }
  }
  EXPECT_FALSE(read("").readable);
  EXPECT_FALSE(read("noise\n\xFF\n").readable);
  EXPECT_TRUE(read("bootforge[1]: Launching Executor\n").readable);
}

TEST(MessagesReader, WhatIsSaidIsKeptWithItsPlugin) {
  const BootMessages messages = read(
      "[    1.0] bootforge: Activating Bootforge plugin a.\n"
      "[    2.0] bootforge: Activating Bootforge plugin b.\n"
      "[    2.5] bootforge: something else\n"
      "bootforge[7]: executing start plugin: a\n"
      "[    3.0] bootforge: Bootforge plugin a activation failed: why\n",
      {"a", "b"});
  const std::vector<ToldMessage>& told = messages.plugins.at("a").messages;
  ASSERT_EQ(told.size(), 3U);
  EXPECT_EQ(told[0].time, "1.0");
  EXPECT_EQ(told[0].text, "Activating Bootforge plugin a.");
  EXPECT_EQ(told[1].text, "Bootforge plugin a activation failed: why");
  EXPECT_EQ(told[2].time, "") << "the program's own log stands behind the kernel's";
  EXPECT_EQ(told[2].text, "executing start plugin: a");
  EXPECT_EQ(messages.plugins.at("b").messages.size(), 1U);
}

}  // namespace
}  // namespace bootforge::analyze
