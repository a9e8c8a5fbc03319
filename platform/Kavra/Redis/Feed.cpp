#include "Kavra/Redis/Feed.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <exception>
#include <utility>

#include "Kavra/KavraTrace.h"
#include "Kavra/Redis/MultiExec.h"
#include "Kavra/Store.h"

namespace Kavra::Redis {

namespace {

const Command kXread = {"XREAD", "COUNT", "128", "BLOCK", "1000", "STREAMS", kLogKey};
constexpr std::chrono::milliseconds kEarly{500};  // for an answer to it that brings no news
constexpr double kPause = 0.1;
constexpr char kNotFollowed[] = "nobody follows it";
constexpr char kNotReached[] = "not reached yet";

// The id of the last entry in the reply to XREAD, one stream with its entries.
std::optional<StreamId> lastRingIn(const Reply& reply) {
  if (reply.elements.size() != 1 || reply.elements[0].elements.size() != 2) return {};
  const auto& entries = reply.elements[0].elements[1].elements;
  if (entries.empty() || entries.back().elements.empty()) return {};
  return StreamId::of(entries.back().elements[0].text);
}

}  // namespace

Feed::Feed(ConnectionOptions server, Qel::EventLoop& loop, const Qel::Ptr<Qel::Clock const>& clock)
    : server_(std::move(server)), loop_(loop), clock_(clock), problem_(kNotFollowed) {}

void Feed::handleFollows() {
  // From the loop, since a follow may begin or end in the middle of anything.
  const bool idle = !link_ && !lookup_ && !retry_;
  if (isFollowed() && idle) {
    connectLater(0.0);
    problem_ = kNotReached;
  }
  if (!isFollowed() && !idle) {
    rest_ = loop_.timerIs(0.0, [this] {
      const Qel::Ptr<Feed> alive(this);
      if (!isFollowed()) rest();
    });
  }
}

void Feed::rest() {
  link_ = nullptr;
  lookup_ = nullptr;
  pause_ = nullptr;
  retry_ = nullptr;
  lostSince_.reset();
  problem_ = kNotFollowed;
}

void Feed::connectLater(double seconds) {
  retry_ = loop_.timerIs(seconds, [this] {
    const Qel::Ptr<Feed> alive(this);
    connect();
  });
}

void Feed::connect() {
  retry_ = nullptr;
  guarded([this] {
    if (!server_.address.isNamed()) return connectTo(server_.address.resolve());
    lookup_ = Qel::make<AddressLookup>(
        loop_, [address = server_.address] { return address.resolve(); },
        [this](auto& answer) {
          guarded([this, &answer] {
            lookup_ = nullptr;
            connectTo(answer.get());
          });
        });
  });
}

void Feed::connectTo(const AddressLookup::Addresses& addresses) {
  // A name may have addresses that do not work: each gets its turn.
  link_ = Qel::make<Link>(loop_, addresses[attempts_++ % addresses.size()],
                          [this](const std::string& why) { handleLoss(why); });
  news_ = true;
  askSnapshot(server_.loginCommands());
}

void Feed::handleLoss(const std::string& why) {
  const Qel::Ptr<Feed> alive(this);
  link_ = nullptr;
  pause_ = nullptr;
  connectLater(backOff_.next());
  problemIs(why);
}

void Feed::problemIs(const std::string& why) {
  problem_ = why;
  const char* what = lastConfirmed_ ? "lost" : "not reached";
  trace(lostSince_ ? 1 : 0,
        fmt::format("{}: {}: {}; {}", server_.address.text(), what, why, served()));
  if (!lostSince_) lostSince_ = clock_->now();
}

std::string Feed::served() const {
  if (!lastConfirmed_) return "nothing to serve yet";
  const double age = std::max(0.0, clock_->now() - *lastConfirmed_);
  return fmt::format("serving what was there {:.1f} s ago", age);
}

SnapshotRequest Feed::question() const {
  SnapshotRequest question;
  question.names = followsPrefixes();
  std::set<Qel::String> paths = followedPaths();
  if (question.names) paths.insert(names_.begin(), names_.end());
  question.paths.assign(paths.begin(), paths.end());
  return question;
}

bool Feed::questionCoversAll() const {
  const SnapshotRequest now = question();
  return (asked_.names || !now.names) && std::includes(asked_.paths.begin(), asked_.paths.end(),
                                                       now.paths.begin(), now.paths.end());
}

void Feed::askSnapshot(const std::vector<Command>& login) {
  asked_ = question();
  std::vector<Command> commands = login;
  const auto transaction = multiExec(asked_.commands());
  commands.insert(commands.end(), transaction.begin(), transaction.end());
  link_->requestIs(commands, [this](const Replies& replies) {
    guarded([this, &replies] { handleSnapshot(replies); });
  });
}

void Feed::handleSnapshot(const Replies& replies) {
  if (isRefusedForMemory(replies)) return askSingly();
  handleOutcome(execReply(replies, asked_.commands().size()));
}

void Feed::askSingly() {
  link_->requestIs(asked_.singleCommands(), [this](const Replies& replies) {
    guarded([this, &replies] {
      const auto outcome = asked_.outcomeOf(replies);
      if (outcome) return handleOutcome(*outcome);
      askSnapshot({});
    });
  });
}

void Feed::handleOutcome(const Reply& outcome) {
  const Snapshot snapshot(asked_, outcome);
  if (asked_.names) names_ = snapshot.names;
  // What was named only now must not be missing from a snapshot that is taken in as a whole.
  if (!questionCoversAll()) return askSnapshot({});
  takeSnapshot(snapshot);
  // Followers may have begun to follow something else.
  if (!questionCoversAll()) return askSnapshot({});
  if (confirmed_ == present_) return goOn();
  askState();
}

void Feed::takeSnapshot(const Snapshot& snapshot) {
  stateIs(snapshot.state);
  if (confirmed_ && present_.isBefore(*confirmed_)) {
    // A log that cannot be read does not tell how far the server is.
    if (!present_.problem.empty()) throw StoreException(present_.problem);
    return problemIs(fmt::format("the server went back from {} to {} in epoch {}",
                                 confirmed_->lastId.text(), present_.lastId.text(),
                                 *present_.epoch));
  }
  accepted_ = present_;
  lastConfirmed_ = clock_->now();
  documentsAre(snapshot.documents, snapshot.unreadable);
  if (!present_.problem.empty()) throw StoreException(present_.problem);
  if (rings()) beReached();
}

void Feed::stateIs(const ServerState& state) {
  const bool goesOn = state.epoch && state.epoch == present_.epoch;
  if (state == present_ || (goesOn && state.lastId >= present_.lastId)) confirm(present_);
  if (goesOn && rung_ && state.lastId >= *rung_) {
    ServerState rung = state;
    rung.lastId = *rung_;
    confirm(rung);
  }
  rung_.reset();
  if (state != present_) news_ = true;
  present_ = state;
}

void Feed::confirm(const ServerState& state) {
  if (!confirmed_ || !state.isBefore(*confirmed_)) confirmed_ = state;
}

void Feed::beReached() {
  problem_.clear();
  backOff_.reset();
  if (!lostSince_) return;
  const double seconds = std::max(0.0, clock_->now() - *std::exchange(lostSince_, std::nullopt));
  trace(0, fmt::format("{}: back after {:.1f} s; serving what is there", server_.address.text(),
                       seconds));
}

void Feed::goOn() {
  const bool early = std::chrono::steady_clock::now() - ringAsked_ < kEarly;
  if (news_ || !early) return askForRing();
  pause_ = loop_.timerIs(kPause, [this] { guarded([this] { askForRing(); }); });
}

void Feed::askForRing() {
  news_ = false;
  ringAsked_ = std::chrono::steady_clock::now();
  Command xread = kXread;
  xread.push_back(present_.lastId.text());
  link_->requestIs({xread}, [this](const Replies& replies) {
    guarded([this, &replies] { handleRing(replies.front()); });
  });
}

void Feed::handleRing(const Reply& reply) {
  const bool rangBefore = rings();
  const bool good = reply.isNil() || reply.isArray();
  badRings_ = good ? 0 : std::min(badRings_ + 1, kMostBadRings);
  if (!rings()) throw StoreException(reply.description());
  if (reply.isNil() && rangBefore && questionCoversAll()) return askState();
  rung_ = lastRingIn(reply);
  askSnapshot({});
}

void Feed::askState() {
  // No transaction: a server without memory left refuses one, but answers this. A change between
  // the two is seen as one, too.
  link_->requestIs({ServerState::epochCommand(), ServerState::logCommand()},
                   [this](const Replies& replies) {
                     guarded([this, &replies] { handleState({replies[0], replies[1]}); });
                   });
}

void Feed::handleState(const ServerState& state) {
  const bool same = state == present_;
  stateIs(state);
  if (!same) return askSnapshot({});
  if (accepted_ == present_) lastConfirmed_ = clock_->now();
  goOn();
}

void Feed::guarded(const std::function<void()>& step) {
  const Qel::Ptr<Feed> alive(this);
  try {
    step();
  } catch (const std::exception& error) {
    // Also where the loop has no room, or there is no memory: a follower that stopped between two
    // requests would never ask again.
    handleLoss(error.what());
  }
}

Status Feed::status() const {
  Status status = Kavra::Feed::status();
  status.reachable = link_ && problem_.empty();
  status.problem = problem_;
  if (accepted_) {
    status.epoch = accepted_->epoch.value_or("");
    status.lastId = accepted_->lastId.text();
  }
  if (lastConfirmed_) status.age = std::max(0.0, clock_->now() - *lastConfirmed_);
  return status;
}

}  // namespace Kavra::Redis
