#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "Kavra/FileDescriptor.h"
#include "Kavra/Redis/Command.h"
#include "Kavra/Redis/Reply.h"
#include "Kavra/Redis/RespParser.h"
#include "Kavra/SocketAddress.h"

namespace Kavra::Redis {

// A connection to a Redis server that never blocks and never raises a signal: whoever owns it waits
// for its descriptor. Every error raises StoreException, after which it is of no more use.
class Connection {
 public:
  static constexpr std::size_t kMostReplyOctets = std::size_t{64} << 20;

  // Begins to connect.
  explicit Connection(const SocketAddress& address);

  int fd() const noexcept { return socket_.fd(); }

  // Raises when the connection failed, once the socket is writable for the first time.
  void needConnected();
  // Puts a command behind those that wait to be sent.
  void commandIs(const Command& command);
  // Sends as much as the socket takes. True when something is left: call again once it is writable.
  bool send();
  // Takes in what has come, a bounded piece of it; false when there was nothing. Replies that came
  // before the server closed the connection can be taken before this raises.
  bool receive();
  // The next whole reply, if there is one.
  std::optional<Reply> takeReply() { return reader_.take(); }
  // Whether one has begun and not ended, after there was none to take.
  bool isInsideReply() const noexcept { return reader_.isInsideReply(); }

 private:
  const FileDescriptor socket_;
  std::string unsent_;
  RespParser reader_{kMostReplyOctets};
};

}  // namespace Kavra::Redis
