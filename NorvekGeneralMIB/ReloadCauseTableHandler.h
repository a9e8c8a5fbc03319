#pragma once

#include "NorvekGeneralMIB/NetSnmp.h"

// Answers the requests for which net-snmp's table iterator has chosen the row: GET of the two
// columns from the model, anything else with notWritable. GETNEXT and GETBULK arrive as GET.
// Returns SNMP_ERR_NOERROR or SNMP_ERR_GENERR.
extern "C" int norvekReloadCauseTable_handler(netsnmp_mib_handler* handler,
                                              netsnmp_handler_registration* reginfo,
                                              netsnmp_agent_request_info* reqinfo,
                                              netsnmp_request_info* requests);
