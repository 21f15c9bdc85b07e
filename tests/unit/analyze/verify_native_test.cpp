// What verify says about shared objects.

#include <elf.h>

#include <cstdint>
#include <filesystem>
#include <utility>

#include "analyze/image/native_object.h"
#include "tests/support/scratch_root.h"
#include "tests/unit/analyze/image_fixture.h"
#include "tests/unit/native/shared_objects.h"

namespace bootforge::analyze::test {
namespace {

using bootforge::test::sharedObject;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

std::string madeFor(std::uint16_t machine, std::string object) {
  object[EI_NIDENT + 2] = static_cast<char>(machine & 0xFF);
  object[EI_NIDENT + 3] = static_cast<char>(machine >> 8);
  return object;
}

/// The head of an ELF file, which is all that is needed to be counted.
std::string headFor(std::uint16_t machine) {
  return madeFor(machine, sharedObject("full")).substr(0, 64);
}

class VerifyNative : public ImageTest {
 protected:
  void object(const std::string& name, const std::string& sample) {
    putPlugin(name, sharedObject(sample));
  }
  void library(const std::string& folder = "/lib/x86_64-linux-gnu") {
    put(folder + "/libc.so.6", "");
  }
  const std::string native_ = machineName(*machineOf(sharedObject("full")));
};

TEST_F(VerifyNative, GoodObjectHasNoFindings) {
  library();
  object("liba.so", "needy");
  object("libb.so", "null_lists");
  EXPECT_THAT(told(), IsEmpty());
}

TEST_F(VerifyNative, WhatIsNoSharedObjectIsUnloadable) {
  putPlugin("text.so", "#!/bin/sh\n");
  putPlugin("empty.so", "");
  std::filesystem::create_directory(std::string(kRoot) + kPlugins + "/folder.so");
  std::filesystem::create_symlink("nowhere", std::string(kRoot) + kPlugins + "/link.so");
  EXPECT_THAT(told(),
              ElementsAre("error native-unloadable PLUGINS/empty.so empty: invalid ELF header",
                          "error native-unloadable PLUGINS/folder.so folder: cannot open shared "
                          "object file: it is no regular file",
                          "error native-unloadable PLUGINS/link.so link: cannot open shared object "
                          "file: No such file or directory",
                          "error native-unloadable PLUGINS/text.so text: invalid ELF header"));
}

TEST_F(VerifyNative, EveryMissingSymbolIsNamed) {
  library();
  object("a.so", "no_metadata");
  object("b.so", "no_operations");
  EXPECT_THAT(told(), ElementsAre("error native-symbol-missing PLUGINS/a.so a: the symbol "
                                  "\"metadata\" is missing",
                                  "error native-symbol-missing PLUGINS/b.so b: the symbol "
                                  "\"operations\" is missing"));
}

TEST_F(VerifyNative, EveryFaultOfTheRecordsIsFound) {
  library();
  object("libmalformed.so", "malformed");
  object("version.so", "version_five");
  object("wild.so", "wild_name");
  const std::string rule = "error native-record-invalid PLUGINS/";
  EXPECT_THAT(told(),
              ElementsAre(rule + "libmalformed.so malformed: metadata record is shorter than its "
                                 "version needs",
                          rule + "libmalformed.so malformed: operations record is too short",
                          rule + "version.so version: Unsupported API version",
                          rule + "wild.so wild: a pointer in its records leads nowhere"));
}

TEST_F(VerifyNative, RejectedObjectProvidesNothing) {
  library();
  object("a.so", "version_five");
  putPlugin("b.json", Text{.required = R"(["never-linked"])"});
  EXPECT_THAT(told("milestone-unprovided"), ElementsAre(HasSubstr("PLUGINS/b.json:3:14")));
}

TEST_F(VerifyNative, MilestonesAndFlagsOfObjectsCount) {
  library();
  object("a.so", "full");
  options_.selection.bootFlags = {"a", "b"};
  putPlugin("b.json", Text{.required = R"(["service-up"])"});
  EXPECT_THAT(told(), ElementsAre(HasSubstr("milestone-unprovided PLUGINS/a.so network-up:"),
                                  HasSubstr("milestone-unprovided PLUGINS/a.so storage-up:")));
  options_.selection.bootFlags = {"a", "b", "z"};
  EXPECT_THAT(told(), ElementsAre("note plugin-left-out PLUGINS/a.so a: the plugin does not run: "
                                  "disabled by the boot flag z",
                                  HasSubstr("note milestone-left-out PLUGINS/b.json:3:14 "
                                            "service-up:")));
}

TEST_F(VerifyNative, ObjectForAnotherMachineThanMostIsUnloadable) {
  library();
  object("a.so", "null_lists");
  object("b.so", "null_lists");
  putPlugin("c.so", madeFor(EM_S390, sharedObject("null_lists")));
  EXPECT_THAT(told(), ElementsAre("error native-unloadable PLUGINS/c.so c: it is made for machine "
                                  "22, and the image for " +
                                  native_));
}

TEST(MachineName, IsTheOneThatPeopleKnow) {
  const std::pair<std::uint16_t, const char*> kNames[] = {
      {EM_X86_64, "x86-64"}, {EM_AARCH64, "AArch64"},  {EM_386, "i386"},        {EM_ARM, "ARM"},
      {EM_RISCV, "RISC-V"},  {EM_PPC64, "PowerPC 64"}, {EM_S390, "machine 22"},
  };
  for (const auto& [machine, name] : kNames) EXPECT_EQ(machineName(machine), name);
}

TEST_F(VerifyNative, WithEqualNumbersMostElfFilesOfTheRootDecide) {
  library();
  object("a.so", "null_lists");
  putPlugin("b.so", madeFor(EM_S390, sharedObject("null_lists")));
  put("/usr/bin/one", headFor(EM_S390));
  EXPECT_THAT(told("native-unloadable"), ElementsAre(HasSubstr("PLUGINS/a.so a: it is made for")));
  const std::string own = sharedObject("full").substr(0, 64);
  put("/usr/bin/two", own);
  put("/usr/bin/three", own);
  EXPECT_THAT(told("native-unloadable"), ElementsAre(HasSubstr("PLUGINS/b.so b: it is made for")));
}

TEST_F(VerifyNative, LibraryThatIsInNoFolderIsFound) {
  object("a.so", "needy");
  EXPECT_THAT(told(), ElementsAre("error native-library-missing PLUGINS/a.so a: the library "
                                  "\"libc.so.6\" is in none of the image's library folders"));
}

TEST_F(VerifyNative, WhatALibraryNeedsIsNeeded) {
  std::string object = sharedObject("needy");
  const std::string needed = "libc.so.6";
  object.replace(object.find(needed), needed.size(), "libd.so.6");
  putPlugin("a.so", object);
  put("/usr/lib/libd.so.6", sharedObject("needy"));
  EXPECT_THAT(told(), ElementsAre("error native-library-missing PLUGINS/a.so a: the library "
                                  "\"libc.so.6\", which \"libd.so.6\" needs, is in none of the "
                                  "image's library folders"));
  put("/usr/lib/libc.so.6", sharedObject("needy"));
  EXPECT_THAT(told(), IsEmpty());
}

TEST_F(VerifyNative, LibraryIsFoundInEveryOrdinaryFolder) {
  object("a.so", "needy");
  for (const char* folder : {"/lib", "/usr/lib", "/lib64", "/usr/lib64", "/lib/x86_64-linux-gnu",
                             "/usr/lib/aarch64-linux-gnu"}) {
    library(folder);
    EXPECT_THAT(told(), IsEmpty()) << folder;
    std::filesystem::remove(std::string(kRoot) + folder + "/libc.so.6");
  }
  library("/opt/lib");
  EXPECT_THAT(told("native-library-missing"), testing::SizeIs(1));
}

TEST_F(VerifyNative, LibraryFoldersOfTheLoadersConfigurationCount) {
  object("a.so", "needy");
  library("/opt/deep/lib");
  EXPECT_THAT(told("native-library-missing"), testing::SizeIs(1));
  put("/etc/ld.so.conf", "# a comment\ninclude ld.so.conf.d/*.conf\n");
  put("/etc/ld.so.conf.d/one.conf", "include /etc/more.conf # and a comment\n");
  put("/etc/more.conf", "include /etc/ld.so.conf\n/opt/deep//lib\n");
  EXPECT_THAT(told(), IsEmpty());
}

TEST_F(VerifyNative, LinkToALibraryCountsInsideTheRootOnly) {
  object("a.so", "needy");
  std::filesystem::create_directories(std::string(kRoot) + "/lib");
  std::filesystem::create_symlink("/data/libc.so.6", std::string(kRoot) + "/lib/libc.so.6");
  bootforge::test::writeFile("/data/libc.so.6", "");
  EXPECT_THAT(told("native-library-missing"), testing::SizeIs(1));
  put("/data/libc.so.6", "");
  EXPECT_THAT(told(), IsEmpty());
}

}  // namespace
}  // namespace bootforge::analyze::test
