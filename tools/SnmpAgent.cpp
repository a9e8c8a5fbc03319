#include "tools/SnmpAgent.h"

#include <fmt/format.h>
#include <syslog.h>

#include <cerrno>
#include <cstdlib>
#include <string_view>
#include <system_error>
#include <utility>

#include "Qel/Escape.h"
#include "Qel/Number.h"
#include "tools/Errors.h"
#include "tools/NetSnmp.h"

namespace Tools {

namespace {

using Kind = SnmpBinding::Kind;
using Pdu = std::unique_ptr<netsnmp_pdu, decltype(&snmp_free_pdu)>;

constexpr int kRepetitions = 10;       // as many rows as an answer of common size holds
constexpr double kSecond = 1.0e6;      // of net-snmp's time-outs, in microseconds
constexpr char kClient[] = "snmpapp";  // as net-snmp's own commands call themselves

const char* configured(int what) { return netsnmp_ds_get_string(NETSNMP_DS_LIBRARY_ID, what); }

[[noreturn]] void failOption(const char* option, const std::string& typed, const char* expected) {
  throw CommandError(fmt::format("{}: {} is not {}", option, Qel::quoted(typed), expected));
}

long versionOf(const SnmpOptions& options) {
  if (options.version) {
    if (options.version == "1") return SNMP_VERSION_1;
    if (options.version == "2c") return SNMP_VERSION_2c;
    if (options.version == "3") return SNMP_VERSION_3;
    failOption("-v", *options.version, "1, 2c or 3");
  }
  switch (netsnmp_ds_get_int(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_SNMPVERSION)) {
    case NETSNMP_DS_SNMP_VERSION_1:
      return SNMP_VERSION_1;
    case NETSNMP_DS_SNMP_VERSION_2c:
      return SNMP_VERSION_2c;
    case NETSNMP_DS_SNMP_VERSION_3:
      return SNMP_VERSION_3;
    default:
      break;
  }
  const bool hasUser = options.user || configured(NETSNMP_DS_LIB_SECNAME) != nullptr;
  return hasUser ? SNMP_VERSION_3 : SNMP_VERSION_2c;
}

int levelOf(const std::string& typed) {
  for (const auto& [name, level] : {std::pair("noAuthNoPriv", SNMP_SEC_LEVEL_NOAUTH),
                                    std::pair("authNoPriv", SNMP_SEC_LEVEL_AUTHNOPRIV),
                                    std::pair("authPriv", SNMP_SEC_LEVEL_AUTHPRIV)}) {
    if (typed == name) return level;
  }
  failOption("-l", typed, "noAuthNoPriv, authNoPriv or authPriv");
}

// Borrows the name.
void protocolIs(oid*& protocol, std::size_t& length, const char* option,
                const std::optional<std::string>& typed, int (*typeOf)(const char*),
                oid* (*idOf)(int, std::size_t*)) {
  if (!typed) return;
  const int type = typeOf(typed->c_str());
  if (type < 0) failOption(option, *typed, "a protocol that net-snmp knows");
  protocol = idOf(type, &length);
}

Kind kindOf(unsigned char type) {
  switch (type) {
    case ASN_OCTET_STR:
      return Kind::octets;
    case SNMP_NOSUCHOBJECT:
      return Kind::noSuchObject;
    case SNMP_NOSUCHINSTANCE:
      return Kind::noSuchInstance;
    case SNMP_ENDOFMIBVIEW:
      return Kind::endOfView;
    default:
      return Kind::other;
  }
}

SnmpBinding bindingOf(const netsnmp_variable_list& variable) {
  SnmpBinding binding{{}, kindOf(variable.type), {}};
  for (std::size_t i = 0; i < variable.name_length; ++i) {
    binding.name.push_back(static_cast<U32>(variable.name[i]));
  }
  if (binding.kind == Kind::octets) {
    const auto* octets = reinterpret_cast<const char*>(variable.val.string);
    binding.octets.assign(octets, variable.val_len);
  }
  return binding;
}

Pdu pduOf(int command, const std::vector<ObjectId>& names) {
  Pdu pdu(snmp_pdu_create(command), &snmp_free_pdu);
  for (const ObjectId& name : names) {
    const std::vector<oid> parts(name.begin(), name.end());
    snmp_add_null_var(pdu.get(), parts.data(), parts.size());
  }
  if (command == SNMP_MSG_GETBULK) {
    pdu->non_repeaters = 0;
    pdu->max_repetitions = kRepetitions;
  }
  return pdu;
}

}  // namespace

// net-snmp with the configuration of its clients. What it logs is kept for a message of ours.
class SnmpAgent::Library {
 public:
  Library() {
    firstWarning_.clear();
    snmp_disable_log();
    snmp_enable_calllog();
    snmp_register_callback(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_LOGGING, &Library::take, nullptr);
    // Names of objects are not shown: no MIB is needed.
    ::setenv("MIBS", "", 1);
    netsnmp_set_mib_directory("");
    // Nothing is kept from one time to the next: the directory is where none can be.
    set_persistent_directory("/dev/null");
    init_snmp(kClient);
  }
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;
  ~Library() { snmp_shutdown(kClient); }

