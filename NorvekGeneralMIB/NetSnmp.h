#pragma once

// The one door to net-snmp in this folder: its configuration first, then the library, then the
// agent. Its headers depend on that order and define macros by the thousand.

// clang-format off
#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>
#include <net-snmp/agent/net-snmp-agent-includes.h>
// clang-format on
