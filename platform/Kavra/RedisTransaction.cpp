#include "Kavra/RedisTransaction.h"

#include <algorithm>

#include "Kavra/Store.h"

namespace Kavra {

std::vector<RedisCommand> redisTransactionOf(const std::vector<RedisCommand>& commands) {
  std::vector<RedisCommand> transaction{{"MULTI"}};
  transaction.insert(transaction.end(), commands.begin(), commands.end());
  transaction.push_back({"EXEC"});
  return transaction;
}

const RedisReply& redisOutcomeOf(std::span<const RedisReply> replies, std::size_t count) {
  for (const RedisReply& reply : replies) {
    if (reply.isError()) throw StoreException(reply.text);
  }
  const RedisReply& outcome = replies.back();
  const bool complete = outcome.isArray() && outcome.elements.size() == count;
  if (!complete && !outcome.isNil()) {
    throw StoreException("expected the outcome of a transaction but found " +
                         outcome.description());
  }
  return outcome;
}

bool isRefusedForMemory(std::span<const RedisReply> replies) noexcept {
  const auto error = std::find_if(replies.begin(), replies.end(),
                                  [](const RedisReply& reply) { return reply.isError(); });
  return error != replies.end() && error->text.starts_with("OOM ");
}

}  // namespace Kavra
