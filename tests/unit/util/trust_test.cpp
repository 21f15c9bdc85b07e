#include "util/trust.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "tests/support/scratch_root.h"

namespace bootforge::test {
namespace {

constexpr const char* kFolder = "/var/log/links";
constexpr const char* kLink = "/var/log/links/link";
constexpr uid_t kSomebody = 54321;

class TrustedLink : public testing::Test {
 protected:
  void SetUp() override {
    std::filesystem::create_directories(kFolder);
    ::chmod(kFolder, 0755);
    std::filesystem::create_symlink("/etc/target", kLink);
  }
};

TEST_F(TrustedLink, IsOursInAFolderThatOnlyWeMayWrite) { EXPECT_TRUE(isTrustedLink(kLink)); }

TEST_F(TrustedLink, IsNoneInAFolderOfOursThatOthersMayWrite) {
  for (const mode_t mode : {0775U, 0757U, 01777U}) {
    ::chmod(kFolder, mode);
    EXPECT_FALSE(isTrustedLink(kLink)) << std::oct << mode;
  }
}

TEST_F(TrustedLink, IsNoneInSomebodysFolder) {
  if (::chown(kFolder, kSomebody, kSomebody) != 0) GTEST_SKIP() << "nobody else in this namespace";
  EXPECT_FALSE(isTrustedLink(kLink));
}

TEST_F(TrustedLink, IsNoneThatSomebodyHasMade) {
  if (::lchown(kLink, kSomebody, kSomebody) != 0) GTEST_SKIP() << "nobody else in this namespace";
  EXPECT_FALSE(isTrustedLink(kLink));
}

TEST_F(TrustedLink, IsNoFileAndNothingThatIsNotThere) {
  writeFile("/var/log/links/file", "");
  EXPECT_FALSE(isTrustedLink("/var/log/links/file"));
  EXPECT_FALSE(isTrustedLink("/var/log/links/missing"));
  EXPECT_FALSE(isTrustedLink("/var/missing/link"));
}

}  // namespace
}  // namespace bootforge::test
