#pragma once

#include <netinet/in.h>

#include <optional>
#include <string>
#include <vector>

#include "host/SinkLine.h"

namespace Host {

// The lines of the agent's configuration that name sinks of notifications: trapsink, trap2sink,
// informsink, trapsess, and trapcommunity and v1trapaddress beside them.
//
// net-snmp's own readers of these lines look up names and talk to the sinks as they read; here they
// are read and nothing else. One a process.
class SinkDirectives {
 public:
  SinkDirectives();
  SinkDirectives(const SinkDirectives&) = delete;
  SinkDirectives& operator=(const SinkDirectives&) = delete;
  ~SinkDirectives();

  // Has net-snmp hand over the lines, and let go of those read before when it forgets a
  // configuration. Call before each pass in which it reads one, and after it registered the
  // directives of that pass.
  static void listen();

  // In the order of the lines.
  std::vector<SinkLine> sinks() const;

 private:
  static void take(const char* directive, char* value);
  static void forget();

  void read(const std::string& directive, const std::string& value);

  static SinkDirectives* present_;

  std::vector<SinkLine> sinks_;
  std::string community_;
  std::optional<in_addr_t> version1Address_;
};

}  // namespace Host
