#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string_view>

#include "Kavra/Redis/Reply.h"

struct redisReader;

namespace Kavra::Redis {

// Puts the octets that a Redis server sends together to replies, wherever they were split.
//
// A reply may take `mostOctets` in memory, and each part of it, an array in an array, so many
// again. Of what takes more an error is kept in its place, and the rest is passed over: neither a
// length that lies nor a flood makes the process grow beyond a small multiple of it all. After the
// first StoreException the stream has lost its frame, and the reader is of no more use.
class RespParser {
 public:
  explicit RespParser(std::size_t mostOctets);
  RespParser(const RespParser&) = delete;
  RespParser& operator=(const RespParser&) = delete;
  ~RespParser();

  // How many parts of a reply may take so much of their own, 1 at first; others count to the whole.
  void mostPartsIs(std::size_t parts) noexcept;
  void feed(std::string_view octets);
  // The next whole reply, or nothing until more octets are fed. Raises StoreException for what is
  // not the protocol, and for a single text longer than a reply may be.
  std::optional<Reply> take();
  // Whether part of a reply was fed and the rest is missing, after take() returned nothing.
  bool isInsideReply() const noexcept { return unparsed_ > 0; }

 private:
  struct Deleter {
    void operator()(redisReader* reader) const noexcept;
  };
  struct Allowance;

  const std::unique_ptr<Allowance> allowance_;
  const std::unique_ptr<redisReader, Deleter> reader_;
  std::size_t unparsed_ = 0;  // octets fed since the last whole reply
};

}  // namespace Kavra::Redis
