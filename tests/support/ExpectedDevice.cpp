#include "support/ExpectedDevice.h"

#include <algorithm>

namespace expected {

Device::Device(Number cell)
    : cell_(cell),
      database_({[this](const History& history) { historyChanged(history); },
                 [this](const Reload& reload) { causesChanged(reload); }}) {}

Agent& Device::agentNew(const Agent::Inputs& inputs) {
  return *agents_.emplace_back(
      std::make_unique<Agent>(Agent::Surroundings{table_, database_, cell_, joins_}, inputs));
}

void Device::agentGone(const Agent& agent) {
  std::erase_if(agents_, [&agent](const auto& held) { return held.get() == &agent; });
}

std::size_t Device::mounts() const {
  return static_cast<std::size_t>(std::count_if(
      agents_.begin(), agents_.end(), [](const auto& agent) { return agent->hasMount(); }));
}

std::size_t Device::reloadWatches() const {
  std::size_t watches = 0;
  for (const auto& agent : agents_) watches += agent->reloadWatches();
  return watches;
}

template <class Event, class What>
void Device::tell(Event event, const What& what) {
  std::vector<Agent::Reaction> reactions;
  for (const auto& agent : agents_) ((*agent).*event)(what, reactions);
  std::sort(reactions.begin(), reactions.end(),
            [](const auto& a, const auto& b) { return a.joined < b.joined; });
  // All hear of it, although one fails.
  bool failed = false;
  for (const Agent::Reaction& reaction : reactions) {
    try {
      reaction.run();
    } catch (const NameInUse&) {
      failed = true;
    }
  }
  if (failed) throw NameInUse();
}

void Device::protocolChanged(const Redundancy& redundancy) { tell(&Agent::onProtocol, redundancy); }

void Device::switchoverCapableChanged(const Redundancy& redundancy) {
  tell(&Agent::onSwitchoverCapable, redundancy);
}

void Device::historyChanged(const History& history) { tell(&Agent::onHistory, history); }

void Device::causesChanged(const Reload& reload) { tell(&Agent::onCauses, reload); }

}  // namespace expected
