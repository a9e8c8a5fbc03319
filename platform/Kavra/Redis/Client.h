#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Kavra/Redis/Connection.h"
#include "Kavra/Redis/ConnectionOptions.h"

namespace Kavra::Redis {

// A connection to a Redis server for those who wait for each answer.
//
// Whatever goes wrong raises StoreException, which names the server; the client is of no more use
// then.
class Client {
 public:
  // Seconds in which a connection must stand and a request must be answered.
  static constexpr double kPatience = 3.0;

  // Connects and logs in.
  explicit Client(const ConnectionOptions& server);

  // Sends the commands and waits for as many replies. Errors among them are for the caller.
  std::vector<Reply> request(const std::vector<Command>& commands);
  // The outcome of a transaction of the commands, of which no key is watched, or nothing when the
  // server has no memory left for one; see MultiExec.h.
  std::optional<Reply> transaction(const std::vector<Command>& commands);

  [[noreturn]] void fail(const std::string& problem) const;

 private:
  using Time = std::chrono::steady_clock::time_point;

  void connect(const Address& address);
  // False when it failed; `problem` tells why.
  bool tryToConnect(const SocketAddress& address, std::string& problem);
  void wait(short events, Time deadline) const;

  const std::string name_;  // of the server
  std::unique_ptr<Connection> connection_;
};

}  // namespace Kavra::Redis
