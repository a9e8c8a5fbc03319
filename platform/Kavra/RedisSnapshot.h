#pragma once

#include <set>
#include <span>
#include <vector>

#include "Kavra/Feed.h"
#include "Kavra/RedisConnection.h"
#include "Kavra/RedisReply.h"
#include "Kavra/RedisState.h"
#include "Qel/String.h"

namespace Kavra {

// What to look at in a Redis server, all at the same moment.
struct RedisQuestion {
  std::vector<RedisCommand> commands() const;

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
