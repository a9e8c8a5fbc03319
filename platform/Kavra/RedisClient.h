#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Kavra/RedisConnection.h"
#include "Kavra/RedisServer.h"

namespace Kavra {

// A connection to a Redis server for those who wait for each answer.
//
// Whatever goes wrong raises StoreException, which names the server; the client is of no more use
// then.
class RedisClient {
 public:
  // Seconds in which a connection must stand and a request must be answered.
  static constexpr double kPatience = 3.0;

  // Connects and logs in.
  explicit RedisClient(const RedisServer& server);

  // Sends the commands and waits for as many replies. Errors among them are for the caller.
  std::vector<RedisReply> request(const std::vector<RedisCommand>& commands);
  // The outcome of a transaction of the commands, of which no key is watched, or nothing when the
  // server has no memory left for one; see RedisTransaction.h.
  std::optional<RedisReply> transaction(const std::vector<RedisCommand>& commands);

  [[noreturn]] void fail(const std::string& problem) const;

 private:
  using Time = std::chrono::steady_clock::time_point;

  void connect(const RedisAddress& address);
  // False when it failed; `problem` tells why.
  bool tryToConnect(const SocketAddress& address, std::string& problem);
  void wait(short events, Time deadline) const;

  const std::string name_;  // of the server
  std::unique_ptr<RedisConnection> connection_;
};

}  // namespace Kavra
