// What happens to the histories that the test holds by hand: the own cell's, and those that it
// hands over as the peer's.
#include "MiscSnmpAgent/RandomWorld.h"

namespace MiscSnmp::Agent {

namespace {

System::ResetCause realCause(const expected::Cause& cause) {
  return {cause.description, cause.time, "advice", "detail"};
}

std::vector<System::ResetCause> realCauses(const std::vector<expected::Cause>& causes) {
  std::vector<System::ResetCause> real;
  real.reserve(causes.size());
  for (const expected::Cause& cause : causes) real.push_back(realCause(cause));
  return real;
}

PairedReload newReload(expected::Number index, const std::vector<expected::Cause>& causes) {
  PairedReload reload{Qel::make<System::ResetInstance>(index),
                      std::make_shared<expected::Reload>()};
  reload.real->causeQIs(realCauses(causes));
  reload.plain->replace(causes);
  return reload;
}

PairedReload reloadAt(const PairedHistory& history, expected::Number index) {
  return {history.real->rebootHistory(index), history.plain->reload(index)};
}

}  // namespace

expected::Cause RandomWorld::anyCause() {
  constexpr std::array kTexts{"Power loss", "Reload requested by the user", "", "Kernel panic", "a",
                              "Watchdog"};
  constexpr std::array kTimes{0.0, 1700000000.9, 1700000001.0, 4294967296.5, 4294967297.0, -3.7};
  return {0, oneOf(kTexts), oneOf(kTimes)};
}

std::vector<expected::Cause> RandomWorld::anyCauses() {
  std::vector<expected::Cause> causes(below(chance(20) ? 20 : 4));
  for (expected::Cause& cause : causes) cause = anyCause();
  return causes;
}

// Reload 0 most of the time; now and then one that left its history, and whose rows or watchers may
// remain.
PairedReload RandomWorld::anyReload() {
  if (!orphans_.empty() && chance(6)) return orphans_[below(orphans_.size())];
  PairedHistory& history = chance(2) ? histories_[ownHistory_] : anyHistory();
  return reloadAt(history, 0);
}

void RandomWorld::orphanIs(const PairedReload& reload) {
  if (!reload.real) return;
  orphans_.push_back(reload);
  if (orphans_.size() > 4) orphans_.erase(orphans_.begin());
}

void RandomWorld::causePushed() {
  const PairedReload reload = anyReload();
  if (!reload.real) return;
  const expected::Cause cause = anyCause();
  both([&] { reload.real->causeQPush(realCause(cause)); },
       [&] {
         reload.plain->push(cause.description, cause.time);
         device_.causesChanged(*reload.plain);
       });
}

void RandomWorld::causeDeleted() {
  const PairedReload reload = anyReload();
  if (!reload.real) return;
  const expected::Number key = below(4);
  both([&] { reload.real->causeQDel(key); },
       [&] {
         if (reload.plain->del(key)) device_.causesChanged(*reload.plain);
       });
}

void RandomWorld::causesReplaced() {
  const PairedReload reload = anyReload();
  if (!reload.real) return;
  // Every so often by the same ones.
  const std::vector<expected::Cause> causes = chance(4) ? reload.plain->causes : anyCauses();
  both([&] { reload.real->causeQIs(realCauses(causes)); },
       [&] {
         if (reload.plain->replace(causes)) device_.causesChanged(*reload.plain);
       });
}

void RandomWorld::causesEmptied() {
  const PairedReload reload = anyReload();
  if (!reload.real) return;
  both([&] { reload.real->causeQIs({}); },
       [&] {
         if (reload.plain->replace({})) device_.causesChanged(*reload.plain);
       });
}

void RandomWorld::reloadIsDeleted(PairedHistory& history, expected::Number index) {
  const PairedReload reload = reloadAt(history, index);
  if (!reload.real) return;
  orphanIs(reload);
  both([&] { history.real->rebootHistoryDel(index); },
       [&] {
         history.plain->reloads.erase(index);
         device_.historyChanged(*history.plain);
       });
}

void RandomWorld::reloadIs(PairedHistory& history, expected::Number index,
                           const std::vector<expected::Cause>& causes) {
  const PairedReload reload = newReload(index, causes);
  orphanIs(reloadAt(history, index));
  identityIs(reload);
  both([&] { history.real->rebootHistoryIs(reload.real); },
       [&] {
         history.plain->reloads[index] = reload.plain;
         device_.historyChanged(*history.plain);
       });
}

// The way of a platform that keeps each reload under its own object: the old ones go, then come
// again one further on.
void RandomWorld::reloadRecorded() {
  PairedHistory& history = chance(2) ? histories_[ownHistory_] : anyHistory();
  const PairedReload latest = reloadAt(history, 0);
  const auto older = latest.plain ? latest.plain->causes : std::vector<expected::Cause>();
  reloadIsDeleted(history, 0);
  reloadIsDeleted(history, 1);
  if (latest.plain) reloadIs(history, 1, older);
  reloadIs(history, 0, anyCauses());
}

void RandomWorld::reloadAdded() {
  PairedHistory& history = anyHistory();
  const expected::Number index = chance(2) ? 0 : below(6);
  if (history.plain->reload(index)) return;
  if (!chance(3)) return reloadIs(history, index, anyCauses());
  // Made empty by the history itself.
  const auto plain = std::make_shared<expected::Reload>();
  both([&] { history.real->rebootHistoryIs(index); },
       [&] {
         history.plain->reloads[index] = plain;
         device_.historyChanged(*history.plain);
       });
  identityIs({history.real->rebootHistory(index), plain});
}

void RandomWorld::reloadDeleted() {
  reloadIsDeleted(chance(2) ? histories_[ownHistory_] : anyHistory(), chance(2) ? 0 : below(6));
}

void RandomWorld::reloadReplaced() {
  reloadIs(anyHistory(), chance(2) ? 0 : below(6), anyCauses());
}

void RandomWorld::olderReloadChanged() {
  const PairedReload reload = reloadAt(anyHistory(), 1 + below(5));
  if (!reload.real) return;
  const expected::Cause cause = anyCause();
  both([&] { reload.real->causeQPush(realCause(cause)); },
       [&] {
         reload.plain->push(cause.description, cause.time);
         device_.causesChanged(*reload.plain);
       });
}

void RandomWorld::strangerAdded() {
  PairedReload reload = reloadAt(anyHistory(), below(3));
  if (!reload.real) reload = newReload(9, anyCauses());
  const expected::Key key{below(5), chance(2) ? 0U : 7U, below(6)};
  identityIs(reload);
  both(
      [&] {
        mib_->reloadCauseTableIs({key[0], key[1], key[2]}, reload.real);
      },
      [&] { device_.table().add(key, reload.plain); });
}

void RandomWorld::strangerDeleted() {
  const auto& rows = device_.table().rows();
  if (rows.empty()) return;
  const auto row = std::next(rows.begin(), static_cast<std::ptrdiff_t>(below(rows.size())));
  const expected::Key key = row->first;
  mib_->reloadCauseTableDel({key[0], key[1], key[2]});
  device_.table().del(key);
}

}  // namespace MiscSnmp::Agent
