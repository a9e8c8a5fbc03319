#include "host/AgentxMaster.h"

#include <fmt/format.h>
#include <sys/time.h>

#include <csignal>
#include <utility>

#include "host/Log.h"
#include "host/NetSnmp.h"

namespace Host {
namespace {

constexpr int kPatience = 1;  // seconds, for a connection and for the answer to a first request
constexpr long kPatienceInSession = 3;  // seconds, of a master that did answer

// connect(2) waits for minutes. SIGALRM, each second while it is on, breaks that off; it does
// nothing else.
void interruptionsAre(bool on) {
  const itimerval timer = on ? itimerval{{kPatience, 0}, {kPatience, 0}} : itimerval{};
  ::setitimer(ITIMER_REAL, &timer, nullptr);
}

void catchAlarms() {
  struct sigaction action {};
  action.sa_handler = [](int) {};  // without SA_RESTART
  ::sigaction(SIGALRM, &action, nullptr);
}

}  // namespace

AgentxMaster* AgentxMaster::present_ = nullptr;

AgentxMaster::AgentxMaster(std::string address) : address_(std::move(address)) {
  present_ = this;
  netsnmp_ds_set_int(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_TIMEOUT, kPatience);
  netsnmp_ds_set_int(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_RETRIES, 0);
  // It would warn at each attempt.
  netsnmp_ds_set_boolean(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_NO_CONNECTION_WARNINGS, 1);
  snmp_register_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_INDEX_START,
                         &AgentxMaster::opened, nullptr);
  snmp_register_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_INDEX_STOP,
                         &AgentxMaster::closed, nullptr);
  catchAlarms();
  interruptionsAre(true);
}

AgentxMaster::~AgentxMaster() {
  interruptionsAre(false);
  present_ = nullptr;
}

std::string AgentxMaster::problem() const {
  return isOpen_ ? std::string() : "no AgentX master answers at " + address_;
}

void AgentxMaster::tellIfSilent() const {
  if (isOpen_) return;
  logLine(fmt::format(
              "{}; it is asked again every {} s", problem(),
              netsnmp_ds_get_int(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_AGENTX_PING_INTERVAL)),
          LOG_WARNING);
}

int AgentxMaster::opened(int /*major*/, int /*minor*/, void* session, void* /*unused*/) {
  if (present_ == nullptr) return SNMPERR_SUCCESS;
  // What is registered now is not registered again when the answer is late.
  static_cast<netsnmp_session*>(session)->timeout = kPatienceInSession * ONE_SEC;
  present_->isOpen_ = true;
  interruptionsAre(false);
  return SNMPERR_SUCCESS;
}

int AgentxMaster::closed(int /*major*/, int /*minor*/, void* /*session*/, void* /*unused*/) {
  if (present_ == nullptr) return SNMPERR_SUCCESS;
  present_->isOpen_ = false;
  interruptionsAre(true);
  return SNMPERR_SUCCESS;
}

}  // namespace Host
