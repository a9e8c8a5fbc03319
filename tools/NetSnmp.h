#pragma once

// The one door to net-snmp in this folder. The order is net-snmp's own, and the whole leaves
// thousands of macros behind: only the file that speaks to it includes this.

// clang-format off
#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>
// clang-format on
