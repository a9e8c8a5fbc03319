#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Kavra/RedisAddress.h"
#include "Kavra/RedisConnection.h"

namespace Kavra {

// By what a server knows its user.
struct RedisCredentials {
  std::string user;
  std::string password;

  // Two lines, the user and the password; nothing else. Raises StoreException, never quoting what
  // the file holds. A file that others may read is traced at level 0.
  static RedisCredentials ofFile(const std::string& path);
};

// A Redis server, and who is asking there.
struct RedisServer {
  RedisAddress address;
  std::optional<RedisCredentials> credentials;

  // What every connection sends first; each command is answered by one reply.
  std::vector<RedisCommand> loginCommands() const;
};

}  // namespace Kavra
