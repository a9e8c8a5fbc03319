// Asks for ROWS rows COUNT times: what a counter of instructions looks at.
#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>

#include "cost/GetNextWalk.h"

int main(int argc, char** argv) {
  if (argc != 3) {
    std::cerr << "usage: get_next_walk ROWS COUNT\n";
    return 2;
  }
  const auto numberAt = [argv](int i) { return static_cast<U32>(std::atoi(argv[i])); };
  cost::GetNextWalk(numberAt(1)).getNext(numberAt(2));
  const auto* const unit = testing::UnitTest::GetInstance();
  return unit->ad_hoc_test_result().Failed() ? 1 : 0;
}
