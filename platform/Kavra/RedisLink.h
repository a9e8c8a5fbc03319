#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "Kavra/RedisConnection.h"
#include "Qel/EventLoop.h"
#include "Qel/Ptr.h"

namespace Kavra {

// A connection to a Redis server on the event loop, for one request at a time.
//
// A request is a sequence of commands; its call comes once, with as many replies, from the loop.
// The link is lost, once and for good, when the server or the network ends it, when a request is
// not answered within its time, and when a reply comes that nobody asked for. After its loss, and
// after it was let go (also from inside its own calls), it calls nobody.
class RedisLink final : public Qel::PtrInterface {
 public:
  using Replies = std::vector<RedisReply>;
  using AnswerCall = std::function<void(Replies replies)>;
  using LostCall = std::function<void(const std::string& why)>;

  // Seconds in which a connection must stand and a request must be answered.
  static constexpr double kPatience = 3.0;

  // Begins to connect. Raises StoreException when that fails at once, and RangeException when the
  // loop takes no more descriptors. `loop` must outlive the link.
  RedisLink(Qel::EventLoop& loop, const SocketAddress& address, LostCall lost);

  // Not while a request is under way.
  void requestIs(const std::vector<RedisCommand>& commands, AnswerCall answered);

 private:
  void handleWritable();
  void handleReadable();
  // Takes the replies that have come; true when they answer the request.
  bool takeReplies();
  void send();
  void armAlarm();
  // Runs a step; whatever it raises is the loss of the link.
  void guarded(const std::function<void()>& step);
  void lose(const std::string& why);

  Qel::EventLoop& loop_;
  std::optional<RedisConnection> connection_;  // empty after the loss
  LostCall lost_;
  AnswerCall answered_;  // null while no request is under way
  std::size_t expected_ = 0;
  Replies replies_;
  // Before the connection goes, its watches go.
  Qel::Ptr<Qel::EventWatch> readable_;
  Qel::Ptr<Qel::EventWatch> writable_;
  Qel::Ptr<Qel::EventWatch> alarm_;
};

}  // namespace Kavra
