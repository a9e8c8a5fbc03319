#include "NorvekGeneralMIB/NorvekGeneralMIB.h"

#include <cstdlib>
#include <iostream>
#include <iterator>
#include <list>
#include <map>
#include <string>

#include "MiscSnmp/GeneralMib.h"
#include "NorvekGeneralMIB/NetSnmp.h"
#include "NorvekGeneralMIB/NorvekGeneralMIB_HandlerRegistration.h"
#include "NorvekGeneralMIB/ReloadCauseTable.h"
#include "NorvekGeneralMIB/ReloadCauseTableHandler.h"
#include "NorvekGeneralMIB/ReloadCauseTableIteration.h"
#include "NorvekGeneralMIB/SnmpTrace.h"
#include "Qel/Assert.h"
#include "Qel/Entity.h"
#include "Qel/Ptr.h"
#include "Snmp/AutoRegistree.h"
#include "Snmp/MibContext.h"
#include "Snmp/SnmpUtil.h"

namespace {

using MiscSnmp::GeneralMib;
using NorvekGeneralMIB::snmpTrace;

constexpr char kModule[] = "NorvekGeneralMIB";
constexpr char kGeneralMibPath[] = "snmp/misc/generalMib";
// The function that traces name whose parts write them.
constexpr char kInitialize[] = "initialize_table_norvekReloadCauseTable";

constexpr oid tableOid[] = {1, 3, 6, 1, 4, 1, 32473, 3, 24, 1, 1};
constexpr unsigned columns[] = {NorvekGeneralMIB::kDescriptionColumn,
                                NorvekGeneralMIB::kTimeColumn};

// What stands registered in each context. The order of these four objects is that of their
// construction at load; the module is withdrawn first at unload.
std::map<Qel::String, std::list<netsnmp_handler_registration*>> handlerRegistrationsByContext;
std::map<Qel::String, std::list<netsnmp_column_info*>> columnInfosByContext;
NorvekGeneralMIB::NorvekGeneralMIB_HandlerRegistration handlerRegistration;
const Snmp::AutoRegistree autoRegistree(&handlerRegistration);

struct Quoted {
  const Qel::String& context;
};
std::ostream& operator<<(std::ostream& out, const Quoted& quoted) {
  return out << '"' << quoted.context << '"';
}

// A zero-filled record that net-snmp, or unregistration, ends with free().
template <class Record>
Record* newRecord() {
  auto* record = static_cast<Record*>(std::calloc(1, sizeof(Record)));
  QEL_ASSERT(record != nullptr);
  return record;
}

void traceOid(const Qel::String& context) {
  if (!NorvekGeneralMIB::snmpTraceHandle().isEnabled(1)) return;
  char text[200];
  snprint_objid(text, sizeof text, tableOid, OID_LENGTH(tableOid));
  snmpTrace({1, __FILE__, __LINE__, kInitialize},
            "initialize_table_norvekReloadCauseTable initializing oid ", text, " in context ",
            Quoted{context});
}

// The model that the table serves; without it the agent is misconfigured, and ends.
Qel::Ptr<GeneralMib> findGeneralMib() {
  const Qel::Ptr<Qel::Entity> entity = SnmpUtil::getEntityRelative(kGeneralMibPath);
  if (!entity) {
    std::cerr << "Can not getEntityRelative( " << kGeneralMibPath
              << " ) for table norvekReloadCauseTable. Is this path correct?" << std::endl;
  }
  QEL_ASSERT(entity != nullptr);
  Qel::Ptr<GeneralMib> generalMib = Qel::ptrCast<GeneralMib>(entity);
  if (!generalMib) {
    std::cerr << kGeneralMibPath << " does not appear to be of type MiscSnmp::GeneralMib."
              << std::endl;
  }
  QEL_ASSERT(generalMib != nullptr);
  return generalMib;
}

netsnmp_column_info* newColumnInfo() {
  auto* info = newRecord<netsnmp_column_info>();
  info->list_count = std::size(columns);
  // net-snmp declares the list without const and only reads it.
  info->details.list = const_cast<unsigned*>(columns);
  return info;
}

netsnmp_table_registration_info* newTableInfo(const Qel::String& context,
                                              netsnmp_column_info* columnInfo) {
  auto* info = newRecord<netsnmp_table_registration_info>();
  for (const NorvekGeneralMIB::IndexObject& index : NorvekGeneralMIB::kIndexes) {
    if (snmp_varlist_add_variable(&info->indexes, nullptr, 0, NorvekGeneralMIB::kIndexType, nullptr,
                                  0) == nullptr) {
      snmpTrace({0, __FILE__, __LINE__, kInitialize}, "Failed to set up ", index.object,
                " in netsnmp table_info in context ", Quoted{context});
    }
  }
  info->min_column = NorvekGeneralMIB::kDescriptionColumn;
  info->max_column = NorvekGeneralMIB::kTimeColumn;
  info->valid_columns = columnInfo;
  return info;
}

netsnmp_iterator_info* newIteratorInfo(GeneralMib* generalMib,
                                       netsnmp_table_registration_info* tableInfo) {
  auto* info = newRecord<netsnmp_iterator_info>();
  info->get_first_data_point = &norvekReloadCauseTable_get_first_data_point;
  info->get_next_data_point = &norvekReloadCauseTable_get_next_data_point;
  info->make_data_context = &norvekReloadCauseTable_make_data_context;
  info->free_data_context = &norvekReloadCauseTable_free_data_context;
  info->free_loop_context_at_end = &norvekReloadCauseTable_free_loop_context_at_end;
  info->myvoid = generalMib;
  info->flags |= NETSNMP_ITERATOR_FLAG_SORTED | NETSNMP_HANDLER_OWNS_IINFO;
  info->table_reginfo = tableInfo;
  return info;
}

// What stands recorded for a context. A copy: nothing walks a list that changes.
template <class Record>
std::list<Record*> recordsOf(std::map<Qel::String, std::list<Record*>>& records,
                             const Qel::String& context) {
  return records[context];
}

void freeColumnInfo(netsnmp_column_info* info) {
  while (info != nullptr) {
    netsnmp_column_info* const next = info->next;
    std::free(info);
    info = next;
  }
}

}  // namespace

