#include "Kavra/Redis/RespParser.h"

#include <fmt/format.h>
#include <hiredis/hiredis.h>

#include <new>
#include <string>
#include <utility>

#include "Kavra/Store.h"

namespace Kavra::Redis {

// What the reply that is being put together takes, and may take.
struct RespParser::Allowance {
  std::size_t most;
  std::size_t mostParts = 1;
  std::size_t parts = 0;    // so far
  std::size_t ofWhole = 0;  // beside the parts that have their own
  std::size_t ofPart = 0;   // the present one
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

// The part that a new reply is in, or the whole; null where it is the whole.
Reply* homeOf(const redisReadTask* task, bool inPart) noexcept {
  const redisReadTask* outer = task->parent;
  if (outer == nullptr) return nullptr;
  while (outer->parent != nullptr && (!inPart || outer->parent->parent != nullptr)) {
    outer = outer->parent;
  }
  return static_cast<Reply*>(outer->obj);
}

template <class Allowance>
Reply* addReply(const redisReadTask* task, Reply reply) {
  auto* const allowance = static_cast<Allowance*>(task->privdata);
  const bool isElement = task->parent != nullptr && task->parent->parent == nullptr;
  const bool isNested = task->parent != nullptr && !isElement;
  const bool inPart = isNested && allowance->parts <= allowance->mostParts;
  Reply* const home = homeOf(task, inPart);
  // What was too large has no elements.
  if (home != nullptr && home->isError()) return home;
  if (isElement && reply.isArray()) {
    ++allowance->parts;
    allowance->ofPart = 0;
  }
  std::size_t& taken = inPart ? allowance->ofPart : allowance->ofWhole;
  taken += sizeof(Reply) + reply.text.size();
  if (taken <= allowance->most) return place(task, std::move(reply));
  Reply tooLarge{Kind::error, 0, fmt::format("larger than {} octets", allowance->most), {}};
  if (home == nullptr) return place(task, std::move(tooLarge));
  *home = std::move(tooLarge);
  return home;
}

// hiredis is C: no exception may pass through it. Null makes it give the stream up.
template <class Allowance>
void* newReply(const redisReadTask* task, Reply reply) noexcept {
  try {
    return addReply<Allowance>(task, std::move(reply));
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
    : allowance_(std::make_unique<Allowance>(Allowance{.most = mostOctets})),
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

void RespParser::mostPartsIs(std::size_t parts) noexcept { allowance_->mostParts = parts; }

std::optional<Reply> RespParser::take() {
  void* object = nullptr;
  if (redisReaderGetReply(reader_.get(), &object) != REDIS_OK) {
    throw StoreException(fmt::format("not the Redis protocol: {}", reader_->errstr));
  }
  if (object == nullptr) {
    // Whatever is whole was taken out: this is part of a single text.
    if (reader_->len - reader_->pos <= allowance_->most) return {};
    throw StoreException(fmt::format("a text is larger than {} octets", allowance_->most));
  }
  const std::unique_ptr<Reply> reply(static_cast<Reply*>(object));
  allowance_->parts = 0;
  allowance_->ofWhole = 0;
  unparsed_ = reader_->len - reader_->pos;
  return std::move(*reply);
}

}  // namespace Kavra::Redis
