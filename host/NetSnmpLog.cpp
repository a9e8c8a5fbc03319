#include "host/NetSnmpLog.h"

#include <syslog.h>

#include <string>
#include <string_view>

#include "host/Log.h"
#include "host/NetSnmp.h"

namespace Host {

namespace {

// Of net-snmp's messages, those that differ in numbers alone are one event: ports and counts.
std::string eventOf(std::string_view text) {
  std::string event(text);
  std::erase_if(event, [](char c) { return c >= '0' && c <= '9'; });
  return event;
}

}  // namespace

NetSnmpLog::Capture* NetSnmpLog::capture_ = nullptr;

NetSnmpLog::Capture::Capture() noexcept : outer_(capture_) { capture_ = this; }

NetSnmpLog::Capture::~Capture() { capture_ = outer_; }

void NetSnmpLog::start() {
  snmp_disable_log();
  snmp_enable_calllog();
  // No argument of ours: net-snmp would free it at its shutdown.
  snmp_register_callback(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_LOGGING, &NetSnmpLog::take, nullptr);
}

int NetSnmpLog::take(int /*major*/, int /*minor*/, void* message, void* /*unused*/) {
  const auto* record = static_cast<const snmp_log_message*>(message);
  std::string_view text(record->msg);
  while (!text.empty() && text.back() == '\n') text.remove_suffix(1);
  if (capture_ == nullptr) {
    processLog().line(record->priority, text, eventOf(text));
  } else if (record->priority <= LOG_WARNING && capture_->first_.empty()) {
    capture_->first_ = text;
  }
  return SNMPERR_SUCCESS;
}

}  // namespace Host
