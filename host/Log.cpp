#include "host/Log.h"

#include <unistd.h>

#include <string>

#include "Qel/Escape.h"

namespace Host {

void logLine(std::string_view text) {
  const std::string line = "norvek-snmpd: " + Qel::printableLine(text) + "\n";
  // One write keeps the lines of several processes apart; a standard error that takes none is no
  // reason to stop serving.
  [[maybe_unused]] const auto written = ::write(STDERR_FILENO, line.data(), line.size());
}

}  // namespace Host
