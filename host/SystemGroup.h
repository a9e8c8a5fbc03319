#pragma once

#include <array>
#include <cstddef>
#include <string>

struct netsnmp_handler_registration_s;

namespace Host {

// The scalars of the system group (RFC 3418) but for its table of object resources: who answers,
// since when, where it stands. All read-only.
//
// net-snmp keeps one agent a process, and so there is one SystemGroup at a time.
class SystemGroup {
 public:
  // Lets a configuration file set sysDescr, sysContact, sysName, sysLocation and sysServices. Call
  // before the configuration is read, after init_agent. `description` is sysDescr without one, cut
  // to the 255 octets of a DisplayString.
  explicit SystemGroup(const std::string& description);
  SystemGroup(const SystemGroup&) = delete;
  SystemGroup& operator=(const SystemGroup&) = delete;
  // Takes the scalars out of the agent.
  ~SystemGroup();

  // Puts the scalars into the agent. Raises StartError when it refuses one.
  void registerScalars();

 private:
  static constexpr std::size_t kScalars = 7;

  std::array<netsnmp_handler_registration_s*, kScalars> registrations_{};
};

}  // namespace Host
