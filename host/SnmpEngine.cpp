#include "host/SnmpEngine.h"

#include <fmt/format.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <string_view>

#include "host/EngineBoots.h"
#include "host/EngineId.h"
#include "host/Errors.h"
#include "host/Log.h"
#include "host/NetSnmp.h"

namespace Host {
namespace {

constexpr auto kMachineId = "/etc/machine-id";

std::optional<std::string> bootsFileOf(const Options& options) {
  if (options.stateDirectory.empty()) return std::nullopt;
  return fmt::format("{}/engine-boots-{}", options.stateDirectory, options.cellId);
}

bool hasUsers() { return usm_get_userList() != nullptr; }

std::string presentId() {
  std::array<u_char, MAX_ENGINEID_LENGTH> octets{};
  const std::size_t length = snmpv3_get_engineID(octets.data(), octets.size());
  return {octets.begin(), octets.begin() + static_cast<std::ptrdiff_t>(length)};
}

// What net-snmp invents where nobody names an engine.
bool isInvented(const std::string& id) {
  constexpr std::string_view kPrefix{"\x80\x00\x1f\x88\x80", 5};
  return id.starts_with(kPrefix);
}

void bootsIs(U32 boots) {
  engineBoots_conf("engineBoots", std::to_string(boots - 1).data());  // adds one
  const std::string id = presentId();
  set_enginetime(reinterpret_cast<const u_char*>(id.data()), static_cast<u_int>(id.size()),
                 static_cast<u_int>(snmpv3_local_snmpEngineBoots()),
                 static_cast<u_int>(snmpv3_local_snmpEngineTime()), 1);
}

}  // namespace

SnmpEngine::SnmpEngine(const Options& options)
    : given_(options.engineId), bootsFile_(bootsFileOf(options)) {
  const auto id = given_ ? given_ : engineIdOf(machineIdIn(kMachineId), options.cellId);
  if (id) set_exact_engineID(reinterpret_cast<const u_char*>(id->data()), id->size());
}

void SnmpEngine::start() const {
  const std::string id = presentId();
  if (given_ && id != *given_)
    throw StartError("the configuration's engineID is not that of --engine-id");
  if (isInvented(id) && hasUsers()) {
    logLine(
        fmt::format("no machine's id in {}: the SNMPv3 engine id is a new one at each start, and "
                    "keys that are localized to it go out of use; --engine-id gives one",
                    kMachineId),
        LOG_WARNING);
  }
  countStart();
}

void SnmpEngine::countStart() const {
  const auto now = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
  const auto boots = bootsFile_ ? EngineBoots::ofFile(*bootsFile_, now) : EngineBoots::ofClock(now);
  bootsIs(boots.count);
  if (!boots.problem.empty() || (!bootsFile_ && hasUsers())) {
    logLine(fmt::format("{}: SNMPv3 managers refuse this agent after a start with a clock that was "
                        "set back",
                        bootsFile_ ? boots.problem : "no --state-dir"),
            LOG_WARNING);
  }
}

}  // namespace Host
