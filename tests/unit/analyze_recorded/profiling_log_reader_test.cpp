#include "analyze/recorded/profiling_log_reader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zlib.h>

#include <string>

#include "analyze/recorded/gzip_text.h"
#include "main/profiling_log.h"

namespace bootforge::analyze {
namespace {

using Kind = ProfileSection::Kind;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;
using testing::SizeIs;

constexpr const char* kBoot =
    "HVKernel Initialization Time: 7000000\n"
    "[2024-03-05 07:04:09.000321 - 2024-03-05 07:04:10.000000] sysboot: network\n"
    "[1970-01-01 00:00:00.000000 - 1970-01-01 00:00:00.000000] sysboot: left-out\n"
    "=== Bootforge configuration info ===\n"
    " Start: 2024-03-05 07:04:08.000000\n"
    " End: 2024-03-05 07:04:11.000000\n"
    " Verbose: 0\n Parallel: 1\n Randomize: 0\n Interactive Mode: 0\n Random Seed: 17\n";
constexpr const char* kDaemons =
    "[2024-03-05 07:04:12.000000 - 2024-03-05 07:04:13.000000] daemon: sshd\n"
    "=== Daemon configuration info ===\n"
    " Start Daemon: 2024-03-05 07:04:12.000000\n"
    " End Daemon: 2024-03-05 07:04:14.000000\n"
    " Verbose: 0\n Parallel: 0\n Randomize: 0\n Interactive Mode: 0\n Random Seed: -5\n";

std::string gzipped(const std::string& text) {
  std::string packed(text.size() + 1000, '\0');
  z_stream stream{};
  EXPECT_EQ(deflateInit2(&stream, 6, Z_DEFLATED, 31, 8, Z_DEFAULT_STRATEGY), Z_OK);
  std::string input = text;
  stream.next_in = reinterpret_cast<Bytef*>(input.data());
  stream.avail_in = static_cast<uInt>(input.size());
  stream.next_out = reinterpret_cast<Bytef*>(packed.data());
  stream.avail_out = static_cast<uInt>(packed.size());
  EXPECT_EQ(deflate(&stream, Z_FINISH), Z_STREAM_END);
  packed.resize(stream.total_out);
  deflateEnd(&stream);
  return packed;
}

std::vector<std::string> namesIn(const ProfileSection& section) {
  std::vector<std::string> names;
  for (const ProfiledPlugin& plugin : section.plugins) names.push_back(plugin.name);
  return names;
}

TEST(ProfilingLogReader, WholeBootIsReadWithoutANote) {
  const ProfilingLog log = readProfilingLog(kBoot);
  EXPECT_THAT(log.notes, IsEmpty());
  ASSERT_THAT(log.sections, SizeIs(1));
  const ProfileSection& section = log.sections[0];
  EXPECT_EQ(section.kind, Kind::Boot);
  EXPECT_EQ(section.kernelMicroseconds, 7'000'000);
  EXPECT_EQ(section.end, Moment{1709622251000000});
  ASSERT_THAT(namesIn(section), ElementsAre("network", "left-out"));
  EXPECT_EQ(section.plugins[0].start, 1709622249000321);
  EXPECT_EQ(section.plugins[0].end, 1709622250000000);
  EXPECT_EQ(section.plugins[1].start, 0);
}

TEST(ProfilingLogReader, ALineOfAnotherProgramIsNoPlugin) {
  std::string text = kBoot;
  const std::string line =
      "[2024-03-05 07:04:09.000321 - 2024-03-05 07:04:10.000000] another: network\n";
  text.insert(text.find('\n') + 1, line);
  const ProfilingLog log = readProfilingLog(text);
  ASSERT_THAT(log.sections, SizeIs(1));
  EXPECT_THAT(namesIn(log.sections[0]), ElementsAre("network", "left-out"));
  EXPECT_THAT(log.notes, ElementsAre("line 2 cannot be read and was left out"));
}

TEST(ProfilingLogReader, TimesAreThoseThatTheWriterPrints) {
  for (const timeval time : {timeval{0, 0}, timeval{951782399, 999999}, timeval{951868800, 1},
                             timeval{4107542399, 5}, timeval{253402300799, 999999}}) {
    EXPECT_EQ(readMoment(formatTime(time)), time.tv_sec * 1'000'000 + time.tv_usec);
  }
  for (const char* text :
       {"", "2024-03-05 07:04:09", "2024-02-30 07:04:09.000000", "2024-03-05 24:04:09.000000",
        "2024-03-05 07:60:09.000000", "2024-03-05 07:04:60.000000", "2024-00-05 07:04:09.000000",
        "2024-03-05 07:04:09.0000001", "2024-03-05T07:04:09.000000"}) {
    EXPECT_EQ(readMoment(text), std::nullopt) << text;
  }
}

TEST(ProfilingLogReader, EachDaemonRunIsASectionOfItsOwn) {
  const ProfilingLog log = readProfilingLog(std::string(kBoot) + kDaemons + kDaemons);
  EXPECT_THAT(log.notes, IsEmpty());
  EXPECT_THAT(log.sections, ElementsAre(Field(&ProfileSection::kind, Kind::Boot),
                                        Field(&ProfileSection::kind, Kind::Daemon),
                                        Field(&ProfileSection::kind, Kind::Daemon)));
  std::string reason;
  EXPECT_EQ(chooseSection(log, {}, false, reason), &log.sections[0]);
  EXPECT_EQ(chooseSection(log, {}, true, reason), &log.sections[2]);
  EXPECT_EQ(chooseSection(log, 1, false, reason), &log.sections[1]);
  EXPECT_EQ(chooseSection(log, 3, false, reason), nullptr);
  EXPECT_EQ(reason, "there is no section 3: the log has 3 sections, counted from 0");
}

TEST(ProfilingLogReader, SectionThatIsNotThereIsTold) {
  std::string reason;
  EXPECT_EQ(chooseSection(readProfilingLog(kBoot), {}, true, reason), nullptr);
  EXPECT_EQ(reason, "the log has no section of a daemon run");
  EXPECT_EQ(chooseSection(readProfilingLog(kDaemons), {}, false, reason), nullptr);
  EXPECT_EQ(reason, "the log has no section of a boot (--daemons looks at the init scripts)");
}

TEST(ProfilingLogReader, RunWithoutPluginsIsASectionToo) {
  std::string text = kDaemons;
  text.erase(0, text.find("==="));
  const ProfilingLog log = readProfilingLog(kDaemons + text);
  ASSERT_THAT(log.sections, SizeIs(2));
  EXPECT_THAT(log.sections[1].plugins, IsEmpty());
  EXPECT_THAT(log.notes, IsEmpty());
}

TEST(ProfilingLogReader, NothingIsReadFromNoise) {
  for (const char* text : {"", "\n\n", "noise\nand more\n", "\x00\x01\xFF", " Verbose: 0\n"}) {
    EXPECT_THAT(readProfilingLog(text).sections, IsEmpty()) << text;
  }
}

TEST(ProfilingLogReader, LogCutAnywhereGivesWhatCameBefore) {
  const std::string whole = std::string(kBoot) + kDaemons;
  for (std::size_t length = 0; length < whole.size(); ++length) {
    const ProfilingLog log = readProfilingLog(whole.substr(0, length));
    std::vector<std::string> names;
    for (const ProfileSection& section : log.sections) {
      for (const ProfiledPlugin& plugin : section.plugins) names.push_back(plugin.name);
    }
    const std::vector<std::string> all = {"network", "left-out", "sshd"};
    ASSERT_LE(names.size(), all.size());
    EXPECT_TRUE(std::equal(names.begin(), names.end(), all.begin())) << length;
    if (!log.sections.empty() && length != std::string_view(kBoot).size()) {
      EXPECT_FALSE(log.notes.empty()) << length;
    }
  }
}

TEST(ProfilingLogReader, LastLineWithoutItsEndCountsWhenItsNameIsKnown) {
  const std::string text =
      "HVKernel Initialization Time: 1\n"
      "[2024-03-05 07:04:09.000321 - 2024-03-05 07:04:10.000000] sysboot: net";
  EXPECT_THAT(readProfilingLog(text).sections[0].plugins, IsEmpty());
  EXPECT_THAT(readProfilingLog(text).notes,
              ElementsAre("the last line is cut off and was left out",
                          "section 0 ends early: its last lines are missing"));
  const auto isName = [](std::string_view name) { return name == "net"; };
  EXPECT_THAT(namesIn(readProfilingLog(text, isName).sections[0]), ElementsAre("net"));
}

TEST(ProfilingLogReader, DamagedLinesAreLeftOutAndCounted) {
  std::string text = kBoot;
  text.insert(text.find("[1970"), "noise\n[2024-03-05 07:04:09.000321 - ] sysboot: x\nmore\nand\n");
  const ProfilingLog log = readProfilingLog(text);
  EXPECT_THAT(namesIn(log.sections[0]), ElementsAre("network", "left-out"));
  EXPECT_THAT(log.notes, ElementsAre("4 lines cannot be read and were left out: 3, 4, 5, ..."));
}

TEST(ProfilingLogReader, NamesMayHoldAnything) {
  const std::string text =
      "[2024-03-05 07:04:09.000000 - 2024-03-05 07:04:10.000000] sysboot: a] sysboot: b - \xFF \n"
      "[2024-03-05 07:04:09.000000 - 2024-03-05 07:04:10.000000] sysboot: two\nlines\n\nmore\n"
      "[2024-03-05 07:04:09.000000 - 2024-03-05 07:04:10.000000] sysboot: \n";
  const auto isName = [](std::string_view name) { return name == "two\nlines\n\nmore"; };
  EXPECT_THAT(namesIn(readProfilingLog(text, isName).sections[0]),
              ElementsAre("a] sysboot: b - \xFF ", "two\nlines\n\nmore", ""));
  EXPECT_THAT(readProfilingLog(text, isName).notes,
              ElementsAre("section 0 lacks its first line",
                          "section 0 ends early: its last lines are missing"));
}

TEST(ProfilingLogReader, ClosingLinesAreReadInTheirPlaceOnly) {
  const std::string head = "HVKernel Initialization Time: 1\n";
  const ProfilingLog noise =
      readProfilingLog(head + "=== Bootforge configuration info ===\n Verbose: 0\nnoise\n");
  EXPECT_FALSE(noise.sections.at(0).closed);
  EXPECT_THAT(noise.notes, ElementsAre("section 0 ends early: its last lines are missing",
                                       "line 4 cannot be read and was left out"));
  const ProfilingLog early = readProfilingLog(head + " Random Seed: 1\n Verbose: 0\n");
  EXPECT_FALSE(early.sections.at(0).closed);
  EXPECT_THAT(early.notes, ElementsAre("section 0 ends early: its last lines are missing",
                                       "2 lines cannot be read and were left out: 2, 3"));
}

TEST(ProfilingLogReader, CompressedLogIsRead) {
  PlainText text = plainText(gzipped(kBoot) + gzipped(kDaemons));
  EXPECT_EQ(text.text, std::string(kBoot) + kDaemons);
  EXPECT_FALSE(text.cut);
  EXPECT_EQ(plainText("not compressed").text, "not compressed");
}

TEST(ProfilingLogReader, CompressedLogIsReadAsFarAsItGoes) {
  const std::string packed = gzipped(kBoot);
  for (std::size_t length = 2; length < packed.size(); ++length) {
    const PlainText text = plainText(packed.substr(0, length));
    EXPECT_TRUE(text.cut) << length;
    EXPECT_TRUE(std::string(kBoot).starts_with(text.text)) << length;
  }
  EXPECT_TRUE(plainText(packed + "rubbish").cut);
  EXPECT_FALSE(plainText(packed + std::string(512, '\0')).cut);
}

TEST(ProfilingLogReader, CompressedLogIsUnpackedUpToALimitOnly) {
  const std::string log(300'000, 'x');
  const std::string packed = gzipped("first") + gzipped(log);
  const PlainText whole = plainText(packed, log.size() + 5);
  EXPECT_EQ(whole.text, "first" + log);
  EXPECT_FALSE(whole.cut);
  for (const std::size_t most : {std::size_t{0}, std::size_t{5}, log.size() + 4}) {
    const PlainText part = plainText(packed, most);
    EXPECT_EQ(part.text, ("first" + log).substr(0, most));
    EXPECT_TRUE(part.cut) << most;
  }
  EXPECT_EQ(plainText("not compressed", 3).text, "not compressed");
}

}  // namespace
}  // namespace bootforge::analyze
