#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Kavra/Redis/Address.h"
#include "Kavra/Redis/Command.h"
#include "Kavra/Redis/ConnectionOptions.h"
#include "Kavra/Redis/Link.h"
#include "Kavra/Redis/Reply.h"
#include "Kavra/SocketAddress.h"
#include "Qel/PollEventLoop.h"
#include "Qel/Ptr.h"

namespace Kavra::Redis {

// A connection to a Redis server for those who wait for each answer: a link on a loop of its own,
// which runs nothing else meanwhile, put-off work neither.
//
// Whatever goes wrong raises StoreException, which names the server; the client is of no more use
// then. A name is waited for as long as AddressLookup.h has patience; the link knows its own.
class Client {
 public:
  // Connects, to the first of the server's addresses that works, and logs in.
  explicit Client(const ConnectionOptions& server);
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  // Sends the commands and waits for as many replies. Errors among them are for the caller.
  std::vector<Reply> request(const std::vector<Command>& commands);
  // The outcome of a transaction of the commands, of which no key is watched, or nothing when the
  // server has no memory left for one; see MultiExec.h.
  std::optional<Reply> transaction(const std::vector<Command>& commands);

  [[noreturn]] void fail(const std::string& problem) const;

 private:
  void connect(const Address& address);
  void connectTo(const SocketAddress& address);

  const std::string name_;                  // of the server
  std::optional<Qel::PollEventLoop> loop_;  // outlives the link
  Qel::Ptr<Link> link_;
  std::optional<std::string> lost_;  // why there is no connection any more
};

}  // namespace Kavra::Redis
