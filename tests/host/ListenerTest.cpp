#include "host/Listener.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "host/NetSnmpEventLoop.h"

namespace Host {
namespace {

int datagramSocket() { return ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0); }

sockaddr_in loopbackAt(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

// A port of loopback that nobody has.
std::uint16_t freePort() {
  const int probe = datagramSocket();
  sockaddr_in name = loopbackAt(0);
  socklen_t length = sizeof name;
  EXPECT_EQ(::bind(probe, reinterpret_cast<const sockaddr*>(&name), length), 0);
  EXPECT_EQ(::getsockname(probe, reinterpret_cast<sockaddr*>(&name), &length), 0);
  ::close(probe);
  return ntohs(name.sin_port);
}

// A listener whose packets take as long as the test says; none of them is a request that anybody
// would answer.
class ListenerTest : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    // net-snmp knows its transports from its first session on.
    netsnmp_session session{};
    snmp_sess_init(&session);
  }

  // The host-access files need not be asked about the manager.
  ListenerTest() {
    const HostAccess::Source manager{.family = AF_INET, .address = {127, 0, 0, 1}};
    EXPECT_FALSE(access_.known(manager).has_value());
    access_.learned(manager, true);
  }

  void received(std::size_t packets) const {
    const int manager = datagramSocket();
    const sockaddr_in to = loopbackAt(port_);
    for (std::size_t i = 0; i < packets; ++i) {
      EXPECT_EQ(::sendto(manager, "x", 1, 0, reinterpret_cast<const sockaddr*>(&to), sizeof to), 1);
    }
    ::close(manager);
  }
  // The rounds of the loop in which so many packets that take `pace` seconds each are served.
  int roundsOf(std::size_t packets, double pace) {
    received(packets);
    secondsOfAPacket_ = pace;
    served_ = 0;
    int rounds = 0;
    NetSnmpEventLoop loop([&] {
      listener_.serveWaiting();
      ++rounds;
    });
    const auto deadline = loop.timerIs(10, [&] {
      ADD_FAILURE() << "only " << served_ << " packets are served";
      loop.stop();
    });
    loop.runUntil([&] { return served_ >= packets; });
    return rounds;
  }

  const std::uint16_t port_ = freePort();
  double secondsOfAPacket_ = 0;
  double now_ = 1000;
  std::size_t served_ = 0;
  HostAccess access_{{"/none/hosts.allow"}, [this] {
                       ++served_;
                       return now_ += secondsOfAPacket_;
                     }};
  Listener listener_{"udp:127.0.0.1:" + std::to_string(port_), access_, [this] { return now_; }};
};

TEST_F(ListenerTest, ServesABatchInOneRoundWhileThatIsQuick) {
  EXPECT_EQ(roundsOf(Datagrams::kMost, Listener::kTurn / Datagrams::kMost), 1);
}

TEST_F(ListenerTest, LetsOthersHaveTheirTurnWhenABatchTakesLong) {
  // The first of a round is net-snmp's to take, when the socket can be read.
  EXPECT_EQ(roundsOf(Datagrams::kMost, Listener::kTurn), 15);
}

}  // namespace
}  // namespace Host
