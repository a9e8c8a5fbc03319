#include "NorvekGeneralMIB/InProcessAgent.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdlib>
#include <ostream>
#include <string>

namespace NorvekGeneralMIB {

namespace {

constexpr char kName[] = "norvek_test";

struct Exchange {
  bool isDone = false;
  Response response;
};

bool isString(int type) { return type == ASN_OCTET_STR; }

Response responseOf(const netsnmp_pdu& pdu) {
  Response response{pdu.errstat, pdu.errindex};
  for (const auto* each = pdu.variables; each != nullptr; each = each->next_variable) {
    Varbind varbind{Oid(each->name, each->name + each->name_length), each->type};
    if (isString(each->type)) {
      varbind.value.assign(reinterpret_cast<const char*>(each->val.string), each->val_len);
    }
    response.varbinds.push_back(std::move(varbind));
  }
  return response;
}

int received(int operation, netsnmp_session* /*session*/, int /*requestId*/, netsnmp_pdu* pdu,
             void* magic) {
  auto& exchange = *static_cast<Exchange*>(magic);
  exchange.isDone = true;
  if (operation == NETSNMP_CALLBACK_OP_RECEIVED_MESSAGE) exchange.response = responseOf(*pdu);
  return 1;
}

void keepNothingOnDisk() {
  ::setenv("MIBS", "", 1);
  netsnmp_set_mib_directory("");
  for (const int flag :
       {NETSNMP_DS_LIB_DONT_PERSIST_STATE, NETSNMP_DS_LIB_DISABLE_CONFIG_LOAD,
        NETSNMP_DS_LIB_DISABLE_PERSISTENT_LOAD, NETSNMP_DS_LIB_DISABLE_PERSISTENT_SAVE}) {
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, flag, 1);
  }
  set_persistent_directory("/dev/null");
}

int portOf(int descriptor) {
  sockaddr_in address{};
  socklen_t length = sizeof address;
  if (::getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &length) != 0) return 0;
  return ntohs(address.sin_port);
}

int allowEverything(int /*major*/, int /*minor*/, void* /*server*/, void* /*client*/) {
  netsnmp_config_remember(std::string("rwcommunity public 127.0.0.1").data());
  return SNMPERR_SUCCESS;
}

// A port that the system chooses, so that test programs run beside each other.
int listenAnywhere() {
  netsnmp_transport* transport = netsnmp_transport_open_server(kName, "udp:127.0.0.1:0");
  EXPECT_NE(transport, nullptr);
  const int port = portOf(transport->sock);
  EXPECT_GT(netsnmp_register_agent_nsap(transport), 0);
  return port;
}

netsnmp_session* openManager(int port) {
  std::string peer = "udp:127.0.0.1:" + std::to_string(port);
  std::string community = "public";
  netsnmp_session session;
  snmp_sess_init(&session);
  session.version = SNMP_VERSION_2c;
  session.peername = peer.data();
  session.community = reinterpret_cast<u_char*>(community.data());
  session.community_len = community.size();
  session.timeout = 1000000;
  session.retries = 0;
  return snmp_open(&session);
}

}  // namespace

void PrintTo(const Varbind& varbind, std::ostream* out) {
  for (const oid part : varbind.name) *out << '.' << part;
  *out << " type " << varbind.type << " '" << testing::PrintToString(varbind.value) << "'";
}

InProcessAgent& InProcessAgent::instance() {
  static auto* const agent = new InProcessAgent;
  return *agent;
}

InProcessAgent::InProcessAgent() {
  snmp_disable_log();
  keepNothingOnDisk();
  netsnmp_ds_set_boolean(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_ROLE, 0);
  netsnmp_ds_set_boolean(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_DONT_LOG_TCPWRAPPERS_CONNECTS,
                         1);
  add_to_init_list(std::string("-smux,iquery").data());
  EXPECT_EQ(init_agent(kName), 0);
  snmp_register_callback(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_PRE_READ_CONFIG, &allowEverything,
                         nullptr);
  init_snmp(kName);
  netsnmp_ds_set_string(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_PORTS, "none");
  EXPECT_EQ(init_master_agent(), 0);
  manager_ = openManager(listenAnywhere());
  EXPECT_NE(manager_, nullptr);
}

Response InProcessAgent::getBulk(const std::vector<Oid>& names, long nonRepeaters,
                                 long maxRepetitions) {
  netsnmp_pdu* pdu = snmp_pdu_create(SNMP_MSG_GETBULK);
  pdu->non_repeaters = nonRepeaters;
  pdu->max_repetitions = maxRepetitions;
  for (const Oid& name : names) snmp_add_null_var(pdu, name.data(), name.size());
  return exchange(pdu);
}

Response InProcessAgent::set(const Oid& name, const std::string& octets) {
  netsnmp_pdu* pdu = snmp_pdu_create(SNMP_MSG_SET);
  snmp_pdu_add_variable(pdu, name.data(), name.size(), ASN_OCTET_STR, octets.data(), octets.size());
  return exchange(pdu);
}

Response InProcessAgent::request(int command, const std::vector<Oid>& names) {
  netsnmp_pdu* pdu = snmp_pdu_create(command);
  for (const Oid& name : names) snmp_add_null_var(pdu, name.data(), name.size());
  return exchange(pdu);
}

Response InProcessAgent::exchange(netsnmp_pdu* pdu) {
  Exchange exchange;
  if (snmp_async_send(manager_, pdu, &received, &exchange) == 0) {
    ADD_FAILURE() << "cannot send: " << snmp_api_errstring(manager_->s_snmp_errno);
    snmp_free_pdu(pdu);
    return {};
  }
  while (!exchange.isDone) agent_check_and_process(1);
  EXPECT_NE(exchange.response.status, -1) << "no answer";
  return exchange.response;
}

}  // namespace NorvekGeneralMIB
