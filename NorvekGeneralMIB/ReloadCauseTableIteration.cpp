#include "NorvekGeneralMIB/ReloadCauseTableIteration.h"

#include <cstddef>
#include <memory>
#include <utility>

#include "MiscSnmp/GeneralMib.h"
#include "MiscSnmp/ReloadCauseKey.h"
#include "NorvekGeneralMIB/CallbackGuard.h"
#include "NorvekGeneralMIB/ReloadCauseTable.h"
#include "NorvekGeneralMIB/ReloadCauseTableHint.h"
#include "NorvekGeneralMIB/SnmpTrace.h"
#include "Qel/Exception.h"
#include "Qel/Types.h"
#include "Snmp/Converters.h"

namespace {

using MiscSnmp::GeneralMib;
using NorvekGeneralMIB::kRoutine;
using NorvekGeneralMIB::RowIterator;
using NorvekGeneralMIB::snmpTrace;
using NorvekGeneralMIB::withoutThrowing;
using NorvekGeneralMIB::withRoutineTrace;

RowIterator* iteratorIn(void* context) { return static_cast<RowIterator*>(context); }

// An iterator on exactly the row that the hint names, or null.
template <class Trace>
std::unique_ptr<RowIterator> hintedRow(Trace trace, const GeneralMib::ReloadCauseTable& table,
                                       const netsnmp_table_request_info* hint) {
  const auto hinted = NorvekGeneralMIB::hintedKey(trace, hint);
  if (!hinted) return nullptr;
  try {
    if (auto row = table.find(hinted.key)) return std::make_unique<RowIterator>(std::move(row));
    trace(kRoutine, "norvekReloadCauseTable_get_first_data_point - key '", hinted.key,
          "' not found in table");
  } catch (const Qel::RangeException& error) {
    snmpTrace(
        0, "Bad hint for norvekReloadCauseTable: MiscSnmp::ReloadCauseKey ctor threw exception: ",
        error.text());
  }
  return nullptr;
}

// Whether the varbind has this value already. One with the length of a number has room for it, too.
bool holds(const netsnmp_variable_list& varbind, U32 value) {
  return varbind.type == NorvekGeneralMIB::kIndexType && varbind.val_len == sizeof(long) &&
         *varbind.val.integer == long{value};
}

[[gnu::noinline]] void indexIs(netsnmp_variable_list& varbind, U32 value) {
  // net-snmp reads the octets of a number as a long.
  alignas(long) u_char buffer[1024];
  const int length = Snmp::U32ToAsnUnsignedF()(value, buffer, sizeof buffer);
  snmp_set_var_typed_value(&varbind, NorvekGeneralMIB::kIndexType, buffer,
                           static_cast<std::size_t>(length));
}

// Inlined, as it ends each step of a walk.
template <class Trace>
[[gnu::always_inline]] inline netsnmp_variable_list* norvekReloadCauseTableIterationHelper(
    Trace trace, const RowIterator& row, netsnmp_variable_list* put_index_data) {
  if (!row) {
    trace(kRoutine, "norvekReloadCauseTableIterationHelper - iterator is at end");
    return nullptr;
  }
  row->prefetchCause();  // long before the handler asks, should this be its row
  const MiscSnmp::ReloadCauseKey& key = row.key();
  netsnmp_variable_list* varbind = put_index_data;
  const auto put = [&](std::size_t position, U32 value) {
    trace(kRoutine, "norvekReloadCauseTableIterationHelper - iterator has another value: ",
          NorvekGeneralMIB::kIndexes[position].component, "=", value);
    // Registration goes on without an index that could not be set up.
    if (varbind == nullptr) return;
    // Most hold it already: from the hint, or from the row before.
    if (!holds(*varbind, value)) [[unlikely]]
      indexIs(*varbind, value);
    varbind = varbind->next_variable;
  };
  put(0, key.unitIndex());
  put(1, key.instanceIndex());
  put(2, key.causeIndex());
  return put_index_data;
}

template <class Trace>
netsnmp_variable_list* firstDataPoint(Trace trace, void** loop_context,
                                      const netsnmp_table_request_info* hint,
                                      netsnmp_variable_list* put_index_data,
                                      const netsnmp_iterator_info* iinfo) {
  trace(kRoutine,
        "norvekReloadCauseTable_get_first_data_point - *hint = ", static_cast<const void*>(hint),
        ", number_indexes = ", hint != nullptr ? hint->number_indexes : 0);
  const auto& table = static_cast<const GeneralMib*>(iinfo->myvoid)->reloadCauseTable();
  auto place = hintedRow(trace, table, hint);
  const bool hintMatched = place != nullptr;
  if (!hintMatched) place = std::make_unique<RowIterator>(table.iteratorConst());
  trace(kRoutine, "norvekReloadCauseTable_get_first_data_point - allocated new loop context ",
        static_cast<const void*>(place.get()), ", hintMatched=", hintMatched);
  const RowIterator& row = *place;
  *loop_context = place.release();
  return norvekReloadCauseTableIterationHelper(trace, row, put_index_data);
}

template <class Trace>
netsnmp_variable_list* nextDataPoint(Trace trace, void* loop_context, void* data_context,
                                     netsnmp_variable_list* put_index_data) {
  RowIterator* const row = iteratorIn(loop_context);
  if (row == nullptr || !*row) {
    trace(kRoutine, "norvekReloadCauseTable_get_next_data_point - at end of loop context ",
          loop_context);
    return nullptr;
  }
  trace(kRoutine, "norvekReloadCauseTable_get_next_data_point - advancing loop context ",
        loop_context, " ; data context ", data_context);
  row->advance();
  if (data_context != nullptr) *iteratorIn(data_context) = *row;
  return norvekReloadCauseTableIterationHelper(trace, *row, put_index_data);
}

template <class Trace>
void* newDataContext(Trace trace, void* loop_context) {
  auto context = std::make_unique<RowIterator>(*iteratorIn(loop_context));
  if (*context) (*context)->prefetchDescription();
  trace(kRoutine, "norvekReloadCauseTable_make_data_context - allocated data context ",
        static_cast<const void*>(context.get()), " for loop context ", loop_context);
  return context.release();
}

[[gnu::noinline, gnu::cold]] void traceFreed(const char* callback, void* context) {
  withoutThrowing(
      callback, [=] { snmpTrace(kRoutine, callback, " ", context); }, [] {});
}

void freeContext(const char* callback, void* context) {
  if (NorvekGeneralMIB::mayBeSnmpTraced(kRoutine)) [[unlikely]]
    traceFreed(callback, context);
  // Whatever became of the trace, nobody else frees it.
  delete iteratorIn(context);
}

}  // namespace

