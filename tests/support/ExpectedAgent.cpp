#include "support/ExpectedAgent.h"

#include <utility>

namespace expected {

Agent::Agent(const Surroundings& surroundings, Inputs inputs)
    : surroundings_(surroundings),
      inputs_(std::move(inputs)),
      redundancyWatch_(watch(false)),
      ownHistoryWatch_(watch(false)) {
  surroundings_.table.delAll();
  writeOwnRows();
  followProtocol();
  listens(true);
}

void Agent::listens(bool on) {
  on_ = on;
  redundancyWatch_.on = on;
  // Who begins to listen to a history hears at once of what stands in it.
  if (std::exchange(ownHistoryWatch_.on, on) != on && on) followOwnReload();
  if (peerHistory_ && std::exchange(peerHistoryWatch_.on, on) != on && on) followPeerReload();
  if (ownReload_) ownReload_->on = on;
  if (peerReload_) peerReload_->on = on;
  if (mount_) mount_->isOn(on);
}

void Agent::redundancyIs(const RedundancyPtr& redundancy) {
  if (redundancy == inputs_.redundancy) return;
  inputs_.redundancy = redundancy;
  redundancyWatch_ = watch(redundancyWatch_.on);
  followProtocol();
  writePeerRows();
}

void Agent::ownHistoryIs(const HistoryPtr& history) {
  if (history == inputs_.ownHistory) return;
  inputs_.ownHistory = history;
  ownHistoryWatch_ = watch(ownHistoryWatch_.on);
  followOwnReload();
}

void Agent::peerHistoryIs(const HistoryPtr& history) {
  if (history == peerHistory_) return;
  const bool on = peerHistory_ ? peerHistoryWatch_.on : on_;
  peerHistory_ = history;
  if (history) {
    peerHistoryWatch_ = watch(on);
    followPeerReload();
  }
  writePeerRows();
}

void Agent::mountCompletes(const HistoryPtr& history) {
  peerReload_.reset();
  peerHistoryIs(history);
}

void Agent::onProtocol(const Redundancy& redundancy, std::vector<Reaction>& reactions) {
  if (!redundancyWatch_.on || &redundancy != inputs_.redundancy.get()) return;
  reactions.push_back({redundancyWatch_.joined, [this] { followProtocol(); }});
}

void Agent::onSwitchoverCapable(const Redundancy& redundancy, std::vector<Reaction>& reactions) {
  if (!redundancyWatch_.on || &redundancy != inputs_.redundancy.get()) return;
  reactions.push_back({redundancyWatch_.joined, [this] { writePeerRows(); }});
}

void Agent::onHistory(const History& history, std::vector<Reaction>& reactions) {
  if (ownHistoryWatch_.on && &history == inputs_.ownHistory.get()) {
    reactions.push_back({ownHistoryWatch_.joined, [this] { followOwnReload(); }});
  }
  if (peerHistoryWatch_.on && &history == peerHistory_.get()) {
    reactions.push_back({peerHistoryWatch_.joined, [this] { followPeerReload(); }});
  }
}

void Agent::onCauses(const Reload& reload, std::vector<Reaction>& reactions) {
  if (ownReload_ && ownReload_->on && &reload == ownReload_->reload.get()) {
    reactions.push_back({ownReload_->joined, [this] { rebuildOwnRows(); }});
  }
  if (peerReload_ && peerReload_->on && &reload == peerReload_->reload.get()) {
    reactions.push_back({peerReload_->joined, [this] { rebuildPeerRows(); }});
  }
}

// Unit 0 belongs to the own cell, whatever its type.
void Agent::delOwnRows() { surroundings_.table.delUnits(0, surroundings_.cell); }

void Agent::delPeerRows() { surroundings_.table.delUnit(peer()); }

void Agent::writeOwnRows() {
  const ReloadPtr latest = inputs_.ownHistory->reload(0);
  if (!latest) return;
  for (Number position = 1; position <= latest->causes.size(); ++position) {
    surroundings_.table.add({0, 0, position}, latest);
    if (inputs_.cellType != "supervisor") continue;
    surroundings_.table.add({surroundings_.cell, 0, position}, latest);
  }
}

// Only a reachable peer's rows are replaced; in every other case those that stand are kept.
void Agent::writePeerRows() {
  if (!inputs_.redundancy->switchoverCapable || !peerHistory_) return;
  const ReloadPtr latest = peerHistory_->reload(0);
  if (!latest) return;
  delPeerRows();
  for (Number position = 1; position <= latest->causes.size(); ++position) {
    surroundings_.table.add({peer(), 0, position}, latest);
  }
}

void Agent::rebuildOwnRows() {
  delOwnRows();
  writeOwnRows();
}

void Agent::rebuildPeerRows() {
  delPeerRows();
  writePeerRows();
}

void Agent::followProtocol() {
  if (inputs_.redundancy->protocol == 3) {
    // Let go of the earlier one first: it must not complete any more.
    mount_.reset();
    mount_ = surroundings_.database.mount(
        "cell/" + std::to_string(peer()) + "/sys/reset/history",
        [this](const HistoryPtr& history) { mountCompletes(history); });
    return;
  }
  // A mount under way stays, and may still hand over its history.
  peerReload_.reset();
  delPeerRows();
  peerHistoryIs(nullptr);
}

// The rows stay when reload 0 goes; only the watch on it ends.
void Agent::followOwnReload() {
  const ReloadPtr latest = inputs_.ownHistory->reload(0);
  if (!latest) {
    ownReload_.reset();
    return;
  }
  if (ownReload_ && ownReload_->reload != latest) throw NameInUse();
  if (ownReload_) return;
  const Watch joined = watch(on_);
  rebuildOwnRows();
  ownReload_ = ReloadWatch{joined, latest};
}

// A watch on the peer that exists already is neither replaced nor ended here.
void Agent::followPeerReload() {
  const ReloadPtr latest = peerHistory_->reload(0);
  if (!latest || peerReload_) return;
  const Watch joined = watch(on_);
  rebuildPeerRows();
  peerReload_ = ReloadWatch{joined, latest};
}

}  // namespace expected