void init_NorvekGeneralMIB(Qel::String context) {
  if (snmp_get_do_debugging() != 0) {
    // net-snmp's DEBUGMSGTL, spelt out: the macro is a statement of C.
    const auto debug = [](const char* token, const char* format, const auto&... args) {
      debugmsgtoken(token, format, args...);
      debugmsg(token, format, args...);
    };
    debug("trace", "%s(): %s, %d:\n", "init_NorvekGeneralMIB", __FILE__, __LINE__);
    debug(kModule, "Initializing in context \"%s\"\n", context.charPtr());
  }
  initialize_table_norvekReloadCauseTable(context);
  Snmp::registerMibContext(context, kModule);
}

void initialize_table_norvekReloadCauseTable(Qel::String context) {
  traceOid(context);
  const std::string name = "norvekReloadCauseTable_" + context.stdString();
  // Made before the context is looked at: an agent that watches registrations sees one for a
  // context that is refused, too, made and freed at once, and this is kept for it.
  netsnmp_handler_registration* registration =
      netsnmp_create_handler_registration(name.c_str(), &norvekReloadCauseTable_handler, tableOid,
                                          OID_LENGTH(tableOid), HANDLER_CAN_RONLY);
  if (!context.empty()) {
    netsnmp_handler_registration_free(registration);
    snmpTrace(2, "initialize_table_norvekReloadCauseTable in context ", Quoted{context},
              " kavraPathWithContext not specified ");
    return;
  }
  handlerRegistrationsByContext[context].push_back(registration);
  const Qel::Ptr<GeneralMib> generalMib = findGeneralMib();
  registration->my_reg_void = generalMib.get();
  netsnmp_column_info* const columnInfo = newColumnInfo();
  netsnmp_iterator_info* const iteratorInfo =
      newIteratorInfo(generalMib.get(), newTableInfo(context, columnInfo));
  columnInfosByContext[context].push_back(columnInfo);
  const int result = netsnmp_register_table_iterator(registration, iteratorInfo);
  QEL_ASSERT(result == 0);
  // The handler answers the requests of one PDU one at a time.
  const int injected = netsnmp_inject_handler(registration, netsnmp_get_serialize_handler());
  // The parentheses are part of the message that a failure leaves in an agent's log.
  QEL_ASSERT(injected == (0));
  snmpTrace(8, "Initialized table norvekReloadCauseTable in context ", Quoted{context});
}

void unregister_NorvekGeneralMIB(Qel::String context) {
  snmpTrace(2, "Unregistering NorvekGeneralMIB in context ", Quoted{context});
  for (auto* registration : recordsOf(handlerRegistrationsByContext, context)) {
    netsnmp_unregister_handler(registration);
  }
  handlerRegistrationsByContext.erase(context);
  for (auto* columnInfo : recordsOf(columnInfosByContext, context)) freeColumnInfo(columnInfo);
  columnInfosByContext.erase(context);
  Snmp::unregisterMibContext(context, kModule);
}