  static const std::string& firstWarning() { return firstWarning_; }

 private:
  static int take(int /*major*/, int /*minor*/, void* message, void* /*unused*/) {
    const auto* record = static_cast<const snmp_log_message*>(message);
    if (record->priority > LOG_WARNING || !firstWarning_.empty()) return SNMPERR_SUCCESS;
    const std::string_view text(record->msg);
    firstWarning_ = text.substr(0, text.find_last_not_of('\n') + 1);
    return SNMPERR_SUCCESS;
  }

  // net-snmp would free an argument of the callback.
  static inline std::string firstWarning_;
};

class SnmpAgent::Session {
 public:
  explicit Session(const SnmpOptions& options) : agent_(options.agent) {
    netsnmp_session wanted;
    snmp_sess_init(&wanted);
    SnmpOptions kept = options;  // net-snmp asks for texts that it might change, and copies them
    wanted.peername = kept.agent.data();
    wanted.version = versionOf(options);
    patienceIs(wanted, options);
    if (wanted.version == SNMP_VERSION_3) {
      userIs(wanted, kept);
    } else {
      communityIs(wanted, options);
    }
    handle_ = snmp_sess_open(&wanted);
    if (handle_ == nullptr) fail(openingProblem(wanted));
  }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;
  ~Session() {
    if (handle_ != nullptr) snmp_sess_close(handle_);
  }

  bool isVersion1() const { return session().version == SNMP_VERSION_1; }

  // What the agent answers. In version 1 an object that is not there is an error, and nothing here.
  std::vector<SnmpBinding> answerTo(Pdu request) const {
    netsnmp_pdu* received = nullptr;
    const int status = snmp_sess_synch_response(handle_, request.release(), &received);
    const Pdu answer(received, &snmp_free_pdu);
    if (status == STAT_TIMEOUT) fail(silence());
    if (status != STAT_SUCCESS || !answer) fail(sendingProblem());
    if (isVersion1() && answer->errstat == SNMP_ERR_NOSUCHNAME) return {};
    if (answer->errstat != SNMP_ERR_NOERROR) {
      fail(fmt::format("the agent answers with the error {}",
                       snmp_errstring(static_cast<int>(answer->errstat))));
    }
    std::vector<SnmpBinding> bindings;
    for (const auto* each = answer->variables; each != nullptr; each = each->next_variable) {
      bindings.push_back(bindingOf(*each));
    }
    return bindings;
  }

 private:
  [[noreturn]] void fail(const std::string& problem) const {
    throw CommandError(agent_ + ": " + problem);
  }
  const netsnmp_session& session() const { return *snmp_sess_session(handle_); }

  static void patienceIs(netsnmp_session& wanted, const SnmpOptions& options) {
    if (options.timeout) {
      const auto seconds = Qel::numberOf<double>(*options.timeout);
      if (!seconds || !(*seconds > 0.0 && *seconds <= 3600.0)) {
        failOption("-t", *options.timeout, "a number of seconds up to 3600");
      }
      wanted.timeout = static_cast<long>(*seconds * kSecond);
    }
    if (options.retries) {
      const auto retries = Qel::numberOf<unsigned>(*options.retries);
      if (!retries || *retries > 100) failOption("-r", *options.retries, "a number up to 100");
      wanted.retries = static_cast<int>(*retries);
    }
  }

