#include "host/AgentxMaster.h"

#include <fmt/format.h>
#include <sys/time.h>

#include <algorithm>
#include <csignal>
#include <string_view>
#include <utility>

#include "host/Log.h"
#include "host/NetSnmp.h"

namespace Host {
namespace {

constexpr int kPingInterval = 2;  // seconds, and between attempts to reach the master
// How long the process stands still at most. A connection and what is asked for over it follow each
// other; together they take less than a second.
constexpr std::chrono::milliseconds kToConnect{300};
constexpr std::chrono::milliseconds kToOpen{600};  // and to register what there is
constexpr std::chrono::milliseconds kToAnswer{900};
constexpr std::chrono::microseconds kNotAtAll{1};  // 0 means net-snmp's default

constexpr long kAgentxVersion = 0xc1;  // of a session with a master
constexpr std::string_view kPingFailed = "AgentX master agent failed to respond to ping";

// Where nobody can listen: an attempt to reach it fails at once.
constexpr auto kNowhere = "unix:/dev/null/nobody";

long timeoutOf(std::chrono::microseconds patience) { return static_cast<long>(patience.count()); }

void masterAddressIs(const char* address) {
  netsnmp_ds_set_string(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_X_SOCKET, address);
}

// connect(2) waits for minutes. SIGALRM, again and again while it is on, breaks that off; it does
// nothing else.
void interruptionsAre(bool on) {
  const timeval pause{0, timeoutOf(kToConnect)};
  const itimerval timer = on ? itimerval{pause, pause} : itimerval{};
  ::setitimer(ITIMER_REAL, &timer, nullptr);
}

void catchAlarms() {
  struct sigaction action {};
  action.sa_handler = [](int) {};  // without SA_RESTART
  ::sigaction(SIGALRM, &action, nullptr);
}

// After net-snmp's own, which ask the master and wait for its answer.
void hear(int major, int minor, SNMPCallback* call) {
  constexpr int kLater = NETSNMP_CALLBACK_DEFAULT_PRIORITY + 1;
  netsnmp_register_callback(major, minor, call, nullptr, kLater);
}

void nextInTheLoop(SNMPAlarmCallback* call) { snmp_alarm_register_hr({0, 1}, 0, call, nullptr); }

}  // namespace

AgentxMaster* AgentxMaster::present_ = nullptr;

AgentxMaster::AgentxMaster(std::string address) : address_(std::move(address)) {
  present_ = this;
  netsnmp_ds_set_int(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_RETRIES, 0);
  netsnmp_ds_set_int(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_AGENTX_PING_INTERVAL,
                     kPingInterval);
  // It would warn at each attempt.
  netsnmp_ds_set_boolean(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_NO_CONNECTION_WARNINGS, 1);
  hear(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_SESSION_INIT, &AgentxMaster::beginning);
  hear(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_LOGGING, &AgentxMaster::logged);
  hear(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_INDEX_START, &AgentxMaster::opened);
  hear(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_INDEX_STOP, &AgentxMaster::closed);
  hear(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_REGISTER_OID, &AgentxMaster::registered);
  hear(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_REG_SYSOR, &AgentxMaster::registered);
  catchAlarms();
  interruptionsAre(true);
}

AgentxMaster::~AgentxMaster() {
  interruptionsAre(false);
  present_ = nullptr;
}

std::string AgentxMaster::problem() const {
  return session_ != nullptr ? std::string() : "no AgentX master answers at " + address_;
}

void AgentxMaster::firstAttemptIsOver() {
  nothingIsInARow();
  if (session_ != nullptr) return;
  logLine(fmt::format(
              "{}; it is asked again every {} s", problem(),
              netsnmp_ds_get_int(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_AGENTX_PING_INTERVAL)),
          LOG_WARNING);
}

int AgentxMaster::beginning(int /*major*/, int /*minor*/, void* session, void* /*unused*/) {
  auto* const begun = static_cast<netsnmp_session*>(session);
  if (present_ == nullptr || begun->version != kAgentxVersion) return SNMPERR_SUCCESS;
  present_->deadline_ = Clock::now() + kToOpen;
  begun->timeout = timeoutOf(kToOpen);
  return SNMPERR_SUCCESS;
}

int AgentxMaster::opened(int /*major*/, int /*minor*/, void* session, void* /*unused*/) {
  if (present_ == nullptr) return SNMPERR_SUCCESS;
  interruptionsAre(false);
  present_->session_ = static_cast<netsnmp_session*>(session);
  present_->waitUntilDeadline();
  nextInTheLoop(&AgentxMaster::inTheLoop);
  return SNMPERR_SUCCESS;
}

int AgentxMaster::registered(int /*major*/, int /*minor*/, void* /*what*/, void* /*unused*/) {
  if (present_ != nullptr && present_->session_ != nullptr) present_->waitUntilDeadline();
  return SNMPERR_SUCCESS;
}

void AgentxMaster::waitUntilDeadline() {
  if (!deadline_) return;
  const auto left =
      std::chrono::duration_cast<std::chrono::microseconds>(*deadline_ - Clock::now());
  session_->timeout = timeoutOf(std::max(left, kNotAtAll));
}

int AgentxMaster::logged(int /*major*/, int /*minor*/, void* message, void* /*unused*/) {
  const std::string_view text(static_cast<const snmp_log_message*>(message)->msg);
  if (present_ == nullptr || present_->session_ == nullptr || !text.starts_with(kPingFailed)) {
    return SNMPERR_SUCCESS;
  }
  // It says goodbye next, to a master that does not answer.
  present_->session_->timeout = timeoutOf(kNotAtAll);
  return SNMPERR_SUCCESS;
}

int AgentxMaster::closed(int /*major*/, int /*minor*/, void* /*session*/, void* /*unused*/) {
  if (present_ == nullptr) return SNMPERR_SUCCESS;
  present_->session_ = nullptr;
  interruptionsAre(true);
  // net-snmp would have a first new attempt follow at once.
  masterAddressIs(kNowhere);
  nextInTheLoop(&AgentxMaster::inTheLoop);
  return SNMPERR_SUCCESS;
}

void AgentxMaster::inTheLoop(unsigned int /*alarm*/, void* /*unused*/) {
  if (present_ != nullptr) present_->nothingIsInARow();
}

void AgentxMaster::nothingIsInARow() {
  deadline_ = {};
  if (session_ != nullptr) session_->timeout = timeoutOf(kToAnswer);
  masterAddressIs(address_.c_str());
}

}  // namespace Host
