// A terminal of the test's own, in the scratch root.
#pragma once

#include <gtest/gtest.h>

#include <string>

namespace bootforge::test {

/// Mounts terminals at /dev/pts; the first of them is open on both sides. Skips the test where that
/// is not allowed.
class PseudoTerminal : public testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  /// Mounts terminals at /dev/pts, a folder that is there. Returns false, with errno set, where it
  /// cannot be done.
  static bool mountTerminals();
  /// What was shown since the last look. Waits for its beginning, 2 s at most.
  std::string shown() const;

  int master_ = -1;
  int terminal_ = -1;  // held open: with nobody there, what was shown would be forgotten

 private:
  bool isMounted_ = false;
};

}  // namespace bootforge::test
