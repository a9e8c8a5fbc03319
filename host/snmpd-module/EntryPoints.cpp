// What snmpd calls of the module, after the name in its line "dlmod norvek".

#include <exception>
#include <functional>
#include <memory>

#include "host/NetSnmp.h"
#include "host/snmpd-module/SnmpdModule.h"

namespace {

std::unique_ptr<Host::SnmpdModule> loaded;

// No exception may leave for a C function.
void guarded(const std::function<void()>& work) noexcept {
  try {
    work();
  } catch (const std::exception& error) {
    snmp_log(LOG_ERR, "norvek: %s\n", error.what());
  }
}

}  // namespace

extern "C" {

void init_norvek() {
  if (loaded) {
    config_perror("norvek is loaded already");
    return;
  }
  guarded([] { loaded = std::make_unique<Host::SnmpdModule>(); });
}

void deinit_norvek() { loaded = nullptr; }
}
