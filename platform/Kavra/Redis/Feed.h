#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Kavra/AddressLookup.h"
#include "Kavra/BackOff.h"
#include "Kavra/Feed.h"
#include "Kavra/Redis/Belief.h"
#include "Kavra/Redis/Command.h"
#include "Kavra/Redis/ConnectionOptions.h"
#include "Kavra/Redis/Link.h"
#include "Kavra/Redis/Reply.h"
#include "Kavra/Redis/ServerState.h"
#include "Kavra/Redis/Snapshot.h"
#include "Kavra/Status.h"
#include "Qel/ActivityManager.h"
#include "Qel/Clock.h"
#include "Qel/EventLoop.h"
#include "Qel/Ptr.h"
#include "Qel/String.h"

namespace Kavra::Redis {

// The live side of a state database on a Redis server.
//
// The truth is the snapshot: the state of the server and every followed document, read in one
// transaction, or between two looks at the same state where the server has no memory for one. The
// server's log only rings the doorbell; whatever it says, the next snapshot follows. Once a second
// without a ring the state is compared, since a log that was trimmed or replaced rings no more.
// Which snapshots are served is a matter of Belief.h.
//
//              somebody follows              due, a name
//      idle  ------------------> backingOff -------------> resolving
//                                    |                         |
//                                    | due, a number           | its addresses
//                                    v                         |
//    +---------------------------- snapshot <------------------+
//    | not confirmed               ^  |  ^
//    v              another state  |  |  |  entries, or a first refusal
//  comparing ----------------------+  |  +----------------- tailing
//    ^  |                             |                      ^  |
//    |  |  the same state             |  confirmed           |  |  nothing for a second
//    |  +-----------------------------+------> (pausing) ----+  |
//    +----------------------------------------------------------+
//
//    snapshot   -- more is followed, or one by one --------> snapshot
//    any state  -- nobody follows -------------------------> idle
//    any other  -- lost, refused, no address, no room -----> backingOff
//
//   backingOff  a growing pause before the next attempt
//   resolving   looks up the name of the server's host, for 5 s at most
//   snapshot    MULTI, GET, XINFO STREAM, HGETALL ..., EXEC; the first one together with the login,
//               behind a connection that is still being made
//   comparing   GET, XINFO STREAM
//   tailing     XREAD BLOCK, from the last id of the present state
//   pausing     where the last XREAD brought nothing new too early, which would keep the loop busy
//
// A connection that is lost takes nothing away: what was last seen goes on being served, the age of
// it grows, and the server is asked again after a growing pause. Each loss and each recovery is
// traced once (level 0).
//
// It is connected while somebody follows, so that nobody asks after a peer that does not matter. A
// document that is followed while a tail is under way is read when that ends, a second at most.
class Feed final : public Kavra::Feed {
 public:
  // Connects from the loop, never from here. `loop` must outlive the feed.
  Feed(ConnectionOptions server, Qel::EventLoop& loop, const Qel::Ptr<Qel::Clock const>& clock);

  Status status() const override;
  bool readCredentialsAgain() override;

 protected:
  void handleFollows() override;

 private:
  using Replies = Link::Replies;
  enum class State { idle, backingOff, resolving, snapshot, comparing, pausing, tailing };
  // An XREAD of the present connection.
  struct Tail {
    ServerState from;
    std::chrono::steady_clock::time_point begin;
  };

  static bool isStep(State from, State to) noexcept;
  // Lets go of what the new state has no use for.
  void enter(State next);
  // Enters a state that ends after a time, with a step.
  void enterFor(double seconds, State next, void (Feed::*step)());
  // Enters a state that ends with the answers to the commands.
  void ask(State next, const std::vector<Command>& commands, std::function<void(Replies&)> handle);

  void disconnect();
  void connectLater(double seconds);
  // Connects after a pause. Ends the process where the loop has no timer for that: what is old
  // would be served for good, in silence.
  void retry() noexcept;
  void connect();
  void connectTo(const AddressLookup::Addresses& addresses);
  // Of the look-up of the server's name: its answer, and that there was none in time. A look-up
  // that goes on is waited for again at the next attempt; an answer meanwhile is kept for that.
  void handleAddresses();
  void handleNoAddresses();
  void handleLoss(const std::string& why);
  // Runs a step of a handler; its failure costs the connection.
  void loseOnFailure(const std::function<void()>& step);

  // Each asks, and its handler decides what comes next.
  void askSnapshot(const std::vector<Command>& login);
  void askSingly();
  void askState();
  void askTail();
  void tailOrPause();
  void handleSnapshot(Replies& replies);
  void handleOutcome(Reply outcome);
  void handleState(const ServerState& state);
  void handleTail(const Reply& reply);

  // Takes what an accepted snapshot holds out of it.
  void documentsAreOf(Snapshot& snapshot);

  // What is served is not the state of the server any more, or is again; tells so, once.
  void noteOutage(const std::string& why);
  void noteRecovery();
  std::string served() const;

  SnapshotRequest request() const;
  // Whether a request left nothing out of what is followed now.
  bool coversAll(const SnapshotRequest& request) const;

  ConnectionOptions server_;
  Qel::EventLoop& loop_;
  const Qel::Ptr<Qel::Clock const> clock_;

  State state_ = State::idle;
  Qel::Ptr<Qel::EventWatch> timer_;     // while backing off, resolving or pausing
  Qel::Ptr<Qel::EventWatch> answered_;  // while resolving
  Qel::Ptr<Link> link_;                 // from the first snapshot to the loss
  std::optional<Tail> tail_;            // the last one
  BackOff backOff_;
  std::size_t attempts_ = 0;
  Qel::Ptr<Qel::Activity> leaving_;  // to disconnect where nobody follows any more

  SnapshotRequest asked_;        // the last request
  SnapshotRequest served_;       // the last one whose answer was accepted
  std::set<Qel::String> names_;  // the paths that the server has, if somebody wants to know
  Snapshot::Octets known_;       // of the good documents, as they were read last
  Belief belief_;
  std::optional<double> lostSince_;  // while the server is away
  std::string problem_;              // empty when all is well
};

}  // namespace Kavra::Redis
