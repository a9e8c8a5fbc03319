#pragma once

#include <cstddef>
#include <span>
#include <vector>

#include "Kavra/Redis/Command.h"
#include "Kavra/Redis/Reply.h"

namespace Kavra::Redis {

// The commands as one transaction: nothing comes between them.
std::vector<Command> multiExec(std::vector<Command> commands);

// The outcome of a transaction of `count` commands, one element for each (or nil, when a watched
// key was changed), from the replies to all that was sent for it, and before it on the same
// connection for its sake. Raises StoreException with the text of the first error among the
// replies. Elements may be errors.
const Reply& execReply(std::span<const Reply> replies, std::size_t count);

// Whether the server has no memory left to keep the commands of a transaction, and nothing went
// wrong before it said so, such as a login. It executes the commands that only read, one by one.
bool isRefusedForMemory(std::span<const Reply> replies) noexcept;

}  // namespace Kavra::Redis
