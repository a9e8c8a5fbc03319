#include "host/SinkLine.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <strings.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <iterator>
#include <stdexcept>
#include <utility>

#include "Qel/Number.h"

namespace Host {
namespace {

constexpr auto kTrapPort = "162";

[[noreturn]] void failLine(const std::string& why) { throw std::invalid_argument(why); }

// As net-snmp's own reader splits it: words may be quoted.
std::vector<std::string> wordsOf(std::string_view line) {
  std::vector<std::string> words;
  std::string text(line);
  std::string word(text.size() + 1, '\0');
  char* rest = text.data();
  while (rest != nullptr && *rest != '\0') {
    rest = copy_nword(rest, word.data(), static_cast<int>(word.size()));
    words.emplace_back(word.c_str());
  }
  return words;
}

bool isNumericAddress(const std::string& text) {
  std::array<unsigned char, sizeof(in6_addr)> address{};
  return ::inet_pton(AF_INET, text.c_str(), address.data()) == 1 ||
         ::inet_pton(AF_INET6, text.c_str(), address.data()) == 1;
}

void sourceIs(SinkLine& sink, const std::string& typed) {
  if (!isNumericAddress(typed)) failLine(fmt::format("-s {}: not an address in numbers", typed));
  sink.source = typed;
}

// What stands in front of an address, in net-snmp's notation.
struct SinkTransport {
  const char* name;
  bool isUdp;
  bool isIpv6;
};
constexpr SinkTransport kSinkTransports[] = {
    {"udp", true, false},      {"udp6", true, true},      {"udpv6", true, true},
    {"udpipv6", true, true},   {"tcp", false, false},     {"tcp6", false, true},
    {"tcpv6", false, true},    {"tcpipv6", false, true},  {"unix", false, false},
    {"dtlsudp", false, false}, {"dtlsudp6", false, true}, {"tlstcp", false, false},
    {"ssh", false, false},     {"alias", false, false},   {"ipx", false, false},
};

// Takes the transport off the address.
SinkTransport transportIn(std::string_view& address) {
  const auto name = address.substr(0, address.find(':'));
  const auto* known = std::ranges::find_if(
      kSinkTransports, [name](const SinkTransport& transport) { return name == transport.name; });
  if (name.size() == address.size() || known == std::end(kSinkTransports)) {
    return {"udp", !address.starts_with('/'), address.starts_with('[')};
  }
  address.remove_prefix(name.size() + 1);
  return *known;
}

// HOST, HOST:PORT, [HOST]:PORT, and of IPv6 HOST without brackets.
void endpointIs(SinkLine& sink, std::string_view endpoint) {
  std::string_view port;
  if (endpoint.starts_with('[')) {
    const auto end = endpoint.find(']');
    sink.host = endpoint.substr(1, end == endpoint.npos ? end : end - 1);
    port = end == endpoint.npos ? "?" : endpoint.substr(end + 1);
    if (!port.empty()) port = port.starts_with(':') ? port.substr(1) : "?";
  } else {
    const auto colon = endpoint.find(':');
    const bool isBareIpv6 = sink.isIpv6 && endpoint.find(':', colon + 1) != endpoint.npos;
    const bool hasPort = colon != endpoint.npos && !isBareIpv6;
    sink.host = endpoint.substr(0, hasPort ? colon : endpoint.npos);
    if (hasPort) port = endpoint.substr(colon + 1);
  }
  constexpr unsigned kHighestPort = 65535;
  sink.port = port.empty() ? kTrapPort : std::string(port);
  const auto number = Qel::numberOf<unsigned>(sink.port);
  if (sink.host.empty() || !number || *number == 0 || *number > kHighestPort) {
    failLine(fmt::format("{}: not HOST[:PORT]", sink.target));
  }
}

void targetIs(SinkLine& sink, const std::string& typed) {
  sink.target = typed;
  std::string_view rest = typed;
  const SinkTransport transport = transportIn(rest);
  if (!transport.isUdp) failLine(fmt::format("{}: notifications go by UDP alone", typed));
  sink.isIpv6 = transport.isIpv6;
  endpointIs(sink, rest);
}

struct SecurityLevel {
  const char* name;  // in any case
  int level;
};
constexpr SecurityLevel kSecurityLevels[] = {
    {"noAuthNoPriv", SNMP_SEC_LEVEL_NOAUTH},   {"noauth", SNMP_SEC_LEVEL_NOAUTH},
    {"nanp", SNMP_SEC_LEVEL_NOAUTH},           {"1", SNMP_SEC_LEVEL_NOAUTH},
    {"authNoPriv", SNMP_SEC_LEVEL_AUTHNOPRIV}, {"auth", SNMP_SEC_LEVEL_AUTHNOPRIV},
    {"anp", SNMP_SEC_LEVEL_AUTHNOPRIV},        {"2", SNMP_SEC_LEVEL_AUTHNOPRIV},
    {"authPriv", SNMP_SEC_LEVEL_AUTHPRIV},     {"priv", SNMP_SEC_LEVEL_AUTHPRIV},
    {"ap", SNMP_SEC_LEVEL_AUTHPRIV},           {"3", SNMP_SEC_LEVEL_AUTHPRIV},
};

int levelOf(const std::string& typed) {
  const auto* known = std::ranges::find_if(kSecurityLevels, [&](const SecurityLevel& level) {
    return ::strcasecmp(level.name, typed.c_str()) == 0;
  });
  if (known == std::end(kSecurityLevels)) failLine(fmt::format("-l {}: no such level", typed));
  return known->level;
}

long versionOf(const std::string& typed) {
  if (typed == "1") return SNMP_VERSION_1;
  if (typed == "2c") return SNMP_VERSION_2c;
  if (typed == "3") return SNMP_VERSION_3;
  failLine(fmt::format("-v {}: no such version", typed));
}

long defaultVersion() {
  switch (netsnmp_ds_get_int(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_SNMPVERSION)) {
    case NETSNMP_DS_SNMP_VERSION_1:
      return SNMP_VERSION_1;
    case NETSNMP_DS_SNMP_VERSION_2c:
      return SNMP_VERSION_2c;
    default:
      return SNMP_VERSION_3;
  }
}

std::vector<oid> protocolOf(const oid* name, std::size_t length) {
  return name == nullptr ? std::vector<oid>() : std::vector<oid>(name, name + length);
}

std::vector<oid> authProtocolOf(const std::string& typed) {
  std::size_t length = 0;
  const int type = usm_lookup_auth_type(typed.c_str());
  if (type <= 0) failLine(fmt::format("-a {}: no such protocol", typed));
  const oid* const name = sc_get_auth_oid(type, &length);
  return protocolOf(name, length);
}

std::vector<oid> privProtocolOf(const std::string& typed) {
  std::size_t length = 0;
  const int type = usm_lookup_priv_type(typed.c_str());
  if (type < 0) failLine(fmt::format("-x {}: no such protocol", typed));
  const oid* const name = sc_get_priv_oid(type, &length);
  return protocolOf(name, length);
}

std::string engineOf(char option, std::string_view typed) {
  constexpr std::size_t kShortest = 5;
  constexpr std::size_t kLongest = 32;
  constexpr std::size_t kDigitsAnOctet = 2;
  if (typed.starts_with("0x")) typed.remove_prefix(2);
  std::string octets;
  for (; typed.size() >= kDigitsAnOctet; typed.remove_prefix(kDigitsAnOctet)) {
    unsigned char octet = 0;
    const auto* const end = typed.data() + kDigitsAnOctet;
    if (std::from_chars(typed.data(), end, octet, 16).ptr != end) break;
    octets.push_back(static_cast<char>(octet));
  }
  if (!typed.empty() || octets.size() < kShortest || octets.size() > kLongest) {
    failLine(fmt::format("-{}: expected an engine id of 5 to 32 octets in hexadecimal", option));
  }
  return octets;
}

std::string keyOf(const std::vector<oid>& protocol, const std::string& passphrase) {
  constexpr std::size_t kShortest = 8;
  if (passphrase.size() < kShortest) {
    failLine(fmt::format("a passphrase is too short: it has at least {} octets", kShortest));
  }
  std::array<u_char, USM_AUTH_KU_LEN> key{};
  std::size_t length = key.size();
  const auto* const octets = reinterpret_cast<const u_char*>(passphrase.data());
  if (generate_Ku(protocol.data(), static_cast<u_int>(protocol.size()), octets, passphrase.size(),
                  key.data(), &length) != SNMPERR_SUCCESS) {
    failLine("no key can be made of a passphrase");
  }
  return {key.begin(), key.begin() + static_cast<std::ptrdiff_t>(length)};
}

double timeoutOf(const std::string& typed) {
  constexpr double kLongest = 3600;
  const auto seconds = Qel::numberOf<double>(typed);
  if (!seconds || !(*seconds > 0) || *seconds > kLongest) {
    failLine(fmt::format("-t {}: not a number of seconds up to {:.0f}", typed, kLongest));
  }
  return *seconds;
}

int retriesOf(const std::string& typed) {
  constexpr int kMost = 1000;
  const auto retries = Qel::numberOf<int>(typed);
  if (!retries || *retries < 0 || *retries > kMost) {
    failLine(fmt::format("-r {}: not a number up to {}", typed, kMost));
  }
  return *retries;
}

// The options of a session, and what they leave for the end.
struct SessionWords {
  SinkLine sink;
  std::string authPassphrase;
  std::string privPassphrase;
  bool isInform = false;
  bool hasCommunity = false;

