#include "NorvekGeneralMIB/ReloadCauseTableHandler.h"

#include <cstddef>

#include "MiscSnmp/ReloadCauseEntry.h"
#include "NorvekGeneralMIB/CallbackGuard.h"
#include "NorvekGeneralMIB/ReloadCauseTable.h"
#include "NorvekGeneralMIB/SnmpTrace.h"
#include "Snmp/Converters.h"

namespace {

using MiscSnmp::ReloadCauseEntry;
using NorvekGeneralMIB::kRoutine;
using NorvekGeneralMIB::RowIterator;
using NorvekGeneralMIB::snmpTrace;
using NorvekGeneralMIB::withoutThrowing;
using NorvekGeneralMIB::withRoutineTrace;

// The requests that are still to be answered, in the order of the PDU; the others are traced.
template <class Trace>
netsnmp_request_info* unprocessed(Trace trace, netsnmp_request_info* request) {
  for (; request != nullptr && request->processed != 0; request = request->next) {
    trace(kRoutine, "norvekReloadCauseTable_handler: request ", static_cast<const void*>(request),
          " already processed");
  }
  return request;
}

unsigned columnOf(netsnmp_request_info* request) {
  const netsnmp_table_request_info* info = netsnmp_extract_table_info(request);
  return info != nullptr ? info->colnum : 0;
}

void octetsAre(netsnmp_variable_list* varbind, const u_char* octets, int length) {
  snmp_set_var_typed_value(varbind, ASN_OCTET_STR, octets, static_cast<std::size_t>(length));
}

// Each writes one column of the row into the varbind; the result is an SNMP error status.
template <class Trace>
int answerDescription(Trace trace, const ReloadCauseEntry& row, netsnmp_variable_list* varbind) {
  trace(kRoutine, "norvekReloadCauseTable_handler: request GET for column ",
        "norvekReloadCauseDescription, key ", row.key());
  u_char buffer[1024];
  const int length = Snmp::StringToAsnOctetStringF()(row.causeDesc(), buffer, sizeof buffer);
  if (length < 0) {
    trace(kRoutine, "handle_norvekReloadCauseTable - StringToAsnOctetString failed for: causeDesc");
    return SNMP_ERR_GENERR;
  }
  octetsAre(varbind, buffer, length);
  return SNMP_ERR_NOERROR;
}

template <class Trace>
int answerTime(Trace trace, const ReloadCauseEntry& row, netsnmp_variable_list* varbind) {
  trace(kRoutine, "norvekReloadCauseTable_handler: request GET for column norvekReloadTime, key ",
        row.key());
  u_char buffer[11];
  const int length = Snmp::SecondsToAsnDateAndTimeF()(row.reloadTime(), buffer, sizeof buffer);
  if (length < 0) {
    trace(kRoutine,
          "handle_norvekReloadCauseTable - SecondsToAsnDateAndTime failed for: reloadTime");
    return SNMP_ERR_GENERR;
  }
  if (length != 8 && length != 11) {
    trace(kRoutine,
          "handle_norvekReloadCauseTable - entity /<sysname>/snmp/misc/generalMib length ",
          "out of range: reloadTime (", length, ")");
    return SNMP_ERR_GENERR;
  }
  octetsAre(varbind, buffer, length);
  return SNMP_ERR_NOERROR;
}

// The status of the answer, or the exception for a column that nobody can read.
template <class Trace>
int answer(Trace trace, unsigned column, const ReloadCauseEntry& row,
           netsnmp_variable_list* varbind) {
  switch (column) {
    case NorvekGeneralMIB::kDescriptionColumn:
      return answerDescription(trace, row, varbind);
    case NorvekGeneralMIB::kTimeColumn:
      return answerTime(trace, row, varbind);
    default:
      return SNMP_NOSUCHOBJECT;
  }
}

template <class Trace>
int get(Trace trace, netsnmp_request_info* requests) {
  for (auto* request = unprocessed(trace, requests); request != nullptr;
       request = unprocessed(trace, request->next)) {
    const auto* row = static_cast<RowIterator*>(netsnmp_extract_iterator_context(request));
    if (row == nullptr || !*row) {
      trace(kRoutine, "norvekReloadCauseTable_handler: null data context in request");
      return SNMP_ERR_NOERROR;
    }
    const unsigned column = columnOf(request);
    const int status = answer(trace, column, **row, request->requestvb);
    if (status == SNMP_ERR_NOERROR) continue;
    if (status == SNMP_NOSUCHOBJECT) {
      snmpTrace(0, "norvekReloadCauseTable invalid column ", column);
      netsnmp_request_set_error(request, status);
      return SNMP_ERR_NOERROR;
    }
    // On the head of the list, whichever request failed: the PDU fails as a whole.
    netsnmp_request_set_error(requests, status);
    return status;
  }
  return SNMP_ERR_NOERROR;
}

template <class Trace>
int refuse(Trace trace, netsnmp_request_info* requests) {
  if (auto* request = unprocessed(trace, requests)) {
    snmpTrace(0, "norvekReloadCauseTable invalid column ", columnOf(request));
    netsnmp_request_set_error(request, SNMP_ERR_NOTWRITABLE);
  }
  return SNMP_ERR_NOERROR;
}

}  // namespace

int norvekReloadCauseTable_handler(netsnmp_mib_handler* /*handler*/,
                                   netsnmp_handler_registration* /*reginfo*/,
                                   netsnmp_agent_request_info* reqinfo,
                                   netsnmp_request_info* requests) {
  const auto handle = [](auto trace, int mode, netsnmp_request_info* list) {
    trace(kRoutine, "norvekReloadCauseTable_handler");
    trace(kRoutine, "norvekReloadCauseTable_handler: request mode ", mode);
    return mode == MODE_GET ? get(trace, list) : refuse(trace, list);
  };
  return withoutThrowing(
      __func__, [=] { return withRoutineTrace(handle, reqinfo->mode, requests); },
      [=] {
        netsnmp_request_set_error(requests, SNMP_ERR_GENERR);
        return SNMP_ERR_GENERR;
      });
}
