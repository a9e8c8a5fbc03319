#include "host/Datagrams.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace Host {
namespace {

using testing::ElementsAre;
using testing::IsNull;
using testing::NotNull;

struct Closed {
  void operator()(netsnmp_transport* transport) const {
    transport->f_close(transport);
    netsnmp_transport_free(transport);
  }
};
using Transport = std::unique_ptr<netsnmp_transport, Closed>;

Transport transportAt(const char* address) {
  // net-snmp knows its transports from its first session on, and is not to learn them twice.
  netsnmp_session session{};
  snmp_sess_init(&session);
  return Transport(netsnmp_transport_open_server("snmp", address));
}

int portOf(int socket) {
  sockaddr_in name{};
  socklen_t length = sizeof name;
  EXPECT_EQ(::getsockname(socket, reinterpret_cast<sockaddr*>(&name), &length), 0);
  return ntohs(name.sin_port);
}

// A datagram as net-snmp gets it: its octets, and the addresses that it hands back with the answer.
struct Received {
  int length = 0;
  std::string octets;
  std::shared_ptr<netsnmp_indexed_addr_pair> addresses;
};

Received received(netsnmp_transport& transport, std::size_t room = SNMP_MAX_RCV_MSG_SIZE) {
  std::string buffer(room, '\0');
  void* addresses = nullptr;
  int size = 0;
  errno = 0;
  const int length = transport.f_recv(&transport, buffer.data(), static_cast<int>(buffer.size()),
                                      &addresses, &size);
  EXPECT_EQ(size, addresses == nullptr ? 0 : sizeof(netsnmp_indexed_addr_pair));
  return {length,
          length < 0 ? "nothing" : buffer.substr(0, static_cast<std::size_t>(length)),
          {static_cast<netsnmp_indexed_addr_pair*>(addresses), &std::free}};
}

int answered(netsnmp_transport& transport, const Received& request, const std::string& text) {
  void* addresses = request.addresses.get();
  int size = sizeof(netsnmp_indexed_addr_pair);
  return transport.f_send(&transport, text.data(), static_cast<int>(text.size()), &addresses,
                          &size);
}

// A manager somewhere on loopback.
class Manager {
 public:
  Manager() : socket_(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    const timeval patience{10, 0};
    ::setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  }
  Manager(const Manager&) = delete;
  Manager& operator=(const Manager&) = delete;
  ~Manager() { ::close(socket_); }

  void sends(const std::string& text, const char* address, int port) const {
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(static_cast<std::uint16_t>(port));
    EXPECT_EQ(::inet_pton(AF_INET, address, &to.sin_addr), 1);
    EXPECT_EQ(
        ::sendto(socket_, text.data(), text.size(), 0, reinterpret_cast<sockaddr*>(&to), sizeof to),
        static_cast<ssize_t>(text.size()));
  }
  // "TEXT from ADDRESS:PORT"
  std::string hears() const {
    std::string text(1000, '\0');
    sockaddr_in from{};
    socklen_t length = sizeof from;
    const ssize_t size = ::recvfrom(socket_, text.data(), text.size(), 0,
                                    reinterpret_cast<sockaddr*>(&from), &length);
    if (size < 0) return "nothing";
    text.resize(static_cast<std::size_t>(size));
    return text + " from " + ::inet_ntoa(from.sin_addr) + ":" +
           std::to_string(ntohs(from.sin_port));
  }

 private:
  const int socket_;
};

class DatagramsTest : public testing::Test {
 protected:
  void listenAt(const char* address) {
    transport_ = transportAt(address);
    ASSERT_THAT(transport_, NotNull());
    datagrams_ = Datagrams::of(*transport_);
    ASSERT_THAT(datagrams_, NotNull());
    port_ = portOf(transport_->sock);
  }
  void asked(const std::string& text, const char* address = "127.0.0.1") const {
    manager_.sends(text, address, port_);
  }