  void userIs(netsnmp_session& wanted, SnmpOptions& options) const {
    if (!options.user && configured(NETSNMP_DS_LIB_SECNAME) == nullptr) {
      fail("version 3 needs a user: -u, or defSecurityName in snmp.conf(5)");
    }
    if (options.user) {
      wanted.securityName = options.user->data();
      wanted.securityNameLen = options.user->size();
    }
    if (options.context) {
      wanted.contextName = options.context->data();
      wanted.contextNameLen = options.context->size();
    }
    if (options.level) wanted.securityLevel = levelOf(*options.level);
    protocolIs(wanted.securityAuthProto, wanted.securityAuthProtoLen, "-a", options.authentication,
               &usm_lookup_auth_type, &sc_get_auth_oid);
    protocolIs(wanted.securityPrivProto, wanted.securityPrivProtoLen, "-x", options.privacy,
               &usm_lookup_priv_type, &sc_get_priv_oid);
  }

  void communityIs(netsnmp_session& wanted, const SnmpOptions& options) const {
    if (options.user || options.level || options.authentication || options.privacy ||
        options.context) {
      fail("users, levels, protocols and contexts are for version 3: -v 3");
    }
    const char* community = configured(NETSNMP_DS_LIB_COMMUNITY);
    community_ = community != nullptr ? community : "public";
    wanted.community = reinterpret_cast<unsigned char*>(community_.data());
    wanted.community_len = community_.size();
  }

  static std::string meaningOf(int error) {
    if (error != SNMPERR_USM_GENERICERROR) return snmp_api_errstring(error);
    return "the keys of the user cannot be made: defAuthPassphrase and, for privacy, "
           "defPrivPassphrase in snmp.conf(5) have 8 characters at least";
  }
  static std::string openingProblem(netsnmp_session& wanted) {
    if (wanted.s_snmp_errno == SNMPERR_BAD_ADDRESS) {
      // What else errno holds is left over from the look-up of a name.
      const bool isOfASocket = wanted.s_errno == ECONNREFUSED || wanted.s_errno == EHOSTUNREACH ||
                               wanted.s_errno == ENETUNREACH || wanted.s_errno == ETIMEDOUT;
      return isOfASocket ? std::generic_category().message(wanted.s_errno) : "unknown host";
    }
    const std::string& warning = Library::firstWarning();
    const std::string meaning = meaningOf(wanted.s_snmp_errno);
    return warning.empty() ? meaning : fmt::format("{} ({})", meaning, warning);
  }
  std::string sendingProblem() const {
    int error = 0;
    snmp_sess_error(handle_, nullptr, &error, nullptr);
    return meaningOf(error);
  }
  std::string silence() const {
    const double seconds =
        static_cast<double>(session().timeout) / kSecond * (session().retries + 1);
    const char* community = session().version == SNMP_VERSION_3
                                ? ""
                                : "; one that does not know the community keeps silent, too";
    return fmt::format("no answer within {:.3g} s{}", seconds, community);
  }

  const std::string agent_;
  mutable std::string community_;
  void* handle_ = nullptr;
};

SnmpAgent::SnmpAgent(const SnmpOptions& options)
    : library_(std::make_unique<Library>()), session_(std::make_unique<Session>(options)) {}

SnmpAgent::~SnmpAgent() = default;

std::vector<SnmpBinding> SnmpAgent::next(const std::vector<ObjectId>& names) {
  if (!session_->isVersion1()) return session_->answerTo(pduOf(SNMP_MSG_GETBULK, names));
  std::vector<SnmpBinding> bindings;
  for (const ObjectId& name : names) {
    auto answer = session_->answerTo(pduOf(SNMP_MSG_GETNEXT, {name}));
    bindings.push_back(answer.empty() ? SnmpBinding{name, Kind::endOfView, {}}
                                      : std::move(answer.front()));
  }
  return bindings;
}

SnmpBinding SnmpAgent::get(const ObjectId& name) {
  auto answer = session_->answerTo(pduOf(SNMP_MSG_GET, {name}));
  return answer.empty() ? SnmpBinding{name, Kind::noSuchObject, {}} : std::move(answer.front());
}

}  // namespace Tools
