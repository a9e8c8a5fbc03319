#include "Kavra/RedisAddress.h"

#include <gtest/gtest.h>

namespace Kavra {
namespace {

TEST(RedisAddressTest, ANameHasToBeLookedUp) {
  for (const char* host : {"localhost", "supervisor-2:6379", "1.2.3.4.example", "no..name"}) {
    EXPECT_TRUE(RedisAddress::ofHost(host).isNamed()) << host;
  }
}

TEST(RedisAddressTest, NumbersAndPathsHaveNot) {
  for (const char* host : {"127.0.0.1", "10.0.0.2:7000", "[::1]", "[fe80::1]:6379"}) {
    const RedisAddress address = RedisAddress::ofHost(host);
    EXPECT_FALSE(address.isNamed()) << host;
    EXPECT_FALSE(address.resolve().empty()) << host;
  }
  EXPECT_FALSE(RedisAddress::ofPath("/run/redis.sock").isNamed());
}

}  // namespace
}  // namespace Kavra
