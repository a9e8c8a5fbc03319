#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Kavra/AddressLookup.h"
#include "Kavra/BackOff.h"
#include "Kavra/Feed.h"
#include "Kavra/Redis/ConnectionOptions.h"
#include "Kavra/Redis/Link.h"
#include "Kavra/Redis/ServerState.h"
#include "Kavra/Redis/Snapshot.h"
#include "Qel/Clock.h"
#include "Qel/EventLoop.h"
#include "Qel/Ptr.h"

namespace Kavra::Redis {

// The live side of a state database on a Redis server.
//
// The truth is the snapshot: the state of the server and every followed document, read in one
// transaction, or between two looks at the same state where the server has no memory for one. The
// server's log only rings the doorbell; whatever it says, the next snapshot follows. Once a second
// without a ring the state is compared, since a log that was trimmed or replaced rings no more.
//
// A connection that is lost takes nothing away: what was last seen goes on being served, the age of
// it grows, and the server is asked again after a growing pause. Each loss and each recovery is
// traced once (level 0). A server that went back to an older state (the same epoch, a log with
// fewer entries) is not believed until it has caught up or begun a new epoch; how far it was has to
// be told by two answers, lest one damaged number make everything after it look old.
//
// It is connected while somebody follows, so that nobody asks after a peer that does not matter. A
// document that is followed while a tail is under way is read when that ends, a second at most.
class Feed final : public Kavra::Feed {
 public:
  // Connects from the loop, never from here. `loop` must outlive the feed.
  Feed(ConnectionOptions server, Qel::EventLoop& loop, const Qel::Ptr<Qel::Clock const>& clock);

  Status status() const override;

 protected:
  void handleFollows() override;

 private:
  using Replies = Link::Replies;
  static constexpr int kMostBadRings = 2;

  void rest();
  void connectLater(double seconds);
  void connect();
  void connectTo(const AddressLookup::Addresses& addresses);
  void handleLoss(const std::string& why);
  // What is served is not the state of the server any more.
  void problemIs(const std::string& why);

  // Each asks, and its handler decides what comes next.
  void askSnapshot(const std::vector<Command>& login);
  void askForRing();
  void askSingly();
  void askState();
  // Waits for the next ring: at once, or after a pause where the server rings early for nothing and
  // would keep the loop busy.
  void goOn();
  void handleSnapshot(const Replies& replies);
  void handleOutcome(const Reply& outcome);
  void handleRing(const Reply& reply);
  void handleState(const ServerState& state);

  void takeSnapshot(const Snapshot& snapshot);
  // Another answer told the state, and maybe confirms the one before.
  void stateIs(const ServerState& state);
  void confirm(const ServerState& state);
  void beReached();
  // Whether the tail works; a server that refuses it, again and again, is no good one, however good
  // its snapshots are.
  bool rings() const noexcept { return badRings_ < kMostBadRings; }
  // Runs a step of a handler; a problem costs the connection.
  void guarded(const std::function<void()>& step);

  SnapshotRequest question() const;
  // Whether the last question left nothing out of what is followed now.
  bool questionCoversAll() const;
  std::string served() const;

  const ConnectionOptions server_;
  Qel::EventLoop& loop_;
  const Qel::Ptr<Qel::Clock const> clock_;

  BackOff backOff_;
  std::size_t attempts_ = 0;
  Qel::Ptr<Link> link_;              // null while waiting for the next attempt, or for
  Qel::Ptr<AddressLookup> lookup_;   // the server's address
  Qel::Ptr<Qel::EventWatch> retry_;  // that attempt
  Qel::Ptr<Qel::EventWatch> rest_;
  Qel::Ptr<Qel::EventWatch> pause_;

  SnapshotRequest asked_;         // the last question
  std::set<Qel::String> names_;   // the paths that the server has, if somebody wants to know
  ServerState present_;           // of the server, as told last
  std::optional<StreamId> rung_;  // by the ring that led to the present snapshot
  std::optional<ServerState> confirmed_;             // the furthest one that two answers told
  std::optional<ServerState> accepted_;              // of the server when it held what is served
  std::optional<double> lastConfirmed_;              // when that was found to hold
  std::optional<double> lostSince_;                  // while the server is away
  std::string problem_;                              // empty when all is well
  bool news_ = false;                                // since a ring was asked for last
  std::chrono::steady_clock::time_point ringAsked_;  // the last one
  int badRings_ = 0;                                 // in a row, over connections, too
};

}  // namespace Kavra::Redis
