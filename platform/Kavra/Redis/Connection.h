#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "Kavra/FileDescriptor.h"
#include "Kavra/Redis/Command.h"
#include "Kavra/Redis/DocumentHash.h"
#include "Kavra/Redis/Reply.h"
#include "Kavra/Redis/RespParser.h"
#include "Kavra/SocketAddress.h"
#include "Qel/Limits.h"

namespace Kavra::Redis {

// A connection to a Redis server that never blocks and never raises a signal: whoever owns it waits
// for its descriptor. Every error raises StoreException, after which it is of no more use.
class Connection {
 public:
  // What a reply may take in memory, and the part of one that answers a command of a transaction:
  // the hash of any document. Each of its fields is two replies, with a name of 18 octets at most
  // and, for each three texts, a number of 24.
  static constexpr std::size_t kMostReplyOctets = std::size_t{96} << 20;
  static_assert(kMostFields * (2 * sizeof(Reply) + 18 + 24 / 4) +
                    Qel::Limits::kMostDocumentOctets <=
                kMostReplyOctets);

  // Begins to connect.
  explicit Connection(const SocketAddress& address);

  int fd() const noexcept { return socket_.fd(); }

  // Raises when the connection failed, once the socket is writable for the first time.
  void needConnected();
  // Puts commands behind those that wait to be sent, and allows for the reply to each.
  void commandsAre(const std::vector<Command>& commands);
  // Sends as much as the socket takes. True when something is left: call again once it is writable.
  bool send();
  // Octets sent and received so far.
  std::size_t octets() const noexcept { return octets_; }
  // Takes in what has come, a bounded piece of it; false when there was nothing. Replies that came
  // before the server closed the connection can be taken before this raises.
  bool receive();
  // The next whole reply, if there is one.
  std::optional<Reply> takeReply() { return reader_.take(); }
  // Whether one has begun and not ended, after there was none to take.
  bool isInsideReply() const noexcept { return reader_.isInsideReply(); }

 private:
  void commandIs(const Command& command);

  const FileDescriptor socket_;
  std::string unsent_;
  std::size_t sent_ = 0;  // octets of it that are sent already
  std::size_t octets_ = 0;
  RespParser reader_{kMostReplyOctets};
};

}  // namespace Kavra::Redis
