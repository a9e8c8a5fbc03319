#include <algorithm>

#include "bench/anchors/Anchor.h"

namespace Bench {
namespace {

using Rows = std::vector<Row>;

// As the library compares arrays, but for its loop.
bool isBefore(const Key& one, const Key& other) {
  if (one[0] != other[0]) return one[0] < other[0];
  if (one[1] != other[1]) return one[1] < other[1];
  return one[2] < other[2];
}

// The row is the place of the walk and what is answered at once: neither is anybody's to free.
netsnmp_variable_list* standAt(const Row* row, const Rows& rows, void** loop, void** data,
                               netsnmp_variable_list* indexes) {
  const bool atEnd = row == rows.data() + rows.size();
  // What stays here would be taken for a hint.
  *loop = atEnd ? nullptr : const_cast<Row*>(row);
  *data = *loop;
  if (atEnd) return nullptr;
  indexesAre(indexes, row->key);
  return indexes;
}

const Rows& rowsIn(const netsnmp_iterator_info* info) {
  return *static_cast<const Rows*>(info->myvoid);
}

netsnmp_variable_list* first(void** loop, void** data, netsnmp_variable_list* indexes,
                             netsnmp_iterator_info* info) {
  const Rows& rows = rowsIn(info);
  const auto* hint = static_cast<const netsnmp_table_request_info*>(*loop);
  const Key key = hint != nullptr ? keyOf(*hint) : Key{};
  const auto row =
      std::lower_bound(rows.begin(), rows.end(), key,
                       [](const Row& one, const Key& other) { return isBefore(one.key, other); });
  return standAt(rows.data() + (row - rows.begin()), rows, loop, data, indexes);
}

netsnmp_variable_list* next(void** loop, void** data, netsnmp_variable_list* indexes,
                            netsnmp_iterator_info* info) {
  return standAt(static_cast<const Row*>(*loop) + 1, rowsIn(info), loop, data, indexes);
}

class SortedIterator final : public IteratorAnchor {
 public:
  explicit SortedIterator(const Rows& rows)
      : IteratorAnchor("benchSorted", kSorted, const_cast<Rows*>(&rows), &first, &next) {}
};

}  // namespace

std::unique_ptr<Anchor> sortedIterator(const std::vector<Row>& rows) {
  return std::make_unique<SortedIterator>(rows);
}

}  // namespace Bench
