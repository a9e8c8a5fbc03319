#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "support/ExpectedAgent.h"

namespace expected {

// One cell of the device with everything that the table depends on: the database, the agents that
// are alive, and who hears what in which order.
class Device {
 public:
  explicit Device(Number cell);

  Table& table() noexcept { return table_; }
  Database& database() noexcept { return database_; }

  Agent& agentNew(const Agent::Inputs& inputs);
  // The agent ends; its rows stay.
  void agentGone(const Agent& agent);

  // How many there are at the moment, in all agents together.
  std::size_t agents() const noexcept { return agents_.size(); }
  std::size_t mounts() const;
  std::size_t reloadWatches() const;

  // After such a change: has everyone react who watches, until one raises an error.
  void protocolChanged(const Redundancy& redundancy);
  void switchoverCapableChanged(const Redundancy& redundancy);
  void historyChanged(const History& history);
  void causesChanged(const Reload& reload);

 private:
  template <class Event, class What>
  void tell(Event event, const What& what);

  const Number cell_;
  std::uint64_t joins_ = 0;
  Table table_;
  Database database_;
  std::vector<std::unique_ptr<Agent>> agents_;
};

}  // namespace expected
