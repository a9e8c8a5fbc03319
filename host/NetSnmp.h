#pragma once

// The one door to net-snmp in this folder. The order is net-snmp's own: its configuration first,
// then the library, then the agent; the whole leaves thousands of macros behind.

// clang-format off
#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>
#include <net-snmp/agent/net-snmp-agent-includes.h>
#include <net-snmp/agent/agent_callbacks.h>
#include <net-snmp/library/fd_event_manager.h>
#include <net-snmp/library/large_fd_set.h>
#include <net-snmp/library/lcd_time.h>
// clang-format on
