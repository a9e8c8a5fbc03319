#include "Kavra/Redis/Address.h"

#include <gtest/gtest.h>

namespace Kavra::Redis {
namespace {

TEST(AddressTest, ANameHasToBeLookedUp) {
  for (const char* host : {"localhost", "supervisor-2:6379", "1.2.3.4.example", "no..name"}) {
    EXPECT_TRUE(Address::ofHost(host).isNamed()) << host;
  }
}

TEST(AddressTest, NumbersAndPathsHaveNot) {
  for (const char* host : {"127.0.0.1", "10.0.0.2:7000", "[::1]", "[fe80::1]:6379"}) {
    const Address address = Address::ofHost(host);
    EXPECT_FALSE(address.isNamed()) << host;
    EXPECT_FALSE(address.resolve().empty()) << host;
  }
  EXPECT_FALSE(Address::ofPath("/run/redis.sock").isNamed());
}

TEST(AddressTest, PathsAndLoopbackStayOnThisComputer) {
  for (const char* host :
       {"127.0.0.1", "127.9.9.9:7000", "[::1]:6379", "localhost", "localhost:1"}) {
    EXPECT_TRUE(Address::ofHost(host).isLocal()) << host;
  }
  EXPECT_TRUE(Address::ofPath("/run/redis.sock").isLocal());
}

TEST(AddressTest, WhatMayBeElsewhereDoesNot) {
  for (const char* host : {"10.0.0.2", "128.0.0.1", "[fe80::1]:6379", "[::ffff:10.0.0.1]",
                           "supervisor-2", "127.0.0.1.example", "0.0.0.0"}) {
    EXPECT_FALSE(Address::ofHost(host).isLocal()) << host;
  }
}

}  // namespace
}  // namespace Kavra::Redis
