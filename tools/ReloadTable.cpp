#include "tools/ReloadTable.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <utility>

#include "Qel/Limits.h"
#include "tools/Errors.h"

namespace Tools {

namespace {

using Kind = SnmpBinding::Kind;

const ObjectId kEntry{1, 3, 6, 1, 4, 1, 32473, 3, 24, 1, 1, 1};
constexpr U32 kDescription = 4;
constexpr U32 kTime = 5;
constexpr std::size_t kIndices = 3;
// More than two supervisors have, one of them twice.
constexpr std::size_t kMostRowsOfTable = 3 * Qel::Limits::kMostCauses;
constexpr std::size_t kMostOctetsOfTable = Qel::Limits::kMostFileOctets;

ObjectId columnOf(U32 number) {
  ObjectId name = kEntry;
  name.push_back(number);
  return name;
}

bool isBelow(const ObjectId& name, const ObjectId& base) {
  return name.size() > base.size() && std::equal(base.begin(), base.end(), name.begin());
}

std::string dotted(const ObjectId& name) { return fmt::format("{}", fmt::join(name, ".")); }

// Walks two columns side by side.
class Walk {
 public:
  explicit Walk(SnmpPeer& agent) : agent_(agent) {}

  ReloadRows rows() {
    while (std::ranges::any_of(columns_, &Column::isOpen)) ask();
    return std::move(rows_);
  }

 private:
  struct Column {
    explicit Column(U32 columnNumber)
        : number(columnNumber), base(columnOf(columnNumber)), last(base) {}

    U32 number;
    ObjectId base;
    ObjectId last;
    bool isOpen = true;
  };

  void ask() {
    std::vector<Column*> asked;
    std::vector<ObjectId> names;
    for (Column& column : columns_) {
      if (!column.isOpen) continue;
      asked.push_back(&column);
      names.push_back(column.last);
    }
    const std::vector<SnmpBinding> answer = agent_.next(names);
    if (answer.empty()) throw CommandError("the agent answers with nothing");
    for (std::size_t i = 0; i < answer.size(); ++i) take(*asked[i % asked.size()], answer[i]);
  }

  void take(Column& column, const SnmpBinding& binding) {
    if (binding.kind == Kind::endOfView || !isBelow(binding.name, column.base)) {
      column.isOpen = false;
      return;
    }
    if (binding.name <= column.last) {
      throw CommandError("the agent's objects do not increase: " + dotted(binding.name) +
                         " comes behind " + dotted(column.last));
    }
    if (binding.name.size() != column.base.size() + kIndices || binding.kind != Kind::octets) {
      throw CommandError("the agent serves something else than the table: " + dotted(binding.name));
    }
    column.last = binding.name;
    store(column.number, binding);
  }

  void store(U32 column, const SnmpBinding& binding) {
    const U32* index = &binding.name[kEntry.size() + 1];
    ReloadRow& row = rows_[{index[0], index[1], index[2]}];
    octets_ += binding.octets.size();
    if (rows_.size() > kMostRowsOfTable || octets_ > kMostOctetsOfTable) {
      throw CommandError("the agent serves more than any such table holds");
    }
    if (column == kDescription) row.description = binding.octets;
    if (column == kTime) row.time = secondsOfDateAndTime(binding.octets);
  }

  SnmpPeer& agent_;
  std::array<Column, 2> columns_{Column(kDescription), Column(kTime)};
  ReloadRows rows_;
  std::size_t octets_ = 0;
};

// A table without rows answers in another way than none.
void needTable(SnmpPeer& agent) {
  ObjectId first = columnOf(kDescription);
  first.insert(first.end(), {0, 0, 1});
  if (agent.get(first).kind != Kind::noSuchObject) return;
  throw CommandError("the agent has no such table, or does not show it to this user or community");
}

using RowsOfUnit = std::map<std::pair<U32, U32>, ReloadRow>;

std::vector<ReportedReload> reloadsOf(const RowsOfUnit& rows) {
  std::vector<ReportedReload> reloads;
  for (const auto& [key, row] : rows) {
    if (reloads.empty() || reloads.back().index != key.first) reloads.push_back({key.first, {}});
    reloads.back().causes.push_back({row.description, row.time, {}, {}});
  }
  return reloads;
}

}  // namespace

SnmpPeer::~SnmpPeer() = default;

ReloadRows reloadRowsOf(SnmpPeer& agent) {
  ReloadRows rows = Walk(agent).rows();
  if (rows.empty()) needTable(agent);
  return rows;
}

std::vector<ReportedCell> cellsOf(const ReloadRows& rows) {
  std::map<U32, RowsOfUnit> units;
  for (const auto& [key, row] : rows)
    units[key.unit].emplace(std::pair(key.reload, key.cause), row);
  const RowsOfUnit own = std::exchange(units[0], {});
  units.erase(0);
  const auto isOwn = [&](const auto& unit) { return unit.second == own; };
  const auto owners = std::ranges::count_if(units, isOwn);
  std::vector<ReportedCell> cells;
  cells.reserve(units.size() + 1);
  // Two with the same rows leave it open which of them answers.
  for (const auto& unit : units) {
    cells.push_back({unit.first, owners == 1 && isOwn(unit), reloadsOf(unit.second)});
  }
  if (!own.empty() && owners == 0) cells.insert(cells.begin(), {{}, true, reloadsOf(own)});
  return cells;
}

std::optional<double> secondsOfDateAndTime(const std::string& octets) {
  if (octets.size() != 11 || (octets[8] != '+' && octets[8] != '-')) return {};
  const auto at = [&](std::size_t i) { return unsigned{static_cast<unsigned char>(octets[i])}; };
  // The calendar repeats itself every 400 years, and the library's ends before this type's.
  const unsigned year = at(0) << 8 | at(1);
  const std::chrono::year_month_day day{std::chrono::year(static_cast<int>(2000 + year % 400)),
                                        std::chrono::month(at(2)), std::chrono::day(at(3))};
  if (!day.ok() || at(4) > 23 || at(5) > 59 || at(6) > 60 || at(7) > 9) return {};
  if (at(9) > 14 || at(10) > 59) return {};
  constexpr double kDay = 86400;
  const int cycles = static_cast<int>(year / 400) - 2000 / 400;
  constexpr double kDaysOf400Years = 146097;
  const double days = static_cast<double>(std::chrono::sys_days(day).time_since_epoch().count()) +
                      kDaysOf400Years * cycles;
  const double offset = (octets[8] == '-' ? -1.0 : 1.0) * (at(9) * 3600 + at(10) * 60);
  const double seconds = days * kDay + at(4) * 3600 + at(5) * 60 + at(6) + at(7) / 10.0 - offset;
  return seconds == 0.0 ? std::nullopt : std::optional(seconds);
}

}  // namespace Tools
