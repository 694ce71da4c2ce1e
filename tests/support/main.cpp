// The tests' main: every binary works in folders of its own, never in the user's.
#include <gtest/gtest.h>

#include "tests/support/scratch.h"

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  Veldrift::ScratchHome home;
  return RUN_ALL_TESTS();
}
