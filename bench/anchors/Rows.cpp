#include "bench/anchors/Rows.h"

#include <fmt/format.h>

#include <cstddef>

#include "Snmp/Converters.h"

namespace Bench {
namespace {

constexpr unsigned kDescription = 4;
constexpr unsigned kTime = 5;
constexpr double kFirstTime = 1700000000;

Row rowOf(U32 unit, U32 cause) {
  Row row{{unit, 0, cause}, fmt::format("Power supply {:05} failed", cause), {}};
  Snmp::SecondsToAsnDateAndTimeF()(kFirstTime + cause, row.time.data(), row.time.size());
  return row;
}

// Whether the varbind has this value already.
bool holds(const netsnmp_variable_list& index, U32 value) {
  return index.type == ASN_UNSIGNED && index.val_len == sizeof(long) &&
         *index.val.integer == long{value};
}

}  // namespace

std::vector<Row> rowsOf(U32 causes) {
  std::vector<Row> rows;
  rows.reserve(std::size_t{2} * causes);
  for (const U32 unit : {0U, 1U}) {
    for (U32 cause = 1; cause <= causes; ++cause) rows.push_back(rowOf(unit, cause));
  }
  return rows;
}

void answer(netsnmp_request_info* request, const Row* row) {
  const netsnmp_table_request_info* asked = netsnmp_extract_table_info(request);
  if (row == nullptr || asked == nullptr) {
    netsnmp_request_set_error(request, SNMP_NOSUCHINSTANCE);
  } else if (asked->colnum == kDescription) {
    snmp_set_var_typed_value(request->requestvb, ASN_OCTET_STR, row->description.data(),
                             row->description.size());
  } else if (asked->colnum == kTime) {
    snmp_set_var_typed_value(request->requestvb, ASN_OCTET_STR, row->time.data(), row->time.size());
  } else {
    netsnmp_request_set_error(request, SNMP_NOSUCHOBJECT);
  }
}

Key keyOf(const netsnmp_table_request_info& asked) {
  Key key{};
  const netsnmp_variable_list* index = asked.indexes;
  unsigned left = asked.number_indexes;
  for (U32& value : key) {
    if (left-- == 0 || index == nullptr) break;
    value = static_cast<U32>(*index->val.integer);
    index = index->next_variable;
  }
  return key;
}

void indexesAre(netsnmp_variable_list* indexes, const Key& key) {
  for (const U32 value : key) {
    if (!holds(*indexes, value)) snmp_set_var_typed_integer(indexes, ASN_UNSIGNED, value);
    indexes = indexes->next_variable;
  }
}

}  // namespace Bench
