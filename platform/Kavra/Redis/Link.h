#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "Kavra/Redis/Command.h"
#include "Kavra/Redis/Connection.h"
#include "Kavra/Redis/Reply.h"
#include "Kavra/SocketAddress.h"
#include "Qel/EventLoop.h"
#include "Qel/Ptr.h"
#include "Qel/PtrInterface.h"

namespace Kavra::Redis {

// A connection to a Redis server on the event loop, for one request at a time.
//
// A request is a sequence of commands; its call comes once, with as many replies, from the loop.
// The link is lost, once and for good, when the server or the network ends it, when a request is
// not answered within its time, and when a reply comes that nobody asked for. After its loss, and
// after it was let go (also from inside its own calls), it calls nobody.
class Link final : public Qel::PtrInterface {
 public:
  using Replies = std::vector<Reply>;
  using AnswerCall = std::function<void(Replies replies)>;
  // Where an answer that has begun must go on: also between two of its replies, or inside a reply
  // alone, where the server may have much to do for each.
  enum class Stall { anywhere, insideReply };
  using LostCall = std::function<void(const std::string& why)>;

  // Seconds in which a connection must stand, enough for one repetition of a packet that was lost
  // (RFC 6298: after 1 s); a new attempt is sooner there than a second repetition.
  static constexpr double kConnectPatience = 1.5;
  // Seconds in which a request must be answered, or so many octets more of it or its answer be
  // under way: the largest documents take their time, but nobody drips for ever. And those in which
  // a reply that has begun must go on: a length that lies is found out sooner than silence.
  static constexpr double kPatience = 3.0;
  static constexpr std::size_t kFairOctets = std::size_t{256} << 10;
  static constexpr double kStallPatience = 1.0;

  // Begins to connect. Raises StoreException when that fails at once, and RangeException when the
  // loop takes no more descriptors. `loop` must outlive the link.
  Link(Qel::EventLoop& loop, const SocketAddress& address, LostCall lost,
       Stall stall = Stall::anywhere);

  bool isConnected() const noexcept { return connected_; }

  // Not while a request is under way. Raises RangeException when the loop takes no more timers.
  void requestIs(const std::vector<Command>& commands, AnswerCall answered);

 private:
  void handleWritable();
  void handleReadable();
  // Takes in what came. True when the request is answered.
  bool receive();
  // Takes the replies that have come; true when they answer the request.
  bool takeReplies();
  void send();
  // The request has its whole time from now on.
  void begin();
  // Begins anew after a fair part of it.
  void goOn();
  [[nodiscard]] Qel::Ptr<Qel::EventWatch> alarm(double seconds, const char* problem);
  // Runs a step; its failure is the loss of the link.
  void loseOnFailure(const std::function<void()>& step);
  void lose(const std::string& why);

  Qel::EventLoop& loop_;
  std::optional<Connection> connection_;  // empty after the loss
  LostCall lost_;
  const Stall stallAt_;
  bool connected_ = false;  // once, whatever became of it since
  AnswerCall answered_;     // null while no request is under way
  std::size_t expected_ = 0;
  std::size_t octetsAtBegin_ = 0;  // those of the connection
  Replies replies_;
  // Before the connection goes, its watches go.
  Qel::Ptr<Qel::EventWatch> readable_;
  Qel::Ptr<Qel::EventWatch> writable_;
  Qel::Ptr<Qel::EventWatch> alarm_;
  Qel::Ptr<Qel::EventWatch> stall_;
};

}  // namespace Kavra::Redis
