#include "host/Log.h"

#include <fmt/format.h>
#include <unistd.h>

namespace Host {

std::string printableLine(std::string_view text) {
  std::string line;
  for (const char character : text) {
    const auto octet = static_cast<unsigned char>(character);
    if (character == '\n') {
      line += "\\n";
    } else if (character == '\t') {
      line += "\\t";
    } else if (octet < 0x20 || octet == 0x7f) {
      line += fmt::format("\\x{:02x}", octet);
    } else {
      line += character;
    }
  }
  return line;
}

void logLine(std::string_view text) {
  const std::string line = "norvek-snmpd: " + printableLine(text) + "\n";
  // One write keeps the lines of several processes apart; a standard error that takes none is no
  // reason to stop serving.
  [[maybe_unused]] const auto written = ::write(STDERR_FILENO, line.data(), line.size());
}

}  // namespace Host
