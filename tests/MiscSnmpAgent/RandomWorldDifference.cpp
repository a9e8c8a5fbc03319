// Where the product and its plain twin differ.
#include "MiscSnmpAgent/PeerCellResetHistoryStatusDirMounter.h"
#include "MiscSnmpAgent/RandomWorld.h"
#include "MiscSnmpAgent/ResetInstanceSm.h"

namespace MiscSnmp::Agent {

namespace {

std::string changesText(const std::vector<expected::Change>& changes) {
  std::string all;
  for (const expected::Change& change : changes) {
    all += (change.came ? " +" : " -") + expected::text(change.key);
  }
  return all.empty() ? " nothing" : all;
}

std::string countText(const char* what, std::size_t found, std::size_t wanted) {
  return std::to_string(found) + " " + what + " instead of " + std::to_string(wanted);
}

}  // namespace

std::string RandomWorld::difference() {
  if (!problem_.empty()) return problem_;
  if (!recorder_->problem().empty()) return recorder_->problem();
  for (const std::string& found : {changesDifference(), rowsDifference(), objectsDifference()}) {
    if (!found.empty()) return found;
  }
  return {};
}

std::string RandomWorld::changesDifference() {
  const auto found = recorder_->takeChanges();
  const auto wanted = device_.table().takeChanges();
  if (found == wanted) return {};
  return "the table changed:" + changesText(found) + "\nmust have changed:" + changesText(wanted);
}

std::string RandomWorld::rowsDifference() {
  const auto& wanted = device_.table().rows();
  auto expectedRow = wanted.begin();
  auto heard = recorder_->rows().begin();
  for (auto row = mib_->reloadCauseTable().iteratorConst(); row; ++row, ++expectedRow, ++heard) {
    const expected::Key key = plainKey(row.key());
    if (expectedRow == wanted.end() || expectedRow->first != key) {
      return "a row at " + expected::text(key) + " that must not be there";
    }
    if (heard == recorder_->rows().end() || heard->second != row.ptr()) {
      return "nobody was notified of the row at " + expected::text(key);
    }
    const std::string difference = rowDifference(key, *row, expectedRow->second);
    if (!difference.empty()) return "the row at " + expected::text(key) + " " + difference;
  }
  if (expectedRow != wanted.end()) return "no row at " + expected::text(expectedRow->first);
  if (heard != recorder_->rows().end()) return "nobody was notified that the last rows went";
  return {};
}

std::string RandomWorld::rowDifference(const expected::Key& key, const ReloadCauseEntry& row,
                                       const expected::ReloadPtr& reload) {
  // What came out of the database shows its identity here for the first time.
  const auto [object, isFirst] = identities_.emplace(reload, row.resetCause());
  if (object->second != row.resetCause()) return "shows another reload object";
  if (isFirst && !plainOf_.emplace(row.resetCause().get(), reload).second) {
    return "shows the object of another reload";
  }
  const std::string description = device_.table().description(key);
  if (row.causeDesc().view() != description) {
    return "says \"" + row.causeDesc().stdString() + "\" instead of \"" + description + "\"";
  }
  if (row.reloadTime() != device_.table().seconds(key)) {
    return "shows the time " + std::to_string(row.reloadTime());
  }
  return {};
}

void RandomWorld::identityIs(const PairedReload& reload) {
  identities_.emplace(reload.plain, reload.real);
  plainOf_.emplace(reload.real.get(), reload.plain);
}

std::string RandomWorld::objectsDifference() const {
  const std::size_t machines = ResetHistorySm::liveCount();
  if (machines != device_.agents()) return countText("state machines", machines, device_.agents());
  const std::size_t mounters = PeerCellResetHistoryStatusDirMounter::liveCount();
  if (mounters != device_.mounts()) return countText("mounters", mounters, device_.mounts());
  const std::size_t watches = ResetInstanceSm::liveCount();
  if (watches != device_.reloadWatches()) {
    return countText("instance machines", watches, device_.reloadWatches());
  }
  return {};
}

}  // namespace MiscSnmp::Agent
