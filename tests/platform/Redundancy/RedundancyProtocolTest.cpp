#include "Redundancy/RedundancyProtocol.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

namespace Redundancy {
namespace {

std::string textOf(U32 number) {
  std::ostringstream out;
  out << RedundancyProtocol{number};
  return out.str();
}

TEST(RedundancyProtocolTest, PrintsItsName) {
  EXPECT_EQ(textOf(0), "none");
  EXPECT_EQ(textOf(1), "coldStandby");
  EXPECT_EQ(textOf(2), "warmStandby");
  EXPECT_EQ(textOf(3), "hotStandby");
}

TEST(RedundancyProtocolTest, PrintsTheNumberOfAValueWithoutAName) {
  EXPECT_EQ(textOf(4), "RedundancyProtocol(4)");
  EXPECT_EQ(textOf(4294967295), "RedundancyProtocol(4294967295)");
}

}  // namespace
}  // namespace Redundancy
