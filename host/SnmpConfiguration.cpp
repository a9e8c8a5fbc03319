#include "host/SnmpConfiguration.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "host/Errors.h"
#include "host/NetSnmp.h"
#include "host/NetSnmpLog.h"
#include "host/RefusedDirectives.h"
#include "host/SinkDirectives.h"

namespace Host {
namespace {

constexpr const char* kBuiltInLines[] = {
    "com2sec norvekLoopback 127.0.0.0/8 public",
    "com2sec6 norvekLoopback ::1/128 public",
    "group norvekReaders v1 norvekLoopback",
    "group norvekReaders v2c norvekLoopback",
    "view norvekView included .1.3.6.1.4.1.32473",
    "view norvekView included .1.3.6.1.2.1.1",
    "access norvekReaders \"\" any noauth exact norvekView none none",
};

bool isSubagent() {
  return netsnmp_ds_get_boolean(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_ROLE) != 0;
}

// Why the file cannot be read, or "".
std::string obstacle(const std::string& file) {
  std::error_code error;
  if (std::filesystem::is_directory(file, error)) return std::strerror(EISDIR);
  errno = 0;
  return std::ifstream(file) ? std::string() : std::strerror(errno);
}

// net-snmp's own way to forget a configuration leaves the users of createUser.
void forgetUsers() {
  while (usmUser* user = usm_get_userList()) {
    usm_remove_user(user);
    usm_free_user(user);
  }
}

// The addresses, which are not the file's to give, and are set to something else meanwhile.
class NoAddresses {
 public:
  NoAddresses() : ports_(present()) { set(nullptr); }
  NoAddresses(const NoAddresses&) = delete;
  NoAddresses& operator=(const NoAddresses&) = delete;
  ~NoAddresses() { set(ports_.c_str()); }

 private:
  static std::string present() {
    const char* ports = netsnmp_ds_get_string(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_PORTS);
    return ports == nullptr ? "" : ports;
  }
  static void set(const char* ports) {
    netsnmp_ds_set_string(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_PORTS, ports);
  }

  const std::string ports_;
};

}  // namespace

SnmpConfiguration* SnmpConfiguration::present_ = nullptr;

SnmpConfiguration::SnmpConfiguration(const std::optional<std::string>& file) : file_(file) {
  present_ = this;
  // net-snmp reads in two passes, and registers the directives of each shortly before it.
  for (const int pass : {SNMP_CALLBACK_PRE_PREMIB_READ_CONFIG, SNMP_CALLBACK_PRE_READ_CONFIG}) {
    snmp_register_callback(SNMP_CALLBACK_LIBRARY, pass, &SnmpConfiguration::readNow, nullptr);
  }
}

SnmpConfiguration::~SnmpConfiguration() { present_ = nullptr; }

int SnmpConfiguration::readNow(int /*major*/, int minor, void* /*serverArgument*/,
                               void* /*unused*/) {
  if (present_ != nullptr) {
    present_->readPass(minor == SNMP_CALLBACK_PRE_READ_CONFIG ? NORMAL_CONFIG : PREMIB_CONFIG);
  }
  return SNMPERR_SUCCESS;
}

void SnmpConfiguration::readPass(int when) {
  if (file_) {
    readFile(when);
  } else if (when == NORMAL_CONFIG && !isSubagent()) {
    for (const char* line : kBuiltInLines) netsnmp_config_remember(std::string(line).data());
  }
}

void SnmpConfiguration::readFile(int when) {
  if (const std::string reason = obstacle(*file_); !reason.empty()) {
    return note(fmt::format("{}: {}", *file_, reason));
  }
  refuseWhatIsNotObeyed();
  if (!isSubagent()) SinkDirectives::listen();
  const NetSnmpLog::Capture capture;
  const char* type = netsnmp_ds_get_string(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_APPTYPE);
  if (auto* handlers = read_config_get_handlers(type)) {
    read_config(file_->c_str(), handlers, when);
  }
  // Most of net-snmp's messages name the file and the line, not all.
  const std::string& error = capture.first();
  note(error.empty() || error.starts_with(*file_) ? error : fmt::format("{}: {}", *file_, error));
}

void SnmpConfiguration::note(const std::string& error) {
  if (firstError_.empty()) firstError_ = error;
}

void SnmpConfiguration::read(const std::function<void()>& passes) {
  firstError_.clear();
  const NetSnmpLog::Capture capture;
  passes();
  check();
  if (capture.first().empty()) return;
  throw StartError(
      fmt::format("{}: {}", file_.value_or("built-in configuration"), capture.first()));
}

void SnmpConfiguration::readAgain() {
  const NoAddresses noAddresses;
  read([] {
    forgetUsers();
    free_config();
    // What comes after the reading at a start would count the engine's boots from 1 again: the
    // engine stays as it is.
    snmp_call_callbacks(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_PRE_READ_CONFIG, nullptr);
  });
}

void SnmpConfiguration::check() const {
  if (!firstError_.empty()) throw StartError(firstError_);
  if (!file_ || isSubagent()) return;
  if (vacm_is_configured() == 0) {
    throw StartError(fmt::format("{}: lets nobody in: no community or user may read", *file_));
  }
}

}  // namespace Host
