#include <gtest/gtest.h>

#include "cli/host.h"

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  quillon::test::SetProgramFolder(argv[0]);
  return RUN_ALL_TESTS();
}
