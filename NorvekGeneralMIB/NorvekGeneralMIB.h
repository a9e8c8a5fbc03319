#pragma once

#include "Qel/String.h"

// The entry points by which the SNMP agent has the module served in a context, and no longer.
//
// Only the default context, the empty name, has a table; any other is refused with a trace. The
// table serves the MiscSnmp::GeneralMib entity at "snmp/misc/generalMib", which must outlive its
// registration. A missing or wrong entity, and a table that net-snmp refuses (a second registration
// of the context among others), end the process.
//
// Before the library is unloaded, every context is unregistered and net-snmp holds no delegated
// PDU. One that asked for this table and waits for another module's answer keeps rows, and pointers
// to the functions that free them, until it is answered; unregistering does not take them back.
extern "C" {

// Registers the module in `context` and records that in any case with Snmp::registerMibContext.
void init_NorvekGeneralMIB(Qel::String context);
// Takes back all that was registered in `context`.
void unregister_NorvekGeneralMIB(Qel::String context);
// Registers the table alone.
void initialize_table_norvekReloadCauseTable(Qel::String context);
}
