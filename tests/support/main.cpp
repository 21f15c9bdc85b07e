#include <gtest/gtest.h>

#include "tests/support/scratch_root.h"

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  bootforge::test::ScratchRoot::enter();
  return RUN_ALL_TESTS();
}
