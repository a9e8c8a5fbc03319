#pragma once

#include <string_view>

namespace Host {

// Whether net-snmp takes an address ("unix:/run/agent", "/run/agent") for a Unix socket.
bool isUnixSocket(std::string_view address);

// Whether an address in net-snmp's transport notation ("udp:127.0.0.1:1161", "tcp6:[::1]:161",
// "localhost") certainly takes requests from this computer alone. An address that leaves it
// open, such as a bare port or a host name other than "localhost", does not.
bool isLoopbackAddress(std::string_view address);

}  // namespace Host
