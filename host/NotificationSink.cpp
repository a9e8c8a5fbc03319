#include "host/NotificationSink.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <netdb.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <utility>

#include "Qel/Failure.h"
#include "host/Log.h"
#include "host/NetSnmpLog.h"

namespace Host {
namespace {

constexpr double kShortestPause = 1;
constexpr double kLongestPause = 60;
constexpr double kNameLasts = 600;
constexpr double kMicroseconds = 1e6;

bool isNumber(const SinkLine& line) {
  std::array<unsigned char, sizeof(in6_addr)> address{};
  return ::inet_pton(line.isIpv6 ? AF_INET6 : AF_INET, line.host.c_str(), address.data()) == 1;
}

// On the thread of a look-up. None where there is no such name.
Kavra::AddressLookup::Addresses resolve(const std::string& host, int family) {
  addrinfo hints = {};
  hints.ai_family = family;
  hints.ai_socktype = SOCK_DGRAM;
  addrinfo* list = nullptr;
  if (::getaddrinfo(host.c_str(), nullptr, &hints, &list) != 0) return {};
  const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> owner(list, &::freeaddrinfo);
  Kavra::AddressLookup::Addresses addresses(1);
  addresses[0].size = std::min<socklen_t>(list->ai_addrlen, sizeof addresses[0].storage);
  std::memcpy(&addresses[0].storage, list->ai_addr, addresses[0].size);
  return addresses;
}

std::string numberOf(const Kavra::SocketAddress& address) {
  std::array<char, NI_MAXHOST> text{};
  ::getnameinfo(address.address(), address.size, text.data(), text.size(), nullptr, 0,
                NI_NUMERICHOST);
  return text.data();
}

template <std::size_t size>
std::size_t copyKey(const std::string& key, u_char (&to)[size]) {
  const std::size_t length = std::min(key.size(), size);
  std::memcpy(to, key.data(), length);
  return length;
}

// net-snmp's sessions point at what they are given, and copy it when they are added.
char* textIn(const std::string& text) {
  return text.empty() ? nullptr : const_cast<char*>(text.c_str());
}
u_char* octetsIn(const std::string& octets) { return reinterpret_cast<u_char*>(textIn(octets)); }
oid* oidIn(const std::vector<oid>& name) {
  return name.empty() ? nullptr : const_cast<oid*>(name.data());
}

std::string ownEngineId() {
  std::array<u_char, MAX_ENGINEID_LENGTH> octets{};
  const std::size_t length = snmpv3_get_engineID(octets.data(), octets.size());
  return {octets.begin(), octets.begin() + static_cast<std::ptrdiff_t>(length)};
}

void securityIs(netsnmp_session& session, const SinkLine& line, const std::string& engineId) {
  session.securityName = textIn(line.user);
  session.securityNameLen = line.user.size();
  if (line.level) session.securityLevel = *line.level;
  session.contextName = textIn(line.context);
  session.contextNameLen = line.context.size();
  session.securityEngineID = octetsIn(engineId);
  session.securityEngineIDLen = engineId.size();
  session.contextEngineID = octetsIn(line.contextEngineId);
  session.contextEngineIDLen = line.contextEngineId.size();
  session.securityAuthProto = oidIn(line.authProtocol);
  session.securityAuthProtoLen = line.authProtocol.size();
  session.securityPrivProto = oidIn(line.privProtocol);
  session.securityPrivProtoLen = line.privProtocol.size();
  session.securityAuthKeyLen = copyKey(line.authKey, session.securityAuthKey);
  session.securityPrivKeyLen = copyKey(line.privKey, session.securityPrivKey);
}

// Whom a question for an engine id comes from.
void needNobody() {
  if (usm_get_user(nullptr, 0, "") != nullptr) return;
  usmUser* const nobody = usm_create_user();
  if (nobody == nullptr) return;
  nobody->name = ::strdup("");
  nobody->secName = ::strdup("");
  usm_add_user(nobody);
}

Pdu newQuestion() {
  Pdu question(snmp_pdu_create(SNMP_MSG_GET), &snmp_free_pdu);
  if (!question) return question;
  question->version = SNMP_VERSION_3;
  question->securityName = ::strdup("");
  question->securityLevel = SNMP_SEC_LEVEL_NOAUTH;
  question->securityModel = SNMP_SEC_MODEL_USM;
  return question;
}

std::string reasonIn(const netsnmp_session& session) {
  return snmp_api_errstring(session.s_snmp_errno);
}

}  // namespace

NotificationSink::NotificationSink(SinkLine line, Qel::EventLoop& loop,
                                   NotificationChannel::Delivered delivered)
    : line_(std::move(line)),
      version1Address_(line_.command == SNMP_MSG_TRAP ? line_.version1Address.value_or(get_myaddr())
                                                      : 0),
      loop_(loop),
      delivered_(std::move(delivered)),
      lookup_([host = line_.host, family = line_.isIpv6 ? AF_INET6 : AF_INET] {
        return resolve(host, family);
      }),
      pause_(kShortestPause) {}

NotificationSink::~NotificationSink() { close(); }

void NotificationSink::send(const Notification& notification) {
  kept_.insert_or_assign(notification.about(), notification);
  if (isOld_ && step_ == Step::ready && !awaited_) close();
  proceed();
}

void NotificationSink::reopen() {
  keepAwaited();
  close();
  pause_ = kShortestPause;
  proceed();
}

void NotificationSink::proceed() {
  if (kept_.empty()) return;
  if (step_ == Step::ready) return sendAll();
  if (step_ != Step::idle) return;
  if (isNumber(line_)) return open(line_.host);
  if (const auto failure = Qel::failureOf([this] { lookUp(); })) fail(*failure);
}

void NotificationSink::lookUp() {
  answered_ = loop_.readableIs(lookup_.ask(), [this] { handleAddresses(); });
  next_ = loop_.timerIs(Kavra::AddressLookup::kPatience, [this] {
    fail(fmt::format("no address for '{}' within {:.0f} s", line_.host,
                     Kavra::AddressLookup::kPatience));
  });
  step_ = Step::resolving;
}

void NotificationSink::handleAddresses() {
  answered_ = nullptr;  // before the look-up closes the descriptor
  next_ = nullptr;
  const auto addresses = lookup_.take();
  if (addresses.empty()) return fail(fmt::format("no address for '{}'", line_.host));
  open(numberOf(addresses.front()));
  isOld_ = false;
  ageing_ = loop_.timerIs(kNameLasts, [this] { isOld_ = true; });
}

void NotificationSink::open(const std::string& number) {
  {
    const NetSnmpLog::Capture capture;
    session_ = newSession(number);
    if (session_ == nullptr) {
      return fail(capture.first().empty() ? "no way to send there" : capture.first());
    }
  }
  if (line_.version == SNMP_VERSION_3 && line_.isInform() && line_.engineId.empty()) {
    return discover();
  }
  step_ = Step::ready;
  sendAll();
}

netsnmp_session* NotificationSink::newSession(const std::string& number) {
  const std::string address = line_.isIpv6 ? fmt::format("udp6:[{}]:{}", number, line_.port)
                                           : fmt::format("udp:{}:{}", number, line_.port);
  netsnmp_session session;
  snmp_sess_init(&session);
  netsnmp_tdomain_spec place{};
  place.application = "snmptrap";
  place.target = address.c_str();
  place.source = textIn(line_.source);
  netsnmp_transport* const transport = netsnmp_tdomain_transport_tspec(&place);
  if (transport == nullptr) return nullptr;
  session.version = line_.version;
  if (line_.timeout) session.timeout = static_cast<long>(*line_.timeout * kMicroseconds);
  if (line_.retries) session.retries = *line_.retries;
  session.community = octetsIn(line_.community);
  session.community_len = line_.community.size();
  // Of a trap the sender is the authority, of an inform the receiver.
  const bool isOwn = line_.engineId.empty() && !line_.isInform();
  const std::string engineId = isOwn ? ownEngineId() : line_.engineId;
  if (line_.version == SNMP_VERSION_3) securityIs(session, line_, engineId);
  return snmp_add(&session, transport, nullptr, nullptr);
}

// net-snmp by itself would ask, and wait for the answer, before it sends the first inform.
void NotificationSink::discover() {
  session_->flags |= SNMP_FLAGS_DONT_PROBE;
  needNobody();
  Pdu question = newQuestion();
  if (!question) return fail("no memory");
  if (sendAwaited(std::move(question)) == 0) return fail(reasonIn(*session_));
  step_ = Step::discovering;
}

void NotificationSink::sendAll() {
  while (step_ == Step::ready && !awaited_ && !kept_.empty()) {
    transmit(std::move(kept_.extract(kept_.begin()).mapped()));
  }
}

void NotificationSink::transmit(Notification notification) {
  Pdu pdu = pduOf(notification, line_.command, version1Address_);
  if (!pdu) {
    kept_.try_emplace(notification.about(), std::move(notification));
    return fail("no memory");
  }
  if (line_.isInform()) awaited_ = notification;
  if (sendAwaited(std::move(pdu)) == 0) {
    awaited_.reset();
    kept_.try_emplace(notification.about(), std::move(notification));
    return fail(reasonIn(*session_));
  }
  ++counts_.sent;
  if (line_.isInform()) return;
  problemIs("");
  pause_ = kShortestPause;
  delivered_(notification);
}

// Returns 0 where nothing was sent. What is no trap will be answered, or given up.
int NotificationSink::sendAwaited(Pdu pdu) {
  const NetSnmpLog::Capture capture;  // the reason is told once, by problemIs()
  pdu->version = line_.version;
  const bool isTrap = pdu->command == SNMP_MSG_TRAP || pdu->command == SNMP_MSG_TRAP2;
  const int request = snmp_async_send(session_, pdu.get(), isTrap ? nullptr : &take, this);
  if (request == 0) return 0;
  static_cast<void>(pdu.release());  // net-snmp's now
  isAnswering_ = !isTrap;
  return request;
}

int NotificationSink::take(int operation, netsnmp_session* /*session*/, int /*request*/,
                           netsnmp_pdu* pdu, void* sink) noexcept {
  static_cast<NotificationSink*>(sink)->handleReply(operation, pdu);
  return 1;
}

// Nothing of the session may change from here: what follows is done from the loop.
void NotificationSink::handleReply(int operation, const netsnmp_pdu* pdu) {
  if (!isAnswering_ || operation == NETSNMP_CALLBACK_OP_RESEND) return;
  // Of a report net-snmp tells twice, of which this is the first time.
  if (operation == NETSNMP_CALLBACK_OP_SEC_ERROR && pdu != nullptr &&
      pdu->command == SNMP_MSG_REPORT) {
    return;
  }
  isAnswering_ = false;
  if (operation == NETSNMP_CALLBACK_OP_TIMED_OUT) {
    failure_ = "no answer";
  } else if (operation != NETSNMP_CALLBACK_OP_RECEIVED_MESSAGE) {
    failure_ = reasonIn(*session_);
  } else if (pdu->command == SNMP_MSG_REPORT && step_ == Step::ready) {
    failure_ = snmp_api_errstring(snmpv3_get_report_type(const_cast<netsnmp_pdu*>(pdu)));
  } else {
    failure_.clear();
  }
  next_ = loop_.timerIs(0, [this] { handleOutcome(); });
}

void NotificationSink::handleOutcome() {
  if (step_ == Step::ready) return handleInform();
  if (!failure_.empty()) return fail(failure_);
  if (session_->securityEngineIDLen == 0) return fail("it does not tell its engine id");
  if (usm_create_user_from_session(session_) != SNMPERR_SUCCESS) return fail("no memory");
  step_ = Step::ready;
  sendAll();
}

void NotificationSink::handleInform() {
  if (!failure_.empty()) {
    ++counts_.givenUp;
    return fail(failure_);
  }
  ++counts_.acknowledged;
  problemIs("");
  pause_ = kShortestPause;
  const Notification acknowledged = *std::exchange(awaited_, std::nullopt);
  delivered_(acknowledged);
  sendAll();
}

void NotificationSink::keepAwaited() {
  if (!awaited_) return;
  kept_.try_emplace(awaited_->about(), *awaited_);
  awaited_.reset();
}

void NotificationSink::fail(const std::string& why) {
  keepAwaited();
  close();
  problemIs(why);
  // Not all agents at once, after what befell all of them.
  const double part = std::uniform_real_distribution(0.5, 1.0)(random_);
  next_ = loop_.timerIs(pause_ * part, [this] {
    step_ = Step::idle;
    proceed();
  });
  step_ = Step::waiting;
  pause_ = std::min(2 * pause_, kLongestPause);
}

void NotificationSink::problemIs(const std::string& problem) {
  if (problem == problem_) return;
  if (problem.empty()) {
    logLine(fmt::format("notifications reach {} again", line_.target));
  } else if (problem_.empty()) {
    logLine(fmt::format("notifications do not reach {}: {}; trying again", line_.target, problem),
            LOG_WARNING);
  }
  problem_ = problem;
}

void NotificationSink::close() {
  isAnswering_ = false;  // net-snmp tells of the end of what was under way
  answered_ = nullptr;
  next_ = nullptr;
  ageing_ = nullptr;
  if (session_ != nullptr) snmp_close(std::exchange(session_, nullptr));
  step_ = Step::idle;
}

}  // namespace Host
