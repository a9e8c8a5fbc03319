#include <map>

#include "bench/anchors/Anchor.h"

namespace Bench {
namespace {

struct Table {
  explicit Table(const std::vector<Row>& list) {
    for (const Row& row : list) rows.emplace_hint(rows.end(), row.key, &row);
  }

  std::map<Key, const Row*> rows;
  std::map<Key, const Row*>::const_iterator place;  // of the one walk that there is at a time
};

netsnmp_variable_list* stand(Table& table, void** loop, void** data,
                             netsnmp_variable_list* indexes) {
  if (table.place == table.rows.end()) {
    *loop = nullptr;  // what stays here would be taken for a hint
    *data = nullptr;
    return nullptr;
  }
  *loop = &table;
  *data = const_cast<Row*>(table.place->second);
  indexesAre(indexes, table.place->first);
  return indexes;
}

netsnmp_variable_list* first(void** loop, void** data, netsnmp_variable_list* indexes,
                             netsnmp_iterator_info* info) {
  Table& table = *static_cast<Table*>(info->myvoid);
  const auto* hint = static_cast<const netsnmp_table_request_info*>(*loop);
  table.place = hint != nullptr ? table.rows.find(keyOf(*hint)) : table.rows.end();
  if (table.place == table.rows.end()) table.place = table.rows.begin();
  return stand(table, loop, data, indexes);
}

netsnmp_variable_list* next(void** loop, void** data, netsnmp_variable_list* indexes,
                            netsnmp_iterator_info* info) {
  Table& table = *static_cast<Table*>(info->myvoid);
  ++table.place;
  return stand(table, loop, data, indexes);
}

// Its table is made before it is registered, and ends after.
class MapIterator final : private Table, public IteratorAnchor {
 public:
  explicit MapIterator(const std::vector<Row>& list)
      : Table(list), IteratorAnchor("benchMap", kMap, static_cast<Table*>(this), &first, &next) {}
};

}  // namespace

std::unique_ptr<Anchor> mapIterator(const std::vector<Row>& rows) {
  return std::make_unique<MapIterator>(rows);
}

}  // namespace Bench
