#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Qel/Types.h"

namespace Host {

// SNMPv3 engine ids (SnmpEngineID of RFC 3411): 5 to 32 octets, told apart all over a network.

// The engine of a cell's agent on a machine: the enterprise number 32473, the format 128 (the
// enterprise's own) and the first 16 octets of HMAC-SHA256 with the machine's id as the key, its 32
// hexadecimal digits as text, and "norvek-snmpd engine of cell N" as the message. The same at each
// start; tells nobody the machine's id. Nothing for a text that is no machine's id.
std::optional<std::string> engineIdOf(std::string_view machineId, U32 cellId);

// What stands in machine-id(5), without its line end, or "".
std::string machineIdIn(const std::string& file);

// The engine id that somebody typed in hexadecimal, "0x" in front or not; nothing where the digits
// are none or the octets no engine id: too few or too many, all 0 or all 255.
std::optional<std::string> engineIdOfHex(std::string_view digits);

}  // namespace Host
