#include "Kavra/Redis/RespParser.h"

#include <fmt/format.h>
#include <hiredis/hiredis.h>

#include <new>
#include <string>
#include <utility>

#include "Kavra/Store.h"

namespace Kavra::Redis {

// What the reply that is being put together may still take.
struct RespParser::Allowance {
  std::size_t most;
  std::size_t taken = 0;

  bool take(std::size_t octets) noexcept {
    taken += octets;
    return taken <= most;
  }
};

namespace {

using Kind = Reply::Kind;

Kind kindOf(int type) noexcept {
  switch (type) {
    case REDIS_REPLY_STATUS:
      return Kind::status;
    case REDIS_REPLY_ERROR:
      return Kind::error;
    default:
      return Kind::text;
  }
}

// Where a new reply goes: into the array that is being filled, or a place of its own. Only the last
// element of an array is ever being filled, so those before it may move.
Reply* place(const redisReadTask* task, Reply reply) {
  if (task->parent == nullptr) return new Reply(std::move(reply));
  auto& siblings = static_cast<Reply*>(task->parent->obj)->elements;
  return &siblings.emplace_back(std::move(reply));
}

// hiredis is C: no exception may pass through it. Null makes it give the stream up.
template <class Allowance>
void* newReply(const redisReadTask* task, Reply reply) noexcept {
  try {
    auto* const allowance = static_cast<Allowance*>(task->privdata);
    if (!allowance->take(sizeof(Reply) + reply.text.size())) return nullptr;
    return place(task, std::move(reply));
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

template <class Allowance>
struct ReplyFunctions {
  static void* string(const redisReadTask* task, char* text, std::size_t size) noexcept {
    try {
      return newReply<Allowance>(task, {kindOf(task->type), 0, std::string(text, size), {}});
    } catch (const std::bad_alloc&) {
      return nullptr;
    }
  }
  // Elements are taken as they come: what the server announces is not to be relied on.
  static void* array(const redisReadTask* task, int /*elements*/) noexcept {
    return newReply<Allowance>(task, {Kind::array, 0, {}, {}});
  }
  static void* integer(const redisReadTask* task, long long value) noexcept {
    return newReply<Allowance>(task, {Kind::integer, value, {}, {}});
  }
  static void* nil(const redisReadTask* task) noexcept {
    return newReply<Allowance>(task, {Kind::nil, 0, {}, {}});
  }
  static void free(void* reply) noexcept { delete static_cast<Reply*>(reply); }

  static redisReplyObjectFunctions* table() noexcept {
    static redisReplyObjectFunctions functions = {string, array, integer, nil, free};
    return &functions;
  }
};

}  // namespace

RespParser::RespParser(std::size_t mostOctets)
    : allowance_(std::make_unique<Allowance>(Allowance{mostOctets})),
      reader_(redisReaderCreateWithFunctions(ReplyFunctions<Allowance>::table())) {
  if (!reader_) throw std::bad_alloc();
  reader_->privdata = allowance_.get();
}

RespParser::~RespParser() = default;

void RespParser::Deleter::operator()(redisReader* reader) const noexcept {
  redisReaderFree(reader);
}

void RespParser::feed(std::string_view octets) {
  unparsed_ += octets.size();
  redisReaderFeed(reader_.get(), octets.data(), octets.size());
}

std::optional<Reply> RespParser::take() {
  void* object = nullptr;
  if (redisReaderGetReply(reader_.get(), &object) != REDIS_OK) {
    if (allowance_->taken > allowance_->most) {
      throw StoreException(fmt::format("a reply is larger than {} octets", allowance_->most));
    }
    throw StoreException(fmt::format("not the Redis protocol: {}", reader_->errstr));
  }
  if (object == nullptr) {
    if (unparsed_ <= allowance_->most) return {};
    throw StoreException(fmt::format("a reply is larger than {} octets", allowance_->most));
  }
  const std::unique_ptr<Reply> reply(static_cast<Reply*>(object));
  allowance_->taken = 0;
  unparsed_ = reader_->len - reader_->pos;
  return std::move(*reply);
}

}  // namespace Kavra::Redis
