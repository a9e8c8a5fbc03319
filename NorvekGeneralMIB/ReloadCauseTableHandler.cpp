#include "NorvekGeneralMIB/ReloadCauseTableHandler.h"

#include <algorithm>
#include <array>
#include <cstddef>

#include "MiscSnmp/ReloadCauseEntry.h"
#include "NorvekGeneralMIB/CallbackGuard.h"
#include "NorvekGeneralMIB/ReloadCauseTable.h"
#include "NorvekGeneralMIB/SnmpTrace.h"
#include "Snmp/Converters.h"

namespace {

using MiscSnmp::ReloadCauseEntry;
using NorvekGeneralMIB::guardedCallback;
using NorvekGeneralMIB::RowIterator;
using NorvekGeneralMIB::SnmpTrace;

constexpr std::size_t kMostOctets = 1024;

// A readable object: where its octets come from and how its encoding may fail.
struct Column {
  unsigned number;
  const char* object;
  int (*encode)(const ReloadCauseEntry& row, u_char* buffer, std::size_t length);
  std::size_t bufferLength;
  bool (*isLength)(int length);
  const char* failure;    // traced when the value has no encoding
  const char* badLength;  // traced, with the length, when the encoding has a wrong one
};

int encodeDescription(const ReloadCauseEntry& row, u_char* buffer, std::size_t length) {
  return Snmp::StringToAsnOctetStringF()(row.causeDesc(), buffer, length);
}

int encodeTime(const ReloadCauseEntry& row, u_char* buffer, std::size_t length) {
  return Snmp::SecondsToAsnDateAndTimeF()(row.reloadTime(), buffer, length);
}

constexpr std::array<Column, 2> kColumns{{
    {NorvekGeneralMIB::kDescriptionColumn, "norvekReloadCauseDescription", &encodeDescription,
     kMostOctets, [](int) { return true; }, "StringToAsnOctetString failed for: causeDesc", ""},
    {NorvekGeneralMIB::kTimeColumn, "norvekReloadTime", &encodeTime, 11,
     [](int length) { return length == 8 || length == 11; },
     "SecondsToAsnDateAndTime failed for: reloadTime",
     "entity /<sysname>/snmp/misc/generalMib length out of range: reloadTime ("},
}};

// The requests that are still to be answered, in the order of the PDU; the others are traced.
netsnmp_request_info* unprocessed(netsnmp_request_info* request) {
  for (; request != nullptr && request->processed != 0; request = request->next) {
    SnmpTrace(2) << "norvekReloadCauseTable_handler: request " << static_cast<const void*>(request)
                 << " already processed";
  }
  return request;
}

unsigned columnOf(netsnmp_request_info* request) {
  const netsnmp_table_request_info* info = netsnmp_extract_table_info(request);
  return info != nullptr ? info->colnum : 0;
}

// Writes the column of the row into the varbind; returns an SNMP error status.
int answer(const Column& column, const ReloadCauseEntry& row, netsnmp_variable_list* varbind) {
  SnmpTrace(2) << "norvekReloadCauseTable_handler: request GET for column " << column.object
               << ", key " << row.key();
  u_char buffer[kMostOctets];
  const int length = column.encode(row, buffer, column.bufferLength);
  if (length < 0) {
    SnmpTrace(2) << "handle_norvekReloadCauseTable - " << column.failure;
    return SNMP_ERR_GENERR;
  }
  if (!column.isLength(length)) {
    SnmpTrace(2) << "handle_norvekReloadCauseTable - " << column.badLength << length << ")";
    return SNMP_ERR_GENERR;
  }
  snmp_set_var_typed_value(varbind, ASN_OCTET_STR, buffer, static_cast<std::size_t>(length));
  return SNMP_ERR_NOERROR;
}

int get(netsnmp_request_info* requests) {
  for (auto* request = unprocessed(requests); request != nullptr;
       request = unprocessed(request->next)) {
    const auto* row = static_cast<RowIterator*>(netsnmp_extract_iterator_context(request));
    if (row == nullptr || !*row) {
      SnmpTrace(2) << "norvekReloadCauseTable_handler: null data context in request";
      return SNMP_ERR_NOERROR;
    }
    const unsigned number = columnOf(request);
    const auto* column = std::find_if(kColumns.begin(), kColumns.end(),
                                      [=](const Column& each) { return each.number == number; });
    if (column == kColumns.end()) {
      SnmpTrace(0) << "norvekReloadCauseTable invalid column " << number;
      netsnmp_request_set_error(request, SNMP_NOSUCHOBJECT);
      return SNMP_ERR_NOERROR;
    }
    if (const int status = answer(*column, **row, request->requestvb); status != 0) {
      // On the head of the list, whichever request failed: the PDU fails as a whole.
      netsnmp_request_set_error(requests, status);
      return status;
    }
  }
  return SNMP_ERR_NOERROR;
}

int refuse(netsnmp_request_info* requests) {
  if (auto* request = unprocessed(requests)) {
    SnmpTrace(0) << "norvekReloadCauseTable invalid column " << columnOf(request);
    netsnmp_request_set_error(request, SNMP_ERR_NOTWRITABLE);
  }
  return SNMP_ERR_NOERROR;
}

}  // namespace

int norvekReloadCauseTable_handler(netsnmp_mib_handler* /*handler*/,
                                   netsnmp_handler_registration* /*reginfo*/,
                                   netsnmp_agent_request_info* reqinfo,
                                   netsnmp_request_info* requests) {
  return guardedCallback(
      __func__,
      [=] {
        SnmpTrace(2) << "norvekReloadCauseTable_handler";
        SnmpTrace(2) << "norvekReloadCauseTable_handler: request mode " << reqinfo->mode;
        return reqinfo->mode == MODE_GET ? get(requests) : refuse(requests);
      },
      [=] {
        netsnmp_request_set_error(requests, SNMP_ERR_GENERR);
        return SNMP_ERR_GENERR;
      });
}
