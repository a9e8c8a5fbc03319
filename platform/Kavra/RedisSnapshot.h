#pragma once

#include <optional>
#include <set>
#include <span>
#include <vector>

#include "Kavra/Feed.h"
#include "Kavra/RedisConnection.h"
#include "Kavra/RedisReply.h"
#include "Kavra/RedisState.h"
#include "Qel/String.h"

namespace Kavra {

// What to look at in a Redis server, all of it in the same state.
struct RedisQuestion {
  std::vector<RedisCommand> commands() const;

  // The same without a transaction, for a server that has no memory left for one: the state is
  // asked for again at the end. The outcome is that of a transaction, or nothing when the state
  // changed meanwhile.
  std::vector<RedisCommand> singleCommands() const;
  std::optional<RedisReply> outcomeOf(std::span<const RedisReply> replies) const;

  std::vector<Qel::String> paths;
  bool names = false;  // also which paths there are
};

// The answer to it.
struct RedisSnapshot {
  // `outcome` is that of the question's commands as one transaction.
  // Throws StoreException where the server discarded it.
  RedisSnapshot(const RedisQuestion& question, const RedisReply& outcome);

  RedisState state;
  // The paths of the index and, in case it is not complete, of the doorbells in the log. There need
  // not be a document.
  std::set<Qel::String> names;
  Feed::Documents documents;
  Feed::Problems unreadable;
};

}  // namespace Kavra
