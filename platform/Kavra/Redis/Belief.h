#pragma once

#include <optional>
#include <string>

#include "Kavra/Redis/ServerState.h"

namespace Kavra::Redis {

// What a follower believes of its Redis server, by the answers that came one after the other, over
// all connections. It knows no loop and no clock: whoever asks the server hands in what was told,
// and the time.
//
//                    told                   told again, or more
//     nothing yet ----------> the present ---------------------> the confirmed state
//                                  |                                      |
//                                  +------------- compared ---------------+
//                                  |                                      |
//              another epoch, or a |                     the same epoch,  |
//              last id no lower    v                     a lower last id  v
//                          accepted: its                           went back: nothing of it
//                          documents are served                    is served
//
// Two answers confirm a state: the one that told it, and the next, which told the same, or in the
// same epoch a last id no lower. So a single number that was damaged under way cannot make
// everything after it look old. The furthest state so confirmed counts, until another epoch is.
//
// To ring is to answer an XREAD with entries of the log. Who refuses that, again and again, is no
// good server, however good its snapshots are.
class Belief {
 public:
  // A snapshot told `state`. True when it is accepted; false when the server went back.
  [[nodiscard]] bool snapshotIs(const ServerState& state, double now);
  // A look at the state alone told it. True when it is the present one still.
  [[nodiscard]] bool lookIs(const ServerState& state, double now);
  // An XREAD gave entries, the last of which had that id (none, where it could not be read). Counts
  // as an answer beside the next one that tells the state.
  void ringIs(const std::optional<StreamId>& last) { rung_ = last; }
  // An XREAD was answered, with entries or none, or refused.
  void tailIs(bool answered) noexcept;

  // As the last answer told it; that of an empty server before the first.
  const ServerState& present() const noexcept { return present_; }
  bool isConfirmed() const { return confirmed_ == present_; }
  bool rings() const noexcept { return refusals_ < kMostRefusals; }
  // How the present differs from the confirmed state, where the server went back.
  std::string setback() const;

  // Of the server when it held what is served, and when that was last found to hold; absent until a
  // snapshot was accepted.
  const std::optional<ServerState>& accepted() const noexcept { return accepted_; }
  std::optional<double> acceptedHeldAt() const noexcept { return acceptedHeldAt_; }

 private:
  static constexpr int kMostRefusals = 2;

  void take(const ServerState& state);
  void confirm(const ServerState& state);
  bool wentBack() const noexcept { return confirmed_ && present_.isBefore(*confirmed_); }

  ServerState present_;
  std::optional<StreamId> rung_;  // since the present state was told
  std::optional<ServerState> confirmed_;
  std::optional<ServerState> accepted_;
  std::optional<double> acceptedHeldAt_;
  int refusals_ = 0;  // to ring, in a row
};

}  // namespace Kavra::Redis
