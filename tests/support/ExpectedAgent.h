#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "support/ExpectedDatabase.h"
#include "support/ExpectedPlatform.h"
#include "support/ExpectedTable.h"

namespace expected {

// What one agent must do to the table, event by event.
//
// The rows are a function of what stands only up to what an agent remembers: which reload of each
// cell it watches, which peer history it was given last, and which rows it wrote when. Exactly that
// is kept here.
class Agent {
 public:
  struct Inputs {
    RedundancyPtr redundancy;
    HistoryPtr ownHistory;
    std::string cellType;

    friend bool operator==(const Inputs& a, const Inputs& b) = default;
  };
  struct Surroundings {
    Table& table;
    Database& database;
    Number cell;
    std::uint64_t& joins;  // numbers the observers in the order in which they came
  };
  // What an observer does about an event.
  struct Reaction {
    std::uint64_t joined;
    std::function<void()> run;
  };

  // Empties the table, writes what stands, and then begins to listen.
  Agent(const Surroundings& surroundings, Inputs inputs);

  // What it watches now.
  const Inputs& inputs() const noexcept { return inputs_; }
  bool hasMount() const noexcept { return mount_ != nullptr; }
  // Reloads that it watches: one a cell at most.
  std::size_t reloadWatches() const noexcept {
    return ownReload_.has_value() + peerReload_.has_value();
  }

  void listens(bool on);
  void redundancyIs(const RedundancyPtr& redundancy);
  // These two raise NameInUse when the own cell's reload 0 became another one behind its back.
  void ownHistoryIs(const HistoryPtr& history);
  void peerHistoryIs(const HistoryPtr& history);
  void mountCompletes(const HistoryPtr& history);

  // Its reactions to a change of each of these, none when it does not watch it.
  void onProtocol(const Redundancy& redundancy, std::vector<Reaction>& reactions);
  void onSwitchoverCapable(const Redundancy& redundancy, std::vector<Reaction>& reactions);
  void onHistory(const History& history, std::vector<Reaction>& reactions);
  void onCauses(const Reload& reload, std::vector<Reaction>& reactions);

 private:
  struct Watch {
    bool on = false;
    std::uint64_t joined = 0;
  };
  struct ReloadWatch : Watch {
    ReloadPtr reload;
  };

  Number peer() const noexcept { return 3 - surroundings_.cell; }
  Watch watch(bool on) { return {on, ++surroundings_.joins}; }

  void delOwnRows();
  void delPeerRows();
  void writeOwnRows();
  void writePeerRows();
  void rebuildOwnRows();
  void rebuildPeerRows();
  void followProtocol();
  void followOwnReload();
  void followPeerReload();

  const Surroundings surroundings_;
  Inputs inputs_;
  bool on_ = false;
  Watch redundancyWatch_;
  Watch ownHistoryWatch_;
  Watch peerHistoryWatch_;
  HistoryPtr peerHistory_;
  std::optional<ReloadWatch> ownReload_;
  std::optional<ReloadWatch> peerReload_;
  Database::MountPtr mount_;
};

}  // namespace expected
