#pragma once

#include <cstddef>
#include <string>

#include "Qel/Types.h"
#include "host/NotificationSinks.h"
#include "host/StateDatabase.h"
#include "host/StateTree.h"

namespace Host {

// More octets than this no reader of the status is sent, however much there is to tell.
constexpr std::size_t kMostStatusOctets = std::size_t{64} << 10;

// What the process serves at the moment, as a line of JSON: {"cell", "fresh", "stale",
// "redundancy", "peerMount", "rows", "notifications", "databases"}.
//
// "fresh" is true when every database that matters is followed and holds what is served, and there
// is no `agentProblem`; "stale" says what is not. "peerMount" is "none", "waiting" (nothing to
// mount yet), "mounted" or "idle" (left over from hot standby). "rows" counts the rows of units 0,
// 1 and 2. Of refused and withdrawn documents as many are listed as there is room for;
// "quarantinedCount" and "withdrawnCount" count all. "notifications" tells of the process's own
// sinks (null for none), of 64 at most: what each was sent, acknowledged and did not acknowledge,
// how many are kept for it, and why it is not reached.
std::string statusText(U32 cell, const std::string& agentProblem, const StateDatabase& database,
                       const StateTree& tree, const NotificationSinks* sinks);

}  // namespace Host
