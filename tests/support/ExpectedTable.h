#pragma once

#include <array>
#include <map>
#include <string>
#include <vector>

#include "support/ExpectedPlatform.h"

namespace expected {

// Unit, reload, cause: compared in this order, as unsigned numbers.
using Key = std::array<Number, 3>;

std::string text(const Key& key);

// A row that came or went, as an observer of the table hears of it.
struct Change {
  Key key;
  bool came;

  friend bool operator==(const Change& a, const Change& b) = default;
};

// The rows that must stand, and every change of them in order.
class Table {
 public:
  const std::map<Key, ReloadPtr>& rows() const noexcept { return rows_; }
  // The changes since the last call.
  std::vector<Change> takeChanges();

  // Keeps a row that shows this very reload; raises NameInUse when it shows another one.
  void add(const Key& key, const ReloadPtr& reload);
  bool del(const Key& key);
  void delAll();
  void delUnit(Number unit);
  void delUnits(Number unit, Number otherUnit);

  // What the row shows at this moment.
  std::string description(const Key& key) const;
  Number seconds(const Key& key) const;

 private:
  template <class Condition>
  void delWhere(const Condition& condition);
  Cause cause(const Key& key) const;

  std::map<Key, ReloadPtr> rows_;
  std::vector<Change> changes_;
};

}  // namespace expected