netsnmp_variable_list* norvekReloadCauseTable_get_first_data_point(
    void** loop_context, void** /*data_context*/, netsnmp_variable_list* put_index_data,
    netsnmp_iterator_info* iinfo) {
  const auto* hint = static_cast<const netsnmp_table_request_info*>(*loop_context);
  // What stays here is handed to the free callback, which the hint must never be.
  *loop_context = nullptr;
  const auto first = [](auto... arguments) { return firstDataPoint(arguments...); };
  return withoutThrowing(
      __func__, [=] { return withRoutineTrace(first, loop_context, hint, put_index_data, iinfo); },
      []() -> netsnmp_variable_list* { return nullptr; });
}

netsnmp_variable_list* norvekReloadCauseTable_get_next_data_point(
    void** loop_context, void** data_context, netsnmp_variable_list* put_index_data,
    netsnmp_iterator_info* /*iinfo*/) {
  const auto next = [](auto... arguments) { return nextDataPoint(arguments...); };
  return withoutThrowing(
      __func__,
      [=] { return withRoutineTrace(next, *loop_context, *data_context, put_index_data); },
      []() -> netsnmp_variable_list* { return nullptr; });
}

void* norvekReloadCauseTable_make_data_context(void* loop_context,
                                               netsnmp_iterator_info* /*iinfo*/) {
  const auto make = [](auto... arguments) { return newDataContext(arguments...); };
  return withoutThrowing(
      __func__, [=] { return withRoutineTrace(make, loop_context); },
      []() -> void* { return nullptr; });
}

void norvekReloadCauseTable_free_data_context(void* data_context,
                                              netsnmp_iterator_info* /*iinfo*/) {
  freeContext(__func__, data_context);
}

void norvekReloadCauseTable_free_loop_context_at_end(void* loop_context,
                                                     netsnmp_iterator_info* /*iinfo*/) {
  freeContext(__func__, loop_context);
}
