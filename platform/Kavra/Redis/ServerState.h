#pragma once

#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "Kavra/Redis/Command.h"
#include "Kavra/Redis/Reply.h"

// The keys of a Redis server beside those of the documents.
//
//   kavra:epoch  a text (GET): a new one whenever what the server held was lost
//   kavra:log    a stream (XINFO STREAM): an entry, "k" and the keys, for each publication
//   kavra:index  a hash of the paths that are published; its values tell when, in seconds since
//                1970 by the writer's clock, where they are larger than 1
//   kavra:owners, kavra:owner:...  the claims of publishers (see Owners.h)
//
// An entry of the log is called a doorbell: XADD makes it ring, and a blocking XREAD hears it. Only
// that it rings matters, and what its keys are only where the index does not tell. The last id is
// the stream's last-generated-id, which stays when entries are trimmed: within an epoch it never
// gets lower, unless the server went back to something older.
namespace Kavra::Redis {

inline constexpr char kEpochKey[] = "kavra:epoch";
inline constexpr char kLogKey[] = "kavra:log";
inline constexpr char kIndexKey[] = "kavra:index";

// The id of an entry of a stream: the server's time in milliseconds, and a number.
struct StreamId {
  std::uint64_t milliseconds = 0;
  std::uint64_t number = 0;

  static std::optional<StreamId> of(std::string_view text);
  std::string text() const;
  friend auto operator<=>(const StreamId& a, const StreamId& b) = default;
};

// By what a follower tells whether a server holds other things than before.
struct ServerState {
  // The two commands whose replies tell the state.
  static Command epochCommand() { return {"GET", kEpochKey}; }
  static Command logCommand() { return {"XINFO", "STREAM", kLogKey}; }

  ServerState() = default;
  // Never raises: what cannot be read is in `problem`.
  ServerState(const Reply& epochReply, const Reply& logReply);

  // Whether what the server holds now is older than what it held at `other`: the same epoch, in
  // which the log only ever grows, with fewer entries written.
  bool isBefore(const ServerState& other) const noexcept {
    return epoch && epoch == other.epoch && lastId < other.lastId;
  }
  friend bool operator==(const ServerState& a, const ServerState& b) = default;

  std::optional<std::string> epoch;  // absent until something was published
  StreamId lastId;                   // of the last entry ever written; 0-0 without a log
  std::string problem;               // what is wrong with either key
};

}  // namespace Kavra::Redis
