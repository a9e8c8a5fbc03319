#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Kavra/Feed.h"
#include "Kavra/Redis/Command.h"
#include "Kavra/Redis/Reply.h"
#include "Kavra/Redis/ServerState.h"
#include "Qel/String.h"

namespace Kavra::Redis {

// What to look at in a Redis server, all of it in the same state.
struct SnapshotRequest {
  std::vector<Command> commands() const;

  // The same without a transaction, for a server that has no memory left for one: the state is
  // asked for again at the end. The outcome is that of a transaction, or nothing when the state
  // changed meanwhile.
  std::vector<Command> singleCommands() const;
  std::optional<Reply> outcomeOf(std::vector<Reply> replies) const;

  std::vector<Qel::String> paths;
  bool names = false;  // also which paths there are
};

// The answer to it.
struct Snapshot {
  // The octets of a hash as a server answered, fields in its order, by the document's path.
  using Octets = std::map<Qel::String, std::string>;

  // `outcome` is that of the request's commands as one transaction. A hash whose octets are among
  // `known` is not decoded again; null for who will not ask again.
  // Throws StoreException where the server discarded it.
  Snapshot(const SnapshotRequest& request, Reply outcome, const Octets* known = nullptr);

  ServerState state;
  // The paths of the index and, in case it is not complete, of the doorbells in the log. There need
  // not be a document.
  std::set<Qel::String> names;
  std::map<Qel::String, std::string> index;  // the paths of the index alone, and its values
  Kavra::Feed::Documents documents;
  Octets octets;                    // what they were decoded from, unless nobody will ask again
  std::set<Qel::String> unchanged;  // the paths of those that are known already
  std::set<Qel::String> unchecked;  // which of them have no check over their fields
  Kavra::Feed::Problems unreadable;
};

}  // namespace Kavra::Redis
