#include "Kavra/Redis/ServerState.h"

#include <fmt/format.h>
#include <cstddef>

#include "Qel/Number.h"

namespace Kavra::Redis {

namespace {

// The value of a name in a flat array of names and values, or null.
const Reply* valueOf(const Reply& pairs, std::string_view name) noexcept {
  for (std::size_t i = 0; i + 1 < pairs.elements.size(); i += 2) {
    if (pairs.elements[i].text == name) return &pairs.elements[i + 1];
  }
  return nullptr;
}

bool isNoSuchKey(const Reply& reply) noexcept {
  return reply.isError() && reply.text == "ERR no such key";
}

}  // namespace

std::optional<StreamId> StreamId::of(std::string_view text) {
  const std::size_t dash = text.find('-');
  if (dash == std::string_view::npos) return {};
  const auto milliseconds = Qel::numberOf<std::uint64_t>(text.substr(0, dash));
  const auto number = Qel::numberOf<std::uint64_t>(text.substr(dash + 1));
  if (!milliseconds || !number) return {};
  return StreamId{*milliseconds, *number};
}

std::string StreamId::text() const { return fmt::format("{}-{}", milliseconds, number); }

ServerState::ServerState(const Reply& epochReply, const Reply& logReply) {
  if (epochReply.isText()) {
    epoch = epochReply.text;
  } else if (!epochReply.isNil()) {
    problem = fmt::format("key {}: {}", kEpochKey, epochReply.description());
  }
  if (isNoSuchKey(logReply)) return;
  const Reply* last = valueOf(logReply, "last-generated-id");
  const auto id = last == nullptr ? std::nullopt : StreamId::of(last->text);
  if (id) {
    lastId = *id;
  } else {
    problem = fmt::format("key {}: {}", kLogKey,
                          logReply.isArray() ? "no last id" : logReply.description());
  }
}

}  // namespace Kavra::Redis
