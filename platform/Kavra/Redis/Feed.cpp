#include "Kavra/Redis/Feed.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <utility>

#include "Kavra/KavraTrace.h"
#include "Kavra/Redis/MultiExec.h"
#include "Qel/Assert.h"
#include "Qel/Failure.h"

namespace Kavra::Redis {

namespace {

const Command kXread = {"XREAD", "COUNT", "128", "BLOCK", "1000", "STREAMS", kLogKey};
constexpr std::chrono::milliseconds kEarly{500};  // for an answer to it that brings nothing new
constexpr double kPause = 0.1;
constexpr char kNotFollowed[] = "nobody follows it";
constexpr char kNotReached[] = "not reached yet";
constexpr char kConnectingAnew[] = "connecting anew, with other credentials";

// The id of the last entry in the reply to XREAD, one stream with its entries.
std::optional<StreamId> lastEntryIn(const Reply& reply) {
  if (reply.elements.size() != 1 || reply.elements[0].elements.size() != 2) return {};
  const auto& entries = reply.elements[0].elements[1].elements;
  if (entries.empty() || entries.back().elements.empty()) return {};
  return StreamId::of(entries.back().elements[0].text);
}

}  // namespace

Feed::Feed(ConnectionOptions server, Qel::EventLoop& loop, const Qel::Ptr<Qel::Clock const>& clock)
    : server_(std::move(server)), loop_(loop), clock_(clock), problem_(kNotFollowed) {}

bool Feed::isStep(State from, State to) noexcept {
  using enum State;
  constexpr std::pair<State, State> kSteps[] = {
      {idle, backingOff},    {backingOff, resolving}, {backingOff, snapshot}, {resolving, snapshot},
      {snapshot, snapshot},  {snapshot, comparing},   {snapshot, pausing},    {snapshot, tailing},
      {comparing, snapshot}, {comparing, pausing},    {comparing, tailing},   {pausing, tailing},
      {tailing, snapshot},   {tailing, comparing},
  };
  if (to == idle) return from != idle;
  return std::ranges::find(kSteps, std::pair(from, to)) != std::end(kSteps);
}

void Feed::enter(State next) {
  QEL_ASSERT(isStep(state_, next));
  state_ = next;
  timer_ = nullptr;
  answered_ = nullptr;
  if (next != State::idle) return;
  link_ = nullptr;
  tail_.reset();
}

void Feed::enterFor(double seconds, State next, void (Feed::*step)()) {
  auto timer = loop_.timerIs(seconds, [this, step] { loseOnFailure([&] { (this->*step)(); }); });
  enter(next);
  timer_ = std::move(timer);
}

void Feed::ask(State next, const std::vector<Command>& commands,
               std::function<void(Replies&)> handle) {
  enter(next);
  link_->requestIs(commands, [this, handle = std::move(handle)](Replies replies) {
    loseOnFailure([&] { handle(replies); });
  });
}

bool Feed::readCredentialsAgain() {
  if (server_.loginFile.empty()) return false;
  Login login = Login::ofFile(server_.loginFile);
  if (server_.login == login) return false;
  server_.login = std::move(login);
  if (state_ == State::idle) return true;
  // At once, or a wrong one would be found out when the connection is lost, whenever that is.
  enter(State::idle);
  backOff_.reset();
  problem_ = kConnectingAnew;
  retry();
  return true;
}

void Feed::handleFollows() {
  // From the loop, since a follow may begin or end in the middle of anything; and its end, in a
  // destructor, by what needs no room there.
  if (isFollowed() && state_ == State::idle) {
    connectLater(0.0);
    problem_ = kNotReached;
  }
  if (!isFollowed() && state_ != State::idle) {
    leaving_ = Qel::activityManager()->activityIs([this] {
      const Qel::Ptr<Feed> alive(this);
      if (!isFollowed() && state_ != State::idle) disconnect();
    });
  }
}

void Feed::disconnect() {
  enter(State::idle);
  lostSince_.reset();
  problem_ = kNotFollowed;
}

void Feed::connectLater(double seconds) { enterFor(seconds, State::backingOff, &Feed::connect); }

void Feed::retry() noexcept { connectLater(backOff_.next()); }

void Feed::connect() {
  if (!server_.address.isNamed()) return connectTo(server_.address.resolve());
  auto answered = loop_.readableIs(server_.address.lookup().ask(),
                                   [this] { loseOnFailure([this] { handleAddresses(); }); });
  enterFor(AddressLookup::kPatience, State::resolving, &Feed::handleNoAddresses);
  answered_ = std::move(answered);
}

void Feed::handleAddresses() {
  // The loop lets go of the descriptor before the look-up closes it.
  answered_ = nullptr;
  connectTo(server_.address.lookup().take());
}

void Feed::handleNoAddresses() { server_.address.failUnanswered(); }

void Feed::connectTo(const AddressLookup::Addresses& addresses) {
  // A name may have addresses that do not work: each gets its turn.
  link_ = Qel::make<Link>(loop_, addresses[attempts_++ % addresses.size()],
                          [this](const std::string& why) { handleLoss(why); });
  askSnapshot(server_.loginCommands());
}

void Feed::handleLoss(const std::string& why) {
  const Qel::Ptr<Feed> alive(this);
  enter(State::idle);
  retry();
  noteOutage(why);
}

void Feed::loseOnFailure(const std::function<void()>& step) {
  const Qel::Ptr<Feed> alive(this);
  // Also where the loop has no room, or there is no memory: a follower that stopped between two
  // requests would never ask again.
  if (const auto failure = Qel::failureOf(step)) handleLoss(*failure);
}

void Feed::askSnapshot(const std::vector<Command>& login) {
  asked_ = request();
  std::vector<Command> commands = login;
  const auto transaction = multiExec(asked_.commands());
  commands.insert(commands.end(), transaction.begin(), transaction.end());
  ask(State::snapshot, commands, [this](Replies& replies) { handleSnapshot(replies); });
}

void Feed::askSingly() {
  ask(State::snapshot, asked_.singleCommands(), [this](Replies& replies) {
    auto outcome = asked_.outcomeOf(std::move(replies));
    if (outcome) return handleOutcome(std::move(*outcome));
    askSnapshot({});
  });
}

void Feed::askState() {
  // No transaction: a server without memory left refuses one, but answers this. A change between
  // the two is seen as one, too.
  ask(State::comparing, {ServerState::epochCommand(), ServerState::logCommand()},
      [this](const Replies& replies) {
        handleState({replies[0], replies[1]});
      });
}

void Feed::askTail() {
  tail_ = {belief_.present(), std::chrono::steady_clock::now()};
  Command xread = kXread;
  xread.push_back(belief_.present().lastId.text());
  ask(State::tailing, {xread}, [this](const Replies& replies) { handleTail(replies.front()); });
}

void Feed::tailOrPause() {
  const bool idly = tail_ && tail_->from == belief_.present() &&
                    std::chrono::steady_clock::now() - tail_->begin < kEarly;
  if (idly) return enterFor(kPause, State::pausing, &Feed::askTail);
  askTail();
}

void Feed::handleSnapshot(Replies& replies) {
  if (isRefusedForMemory(replies)) return askSingly();
  (void)execReply(replies, asked_.commands().size());
  handleOutcome(std::move(replies.back()));
}

void Feed::handleOutcome(Reply outcome) {
  Snapshot snapshot(asked_, std::move(outcome), &known_);
  if (asked_.names) names_ = snapshot.names;
  // What was named only now must not be missing from a snapshot that is taken in as a whole.
  if (!coversAll(asked_)) return askSnapshot({});
  const bool accepted = belief_.snapshotIs(snapshot.state, clock_->now());
  if (accepted) documentsAreOf(snapshot);
  // A log that cannot be read does not tell how far the server is.
  if (!snapshot.state.problem.empty()) return handleLoss(snapshot.state.problem);
  if (!accepted) {
    noteOutage(belief_.setback());
  } else if (belief_.rings()) {
    noteRecovery();
  }
  // Followers may have begun to follow something else.
  if (!coversAll(asked_)) return askSnapshot({});
  if (!belief_.isConfirmed()) return askState();
  tailOrPause();
}

void Feed::documentsAreOf(Snapshot& snapshot) {
  served_ = asked_;
  // None stays known where taking them in fails half-way.
  Snapshot::Octets known = std::exchange(known_, {});
  std::erase_if(known, [&](const auto& it) { return !snapshot.unchanged.contains(it.first); });
  known.merge(snapshot.octets);
  documentsAre(std::move(snapshot.documents), snapshot.unreadable, snapshot.unchanged);
  // One that is refused is looked at each time.
  std::erase_if(known, [this](const auto& it) { return !isGood(it.first); });
  known_ = std::move(known);
}

void Feed::handleState(const ServerState& state) {
  if (!belief_.lookIs(state, clock_->now())) return askSnapshot({});
  tailOrPause();
}

void Feed::handleTail(const Reply& reply) {
  const bool rangBefore = belief_.rings();
  belief_.tailIs(reply.isNil() || reply.isArray());
  if (!belief_.rings()) return handleLoss(reply.description());
  if (reply.isNil() && rangBefore && coversAll(asked_)) return askState();
  belief_.ringIs(lastEntryIn(reply));
  askSnapshot({});
}

void Feed::noteOutage(const std::string& why) {
  problem_ = why;
  const char* what = belief_.acceptedHeldAt() ? "lost" : "not reached";
  trace(lostSince_ ? 1 : 0,
        fmt::format("{}: {}: {}; {}", server_.address.text(), what, why, served()));
  if (!lostSince_) lostSince_ = clock_->now();
}

void Feed::noteRecovery() {
  problem_.clear();
  backOff_.reset();
  if (!lostSince_) return;
  const double seconds = std::max(0.0, clock_->now() - *std::exchange(lostSince_, std::nullopt));
  trace(0, fmt::format("{}: back after {:.1f} s; serving what is there", server_.address.text(),
                       seconds));
}

std::string Feed::served() const {
  const auto heldAt = belief_.acceptedHeldAt();
  if (!heldAt) return "nothing to serve yet";
  const double age = std::max(0.0, clock_->now() - *heldAt);
  return fmt::format("serving what was there {:.1f} s ago", age);
}

SnapshotRequest Feed::request() const {
  SnapshotRequest request;
  request.names = followsPrefixes();
  std::set<Qel::String> paths = followedPaths();
  if (request.names) paths.insert(names_.begin(), names_.end());
  request.paths.assign(paths.begin(), paths.end());
  return request;
}

bool Feed::coversAll(const SnapshotRequest& request) const {
  const SnapshotRequest now = this->request();
  return (request.names || !now.names) && std::includes(request.paths.begin(), request.paths.end(),
                                                        now.paths.begin(), now.paths.end());
}

Status Feed::status() const {
  Status status = Kavra::Feed::status();
  status.reachable = link_ && problem_.empty();
  status.problem = problem_;
  status.complete = belief_.accepted() && coversAll(served_);
  if (const auto& accepted = belief_.accepted()) {
    status.epoch = accepted->epoch.value_or("");
    status.lastId = accepted->lastId.text();
  }
  if (const auto heldAt = belief_.acceptedHeldAt()) {
    status.age = std::max(0.0, clock_->now() - *heldAt);
  }
  return status;
}

}  // namespace Kavra::Redis
