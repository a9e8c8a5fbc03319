#include "Kavra/Redis/MultiExec.h"

#include <algorithm>

#include "Kavra/Store.h"

namespace Kavra::Redis {

std::vector<Command> multiExec(std::vector<Command> commands) {
  commands.insert(commands.begin(), Command{"MULTI"});
  commands.push_back({"EXEC"});
  return commands;
}

const Reply& execReply(std::span<const Reply> replies, std::size_t count) {
  for (const Reply& reply : replies) {
    if (reply.isError()) throw StoreException(reply.text);
  }
  const Reply& outcome = replies.back();
  const bool complete = outcome.isArray() && outcome.elements.size() == count;
  if (!complete && !outcome.isNil()) {
    throw StoreException("expected the outcome of a transaction but found " +
                         outcome.description());
  }
  return outcome;
}

bool isRefusedForMemory(std::span<const Reply> replies) noexcept {
  const auto error = std::find_if(replies.begin(), replies.end(),
                                  [](const Reply& reply) { return reply.isError(); });
  return error != replies.end() && error->text.starts_with("OOM ");
}

}  // namespace Kavra::Redis
