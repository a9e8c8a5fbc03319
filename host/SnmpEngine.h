#pragma once

#include <optional>
#include <string>

#include "Qel/Types.h"
#include "host/Options.h"

namespace Host {

// The SNMPv3 engine of the process: its id, which stays the same from start to start, and its
// boots, which grow. A subagent has none: the master's is the one that managers see.
class SnmpEngine {
 public:
  // Identifies the engine. To be made before net-snmp reads a configuration, which may name another
  // one, and localizes its users' keys to it.
  explicit SnmpEngine(const Options& options);

  // Counts this start, after the configuration was read and before a manager is answered. Logs what
  // managers may notice later, where the id or the boots cannot be kept. Raises StartError for a
  // configuration that contradicts the options.
  void start() const;

 private:
  void countStart() const;

  const std::optional<std::string> given_;
  const std::optional<std::string> bootsFile_;
};

}  // namespace Host
