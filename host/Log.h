#pragma once

#include <string_view>

namespace Host {

// Writes "norvek-snmpd: TEXT" and a line end to standard error, in one piece. Whatever the text
// holds stays one printable line.
void logLine(std::string_view text);

}  // namespace Host
