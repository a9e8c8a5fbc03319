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
using NorvekGeneralMIB::RowIterator;
using NorvekGeneralMIB::snmpTrace;
using NorvekGeneralMIB::withoutThrowing;

RowIterator* iteratorIn(void* context) { return static_cast<RowIterator*>(context); }

// An iterator on exactly the row that the hint names, or null.
std::unique_ptr<RowIterator> hintedRow(const GeneralMib::ReloadCauseTable& table,
                                       const netsnmp_table_request_info* hint) {
  const auto key = NorvekGeneralMIB::hintedKey(hint);
  if (!key) return nullptr;
  try {
    auto found = table.startAt(*key);
    if (found && found.key() == *key) return std::make_unique<RowIterator>(std::move(found));
    snmpTrace(2, "norvekReloadCauseTable_get_first_data_point - key '", *key,
              "' not found in table");
  } catch (const Qel::RangeException& error) {
    snmpTrace(
        0, "Bad hint for norvekReloadCauseTable: MiscSnmp::ReloadCauseKey ctor threw exception: ",
        error.text());
  }
  return nullptr;
}

void indexIs(netsnmp_variable_list& varbind, U32 value) {
  // net-snmp reads the octets of a number as a long.
  alignas(long) u_char buffer[1024];
  const int length = Snmp::U32ToAsnUnsignedF()(value, buffer, sizeof buffer);
  snmp_set_var_typed_value(&varbind, NorvekGeneralMIB::kIndexType, buffer,
                           static_cast<std::size_t>(length));
}

[[gnu::noinline, gnu::cold]] void traceIndexes(const MiscSnmp::ReloadCauseKey& key) {
  const U32 values[] = {key.unitIndex(), key.instanceIndex(), key.causeIndex()};
  for (std::size_t i = 0; i < NorvekGeneralMIB::kIndexCount; ++i) {
    snmpTrace({2, __FILE__, __LINE__, "norvekReloadCauseTableIterationHelper"},
              "norvekReloadCauseTableIterationHelper - iterator has another value: ",
              NorvekGeneralMIB::kIndexes[i].component, "=", values[i]);
  }
}

// Inlined, as it ends each step of a walk.
[[gnu::always_inline]] inline netsnmp_variable_list* norvekReloadCauseTableIterationHelper(
    const RowIterator& row, netsnmp_variable_list* put_index_data) {
  if (!row) {
    snmpTrace(2, "norvekReloadCauseTableIterationHelper - iterator is at end");
    return nullptr;
  }
  const MiscSnmp::ReloadCauseKey& key = row.key();
  if (NorvekGeneralMIB::isSnmpTraced(2)) [[unlikely]]
    traceIndexes(key);
  netsnmp_variable_list* varbind = put_index_data;
  const auto put = [&varbind](U32 value) {
    // Registration goes on without an index that could not be set up.
    if (varbind == nullptr) return;
    indexIs(*varbind, value);
    varbind = varbind->next_variable;
  };
  put(key.unitIndex());
  put(key.instanceIndex());
  put(key.causeIndex());
  return put_index_data;
}

netsnmp_variable_list* firstDataPoint(void** loop_context, const netsnmp_table_request_info* hint,
                                      netsnmp_variable_list* put_index_data,
                                      const netsnmp_iterator_info& iinfo) {
  snmpTrace(
      2, "norvekReloadCauseTable_get_first_data_point - *hint = ", static_cast<const void*>(hint),
      ", number_indexes = ", hint != nullptr ? hint->number_indexes : 0);
  const auto& table = static_cast<const GeneralMib*>(iinfo.myvoid)->reloadCauseTable();
  auto place = hintedRow(table, hint);
  const bool hintMatched = place != nullptr;
  if (!hintMatched) place = std::make_unique<RowIterator>(table.iteratorConst());
  snmpTrace(2, "norvekReloadCauseTable_get_first_data_point - allocated new loop context ",
            static_cast<const void*>(place.get()), ", hintMatched=", hintMatched);
  const RowIterator& row = *place;
  *loop_context = place.release();
  return norvekReloadCauseTableIterationHelper(row, put_index_data);
}

netsnmp_variable_list* nextDataPoint(void* loop_context, void* data_context,
                                     netsnmp_variable_list* put_index_data) {
  RowIterator* const row = iteratorIn(loop_context);
  if (row == nullptr || !*row) {
    snmpTrace(2, "norvekReloadCauseTable_get_next_data_point - at end of loop context ",
              loop_context);
    return nullptr;
  }
  snmpTrace(2, "norvekReloadCauseTable_get_next_data_point - advancing loop context ", loop_context,
            " ; data context ", data_context);
  row->advance();
  if (data_context != nullptr) *iteratorIn(data_context) = *row;
  return norvekReloadCauseTableIterationHelper(*row, put_index_data);
}

void freeContext(const char* callback, void* context) {
  withoutThrowing(
      callback, [=] { snmpTrace(2, callback, " ", context); }, [] {});
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
  return withoutThrowing(
      __func__, [=] { return firstDataPoint(loop_context, hint, put_index_data, *iinfo); },
      []() -> netsnmp_variable_list* { return nullptr; });
}

netsnmp_variable_list* norvekReloadCauseTable_get_next_data_point(
    void** loop_context, void** data_context, netsnmp_variable_list* put_index_data,
    netsnmp_iterator_info* /*iinfo*/) {
  return withoutThrowing(
      __func__, [=] { return nextDataPoint(*loop_context, *data_context, put_index_data); },
      []() -> netsnmp_variable_list* { return nullptr; });
}

void* norvekReloadCauseTable_make_data_context(void* loop_context,
                                               netsnmp_iterator_info* /*iinfo*/) {
  return withoutThrowing(
      __func__,
      [=]() -> void* {
        auto context = std::make_unique<RowIterator>(*iteratorIn(loop_context));
        snmpTrace(2, "norvekReloadCauseTable_make_data_context - allocated data context ",
                  static_cast<const void*>(context.get()), " for loop context ", loop_context);
        return context.release();
      },
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
