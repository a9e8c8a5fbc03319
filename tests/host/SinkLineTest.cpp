#include "host/SinkLine.h"

#include <gmock/gmock.h>

#include <stdexcept>
#include <string>

namespace Host {
namespace {

using testing::HasSubstr;
using testing::SizeIs;

SinkLine line(const std::string& text) {
  return sinkOfLine(text, SNMP_VERSION_2c, SNMP_MSG_TRAP2, "usual");
}

std::string endpointOf(const std::string& text) {
  const SinkLine sink = line(text);
  return std::string(sink.isIpv6 ? "6 " : "4 ") + sink.host + " " + sink.port;
}

// Why a line is refused, or "".
std::string refusalOf(const std::string& text) {
  try {
    line(text);
  } catch (const std::invalid_argument& error) {
    return error.what();
  }
  return {};
}
std::string sessionRefusalOf(const std::string& text) {
  try {
    sinkOfSession(text);
  } catch (const std::invalid_argument& error) {
    return error.what();
  }
  return {};
}

TEST(SinkLineTest, TakesAddressesAsNetSnmpDoes) {
  EXPECT_EQ(endpointOf("192.0.2.7"), "4 192.0.2.7 162");
  EXPECT_EQ(endpointOf("manager.example:1162"), "4 manager.example 1162");
  EXPECT_EQ(endpointOf("udp:192.0.2.7:1162"), "4 192.0.2.7 1162");
  EXPECT_EQ(endpointOf("udp6:[2001:db8::7]:1162"), "6 2001:db8::7 1162");
  EXPECT_EQ(endpointOf("udp6:2001:db8::7"), "6 2001:db8::7 162");
  EXPECT_EQ(endpointOf("udp6:manager.example:1162"), "6 manager.example 1162");
  EXPECT_EQ(endpointOf("[2001:db8::7]"), "6 2001:db8::7 162");
  EXPECT_EQ(endpointOf("192.0.2.7 secret 1162"), "4 192.0.2.7 1162");
}

TEST(SinkLineTest, RefusesWhatIsNoUdp) {
  for (const auto* address : {"tcp:192.0.2.7:162", "tcp6:[::1]:162", "unix:/tmp/x", "/tmp/x",
                              "dtlsudp:192.0.2.7", "tlstcp:192.0.2.7"}) {
    EXPECT_THAT(refusalOf(address), HasSubstr("notifications go by UDP alone")) << address;
  }
}

TEST(SinkLineTest, RefusesWhatIsNoAddress) {
  for (const auto* address :
       {"udp:", "udp::162", "a:0", "a:65536", "a:b", "a:1:2", "[::1", "[::1]162", "a b c d", ""}) {
    EXPECT_NE(refusalOf(address), "") << address;
  }
}

TEST(SinkLineTest, HasTheUsualCommunityUnlessItNamesOne) {
  EXPECT_EQ(line("a").community, "usual");
  EXPECT_EQ(line("a secret").community, "secret");
}

TEST(SinkLineTest, RefusesTargetsAndTags) {
  EXPECT_THAT(refusalOf("-tag x a"), HasSubstr("-tag: this agent has no table of targets"));
}

TEST(SinkLineTest, SendsFromAnAddressInNumbersAlone) {
  EXPECT_EQ(line("-s 127.0.0.3 a").source, "127.0.0.3");
  EXPECT_THAT(refusalOf("-s name a"), HasSubstr("-s name: not an address in numbers"));
}

TEST(SinkLineTest, TakesTheOptionsOfASession) {
  const SinkLine sink = sinkOfSession(
      "-v 3 -Ci -r 2 -t 0.5 -u sender -l authPriv -a SHA-256 -A \"a long passphrase\" -x AES -X "
      "another-long-one -n blue -e 0x8000000001020304 192.0.2.7:1162");
  EXPECT_EQ(sink.version, SNMP_VERSION_3);
  EXPECT_TRUE(sink.isInform());
  EXPECT_EQ(sink.retries, 2);
  EXPECT_EQ(sink.timeout, 0.5);
  EXPECT_EQ(sink.user, "sender");
  EXPECT_EQ(sink.level, SNMP_SEC_LEVEL_AUTHPRIV);
  EXPECT_THAT(sink.authKey, SizeIs(32));
  EXPECT_THAT(sink.privKey, SizeIs(32));
  EXPECT_EQ(sink.context, "blue");
  EXPECT_EQ(sink.engineId, std::string("\x80\0\0\0\x01\x02\x03\x04", 8));
  EXPECT_EQ(sink.host, "192.0.2.7");
}

TEST(SinkLineTest, TakesOptionsBeforeAndBehindTheHostJoinedOrNot) {
  EXPECT_EQ(sinkOfSession("-v2c -csecret a"), sinkOfSession("a -v 2c -c secret"));
}

TEST(SinkLineTest, IsATrapOfVersion1ThatHasNoInforms) {
  EXPECT_EQ(sinkOfSession("-v 1 -c x a").command, SNMP_MSG_TRAP);
  EXPECT_EQ(sinkOfSession("-v 2c -c x a").command, SNMP_MSG_TRAP2);
  EXPECT_EQ(sessionRefusalOf("-v 1 -Ci -c x a"), "version 1 has no informs");
}

TEST(SinkLineTest, RefusesASessionThatCannotBe) {
  EXPECT_EQ(sessionRefusalOf("-v 3 -u x -l up a"), "-l up: no such level");
  EXPECT_EQ(sessionRefusalOf("-v 3 -u x -a MD6 a"), "-a MD6: no such protocol");
  EXPECT_EQ(sessionRefusalOf("-v 3 -u x -A short a"),
            "a passphrase is too short: it has at least 8 octets");
  EXPECT_EQ(sessionRefusalOf("-v 4 a"), "-v 4: no such version");
  EXPECT_EQ(sessionRefusalOf("-v 2c a"), "no community is named (-c)");
  EXPECT_EQ(sessionRefusalOf("-v 3 -u"), "-u: no value");
  EXPECT_EQ(sessionRefusalOf("-v 3 -u x"), "no host is named");
  EXPECT_EQ(sessionRefusalOf("-v 3 -u x a b"), "b: too much");
  EXPECT_EQ(sessionRefusalOf("-v 3 -t 0 a"), "-t 0: not a number of seconds up to 3600");
  EXPECT_EQ(sessionRefusalOf("-v 3 -r -1 a"), "-r -1: not a number up to 1000");
  EXPECT_EQ(sessionRefusalOf("-v 3 -e 80 a"),
            "-e: expected an engine id of 5 to 32 octets in hexadecimal");
  EXPECT_EQ(sessionRefusalOf("-v 3 -D all a"), "the option -D has no meaning here");
}

}  // namespace
}  // namespace Host