  Transport transport_;
  std::unique_ptr<Datagrams> datagrams_;
  int port_ = 0;
  Manager manager_;
};

TEST_F(DatagramsTest, HandsOutOneByOneWhatCameInAtOnce) {
  listenAt("127.0.0.1:0");
  for (const char* text : {"one", "", "three"}) asked(text);
  EXPECT_EQ(received(*transport_).octets, "one");
  EXPECT_EQ(datagrams_->waiting(), 2U);
  asked("four");
  std::vector<std::string> texts;
  while (texts.size() < 3) texts.push_back(received(*transport_).octets);
  EXPECT_THAT(texts, ElementsAre("", "three", "four"));
  EXPECT_EQ(datagrams_->waiting(), 0U);
}

TEST_F(DatagramsTest, LosesNoneOfManyAndTakesABoundedNumberAtOnce) {
  listenAt("127.0.0.1:0");
  const std::size_t many = 2 * Datagrams::kMost + 3;
  for (std::size_t i = 0; i < many; ++i) asked(std::to_string(i));
  EXPECT_EQ(received(*transport_).octets, "0");
  EXPECT_EQ(datagrams_->waiting(), Datagrams::kMost - 1);
  for (std::size_t i = 1; i < many; ++i) {
    EXPECT_EQ(received(*transport_).octets, std::to_string(i));
  }
}

TEST_F(DatagramsTest, SaysThatNothingIsThere) {
  listenAt("127.0.0.1:0");
  EXPECT_EQ(received(*transport_).length, -1);
  EXPECT_EQ(errno, EAGAIN);
  EXPECT_EQ(datagrams_->waiting(), 0U);
}

TEST_F(DatagramsTest, TellsTheSameAddressesAsNetSnmp) {
  transport_ = transportAt("0.0.0.0:0");
  port_ = portOf(transport_->sock);
  asked("to net-snmp", "127.0.0.3");
  const Received theirs = received(*transport_);
  datagrams_ = Datagrams::of(*transport_);
  asked("to us", "127.0.0.3");
  const Received ours = received(*transport_);
  ASSERT_EQ(theirs.octets + ", " + ours.octets, "to net-snmp, to us");
  EXPECT_EQ(std::memcmp(theirs.addresses.get(), ours.addresses.get(), sizeof *ours.addresses), 0);
}

TEST_F(DatagramsTest, AnswersFromTheAddressThatWasAsked) {
  listenAt("0.0.0.0:0");
  asked("who?", "127.0.0.2");
  EXPECT_EQ(answered(*transport_, received(*transport_), "me"), 2);
  EXPECT_EQ(manager_.hears(), "me from 127.0.0.2:" + std::to_string(port_));
}

TEST_F(DatagramsTest, LeavesToNetSnmpWhatCannotBeSentFromThere) {
  listenAt("0.0.0.0:0");
  asked("who?");
  const Received request = received(*transport_);
  for (const in_addr_t broadcastOrUnknown : {INADDR_BROADCAST, INADDR_ANY}) {
    request.addresses->local_addr.sin.sin_addr.s_addr = broadcastOrUnknown;
    EXPECT_EQ(answered(*transport_, request, "me"), 2);
    EXPECT_EQ(manager_.hears(), "me from 127.0.0.1:" + std::to_string(port_));
  }
}

TEST_F(DatagramsTest, SaysWhyAnAnswerCannotBeSent) {
  listenAt("127.0.0.1:0");
  asked("who?");
  EXPECT_EQ(answered(*transport_, received(*transport_), std::string(70'000, 'x')), -1);
  EXPECT_EQ(errno, EMSGSIZE);
}

TEST_F(DatagramsTest, CutsWhatIsLongerThanTheRoomForIt) {
  listenAt("127.0.0.1:0");
  asked("longer");
  const Received cut = received(*transport_, 4);
  EXPECT_EQ(cut.octets, "long");
  EXPECT_EQ(cut.length, 4);
}

TEST_F(DatagramsTest, LeavesReceivingToNetSnmpWhileThatTellsWhatItDoes) {
  listenAt("127.0.0.1:0");
  for (const char* text : {"one", "two", "three", "four"}) asked(text);
  debug_register_tokens("nothing at all");
  snmp_set_do_debugging(1);
  EXPECT_EQ(received(*transport_).octets, "one");
  EXPECT_EQ(datagrams_->waiting(), 0U);
  snmp_set_do_debugging(0);
  EXPECT_EQ(received(*transport_).octets, "two");
  EXPECT_EQ(datagrams_->waiting(), 2U);
  snmp_set_do_debugging(1);
  EXPECT_EQ(received(*transport_).octets, "three") << "what waits comes first";
  snmp_set_do_debugging(0);
}

TEST_F(DatagramsTest, LeavesASocketThatIsBoundToADeviceAsItIs) {
  const Transport bound = transportAt("127.0.0.1:0");
  if (::setsockopt(bound->sock, SOL_SOCKET, SO_BINDTODEVICE, "lo", 3) != 0) {
    GTEST_SKIP() << "needs the right to bind a socket to a device";
  }
  EXPECT_THAT(Datagrams::of(*bound), IsNull());
}

TEST_F(DatagramsTest, LeavesOtherTransportsAsTheyAre) {
  const Transport stream = transportAt("tcp:127.0.0.1:0");
  ASSERT_THAT(stream, NotNull());
  const auto receive = stream->f_recv;
  EXPECT_THAT(Datagrams::of(*stream), IsNull());
  EXPECT_EQ(stream->f_recv, receive);
}

}  // namespace
}  // namespace Host