  void take(char option, const std::string& value);
  void makeKeys();
};

void SessionWords::take(char option, const std::string& value) {
  switch (option) {
    case 'v':
      sink.version = versionOf(value);
      break;
    case 'c':
      sink.community = value;
      hasCommunity = true;
      break;
    case 'C':
      if (value != "i") failLine(fmt::format("-C {}: only -Ci is known", value));
      isInform = true;
      break;
    case 't':
      sink.timeout = timeoutOf(value);
      break;
    case 'r':
      sink.retries = retriesOf(value);
      break;
    case 's':
      sourceIs(sink, value);
      break;
    case 'u':
      sink.user = value;
      break;
    case 'l':
      sink.level = levelOf(value);
      break;
    case 'n':
      sink.context = value;
      break;
    case 'e':
      sink.engineId = engineOf(option, value);
      break;
    case 'E':
      sink.contextEngineId = engineOf(option, value);
      break;
    case 'a':
      sink.authProtocol = authProtocolOf(value);
      break;
    case 'x':
      sink.privProtocol = privProtocolOf(value);
      break;
    case 'A':
      authPassphrase = value;
      break;
    case 'X':
      privPassphrase = value;
      break;
    default:
      failLine(fmt::format("the option -{} has no meaning here", option));
  }
}

// The key of privacy is made with the protocol of authentication, too.
void SessionWords::makeKeys() {
  if (authPassphrase.empty() && privPassphrase.empty()) return;
  std::size_t length = 0;
  if (sink.authProtocol.empty()) {
    const oid* const name = get_default_authtype(&length);
    sink.authProtocol = protocolOf(name, length);
  }
  if (!authPassphrase.empty()) sink.authKey = keyOf(sink.authProtocol, authPassphrase);
  if (privPassphrase.empty()) return;
  if (sink.privProtocol.empty()) {
    const oid* const name = get_default_privtype(&length);
    sink.privProtocol = protocolOf(name, length);
  }
  sink.privKey = keyOf(sink.authProtocol, privPassphrase);
}

int commandOf(long version, bool isInform) {
  if (version == SNMP_VERSION_1 && isInform) failLine("version 1 has no informs");
  if (version == SNMP_VERSION_1) return SNMP_MSG_TRAP;
  return isInform ? SNMP_MSG_INFORM : SNMP_MSG_TRAP2;
}

}  // namespace

SinkLine sinkOfLine(std::string_view line, long version, int command,
                    const std::string& community) {
  SinkLine sink;
  sink.version = version;
  sink.command = command;
  std::vector<std::string> words;  // without options
  const auto all = wordsOf(line);
  for (auto word = all.begin(); word != all.end(); ++word) {
    if (!word->starts_with('-')) {
      words.push_back(*word);
    } else if (*word == "-s" && std::next(word) != all.end()) {
      sourceIs(sink, *++word);
    } else {
      failLine(fmt::format("{}: this agent has no table of targets and tags", *word));
    }
  }
  constexpr std::size_t kMostWords = 3;
  if (words.empty() || words.size() > kMostWords) failLine("expected HOST [COMMUNITY [PORT]]");
  const bool hasPort = words.size() == kMostWords;
  targetIs(sink, hasPort ? fmt::format("{}:{}", words[0], words[2]) : words[0]);
  sink.community = words.size() > 1 ? words[1] : community;
  return sink;
}

SinkLine sinkOfSession(std::string_view line) {
  SessionWords session;
  session.sink.version = defaultVersion();
  const auto words = wordsOf(line);
  std::string target;
  for (auto word = words.begin(); word != words.end(); ++word) {
    if (word->size() < 2 || word->front() != '-') {
      if (!std::exchange(target, *word).empty()) failLine(fmt::format("{}: too much", *word));
      continue;
    }
    const char option = (*word)[1];
    const bool isJoined = word->size() > 2;
    if (!isJoined && std::next(word) == words.end()) failLine(fmt::format("{}: no value", *word));
    session.take(option, isJoined ? word->substr(2) : *++word);
  }
  if (target.empty()) failLine("no host is named");
  SinkLine& sink = session.sink;
  targetIs(sink, target);
  sink.command = commandOf(sink.version, session.isInform);
  if (sink.version == SNMP_VERSION_3) {
    session.makeKeys();
  } else if (!session.hasCommunity) {
    const char* usual = netsnmp_ds_get_string(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_COMMUNITY);
    if (usual == nullptr) failLine("no community is named (-c)");
    sink.community = usual;
  }
  return sink;
}

}  // namespace Host
