#include "Qel/ServiceManager.h"

#ifdef QEL_HAS_SYSTEMD
#include <systemd/sd-daemon.h>
#endif

#include <cstdint>
#include <string>

#include "Qel/Escape.h"

namespace Qel {
namespace {

#ifdef QEL_HAS_SYSTEMD
void tell(const std::string& state) { ::sd_notify(0, state.c_str()); }

double intervalOfEnvironment() {
  constexpr double kMicroseconds = 1e6;
  std::uint64_t allowed = 0;
  return ::sd_watchdog_enabled(0, &allowed) > 0 ? static_cast<double>(allowed) / kMicroseconds / 2
                                                : 0;
}
#else
void tell(const std::string& /*state*/) {}

double intervalOfEnvironment() { return 0; }
#endif

}  // namespace

ServiceManager::ServiceManager(EventLoop& loop) : loop_(loop), interval_(intervalOfEnvironment()) {
  if (interval_ > 0) giveSigns();
}

ServiceManager::~ServiceManager() { tell("STOPPING=1"); }

void ServiceManager::readyIs(std::string_view status) {
  tell("READY=1\nSTATUS=" + printableLine(status));
}

void ServiceManager::giveSigns() {
  tell("WATCHDOG=1");
  timer_ = loop_.timerIs(interval_, [this] { giveSigns(); });
}

}  // namespace Qel
