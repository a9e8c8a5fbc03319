#include "Kavra/Redis/Belief.h"

#include <fmt/format.h>

#include "Qel/Assert.h"

namespace Kavra::Redis {

bool Belief::snapshotIs(const ServerState& state, double now) {
  take(state);
  if (wentBack()) return false;
  accepted_ = present_;
  acceptedHeldAt_ = now;
  return true;
}

bool Belief::lookIs(const ServerState& state, double now) {
  const bool same = state == present_;
  take(state);
  if (same && accepted_ == present_) acceptedHeldAt_ = now;
  return same;
}

void Belief::tailIs(bool answered) noexcept { refusals_ = answered ? 0 : refusals_ + 1; }

std::string Belief::setback() const {
  QEL_ASSERT(wentBack());
  return fmt::format("the server went back from {} to {} in epoch {}", confirmed_->lastId.text(),
                     present_.lastId.text(), *present_.epoch);
}

void Belief::take(const ServerState& state) {
  const bool goesOn = state.epoch && state.epoch == present_.epoch;
  if (state == present_ || (goesOn && state.lastId >= present_.lastId)) confirm(present_);
  if (goesOn && rung_ && state.lastId >= *rung_) {
    ServerState rung = state;
    rung.lastId = *rung_;
    confirm(rung);
  }
  rung_.reset();
  present_ = state;
}

void Belief::confirm(const ServerState& state) {
  if (!confirmed_ || !state.isBefore(*confirmed_)) confirmed_ = state;
}

}  // namespace Kavra::Redis
