#include "Kavra/Redis/Snapshot.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <span>
#include <utility>

#include "Kavra/Path.h"
#include "Kavra/Redis/DocumentHash.h"
#include "Kavra/Store.h"
#include "Qel/Assert.h"

namespace Kavra::Redis {

namespace {

void addName(std::set<Qel::String>& names, const Qel::String& path) {
  if (isPath(path.view())) names.insert(path);
}

std::map<Qel::String, std::string> indexIn(const Reply& reply) {
  std::map<Qel::String, std::string> index;
  for (std::size_t i = 0; i + 1 < reply.elements.size(); i += 2) {
    const std::string& path = reply.elements[i].text;
    if (isPath(path)) index.emplace(path, reply.elements[i + 1].text);
  }
  return index;
}

// One entry of a stream: its id, and an array of names and values.
void addDoorbell(std::set<Qel::String>& names, const Reply& entry) {
  if (entry.elements.size() != 2) return;
  for (const Reply& text : entry.elements[1].elements) {
    if (const auto path = pathOfKey(text.text)) addName(names, *path);
  }
}

// The reply to XREAD for one stream: nil, or an array of one pair, the key and the entries.
void addDoorbells(std::set<Qel::String>& names, const Reply& log) {
  if (log.elements.size() != 1 || log.elements[0].elements.size() != 2) return;
  for (const Reply& entry : log.elements[0].elements[1].elements) addDoorbell(names, entry);
}

// Each text behind its size; empty for what is no hash, or none that is there.
std::string octetsIn(const Reply& hash) {
  if (!std::ranges::all_of(hash.elements, &Reply::isText)) return {};
  std::size_t size = 0;
  for (const Reply& text : hash.elements) size += sizeof(size) + text.text.size();
  std::string octets(size, '\0');
  char* at = octets.data();
  const auto put = [&at](const void* from, std::size_t count) {
    std::memcpy(at, from, count);
    at += count;
  };
  for (const Reply& text : hash.elements) {
    const std::size_t count = text.text.size();
    put(&count, sizeof(count));
    put(text.text.data(), count);
  }
  return octets;
}

}  // namespace

std::vector<Command> SnapshotRequest::commands() const {
  std::vector<Command> commands{ServerState::epochCommand(), ServerState::logCommand()};
  if (names) {
    commands.push_back({"HGETALL", kIndexKey});
    commands.push_back({"XREAD", "STREAMS", kLogKey, "0-0"});
  }
  for (const Qel::String& path : paths) commands.push_back({"HGETALL", keyOf(path)});
  return commands;
}

std::vector<Command> SnapshotRequest::singleCommands() const {
  std::vector<Command> singles = commands();
  singles.push_back(ServerState::epochCommand());
  singles.push_back(ServerState::logCommand());
  return singles;
}

std::optional<Reply> SnapshotRequest::outcomeOf(std::vector<Reply> replies) const {
  QEL_ASSERT(replies.size() == singleCommands().size());
  const auto after = replies.end() - 2;
  // Whoever publishes rings, too, and so moves the state on.
  if (ServerState(replies[0], replies[1]) != ServerState(after[0], after[1])) return {};
  replies.erase(after, replies.end());
  return Reply{Reply::Kind::array, 0, {}, std::move(replies)};
}

Snapshot::Snapshot(const SnapshotRequest& request, Reply outcome, const Octets* known) {
  // Nothing is watched, so no good server does that; but it may not be a good server.
  if (outcome.isNil()) throw StoreException("the transaction was discarded");
  std::span<Reply> replies(outcome.elements);
  QEL_ASSERT(replies.size() == request.commands().size());
  state = ServerState(replies[0], replies[1]);
  replies = replies.subspan(2);
  if (request.names) {
    index = indexIn(replies[0]);
    for (const auto& [path, value] : index) names.insert(path);
    addDoorbells(names, replies[1]);
    replies = replies.subspan(2);
  }
  for (std::size_t i = 0; i < request.paths.size(); ++i) {
    const Qel::String& path = request.paths[i];
    std::string found = known != nullptr ? octetsIn(replies[i]) : std::string();
    if (known != nullptr && known->contains(path) && known->at(path) == found) {
      unchanged.insert(path);
      continue;
    }
    DocumentHash hash(path, std::move(replies[i]));
    if (hash.document) {
      if (!found.empty()) octets.emplace(path, std::move(found));
      if (!hash.hasCheck) unchecked.insert(path);
      documents.emplace(path, std::move(*hash.document));
    } else if (hash.isPublished()) {
      unreadable.emplace(path, std::move(hash.problem));
    }
  }
}

}  // namespace Kavra::Redis
