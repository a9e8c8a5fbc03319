#include "Kavra/SocketAddress.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace Kavra {
namespace {

TEST(SocketAddressTest, HoldsThePathOfAUnixSocketToItsLastOctet) {
  const std::string path(kMostSocketPathOctets, 'p');
  const auto address = unixAddressOf(path);
  ASSERT_TRUE(address);
  sockaddr_un whole;
  std::memcpy(&whole, &address->storage, sizeof whole);
  EXPECT_EQ(whole.sun_family, AF_UNIX);
  EXPECT_EQ(whole.sun_path, path);
}

TEST(SocketAddressTest, OfAPathThatTheKernelWouldCutIsNone) {
  EXPECT_FALSE(unixAddressOf(std::string(kMostSocketPathOctets + 1, 'p')));
  EXPECT_FALSE(unixAddressOf(std::string("/run/a\0b", 8)));
  EXPECT_FALSE(unixAddressOf(""));
}

}  // namespace
}  // namespace Kavra
