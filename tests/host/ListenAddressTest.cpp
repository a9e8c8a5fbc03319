#include "host/ListenAddress.h"

#include <gmock/gmock.h>

namespace Host {
namespace {

class LoopbackAddress : public testing::TestWithParam<const char*> {};
class OpenAddress : public testing::TestWithParam<const char*> {};
class UnixSocket : public testing::TestWithParam<const char*> {};

TEST_P(LoopbackAddress, TakesRequestsFromThisComputerAlone) {
  EXPECT_TRUE(isLoopbackAddress(GetParam()));
}

TEST_P(OpenAddress, MayTakeRequestsFromElsewhere) { EXPECT_FALSE(isLoopbackAddress(GetParam())); }

TEST_P(UnixSocket, IsToldFromAnAddressOfTheNetwork) { EXPECT_TRUE(isUnixSocket(GetParam())); }

TEST_P(LoopbackAddress, IsNoUnixSocket) { EXPECT_FALSE(isUnixSocket(GetParam())); }

INSTANTIATE_TEST_SUITE_P(Notations, UnixSocket,
                         testing::Values("unix:/run/agent", "unix:agent", "UNIX:/run/agent",
                                         "/run/agent", "unix:"));

INSTANTIATE_TEST_SUITE_P(Notations, LoopbackAddress,
                         testing::Values("udp:127.0.0.1:1161", "127.0.0.1:1161", "127.255.0.9",
                                         "tcp:127.0.0.1:705", "udp:localhost:161", "localhost",
                                         "udp6:[::1]:161", "udp6:::1", "tcp6:[::1]:161",
                                         "udpv6:[0:0:0:0:0:0:0:1]:161"));

INSTANTIATE_TEST_SUITE_P(Notations, OpenAddress,
                         testing::Values("", "161", "udp:1161", "udp:", "udp:0.0.0.0:161",
                                         "udp:10.0.0.1:161", "udp:128.0.0.1:161", "udp:127.1:161",
                                         "udp:127.0.0.1.example.com:161", "udp:example.com:161",
                                         "udp:127.0.0.1@eth0:161", "udp6:161", "udp6:[::]:161",
                                         "udp6:[fe80::1]:161", "udp6:[::ffff:10.0.0.1]:161",
                                         "udp6:127.0.0.1:161", "udp:[::1]:161", "unix6:/x",
                                         "dtlsudp:127.0.0.1:1", "unix:/x", "UNIX:/x"));

}  // namespace
}  // namespace Host
