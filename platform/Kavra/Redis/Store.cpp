#include "Kavra/Redis/Store.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <random>
#include <set>
#include <utility>

#include "Kavra/Path.h"
#include "Kavra/Redis/Command.h"
#include "Kavra/Redis/DocumentHash.h"
#include "Kavra/Redis/MultiExec.h"
#include "Kavra/Redis/Owners.h"
#include "Kavra/Redis/Reply.h"
#include "Qel/Failure.h"
#include "Qel/Number.h"

namespace Kavra::Redis {

namespace {

constexpr int kMostAttempts = 100;
constexpr char kMostLogEntries[] = "1024";
constexpr double kMillisecond = 1e-3;
constexpr double kReadAgainAfter = 30.0;

// What goes when followers are to read everything anew.
const std::vector<std::string> kNewEpoch = {kLogKey, kEpochKey};

std::string newEpoch() {
  std::random_device random;
  return fmt::format("{:08x}{:08x}{:08x}{:08x}", random(), random(), random(), random());
}

// Servers before 7.0 take no more arguments in one command.
static_assert(2 * kMostFields + 2 <= std::size_t{1} << 20);

Command hashCommand(const Qel::String& path, const Qel::Document& document) {
  Qel::DocumentCodec::Fields fields = fieldsOf(path, document);
  Command command{"HSET", keyOf(path)};
  command.reserve(command.size() + 2 * fields.size());
  for (auto& [name, value] : fields) {
    command.push_back(std::move(name));
    command.push_back(std::move(value));
  }
  return command;
}

// What makes the server hold `document` (nothing, where it is null) at `path`.
void addChange(std::vector<Command>& commands, const Qel::String& path,
               const Qel::Document* document, const std::string& now) {
  commands.push_back({"DEL", keyOf(path)});
  if (document != nullptr) {
    commands.push_back(hashCommand(path, *document));
    commands.push_back({"HSET", kIndexKey, path.stdString(), now});
  } else {
    commands.push_back({"HDEL", kIndexKey, path.stdString()});
  }
}

// Ends in the doorbell and the epoch, whose replies tell the state of the server afterwards.
template <class Changes>
std::vector<Command> publishingCommands(const Changes& changes,
                                        const std::vector<std::string>& forgotten,
                                        const std::string& now) {
  std::vector<Command> commands;
  std::transform(forgotten.begin(), forgotten.end(), std::back_inserter(commands),
                 [](const std::string& key) {
                   return Command{"DEL", key};
                 });
  commands.push_back({"SET", kEpochKey, newEpoch(), "NX"});
  Command ring{"XADD", kLogKey, "MAXLEN", "~", kMostLogEntries, "*"};
  for (const auto& [path, document] : changes) {
    addChange(commands, path, document, now);
    ring.insert(ring.end(), {"k", keyOf(path)});
  }
  commands.push_back(std::move(ring));
  commands.push_back({"GET", kEpochKey});
  return commands;
}

// The outcome of a publication. Whether it took effect is not known when the answer is lost.
Reply outcomeOf(Client& client, std::vector<Command> commands) {
  const std::size_t count = commands.size();
  std::vector<Reply> replies;
  try {
    replies = client.request(multiExec(std::move(commands)));
  } catch (const StoreException& error) {
    throw StoreException(error.text() + "; it is not known whether it was published");
  }
  try {
    return execReply(replies, count);
  } catch (const StoreException& error) {
    client.fail(error.what());
  }
}

// The place of the first element that is an error, or the number of elements.
std::size_t errorIn(const Reply& outcome) {
  const auto& elements = outcome.elements;
  const auto error = std::find_if(elements.begin(), elements.end(),
                                  [](const Reply& element) { return element.isError(); });
  return static_cast<std::size_t>(error - elements.begin());
}

// The value of a path in the index. One that was written by hand is 1.
std::optional<double> timeIn(const std::string& value) {
  const auto seconds = Qel::numberOf<double>(value);
  return seconds && *seconds > 1 ? seconds : std::nullopt;
}

Snapshot read(Client& client, const SnapshotRequest& request) {
  for (int attempt = 0; attempt < kMostAttempts; ++attempt) {
    auto outcome = client.transaction(request.commands());
    if (!outcome) outcome = request.outcomeOf(client.request(request.singleCommands()));
    if (outcome) return {request, std::move(*outcome)};
  }
  client.fail("it changes faster than it can be read");
}

}  // namespace

Store::Store(ConnectionOptions server, const Qel::Ptr<Qel::Clock const>& clock)
    : server_(std::move(server)), clock_(clock) {}

Snapshot Store::readAll(Client& client, const std::set<Qel::String>& paths,
                        const std::function<bool(const Qel::String&)>& covers) {
  SnapshotRequest request{{paths.begin(), paths.end()}, true};
  for (int attempt = 0; attempt < kMostAttempts; ++attempt) {
    Snapshot snapshot = read(client, request);
    std::set<Qel::String> all = paths;
    std::copy_if(snapshot.names.begin(), snapshot.names.end(), std::inserter(all, all.end()),
                 covers);
    if (std::ranges::equal(all, request.paths)) return snapshot;
    request.paths.assign(all.begin(), all.end());
  }
  client.fail("paths come and go faster than they can be read");
}

Snapshot Store::readAll(Client& client, const Qel::String& prefix) {
  std::set<Qel::String> paths;
  // Whoever published it may not have put it into the index.
  if (isPath(prefix.view())) paths.insert(prefix);
  return readAll(client, paths,
                 [&](const Qel::String& path) { return path.view().starts_with(prefix.view()); });
}

Snapshot Store::readOwned(Client& client, const Publication& publication) {
  const auto& [claim, documents, spared] = publication;
  std::set<Qel::String> paths;
  for (const auto& [path, document] : documents) paths.insert(path);
  std::copy_if(claim.places.begin(), claim.places.end(), std::inserter(paths, paths.end()),
               [](const Qel::String& place) { return isPath(place.view()); });
  for (const Qel::String& path : spared) paths.erase(path);
  return readAll(client, paths, [&](const Qel::String& path) {
    return publication.claim.covers(path) && !publication.spared.contains(path);
  });
}

Kavra::Store::Documents Store::documents(const Qel::String& prefix) {
  Client client(server_);
  Snapshot snapshot = readAll(client, prefix);
  return withUnreadable(std::move(snapshot.documents), snapshot.unreadable);
}

Kavra::Store::Listing Store::listing(const Qel::String& prefix) {
  Client client(server_);
  const Snapshot snapshot = readAll(client, prefix);
  Listing listing;
  const auto list = [&](const Qel::String& path) {
    const auto value = snapshot.index.find(path);
    listing.emplace(path, value == snapshot.index.end() ? std::nullopt : timeIn(value->second));
  };
  for (const auto& [path, document] : snapshot.documents) list(path);
  for (const auto& [path, why] : snapshot.unreadable) list(path);
  return listing;
}

bool Store::publicationIs(const Publication& publication) {
  Documents wanted = canonical(publication.documents);
  try {
    const bool isChange = wanted != held_.documents;
    if (!isChange || !isStillHeld(publication)) readHeld(keptClient(), publication);
    return hold(*kept_, publication, std::move(wanted));
  } catch (const StoreException&) {
    look_.reset();
    kept_.reset();
    throw;
  }
}

bool Store::isStillHeld(const Publication& publication) {
  const double age = clock_->now() - held_.readAt;
  // What is spared was not read.
  const bool isSameExtent = publication.claim == claim_ && publication.spared == held_.spared;
  return isSameExtent && age >= 0.0 && age < kReadAgainAfter && isAsPublished();
}

Client& Store::keptClient() {
  // The server may have closed it since.
  if (kept_ && Qel::failureOf([this] { kept_->request({{"PING"}}); })) kept_.reset();
  if (!kept_) kept_.emplace(server_);
  return *kept_;
}

void Store::readHeld(Client& client, const Publication& publication) {
  look_.reset();
  // What is found may be somebody else's.
  checks_.clear();
  needClaim(client, publication.claim);
  claim_ = publication.claim;
  Snapshot snapshot = readOwned(client, publication);
  held_ = {withUnreadable(std::move(snapshot.documents), snapshot.unreadable),
           std::move(snapshot.index),
           std::move(snapshot.unchecked),
           std::move(snapshot.state),
           clock_->now(),
           publication.spared};
}

bool Store::hold(Client& client, const Publication& publication, Documents wanted) {
  look_.reset();
  const ServerState& state = held_.state;
  // Followers do not believe an older state of the epoch that they know.
  const bool older = !state.problem.empty() || (published_ && state.isBefore(*published_));
  const bool lost = older || !published_ || state.epoch != published_->epoch;
  Changes changes = changesOf(held_.documents, wanted, lost);
  for (const auto& [path, document] : wanted) {
    const bool isWhole = held_.index.contains(path) && !held_.unchecked.contains(path);
    if (!isWhole) changes.emplace(path, &document);
  }
  if (!changes.empty()) {
    watchClaim(client, publication.claim);
    if (!publish(client, changes, older ? kNewEpoch : Keys())) client.fail("its claim was lost");
  }
  const bool isChanged = !changes.empty();
  for (const auto& [path, document] : changes) held_.index.insert_or_assign(path, publishedAt_);
  if (isChanged) held_.state = *published_;
  held_.documents = std::move(wanted);
  held_.unchecked.clear();
  look_.emplace(claim_, held_.documents, held_.index, held_.state, checks_);
  return isChanged;
}

bool Store::isAsPublished() {
  if (!kept_ || !look_) return false;
  bool same = false;
  const auto failure = Qel::failureOf([&] {
    const auto outcome = kept_->transaction(look_->commands());
    same = look_->isAsBefore(outcome ? outcome->elements : kept_->request(look_->commands()));
  });
  // The next one may find out why, on another connection.
  if (failure) kept_.reset();
  return same && !failure;
}

void Store::claimDel() {
  if (!kept_ || claim_.places.empty()) return;
  kept_->request({{"DEL", markKeyOf(claim_)}, {"HDEL", kOwnersKey, claim_.name()}});
}

void Store::transact(const std::vector<Qel::String>& paths, const Edit& edit) {
  Client client(server_);
  for (int attempt = 0; attempt < kMostAttempts; ++attempt) {
    if (!force()) Owners(client).needUnowned(paths);
    const Documents before = readWatched(client, paths);
    Documents after = before;
    edit(after);
    const Changes changes = changesOf(before, after, false);
    if (changes.empty() || publish(client, changes, {})) return;
  }
  client.fail("other writers are faster, again and again");
}

bool Store::replace(const Qel::String& path, const Qel::Document* document) {
  Client client(server_);
  for (int attempt = 0; attempt < kMostAttempts; ++attempt) {
    if (!force()) Owners(client).needUnowned({path});
    // What stands there is not read: it may be anything, of any size.
    if (document == nullptr) {
      const Reply stood = client.request({{"EXISTS", keyOf(path)}}).front();
      if (stood.isError()) client.fail(stood.text);
      if (stood.integer == 0) return false;
    }
    if (publish(client, {{path, document}}, {})) return true;
  }
  client.fail("other writers are faster, again and again");
}

Kavra::Store::Documents Store::readWatched(Client& client, const std::vector<Qel::String>& paths) {
  const SnapshotRequest request{paths, false};
  std::vector<Command> commands = request.commands();
  Command watch{"WATCH", kEpochKey};
  for (const Qel::String& path : paths) watch.push_back(keyOf(path));
  commands.insert(commands.begin(), std::move(watch));
  // Not in a transaction, since the end of one ends the watch, too.
  Reply outcome{Reply::Kind::array, 0, {}, client.request(commands)};
  if (!outcome.elements.front().isStatus("OK")) {
    client.fail("WATCH: " + outcome.elements.front().description());
  }
  outcome.elements.erase(outcome.elements.begin());
  Snapshot snapshot(request, std::move(outcome));
  return withUnreadable(std::move(snapshot.documents), snapshot.unreadable);
}

Store::Changes Store::changesOf(const Documents& present, const Documents& wanted, bool lost) {
  Changes changes;
  for (const auto& [path, document] : present) {
    if (!wanted.contains(path)) changes.emplace(path, nullptr);
  }
  for (const auto& [path, document] : wanted) {
    const auto found = present.find(path);
    if (lost || found == present.end() || found->second != document) {
      changes.emplace(path, &document);
    }
  }
  return changes;
}

bool Store::publish(Client& client, const Changes& changes, const Keys& forgotten) {
  publishedAt_ = fmt::format("{:.3f}", clock_->now());
  std::vector<Command> commands = publishingCommands(changes, forgotten, publishedAt_);
  std::vector<std::string> keys;
  for (const Command& command : commands) {
    keys.push_back(command[1]);
    noteCheckIn(command);
  }
  const Reply outcome = outcomeOf(client, std::move(commands));
  if (outcome.isNil()) return false;
  if (const std::size_t error = errorIn(outcome); error != outcome.elements.size()) {
    return publishAgain(client, changes, forgotten, {keys[error], outcome.elements[error].text});
  }
  published_.emplace();
  const auto end = outcome.elements.end();
  published_->epoch = end[-1].text;
  published_->lastId = StreamId::of(end[-2].text).value_or(StreamId());
  return true;
}

void Store::noteCheckIn(const Command& command) {
  if (command.size() < 4 || !pathOfKey(command[1])) return;
  const bool hasCheck = command[command.size() - 2] == kCheckField;
  checks_[command[1]] = hasCheck ? std::optional(command.back()) : std::nullopt;
}

bool Store::publishAgain(Client& client, const Changes& changes, const Keys& forgotten,
                         const Refusal& refusal) {
  Keys more = forgotten;
  for (const std::string& key : {kNewEpoch[0], kNewEpoch[1], refusal.key}) {
    if (std::find(more.begin(), more.end(), key) == more.end()) more.push_back(key);
  }
  if (more == forgotten) client.fail(fmt::format("key {}: {}", refusal.key, refusal.why));
  return publish(client, changes, more);
}

Status Store::status() {
  Status status;
  try {
    Client client(server_);
    const Snapshot snapshot = readAll(client, {});
    status.reachable = true;
    status.problem = snapshot.state.problem;
    status.epoch = snapshot.state.epoch.value_or("");
    status.lastId = snapshot.state.lastId.text();
    addQuarantined(status, snapshot.documents, snapshot.unreadable);
    const double seconds = static_cast<double>(snapshot.state.lastId.milliseconds) * kMillisecond;
    if (seconds > 0) status.age = std::max(0.0, clock_->now() - seconds);
  } catch (const StoreException& error) {
    status.problem = error.text();
  }
  return status;
}

}  // namespace Kavra::Redis
