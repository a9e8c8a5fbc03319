#include "support/ExpectedTable.h"

#include <utility>

namespace expected {

std::string text(const Key& key) {
  return "(" + std::to_string(key[0]) + ", " + std::to_string(key[1]) + ", " +
         std::to_string(key[2]) + ")";
}

std::vector<Change> Table::takeChanges() { return std::exchange(changes_, {}); }

void Table::add(const Key& key, const ReloadPtr& reload) {
  const auto [place, isNew] = rows_.emplace(key, reload);
  if (isNew) {
    changes_.push_back({key, true});
  } else if (place->second != reload) {
    throw NameInUse();
  }
}

bool Table::del(const Key& key) {
  if (rows_.erase(key) == 0) return false;
  changes_.push_back({key, false});
  return true;
}

template <class Condition>
void Table::delWhere(const Condition& condition) {
  for (auto row = rows_.begin(); row != rows_.end();) {
    const Key key = row->first;
    ++row;
    if (condition(key[0])) del(key);
  }
}

void Table::delAll() {
  delWhere([](Number) { return true; });
}

void Table::delUnit(Number unit) { delUnits(unit, unit); }

void Table::delUnits(Number unit, Number otherUnit) {
  delWhere([=](Number found) { return found == unit || found == otherUnit; });
}

Cause Table::cause(const Key& key) const { return rows_.at(key)->cause(key[2] - 1); }

std::string Table::description(const Key& key) const { return cause(key).description; }

Number Table::seconds(const Key& key) const {
  return static_cast<Number>(static_cast<std::int64_t>(cause(key).time));
}

}  // namespace expected
