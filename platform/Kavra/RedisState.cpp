#include "Kavra/RedisState.h"

#include <fmt/format.h>

#include <charconv>

namespace Kavra {

namespace {

bool readWhole(std::string_view text, std::uint64_t& number) noexcept {
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  return error == std::errc() && stop == end;
}

// The value of a name in a flat array of names and values, or null.
const RedisReply* valueOf(const RedisReply& pairs, std::string_view name) noexcept {
  for (std::size_t i = 0; i + 1 < pairs.elements.size(); i += 2) {
    if (pairs.elements[i].text == name) return &pairs.elements[i + 1];
  }
  return nullptr;
}

bool isNoSuchKey(const RedisReply& reply) noexcept {
  return reply.isError() && reply.text == "ERR no such key";
}

}  // namespace

std::optional<RedisStreamId> RedisStreamId::of(std::string_view text) {
  const std::size_t dash = text.find('-');
  if (dash == std::string_view::npos) return {};
  RedisStreamId id;
  const bool good = readWhole(text.substr(0, dash), id.milliseconds) &&
                    readWhole(text.substr(dash + 1), id.number);
  return good ? std::optional(id) : std::nullopt;
}

std::string RedisStreamId::text() const { return fmt::format("{}-{}", milliseconds, number); }

RedisState::RedisState(const RedisReply& epochReply, const RedisReply& logReply) {
  if (epochReply.isText()) {
    epoch = epochReply.text;
  } else if (!epochReply.isNil()) {
    problem = fmt::format("key {}: {}", kRedisEpochKey, epochReply.description());
  }
  if (isNoSuchKey(logReply)) return;
  const RedisReply* last = valueOf(logReply, "last-generated-id");
  const auto id = last == nullptr ? std::nullopt : RedisStreamId::of(last->text);
  if (id) {
    lastId = *id;
  } else {
    problem = fmt::format("key {}: {}", kRedisLogKey,
                          logReply.isArray() ? "no last id" : logReply.description());
  }
}

}  // namespace Kavra
