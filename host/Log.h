#pragma once

#include <string>
#include <string_view>

namespace Host {

// The text as one printable line: control characters become \n, \t or \xNN.
std::string printableLine(std::string_view text);

// Writes "norvek-snmpd: TEXT" and a line end to standard error, in one piece.
void logLine(std::string_view text);

}  // namespace Host
