#include "bench/anchors/Anchor.h"

#include <cstdlib>

#include "Qel/Assert.h"

namespace Bench {
namespace {

constexpr unsigned kFirstColumn = 4;
constexpr unsigned kLastColumn = 5;
constexpr int kIndexes = 3;

// What net-snmp ends with free().
template <class Record>
Record* newRecord() {
  auto* record = static_cast<Record*>(std::calloc(1, sizeof(Record)));
  QEL_ASSERT(record != nullptr);
  return record;
}

int handleRows(netsnmp_mib_handler* /*handler*/, netsnmp_handler_registration* /*registration*/,
               netsnmp_agent_request_info* /*info*/, netsnmp_request_info* requests) {
  for (auto* request = requests; request != nullptr; request = request->next) {
    if (request->processed != 0) continue;
    answer(request, static_cast<const Row*>(netsnmp_extract_iterator_context(request)));
  }
  return SNMP_ERR_NOERROR;
}

}  // namespace

netsnmp_handler_registration* newRegistration(const char* name, oid anchor,
                                              Netsnmp_Node_Handler* handler) {
  const oid place[] = {1, 3, 6, 1, 4, 1, 32473, 3, anchor, 1, 1};
  return netsnmp_create_handler_registration(name, handler, place, OID_LENGTH(place),
                                             HANDLER_CAN_RONLY);
}

netsnmp_table_registration_info* newTableInfo() {
  auto* info = newRecord<netsnmp_table_registration_info>();
  for (int i = 0; i < kIndexes; ++i) {
    snmp_varlist_add_variable(&info->indexes, nullptr, 0, ASN_UNSIGNED, nullptr, 0);
  }
  info->min_column = kFirstColumn;
  info->max_column = kLastColumn;
  return info;
}

IteratorAnchor::IteratorAnchor(const char* name, oid anchor, void* table,
                               Netsnmp_First_Data_Point* first, Netsnmp_Next_Data_Point* next)
    : registration_(newRegistration(name, anchor, &handleRows)) {
  auto* info = newRecord<netsnmp_iterator_info>();
  info->get_first_data_point = first;
  info->get_next_data_point = next;
  info->myvoid = table;
  info->flags |= NETSNMP_ITERATOR_FLAG_SORTED | NETSNMP_HANDLER_OWNS_IINFO;
  info->table_reginfo = newTableInfo();
  const int result = netsnmp_register_table_iterator(registration_, info);
  QEL_ASSERT(result == MIB_REGISTERED_OK);
  netsnmp_inject_handler(registration_, netsnmp_get_serialize_handler());
}

IteratorAnchor::~IteratorAnchor() { netsnmp_unregister_handler(registration_); }

}  // namespace Bench
