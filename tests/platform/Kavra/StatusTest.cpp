#include "Kavra/Status.h"

#include <gtest/gtest.h>

namespace Kavra {
namespace {

TEST(StatusTest, NamesTheDatabaseOfAProblemOnce) {
  Status status;
  status.problem = "cannot be reached";
  EXPECT_EQ(problemOf(status, "redis://one"), "redis://one: cannot be reached");
  status.problem = "file:/one.json: is empty";
  EXPECT_EQ(problemOf(status, "file:/one.json"), "file:/one.json: is empty");
}

}  // namespace
}  // namespace Kavra
