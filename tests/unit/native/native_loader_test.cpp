// Loading an object and reading it without loading it come to the same conclusion.

#include "plugins/native_loader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "analyze/image/native_object.h"
#include "plugins/exceptions.h"
#include "tests/support/scratch_root.h"
#include "tests/unit/native/shared_objects.h"

namespace bootforge::test {
namespace {

using analyze::NativeObject;
using analyze::readNativeObject;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

NativeRecord load(const std::string& sample) {
  const std::string path = "/plugins/" + sample + ".so";
  writeFile(path, sharedObject(sample));
  return loadNativeRecord(path);
}

/// Why the loader refuses a sample, without the part that names the file.
std::string refusalOf(const std::string& sample) {
  try {
    load(sample);
    return "accepted";
  } catch (const std::exception& error) {
    const std::string text = error.what();
    const std::string head = "plugin `/plugins/" + sample + ".so' is invalid: ";
    return text.starts_with(head) ? text.substr(head.size()) : text;
  }
}

NativeObject read(const std::string& sample) { return readNativeObject(sharedObject(sample)); }

std::string said(const NativeRecord& record) {
  std::string text = std::to_string(record.apiVersion) + ' ' + record.pluginVersion +
                     (record.runOnce ? " once" : "") +
                     (record.hasApplyHostProfile ? " profile" : "");
  for (const auto* list :
       {&record.provides, &record.requires_, &record.requiredFlags, &record.disablingFlags}) {
    text += " [";
    for (const std::string& name : *list) text += ' ' + name;
    text += ']';
  }
  return text;
}

TEST(NativeLoader, ObjectWithSymbolsOfOtherTypesIsRefusedAndEndsNothing) {
  EXPECT_EQ(refusalOf("malformed"), native::kShortOperations);
  EXPECT_THAT(read("malformed").recordFaults,
              ElementsAre(native::kShortOperations, native::kShortMetadata));
}

TEST(NativeLoader, ShortRecordsAreRefused) {
  EXPECT_EQ(refusalOf("short_metadata"), native::kShortMetadata);
  EXPECT_THAT(read("short_metadata").recordFaults, ElementsAre(native::kShortMetadata));
  EXPECT_EQ(refusalOf("short_operations"), native::kShortOperations);
  EXPECT_THAT(read("short_operations").recordFaults, ElementsAre(native::kShortOperations));
}

class WildPointer : public testing::TestWithParam<std::string> {};

TEST_P(WildPointer, IsAFaultAndNoCrash) {
  EXPECT_EQ(refusalOf(GetParam()), native::kWildPointer);
  EXPECT_THAT(read(GetParam()).recordFaults, ElementsAre(native::kWildPointer));
}

INSTANTIATE_TEST_SUITE_P(NativeLoader, WildPointer,
                         testing::Values("wild_array", "wild_name", "wild_version", "wild_flags",
                                         "wild_symbol", "wild_far", "wild_operations"));

class GoodRecord : public testing::TestWithParam<std::string> {};

TEST_P(GoodRecord, IsReadAlikeWithAndWithoutLoading) {
  const NativeObject object = read(GetParam());
  EXPECT_TRUE(object.isGood()) << object.unloadable;
  EXPECT_EQ(said(object.record), said(load(GetParam())));
}

INSTANTIATE_TEST_SUITE_P(NativeLoader, GoodRecord,
                         testing::Values("full", "packed", "null_lists", "odd_run_once",
                                         "version_one", "unresolved", "needy", "unsized"));

TEST(NativeLoader, EverythingOfAFullRecordIsRead) {
  EXPECT_EQ(said(load("full")),
            "4 2.5 once profile [ service-up extra-up] [ network-up storage-up] [ b a b] [ z]");
}

TEST(NativeLoader, VersionsThatAreNotSupportedAreRefused) {
  for (const char* sample : {"version_zero", "version_five", "version_garbage"}) {
    EXPECT_EQ(refusalOf(sample), native::kUnsupportedVersion) << sample;
    EXPECT_THAT(read(sample).recordFaults, ElementsAre(native::kUnsupportedVersion)) << sample;
  }
}

TEST(NativeLoader, MissingSymbolsAreNamed) {
  EXPECT_THAT(refusalOf("no_metadata"), HasSubstr("Failed loading symbol: metadata"));
  EXPECT_THAT(read("no_metadata").missingSymbols, ElementsAre("metadata"));
  EXPECT_THAT(refusalOf("no_operations"), HasSubstr("Failed loading symbol: operations"));
  EXPECT_THAT(read("no_operations").missingSymbols, ElementsAre("operations"));
}

TEST(NativeObject, FileThatIsCutAnywhereIsReadWithoutHarm) {
  const std::string whole = sharedObject("full");
  for (std::size_t size = 0; size < whole.size(); size += size < 1024 ? 1 : 97) {
    const NativeObject object = readNativeObject(std::string_view(whole).substr(0, size));
    // What is behind the segments, section headers for one, the loader does not miss either.
    if (object.isGood()) {
      EXPECT_EQ(said(object.record), said(read("full").record)) << size;
    }
    if (size < 64) {
      EXPECT_FALSE(object.unloadable.empty()) << size;
    }
  }
}

TEST(NativeObject, FileWithAnyByteChangedIsReadWithoutHarm) {
  const std::string whole = sharedObject("full");
  for (std::size_t at = 0; at < whole.size(); at += at < 1024 ? 1 : 53) {
    for (const char value : {'\0', '\x01', '\x7f', '\xff'}) {
      std::string damaged = whole;
      damaged[at] = value;
      readNativeObject(damaged);
    }
  }
}

TEST(NativeObject, WhatIsNoObjectIsUnloadable) {
  EXPECT_EQ(readNativeObject("").unloadable, "invalid ELF header");
  EXPECT_EQ(readNativeObject("#!/bin/sh\n").unloadable, "invalid ELF header");
  EXPECT_EQ(readNativeObject("\x7f"
                             "ELF")
                .unloadable,
            "file too short");
}

}  // namespace
}  // namespace bootforge::test
